// The Travin against the emulated unit, whose output banks are wired to the
// input banks of the same number: outputs show up as input changes.
#include "UnitRig.h"

using namespace halden_test;

namespace {

using InService = CKVX_HdwKvxTravinDevice::CDiscreteInService;
using OutService = CKVX_HdwKvxTravinDevice::CDiscreteOutService;
using Change = CKVX_HdwDiscreteInService::CChange;

CKVX_HdwDiscreteInPort::CParameters InParams(uint32_t debounceUs)
{
    CKVX_HdwDiscreteInPort::CParameters p;
    p.DebounceUs = debounceUs;
    return p;
}

struct Bank {
    InService* In = nullptr;
    OutService* Out = nullptr;
};

class TravinRig : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }

    // Both banks `bank` open with their services, once the input's first state came.
    Bank OpenBank(unsigned bank, uint32_t debounceUs)
    {
        Bank b{rig.OpenWith<InService>(HDW_PORT_DISCRETE_IN, bank, HDW_SERVICE_DISCRETE_IN, InParams(debounceUs)),
            rig.OpenWith<OutService>(
                HDW_PORT_DISCRETE_OUT, bank, HDW_SERVICE_DISCRETE_OUT, CKVX_HdwDiscreteOutPort::CParameters())};
        if (!b.In || !b.Out)
            return {};
        uint32_t state = 0;
        uint64_t time = 0;
        EXPECT_TRUE(WaitUntil([&] { return b.In->GetState(state, time) == 0 && b.Out->GetDriven(state, time) == 0; }));
        return b;
    }

    UnitRig rig{UnitNamed("travin"), false};
};

} // namespace

// Writes show up as input changes, in their order, and as signals.
TEST_F(TravinRig, WritesShowUpAsInputChangesAndAsReadBackInTheirOrder)
{
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_DISCRETE_IN, 1, HDW_SERVICE_SIGNAL);
    Bank b = OpenBank(1, 0);
    ASSERT_NE(b.In, nullptr);
    ASSERT_EQ(b.Out->Set(0x05), 0u);
    ASSERT_EQ(b.Out->Clear(0x01), 0u);
    ASSERT_EQ(b.Out->Toggle(0x80), 0u);
    ASSERT_EQ(b.Out->WriteAll(0x3C), 0u);
    const auto got = ReadAll<Change>(b.In, 4);
    ASSERT_EQ(got.size(), 4u);
    const uint32_t states[] = {0x05, 0x04, 0x84, 0x3C};
    const uint32_t changed[] = {0x05, 0x01, 0x80, 0xB8};
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(got[i].State, states[i]);
        EXPECT_EQ(got[i].Changed, changed[i]);
        EXPECT_EQ(got[i].Lost, 0u);
        if (i > 0) {
            EXPECT_GT(got[i].TimeStamp, got[i - 1].TimeStamp);
        }
    }
    uint32_t driven = 0, commanded = 0;
    uint64_t time = 0;
    ASSERT_TRUE(WaitUntil([&] { return b.Out->GetDriven(driven, time) == 0 && driven == 0x3C; }));
    ASSERT_EQ(b.Out->GetCommanded(commanded), 0u);
    EXPECT_EQ(commanded, 0x3Cu);
    bool level = false;
    ASSERT_EQ(b.In->GetInput(5, level), 0u);
    EXPECT_TRUE(level);
    ASSERT_EQ(b.In->GetInput(0, level), 0u);
    EXPECT_FALSE(level);
    CKVX_HdwSignalService::CSignal sig;
    ASSERT_EQ(signals->WaitSignal(sig, 10000), 0u);
    EXPECT_EQ(sig.Kind, unsigned(HDW_SIGNAL_DISCRETE_INPUT));
    EXPECT_EQ(sig.Value, 0x05u);
    EXPECT_EQ(sig.Aux, 0x05u);
    EXPECT_EQ(sig.Port, rig.Port(HDW_PORT_DISCRETE_IN, 1));
    // The other banks saw nothing.
    EXPECT_EQ(rig.Sim.GetCounters().DiscreteInEvents[0], 0u);
}

// A burst while the unit's frames are held back: it keeps 1024 changes and
// drops the rest, which the next change that arrives carries as lost and the
// library counts.
TEST_F(TravinRig, ChangesBeyondTheUnitsQueueAreCountedAsLost)
{
    auto* in = rig.OpenWith<InService>(HDW_PORT_DISCRETE_IN, 0, HDW_SERVICE_DISCRETE_IN, InParams(0));
    ASSERT_NE(in, nullptr);
    uint32_t state = 0;
    uint64_t time = 0;
    ASSERT_TRUE(WaitUntil([&] { return in->GetState(state, time) == 0; }));
    constexpr unsigned kEdges = 4000;
    rig.Sim.SetAnswerDelayMs(1000); // no command is in flight meanwhile
    ASSERT_TRUE(rig.Sim.BounceInput(0, 0, kEdges, 2));
    ASSERT_TRUE(WaitUntil([&] {
        const hdwsim::Counters c = rig.Sim.GetCounters();
        return c.DiscreteInEvents[0] + c.DiscreteQueueFull == kEdges;
    }));
    rig.Sim.SetAnswerDelayMs(0);
    std::vector<Change> got;
    const auto readUntil = [&](const std::function<bool()>& done) {
        return WaitUntil([&] { return TakeAll(in, got), done(); });
    };
    ASSERT_TRUE(readUntil([&] { return got.size() == 1024; }));
    ASSERT_TRUE(rig.Sim.DriveInput(0, 0x02, 0x02));
    ASSERT_TRUE(readUntil([&] { return got.back().State & 0x02; }));
    const uint64_t dropped = rig.Sim.GetCounters().DiscreteQueueFull;
    EXPECT_EQ(dropped, kEdges - 1024);
    EXPECT_EQ(got.back().Lost, dropped);
    uint64_t lost = 0;
    ASSERT_EQ(in->GetLostCount(lost), 0u);
    EXPECT_EQ(lost, dropped);
    EXPECT_EQ(got.size() + lost, kEdges + 1);
}

// Writes are separate changes after the debounce; a longer pulse shows twice.
TEST_F(TravinRig, APulseLongerThanTheDebounceShowsTwice)
{
    Bank b = OpenBank(3, 1000);
    ASSERT_NE(b.In, nullptr);
    ASSERT_EQ(b.Out->Set(0x05), 0u);
    ASSERT_EQ(b.Out->Pulse(0x02, 20000), 0u);
    const auto got = ReadAll<Change>(b.In, 3);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].Changed, 0x05u);
    EXPECT_EQ(got[1].Changed, 0x02u);
    EXPECT_EQ(got[1].State, 0x07u);
    EXPECT_EQ(got[2].State, 0x05u);
    EXPECT_GT(got[1].TimeStamp, got[0].TimeStamp);
    EXPECT_NEAR(int64_t(got[2].TimeStamp - got[1].TimeStamp), 20000, 1000);
    uint32_t commanded = 99;
    ASSERT_EQ(b.Out->GetCommanded(commanded), 0u);
    EXPECT_EQ(commanded, 0x05u);
}
