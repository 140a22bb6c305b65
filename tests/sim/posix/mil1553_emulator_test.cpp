// The MIL-STD-1553 bus in the running emulator: its thread wakes for the
// bus on its own (no host input), and the program's options that set up
// simulated terminals and faults.

#include "Mil1553Host.h"

#include <hdwsim/Emulator.h>
#include <hdwsim/MilStd1553Options.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using namespace simtest;
using hdwsim::MilStd1553Fault;

TEST(Mil1553Options, TerminalsAndFaultsAreReadOrRefusedWhole)
{
    std::vector<unsigned> terminals;
    ASSERT_TRUE(hdwsim::ParseMilStd1553Terminals("5,7,30", terminals));
    EXPECT_EQ(terminals, (std::vector<unsigned>{5, 7, 30}));
    for (const char* bad : {"", "31", "5,", ",5", "5;7", "x", "-1"}) {
        std::vector<unsigned> none;
        EXPECT_FALSE(hdwsim::ParseMilStd1553Terminals(bad, none)) << bad;
        EXPECT_TRUE(none.empty()) << bad;
    }

    hdwsim::MilStd1553FaultOption f;
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("5:AB:parity:3", f));
    EXPECT_EQ(f.Address, 5u);
    EXPECT_EQ(f.Buses, (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(f.Fault, MilStd1553Fault::ParityError);
    EXPECT_EQ(f.Transfers, 3u);
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("30:B:noresponse", f));
    EXPECT_EQ(f.Buses, (std::vector<unsigned>{1}));
    EXPECT_EQ(f.Fault, MilStd1553Fault::NoResponse);
    EXPECT_EQ(f.Transfers, 0u) << "until cleared";
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("0:A:wordcount", f));
    EXPECT_EQ(f.Fault, MilStd1553Fault::BadWordCount);
    for (const char* bad :
        {"31:A:parity", "5:C:parity", "5:A:noise", "5:A", "5:A:parity:0", "5:A:parity:2:1", ":A:parity"})
        EXPECT_FALSE(hdwsim::ParseMilStd1553Fault(bad, f)) << bad;
}

// A schedule of 1 ms minor frames runs in real time: every message reported
// once, 1000 µs apart on the unit's clock, the first three with the fault.
TEST(Mil1553Emulator, TheBusRunsOnTheEmulatorsOwnClock)
{
    hdwsim::Emulator::Options o;
    o.MilStd1553Terminals = {5};
    hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
    std::string error;
    ASSERT_TRUE(sim.Start(&error)) << error;
    ASSERT_TRUE(sim.SetMilStd1553Fault(5, 0, MilStd1553Fault::NoResponse, 3));
    const int fd = open(sim.PtyPath().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    termios t{};
    tcgetattr(fd, &t);
    cfmakeraw(&t);
    tcsetattr(fd, TCSANOW, &t);

    unsigned number = 1;
    std::vector<Bytes> records = SramWrite(number, 32 * 8, DescriptorWords(32, {0, Cmd(5, true, 1, 4), 0, 0x0020}));
    for (const Bytes& r : SramWrite(number, 0x1000, MajorFrameTable({{100, {32}}})))
        records.push_back(r);
    records.push_back(MilConfigRecord(number++, 0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10, 20}));
    const Bytes frame = FrameOf(records);
    ASSERT_EQ(write(fd, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));

    UnitStream stream;
    const bool stopped = WaitUntil([&] {
        uint8_t buf[4096];
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n > 0)
            stream.Feed(buf, static_cast<size_t>(n));
        const auto all = MilEvents(stream);
        return !all.empty() && all.back().Kind == 4;
    });
    close(fd);
    ASSERT_TRUE(stopped);
    const auto done = MilEvents(stream, 1);
    ASSERT_EQ(done.size(), 20u);
    for (size_t i = 0; i < done.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(done[i].TransferId, 0x0020u);
        EXPECT_EQ(done[i].Flags, i < 3 ? NoResponse : 0u);
        if (i > 0) {
            EXPECT_EQ(done[i].Time - done[i - 1].Time, 1000u);
        }
    }
    EXPECT_EQ(MilEvents(stream, 4).back().Time - done[0].Time, 20'000u);
    EXPECT_EQ(sim.GetCounters().Mil1553Transfers[0], 20u);
}
