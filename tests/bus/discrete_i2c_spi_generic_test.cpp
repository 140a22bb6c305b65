// The generic discrete, I2C and SPI classes: parameter and transfer checks, the state a driver feeds, bookkeeping.
#include "TestBusDevice.h"
#include "support/Wait.h"

#include <thread>
#include <tuple>
#include <vector>

using namespace bustest;

namespace {

class DiscreteIn : public ::testing::Test {
protected:
    void SetUp() override
    {
        port = rig.DiscreteIn();
        in = Enable<CKVX_HdwDiscreteInService>(port, HDW_SERVICE_DISCRETE_IN);
        ASSERT_NE(in, nullptr);
    }
    void Open(uint32_t bufferSize = 4096)
    {
        CKVX_HdwDiscreteInService::CParameters p;
        p.BufferSize = bufferSize;
        ASSERT_EQ(in->SetParameters(&p), 0u);
        ASSERT_EQ(port->Open(nullptr), 0u);
    }
    std::vector<CKVX_HdwDiscreteInService::CChange> ReadAll()
    {
        std::vector<CKVX_HdwDiscreteInService::CChange> all(64);
        unsigned n = 0;
        if (in->Read(all.data(), unsigned(all.size()), n) != 0)
            n = 0;
        all.resize(n);
        return all;
    }
    CBusRig rig;
    CTestDiscreteInPort* port = nullptr;
    CKVX_HdwDiscreteInService* in = nullptr;
};

TEST_F(DiscreteIn, ChangesComeInOrderWithTheirLossesAndStoppedFailedOrFullQueuesAnswerTheirCodes)
{
    unsigned count = 0;
    CKVX_HdwDiscreteInService::CChange c;
    EXPECT_EQ(in->Read(&c, 1, count), unsigned(HDW_ERR_SERVICE_NOT_RUNNING));
    EXPECT_EQ(in->GetChangeCount(count), unsigned(HDW_ERR_SERVICE_NOT_RUNNING));
    Open();
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x00, 0, 65534, 10, false); // base from the read answer
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x01, 0x01, 65535, 20);
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x00, 0x01, 0, 30); // wraps
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x03, 0x03, 4, 40); // 1, 2 and 3 missed
    auto got = ReadAll();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(std::tuple(got[0].State, got[0].TimeStamp, got[0].Lost), std::tuple(0x01u, 20u, 0u));
    EXPECT_EQ(std::tuple(got[1].TimeStamp, got[1].Lost), std::tuple(30u, 0u));
    EXPECT_EQ(std::tuple(got[2].Changed, got[2].Lost), std::tuple(0x03u, 3u));
    uint64_t lost = 0;
    ASSERT_EQ(in->GetLostCount(lost), 0u);
    EXPECT_EQ(lost, 3u);
    count = 99;
    EXPECT_EQ(in->Read(&c, 1, count), unsigned(HDW_ERR_NOTHING_TO_READ));
    EXPECT_EQ(count, 0u);

    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x01, 0x02, 5, 50);
    EXPECT_EQ(in->Read(nullptr, 1, count), unsigned(HDW_ERR_ARGUMENT));
    rig.Fail(HDW_PORT_DISCRETE_IN, "DIN0");
    EXPECT_EQ(in->Read(&c, 1, count), unsigned(HDW_ERR_SERVICE));
    EXPECT_EQ(in->ResetChanges(), unsigned(HDW_ERR_SERVICE));
    port->Close();
    // Closing forgets the queue and the state; reopening starts afresh.
    Open(2);
    count = 99;
    ASSERT_EQ(in->GetChangeCount(count), 0u);
    EXPECT_EQ(count, 0u);
    uint32_t state = 0;
    uint64_t time = 0;
    EXPECT_EQ(in->GetState(state, time), unsigned(HDW_ERR_NOTHING_TO_READ));
    // The first change without a base counts no loss.
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x04, 0x04, 500, 10);
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x00, 0x04, 501, 20);
    got = ReadAll();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(std::tuple(got[0].Lost, got[1].Lost), std::tuple(0u, 0u));
    // A full queue (2 here) drops the oldest changes and counts them lost.
    for (uint16_t seq = 502; seq <= 506; ++seq)
        rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, seq & 1u, 0x01, seq, seq * 100u);
    got = ReadAll();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(std::tuple(got[0].TimeStamp, got[1].TimeStamp), std::tuple(50500u, 50600u));
    ASSERT_EQ(in->GetLostCount(lost), 0u);
    EXPECT_EQ(lost, 3u);
}

