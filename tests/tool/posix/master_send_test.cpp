// hdwtool send and monitor --poll on the Wendal's I2C and SPI masters: the
// transfer syntax, one line per transfer with its result, the exit status,
// and values refused before a unit is touched.
#include "MasterSend.h"
#include "Spawn.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using tooltest::Output;
using tooltest::Tool;

// A transfer line without its time: PORT TARGET WRITE READ RESULT...
std::string Fields(const std::string& line)
{
    std::istringstream in(line);
    std::string time, word, rest;
    in >> time;
    while (in >> word)
        rest += (rest.empty() ? "" : " ") + word;
    return rest;
}

TEST(ToolMasterValues, I2cAndSpiTransferSyntax)
{
    const struct {
        bool i2c;
        const char* text;
        bool ok;
    } rows[] = {
        {true, "addr=0x50,write=hex:20.01.02", true}, {true, "addr=0x50,write=hex:20,read=2", true},
        {true, "addr=0x34", true}, // an address probe
        {true, "addr=0x80", false}, // above 7 bits
        {true, "write=hex:01", false}, // no address
        {false, "out=hex:01.02.03", true}, {false, "out=hex:01,cs=1,keep=1", true},
        {false, "cs=1", false}, // nothing to shift out
    };
    for (const auto& r : rows) {
        CKVX_HdwI2cTransfer t;
        CKVX_HdwSpiTransfer s;
        std::string error;
        EXPECT_EQ(r.i2c ? hdwtool::ParseI2cValue(r.text, t, error) : hdwtool::ParseSpiValue(r.text, s, error), r.ok)
            << r.text << ": " << error;
        EXPECT_EQ(error.empty(), r.ok) << r.text;
    }
    CKVX_HdwI2cTransfer t;
    std::string error;
    ASSERT_TRUE(hdwtool::ParseI2cValue("addr=0x250,tenbit=1,write=hex:07.08,reg=6,read=3", t, error)) << error;
    EXPECT_EQ(t.Address, 0x250u);
    EXPECT_TRUE(t.TenBit);
    EXPECT_EQ(t.Write.Items(), (std::vector<uint8_t>{6, 7, 8})); // the register first
    EXPECT_EQ(t.ReadLength, 3u);
}

TEST(ToolSend, I2cAndSpiTransfersOnTheWendal)
{
    tooltest::LocalSim sim("wendal", "7");
    const std::string& link = sim.Link;

    // Bad values and settings first: usage errors, nothing sent to the unit.
    using Args = std::vector<std::string>;
    for (const Args& bad : {Args{"send", "i2c:0", "addr=0x80"}, Args{"send", "spi:0", "cs=1"},
             Args{"send", "spi:0", "--mode", "4", "out=hex:01"},
             Args{"monitor", "spi:0", "--poll", "out=hex:01,every=0"},
             Args{"monitor", "i2c:0", "can:0", "--poll", "addr=0x50"}, Args{"monitor", "i2c:0"}}) {
        Args args{bad[0], "--link", link};
        args.insert(args.end(), bad.begin() + 1, bad.end());
        EXPECT_EQ(Tool(args).Status, 2) << bad[0] << " " << bad[2];
    }
    EXPECT_EQ(sim.Counters().CommandsReceived, 0u);

    Output o = Tool({"send", "--link", link, "i2c:1", "--speed", "400k", "addr=0x50,reg=0x20,write=hex:0A.0B",
        "addr=0x50,reg=0x20,read=2", "addr=0x33", "addr=0x20,write=hex:01"});
    EXPECT_EQ(o.Status, 1) << o.Err; // a missing acknowledge fails the run
    std::vector<std::string> lines;
    for (const auto& l : o.Lines())
        lines.push_back(Fields(l));
    EXPECT_EQ(lines,
        (std::vector<std::string>{"i2c:1 0x50 20.0A.0B - ok", "i2c:1 0x50 20 0A.0B ok", "i2c:1 0x33 - - nack address",
            "i2c:1 0x20 01 - nack data"}));
    EXPECT_EQ(sim.Counters().I2cTransfers[1], 4u);

    o = Tool({"send", "--link", link, "spi:0", "--mode", "2", "--clock", "5M", "out=hex:01.02.03"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 1u) << o.Out;
    EXPECT_EQ(Fields(o.Lines()[0]), "spi:0 cs=port 01.02.03 01.02.03 ok");

    // monitor runs its polls on their intervals, in the same line format.
    o = Tool({"monitor", "--link", link, "i2c:1", "--count", "3", "--poll", "addr=0x50,reg=0x20,read=2,every=200ms",
        "--poll", "addr=0x33,every=1"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 3u) << o.Out;
    EXPECT_EQ(Fields(o.Lines()[0]), "i2c:1 0x50 20 0A.0B ok");
    EXPECT_EQ(Fields(o.Lines()[1]), "i2c:1 0x33 - - nack address");
    EXPECT_EQ(Fields(o.Lines()[2]), "i2c:1 0x50 20 0A.0B ok"); // 0x33 is due again only after 1 s
    EXPECT_GE(std::stod(o.Lines()[2]), 0.19); // its second run, due 200 ms after the start
}

} // namespace
