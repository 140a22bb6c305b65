// hdwtool replay against an emulator in this process, whose counters tell
// what reached the CAN transmitter.
#include "Spawn.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

using tooltest::Output;
using tooltest::Tool;

struct TempFile {
    explicit TempFile(const std::string& text)
    {
        char path[] = "/tmp/hdwtool_replay_XXXXXX";
        close(mkstemp(path));
        Path = path;
        std::ofstream(Path) << text;
    }
    ~TempFile() { std::remove(Path.c_str()); }
    std::string Path;
};

struct ToolReplay : ::testing::Test {
    tooltest::LocalSim sim;
    const std::string& link = sim.Link;
};

} // namespace

TEST_F(ToolReplay, FramesOfOneInterfaceWithTheirGapsOrEveryInterfaceFast)
{
    // can0's frames span 0.6 s; another interface's lines and an error frame between.
    const TempFile log("(1700000000.000000) can0 123#DEADBEEF\n"
                       "(1700000000.100000) vcan9 555#01\n"
                       "\n"
                       "(1700000000.200000) can0 1F334455#R3\n"
                       "(1700000000.300000) can0 20000080#0000000000000000\n"
                       "(1700000000.400000) can0 7FF# R\n"
                       "(1700000000.500000) vcan9 556#02\n"
                       "(1700000000.600000) can0 00000001#0102030405060708\n");
    const auto start = std::chrono::steady_clock::now();
    Output o = Tool({"replay", "--link", link, log.Path, "can:0", "--verbose"});
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_EQ(o.Status, 0) << o.Err;
    std::vector<std::string> sent;
    for (const auto& l : o.Lines())
        sent.push_back(l.substr(l.rfind(' ') + 1));
    EXPECT_EQ(sent, (std::vector<std::string>{"123#DEADBEEF", "1F334455#R3", "7FF#", "00000001#0102030405060708"}));
    EXPECT_NE(o.Err.find("replayed 4 frames of can0 on can:0, skipped 2 lines of other interfaces, skipped 1 error "
                         "frames"),
        std::string::npos)
        << o.Err;
    EXPECT_GE(took, 0.6); // the gaps were kept (only a lower bound holds on a loaded machine)
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 4u);

    o = Tool({"replay", "--link", link, "--fast", "--interface", "vcan9", log.Path, "can:1"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[1], 2u);
    o = Tool({"replay", "--link", link, "--fast", "--all-interfaces", log.Path, "can:0"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 4u + 6u);

    // An interface the file does not have is an error, not an empty replay.
    o = Tool({"replay", "--link", link, "--fast", "--interface", "can7", log.Path, "can:1"});
    EXPECT_EQ(o.Status, 1);
    EXPECT_NE(o.Err.find("has no line of interface can7 (it has can0, vcan9)"), std::string::npos) << o.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[1], 2u);
}

TEST_F(ToolReplay, AMalformedLineIsAnErrorWithItsNumberAndNothingIsSent)
{
    const TempFile log("(1.000000) can0 123#00\n\n(1.5) can0 12#00\n");
    Output o = Tool({"replay", "--link", link, log.Path, "can:0"});
    EXPECT_EQ(o.Status, 1);
    EXPECT_NE(o.Err.find("replay: " + log.Path + ":3: CAN identifier \"12\""), std::string::npos) << o.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 0u);

    const struct {
        std::vector<std::string> Args;
        int Status;
        const char* Says;
    } cases[] = {
        {{"replay", "--link", link, log.Path}, 2, "a candump log file and a CAN port"},
        {{"replay", "--link", link, log.Path, "a429tx:0"}, 2, "not a CAN port"},
        {{"replay", "--link", link, "--interface", "can0", "--all-interfaces", log.Path, "can:0"}, 2, "exclude"},
        {{"replay", "--link", link, "/nonexistent/can.log", "can:0"}, 1, "cannot read /nonexistent/can.log"},
    };
    for (const auto& c : cases) {
        o = Tool(c.Args);
        EXPECT_EQ(o.Status, c.Status) << o.Err;
        EXPECT_NE(o.Err.find(c.Says), std::string::npos) << o.Err;
    }
}