TEST(DiscreteOut, OpenChecksItsParametersThenReadBackAndSequenceGaps)
{
    CBusRig rig;
    auto* port = rig.DiscreteOut();
    auto* out = Enable<CKVX_HdwDiscreteOutService>(port, HDW_SERVICE_DISCRETE_OUT);
    ASSERT_NE(out, nullptr);
    CKVX_HdwDiscreteOutPort::CParameters p;
    std::tie(p.InitialState, p.InvertMask) = std::tuple(0xA5u, 0x8000u);
    EXPECT_EQ(port->Open(&p), unsigned(HDW_ERR_ARGUMENT));
    EXPECT_FALSE(port->IsOpen());
    p.InvertMask = 0x0F;
    ASSERT_EQ(port->Open(&p), 0u);
    uint32_t commanded = 0, driven = 0;
    ASSERT_EQ(out->GetCommanded(commanded), 0u);
    EXPECT_EQ(commanded, 0xA5u) << "the commanded state starts as the initial one";
    uint64_t time = 0, lost = 0;
    EXPECT_EQ(out->GetDriven(driven, time), unsigned(HDW_ERR_NOTHING_TO_READ));
    rig.ReportDiscrete(HDW_PORT_DISCRETE_OUT, 0x00, 0x00, 1, 100); // bank on
    rig.ReportDiscrete(HDW_PORT_DISCRETE_OUT, 0x00, 0x00, 1, 110); // read answer repeats it
    rig.ReportDiscrete(HDW_PORT_DISCRETE_OUT, 0x0F, 0x0F, 2, 120);
    ASSERT_EQ(out->GetLostCount(lost), 0u);
    EXPECT_EQ(lost, 0u);
    rig.ReportDiscrete(HDW_PORT_DISCRETE_OUT, 0xF0, 0xFF, 5, 130); // 3 and 4 missed
    ASSERT_EQ(out->GetDriven(driven, time), 0u);
    EXPECT_EQ(std::tuple(driven, time), std::tuple(0xF0u, uint64_t(130)));
    ASSERT_EQ(out->GetLostCount(lost), 0u);
    EXPECT_EQ(lost, 2u);
}

class I2cSpiRig : public ::testing::Test {
protected:
    CTestI2cMaster* OpenI2c(uint32_t bound = 64)
    {
        CKVX_HdwI2cMasterService::CParameters p;
        p.BufferSize = bound;
        auto* s = Enable<CTestI2cMaster>(I2c, HDW_SERVICE_I2C_MASTER);
        EXPECT_EQ(s->SetParameters(&p), 0u);
        EXPECT_EQ(I2c->Open(nullptr), 0u);
        return s;
    }
    // Waits for the unit's side to see n transfers queued or in flight.
    static bool WaitPending(CTestI2cMaster* s, unsigned n)
    {
        return testsupport::WaitUntil([&] {
            unsigned pending = 0;
            s->GetPendingCount(pending);
            return pending == n;
        });
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

TEST(I2cSpiChecks, TransferAndParameterRanges)
{
    auto i2c = [](uint16_t address, bool tenBit, unsigned write, unsigned read) {
        CKVX_HdwI2cTransfer t;
        std::tie(t.Address, t.TenBit, t.ReadLength) = std::tuple(address, tenBit, read);
        t.Write.Create(write);
        return t.Check();
    };
    auto spi = [](unsigned bytes, unsigned wordBits) {
        CKVX_HdwSpiTransfer t;
        t.Out.Create(bytes);
        return t.Check(wordBits);
    };
    auto spiPort = [](uint8_t mode, uint8_t wordBits) {
        CKVX_HdwSpiPort::CParameters p;
        std::tie(p.Mode, p.WordBits) = std::tuple(mode, wordBits);
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
    CTestI2cMaster* s = OpenI2c(3);
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
        ASSERT_TRUE(WaitPending(s, 2));
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
    // EXPECT, not ASSERT: the close below ends the waiting thread either way.
    EXPECT_TRUE(WaitPending(s, 1));
    EXPECT_EQ(I2c->Close(), 0u);
    app.join();
    EXPECT_EQ(rc, 29u);
}

} // namespace
