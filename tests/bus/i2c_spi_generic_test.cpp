// The generic I2C and SPI master classes: transfer checks and bookkeeping.
#include "TestBusDevice.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

using namespace bustest;

namespace {

class I2cSpiRig : public ::testing::Test {
protected:
    CTestI2cMaster* OpenI2c()
    {
        auto* s = Enable<CTestI2cMaster>(I2c, HDW_SERVICE_I2C_MASTER);
        EXPECT_EQ(I2c->Open(nullptr), 0u);
        return s;
    }

    CBusRig rig; // closes the ports as its manager stops
    CTestI2cPort* I2c = rig.I2c();
};

CKVX_HdwI2cTransfer I2cWrite(uint16_t address, std::vector<uint8_t> bytes, uint32_t tag = 0)
{
    CKVX_HdwI2cTransfer t;
    t.Address = address;
    t.Write = CKVX_Uint8Vector(bytes.data(), unsigned(bytes.size()));
    t.Tag = tag;
    return t;
}

} // namespace

TEST(I2cSpiChecks, TransferAndParameterRanges)
{
    auto i2c = [](uint16_t address, bool tenBit, unsigned write, unsigned read) {
        CKVX_HdwI2cTransfer t;
        t.Address = address;
        t.TenBit = tenBit;
        t.Write.Create(write);
        t.ReadLength = read;
        return t.Check();
    };
    auto spi = [](unsigned bytes, unsigned wordBits) {
        CKVX_HdwSpiTransfer t;
        t.Out.Create(bytes);
        return t.Check(wordBits);
    };
    auto spiPort = [](uint8_t mode, uint8_t wordBits) {
        CKVX_HdwSpiPort::CParameters p;
        p.Mode = mode;
        p.WordBits = wordBits;
        return p.Check();
    };
    const struct {
        const char* name;
        unsigned actual, expected;
    } rows[] = {
        {"7-bit 0x7F", i2c(0x7F, false, 1, 0), 0},
        {"7-bit 0x80", i2c(0x80, false, 1, 0), 2},
        {"10-bit 0x3FF", i2c(0x3FF, true, 1, 0), 0},
        {"write 4097", i2c(0x50, false, 4097, 0), 2},
        {"SPI 4096", spi(4096, 8), 0},
        {"SPI 3 bytes of 16-bit words", spi(3, 16), 2},
        {"SPI mode 4", spiPort(4, 8), 2},
        {"SPI word 17", spiPort(0, 17), 2},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.actual, r.expected) << r.name;
}

// A result must carry the oldest transfer's wire tag; the bound counts submitted plus unread.
TEST_F(I2cSpiRig, ResultsInSubmissionOrderAndTheBound)
{
    CKVX_HdwI2cMasterService::CParameters p;
    p.BufferSize = 3;
    auto* s = Enable<CTestI2cMaster>(I2c, HDW_SERVICE_I2C_MASTER);
    ASSERT_EQ(s->SetParameters(&p), 0u);
    ASSERT_EQ(I2c->Open(nullptr), 0u);
    for (uint32_t tag = 10; tag < 13; ++tag) {
        CKVX_HdwI2cTransfer t = I2cWrite(0x50, {uint8_t(tag)}, tag);
        ASSERT_EQ(s->Submit(t), 0u);
    }
    CKVX_HdwI2cTransfer extra = I2cWrite(0x50, {1});
    EXPECT_EQ(s->Submit(extra), 10u) << "bound of 3";
    CKVX_HdwI2cTransfer badAddress = I2cWrite(0x80, {1});
    EXPECT_EQ(s->Submit(badAddress), 2u);

    EXPECT_EQ(s->Send(0), 0u);
    EXPECT_EQ(s->Send(0), 1u);
    EXPECT_EQ(s->InFlight(), 2u);
    EXPECT_FALSE(s->Finish(1, 0)) << "not the oldest";
    EXPECT_TRUE(s->Finish(0, HDW_ERR_NO_ACK, {}, true));
    EXPECT_TRUE(s->Finish(1, 0, {7, 8}));
    EXPECT_EQ(s->Submit(extra), 10u) << "unread results still count";

    CKVX_HdwI2cTransfer r;
    ASSERT_EQ(s->ReadResult(r), 0u);
    EXPECT_EQ(std::tuple(r.Tag, r.Result), std::tuple(10u, 33u));
    ASSERT_EQ(s->ReadResult(r), 0u);
    EXPECT_EQ(std::tuple(r.Tag, r.Read.Items(), r.TimeStamp), std::tuple(11u, std::vector<uint8_t>{7, 8}, 1234u));
    EXPECT_EQ(s->Submit(extra), 0u);
    unsigned pending = 0;
    EXPECT_EQ(s->GetPendingCount(pending), 0u);
    EXPECT_EQ(pending, 2u);

    s->Fail();
    EXPECT_EQ(s->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    for (uint32_t tag : {12u, 0u}) {
        ASSERT_EQ(s->ReadResult(r), 0u);
        EXPECT_EQ(std::tuple(r.Tag, r.Result), std::tuple(tag, 15u));
    }
    EXPECT_EQ(s->ReadResult(r), 4u);
}

// An earlier result stays for ReadResult; a timed-out Transfer's result comes later.
TEST_F(I2cSpiRig, TransferWaitsForItsOwnResultUntilClosed)
{
    CTestI2cMaster* s = OpenI2c();
    CKVX_HdwI2cTransfer first = I2cWrite(0x50, {0}, 1);
    ASSERT_EQ(s->Submit(first), 0u);
    std::thread unit([&] {
        ASSERT_TRUE(testsupport::WaitUntil([&] {
            unsigned n = 0;
            s->GetPendingCount(n);
            return n == 2;
        }));
        uint32_t a = s->Send(0), b = s->Send(0);
        EXPECT_TRUE(s->Finish(a, 0));
        EXPECT_TRUE(s->Finish(b, 0, {0xAB, 0xCD}));
    });
    CKVX_HdwI2cTransfer mine = I2cWrite(0x50, {0}, 2);
    mine.ReadLength = 2;
    EXPECT_EQ(s->Transfer(mine, 20000), 0u);
    unit.join();
    EXPECT_EQ(std::tuple(mine.Tag, mine.Read.Items()), std::tuple(2u, std::vector<uint8_t>{0xAB, 0xCD}));
    unsigned results = 0;
    EXPECT_EQ(s->GetResultCount(results), 0u);
    EXPECT_EQ(results, 1u);
    CKVX_HdwI2cTransfer r;
    ASSERT_EQ(s->ReadResult(r), 0u);
    EXPECT_EQ(r.Tag, 1u);

    CKVX_HdwI2cTransfer slow = I2cWrite(0x50, {0}, 3);
    EXPECT_EQ(s->Transfer(slow, 1), 22u);
    EXPECT_TRUE(s->Finish(s->Send(0), HDW_ERR_BUS_FAULT));
    ASSERT_EQ(s->ReadResult(r), 0u);
    EXPECT_EQ(std::tuple(r.Tag, r.Result, r.Fault), std::tuple(3u, 34u, 1u));

    unsigned rc = 0;
    std::thread app([&] {
        CKVX_HdwI2cTransfer t = I2cWrite(0x50, {0});
        rc = s->Transfer(t, 60000);
    });
    ASSERT_TRUE(testsupport::WaitUntil([&] {
        unsigned n = 0;
        s->GetPendingCount(n);
        return n == 1;
    }));
    EXPECT_EQ(I2c->Close(), 0u);
    app.join();
    EXPECT_EQ(rc, 29u);
}
