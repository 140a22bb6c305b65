// hdwtool send on the Wendal's I2C and SPI masters: the transfer syntax,
// one line per transfer with its result, the exit status, and values
// refused before a unit is touched.
#include <hdwsim/Emulator.h>

#include "MasterSend.h"
#include "Spawn.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tooltest::Output;
using tooltest::Tool;

TEST(ToolMasterValues, I2cAndSpiTransferSyntax)
{
    struct Row {
        const char* text;
        bool ok;
    };
    const Row i2c[] = {
        {"addr=0x50,write=hex:20.01.02", true},
        {"addr=0x50,write=hex:20,read=2", true},
        {"addr=0x250,tenbit=1,read=1", true},
        {"addr=0x34", true}, // an address probe
        {"addr=0x80", false}, // above 7 bits
        {"addr=0x400,tenbit=1", false},
        {"write=hex:01", false}, // no address
        {"addr=0x50,speed=3", false},
        {"addr=0x50,read=4097", false},
    };
    for (const Row& r : i2c) {
        CKVX_HdwI2cTransfer t;
        std::string error;
        EXPECT_EQ(hdwtool::ParseI2cValue(r.text, t, error), r.ok) << r.text << ": " << error;
        EXPECT_EQ(error.empty(), r.ok) << r.text;
    }
    CKVX_HdwI2cTransfer t;
    std::string error;
    ASSERT_TRUE(hdwtool::ParseI2cValue("addr=0x250,tenbit=1,write=hex:07.08,read=3", t, error)) << error;
    EXPECT_EQ(t.Address, 0x250u);
    EXPECT_TRUE(t.TenBit);
    EXPECT_EQ(t.Write.Items(), (std::vector<uint8_t>{7, 8}));
    EXPECT_EQ(t.ReadLength, 3u);

    const Row spi[] = {
        {"out=hex:01.02.03", true},
        {"out=hex:01,cs=1,keep=1", true},
        {"cs=1", false}, // nothing to shift out
        {"out=hex:01,keep=2", false},
        {"out=hex:01,mode=1", false},
    };
    for (const Row& r : spi) {
        CKVX_HdwSpiTransfer s;
        std::string e;
        EXPECT_EQ(hdwtool::ParseSpiValue(r.text, s, e), r.ok) << r.text << ": " << e;
    }
}

TEST(ToolSend, I2cAndSpiTransfersOnTheWendal)
{
    hdwsim::Emulator::Options opt;
    opt.Pty = true;
    hdwsim::Emulator sim(*hdwsim::FindUnitModel("wendal"), opt);
    std::string error;
    ASSERT_TRUE(sim.Start(&error)) << error;
    const std::string link = "7:" + sim.PtyPath();

    Output o = Tool({"send", "--link", link, "i2c:1", "--speed", "400k", "addr=0x50,write=hex:20.0A.0B",
        "addr=0x50,write=hex:20,read=2"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 2u) << o.Out;
    EXPECT_NE(o.Lines()[1].find("R 0A.0B"), std::string::npos) << o.Lines()[1];
    EXPECT_NE(o.Lines()[1].find(" ok"), std::string::npos) << o.Lines()[1];
    EXPECT_EQ(sim.GetCounters().I2cTransfers[1], 2u);

    // A missing acknowledge is reported as such, and fails the run.
    o = Tool({"send", "--link", link, "i2c:0", "addr=0x33", "addr=0x20,write=hex:01"});
    EXPECT_EQ(o.Status, 1);
    ASSERT_EQ(o.Lines().size(), 2u) << o.Out;
    EXPECT_NE(o.Lines()[0].find("no acknowledge (address)"), std::string::npos) << o.Lines()[0];
    EXPECT_NE(o.Lines()[1].find("no acknowledge (data)"), std::string::npos) << o.Lines()[1];

    o = Tool({"send", "--link", link, "spi:0", "--mode", "2", "--clock", "5M", "out=hex:01.02.03"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 1u) << o.Out;
    EXPECT_NE(o.Lines()[0].find("in 01.02.03"), std::string::npos) << o.Lines()[0];

    // Bad values and settings: usage errors, nothing sent.
    const auto before = sim.GetCounters().CommandsReceived;
    for (const std::vector<std::string>& bad :
        {std::vector<std::string>{"i2c:0", "addr=0x80"}, std::vector<std::string>{"spi:0", "cs=1"},
            std::vector<std::string>{"spi:0", "--mode", "4", "out=hex:01"}}) {
        std::vector<std::string> args{"send", "--link", link};
        args.insert(args.end(), bad.begin(), bad.end());
        EXPECT_EQ(Tool(args).Status, 2) << bad[1];
    }
    EXPECT_EQ(sim.GetCounters().CommandsReceived, before);
}

} // namespace
