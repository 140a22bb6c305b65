// The generic discrete classes: parameter checks and the state a driver feeds.
#include "TestBusDevice.h"

#include <gtest/gtest.h>

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

TEST_F(DiscreteIn, ChangesComeOutInOrderWithTheirLostCounts)
{
    Open();
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x00, 0, 65534, 10, false); // base from the read answer
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x01, 0x01, 65535, 20);
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x00, 0x01, 0, 30); // wraps
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x03, 0x03, 4, 40); // 1, 2 and 3 missed
    const auto got = ReadAll();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(std::tuple(got[0].State, got[0].TimeStamp, got[0].Lost), std::tuple(0x01u, 20u, 0u));
    EXPECT_EQ(std::tuple(got[1].TimeStamp, got[1].Lost), std::tuple(30u, 0u));
    EXPECT_EQ(std::tuple(got[2].Changed, got[2].Lost), std::tuple(0x03u, 3u));
    uint64_t lost = 0;
    ASSERT_EQ(in->GetLostCount(lost), 0u);
    EXPECT_EQ(lost, 3u);
    unsigned n = 0;
    CKVX_HdwDiscreteInService::CChange one;
    EXPECT_EQ(in->Read(&one, 1, n), unsigned(HDW_ERR_NOTHING_TO_READ));
    EXPECT_EQ(n, 0u);
}

TEST_F(DiscreteIn, StoppedAndFailedServicesAnswerTheirCodesAndAFullQueueDropsTheOldest)
{
    unsigned count = 0;
    CKVX_HdwDiscreteInService::CChange c;
    EXPECT_EQ(in->Read(&c, 1, count), unsigned(HDW_ERR_SERVICE_NOT_RUNNING));
    EXPECT_EQ(in->GetChangeCount(count), unsigned(HDW_ERR_SERVICE_NOT_RUNNING));
    Open();
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 1, 1, 1, 10);
    EXPECT_EQ(in->Read(nullptr, 1, count), unsigned(HDW_ERR_ARGUMENT));
    rig.Fail(HDW_PORT_DISCRETE_IN, "DIN0");
    EXPECT_EQ(in->Read(&c, 1, count), unsigned(HDW_ERR_SERVICE));
    EXPECT_EQ(in->ResetChanges(), unsigned(HDW_ERR_SERVICE));
    port->Close();
    // Closing forgets the queue and the state; reopening starts afresh.
    Open(2);
    ASSERT_EQ(in->GetChangeCount(count), 0u);
    EXPECT_EQ(count, 0u);
    uint32_t state = 0;
    uint64_t time = 0;
    EXPECT_EQ(in->GetState(state, time), unsigned(HDW_ERR_NOTHING_TO_READ));
    // The first change without a base counts no loss.
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x04, 0x04, 500, 10);
    rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, 0x00, 0x04, 501, 20);
    auto got = ReadAll();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(std::tuple(got[0].Lost, got[1].Lost), std::tuple(0u, 0u));
    // A full queue (2 here) drops the oldest changes and counts them lost.
    for (uint16_t seq = 502; seq <= 506; ++seq)
        rig.ReportDiscrete(HDW_PORT_DISCRETE_IN, seq & 1u, 0x01, seq, seq * 100u);
    got = ReadAll();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(std::tuple(got[0].TimeStamp, got[1].TimeStamp), std::tuple(50500u, 50600u));
    uint64_t lost = 0;
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
    p.InitialState = 0xA5;
    p.InvertMask = 0x8000;
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

} // namespace
