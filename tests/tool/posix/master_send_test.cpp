// hdwtool send and monitor --poll on the Wendal's I2C and SPI masters: the
// transfer syntax, one line per transfer with its result, the exit status,
// and values refused before a unit is touched.
#include "MasterSend.h"
#include "Spawn.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tooltest::Row;
using tooltest::Rows;
using tooltest::Tool;

// A transfer line without its time: PORT TARGET WRITE READ RESULT...
std::vector<std::string> Transfers(const std::vector<Row>& rows)
{
    std::vector<std::string> lines;
    for (const Row& w : rows) {
        lines.emplace_back();
        for (size_t i = 1; i < w.size(); ++i)
            lines.back() += (i > 1 ? " " : "") + w[i];
    }
    return lines;
}

// What the Wendal test below sends no example of.
TEST(ToolMasterValues, I2cAndSpiTransferSyntax)
{
    CKVX_HdwI2cTransfer t, noAddress;
    CKVX_HdwSpiTransfer s;
    std::string error, spiError, i2cError;
    EXPECT_FALSE(hdwtool::ParseI2cValue("write=hex:01", noAddress, error));
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(hdwtool::ParseSpiValue("out=hex:01,cs=1,keep=1", s, spiError)) << spiError;
    ASSERT_TRUE(hdwtool::ParseI2cValue("addr=0x250,tenbit=1,write=hex:07.08,reg=6,read=3", t, i2cError)) << i2cError;
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

    // A missing acknowledge fails the run.
    EXPECT_EQ(Transfers(Rows({"send", "--link", link, "i2c:1", "--speed", "400k", "addr=0x50,reg=0x20,write=hex:0A.0B",
                                 "addr=0x50,reg=0x20,read=2", "addr=0x33", "addr=0x20,write=hex:01"},
                  4, 1)),
        (std::vector<std::string>{"i2c:1 0x50 20.0A.0B - ok", "i2c:1 0x50 20 0A.0B ok", "i2c:1 0x33 - - nack address",
            "i2c:1 0x20 01 - nack data"}));
    EXPECT_EQ(sim.Counters().I2cTransfers[1], 4u);
    EXPECT_EQ(Transfers(Rows({"send", "--link", link, "spi:0", "--mode", "2", "--clock", "5M", "out=hex:01.02.03"}, 1)),
        (std::vector<std::string>{"spi:0 cs=port 01.02.03 01.02.03 ok"}));

    // monitor runs its polls on their intervals, in the same line format; 0x33
    // is due again only after 1 s, 0x50 200 ms after the start.
    const auto polls = Rows({"monitor", "--link", link, "i2c:1", "--count", "3", "--poll",
                                "addr=0x50,reg=0x20,read=2,every=200ms", "--poll", "addr=0x33,every=1"},
        3);
    EXPECT_EQ(Transfers(polls),
        (std::vector<std::string>{"i2c:1 0x50 20 0A.0B ok", "i2c:1 0x33 - - nack address", "i2c:1 0x50 20 0A.0B ok"}));
    EXPECT_GE(std::stod(polls[2][0]), 0.19);
}

} // namespace
