// MIL-STD-1553 end to end: the controller on 0 against the terminal on 1 or the emulator's.
#include "UnitRig.h"

using namespace halden_test;

namespace {

using Fault = hdwsim::MilStd1553Fault;

// The emulator simulates terminal 7.
class Mil1553 : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }
    const hdwsim::Counters Counters() { return rig.Sim.GetCounters(); }

    UnitRig rig{UnitNamed("halden"), EmulatorOptions(false, false, {7})};
};

// Every message in order with its words and status; a terminal update while the bus runs is never seen mixed.
TEST_F(Mil1553, MajorFrameRunsManyCyclesBetweenControllerAndTerminal)
{
    const Words oldTx = {0x101, 0x102, 0x103, 0x104}, newTx = {0x201, 0x202, 0x203, 0x204};
    const CKVX_HdwMilStd1553RemoteTerminal t = Terminal(5, oldTx);
    Rt* rt = OpenRt(rig, &t);
    Bc* bc = RunSchedule(rig,
        Schedule({BcToRt(5, 1, {0xA1, 0xA2, 0xA3}), RtToBc(5, 2, 4), BcToRt(5, 3, {0xC1})},
            {Minor(2000, {0, 1}), Minor(3000, {1, 2})}, 40));
    ASSERT_TRUE(rt && bc);
    EXPECT_TRUE(bc->IsRunning());

    std::vector<Msg> got = ReadTransfers(bc, 40);
    ASSERT_EQ(rt->UpdateTransmitData(2, newTx), 0u);
    const std::vector<Msg> rest = ReadTransfers(bc, 160 - got.size());
    got.insert(got.end(), rest.begin(), rest.end());
    ASSERT_EQ(got.size(), 160u);
    const uint8_t order[4][2] = {{1, 0}, {2, 1}, {2, 1}, {3, 0}}; // subaddress, transmit
    bool switched = false;
    for (size_t i = 0; i < got.size(); ++i) {
        const Msg& m = got[i];
        SCOPED_TRACE(i);
        EXPECT_EQ(std::tuple(m.Subaddress, m.Transmit, m.TerminalAddress, m.StatusWord1, m.Flags),
            std::tuple(order[i % 4][0], order[i % 4][1], 5, 5u << 11, 0));
        EXPECT_GT(m.TimeStamp, i > 0 ? got[i - 1].TimeStamp : 0);
        if (m.Subaddress == 2) { // old words until the update, new ones after: never a mix
            EXPECT_TRUE(m.Data == newTx || (!switched && m.Data == oldTx));
            switched = switched || m.Data == newTx;
        }
    }
    EXPECT_TRUE(switched);
    // The terminal reports every receive access (not its transmits), in order.
    const std::vector<Msg> access = ReadTransfers(rt, 80);
    ASSERT_EQ(access.size(), 80u);
    for (size_t i = 0; i < access.size(); ++i) {
        const Msg& a = access[i];
        EXPECT_EQ(std::tuple(a.Transmit, a.Subaddress, a.Data, a.StatusWord1),
            std::tuple(0, i % 2 == 0 ? 1 : 3, i % 2 == 0 ? Words({0xA1, 0xA2, 0xA3}) : Words({0xC1}), 5u << 11))
            << i;
    }
    // StopAfter ends the run by itself.
    EXPECT_TRUE(WaitUntil([&] { return !bc->IsRunning(); }));
    EXPECT_EQ(std::tuple(bc->GetLostCount(), rt->GetLostCount()), std::tuple(0u, 0u));
}

// The RT service without a terminal address sees every transfer.
TEST_F(Mil1553, PassiveMonitorAndSignalsSeeEveryTransfer)
{
    using Signals = CKVX_HdwKvxHaldenDevice::CSignalService;
    auto* sig = rig.Enable<Signals>(HDW_PORT_MILSTD1553, 0, HDW_SERVICE_SIGNAL);
    CKVX_HdwMilStd1553RemoteTerminal watch = Terminal(CKVX_HdwMilStd1553RemoteTerminal::NoTerminal);
    watch.Monitor = 1;
    const uint64_t configs = Counters().CommandsByCode[53];
    Rt* mon = OpenRt(rig, &watch);
    Bc* bc = OpenBc(rig);
    ASSERT_TRUE(sig && mon && bc);
    // The monitor watches once the unit took its configuration.
    EXPECT_TRUE(WaitUntil([&] { return Counters().CommandsByCode[53] > configs; }));
    for (uint16_t i = 0; i < 10; ++i)
        ASSERT_EQ(bc->SendOneShot(BcToRt(7, 4, {uint16_t(0x400 + i), i})), 0u);
    const std::vector<Msg> sent = ReadTransfers(bc, 10);
    ASSERT_EQ(sent.size(), 10u);
    const std::vector<Msg> seen = Collect(mon, 10, &Rt::ReadMonitor);
    ASSERT_EQ(seen.size(), 10u);
    for (uint16_t i = 0; i < 10; ++i) {
        EXPECT_EQ(std::tuple(seen[i].GetCommandWord(), seen[i].Data, seen[i].StatusWord1, seen[i].TimeStamp),
            std::tuple(sent[i].GetCommandWord(), Words({uint16_t(0x400 + i), i}), 7u << 11, sent[i].TimeStamp))
            << i;
    }
    CKVX_HdwMilStd1553Buffer none;
    unsigned n = 0;
    EXPECT_EQ(mon->Read(none, 10, n), 0u);
    EXPECT_EQ(n, 0u); // no terminal: no accesses of its own
    for (uint16_t i = 0; i < 10; ++i) {
        CKVX_HdwSignalService::CSignal s;
        ASSERT_EQ(sig->WaitSignal(s, 10000), 0u);
        EXPECT_EQ(std::tuple(s.Kind, s.Value, s.Aux, s.TimeStamp),
            std::tuple(unsigned(HDW_SIGNAL_MIL1553_MESSAGE), sent[i].TransferId | (7u << 11) << 16, 1u << 24,
                sent[i].TimeStamp));
    }
}

// Bus A faulted: the message that may retry on the other bus gets through.
TEST_F(Mil1553, AbsentTerminalIsFlaggedAndRetryUsesTheOtherBus)
{
    ASSERT_TRUE(rig.Sim.SetMilStd1553Fault(7, 0, Fault::NoResponse));
    Msg retry = RtToBc(7, 1, 2);
    retry.Retry = Msg::RetryOtherBus;
    Bc* bc = RunSchedule(rig, Schedule({RtToBc(9, 1, 2), RtToBc(7, 1, 2), retry}, {Minor(5000, {0, 1, 2})}, 5));
    ASSERT_NE(bc, nullptr);
    const std::vector<Msg> got = ReadTransfers(bc, 15);
    ASSERT_EQ(got.size(), 15u);
    for (size_t i = 0; i < got.size(); ++i) {
        const Msg& m = got[i];
        if (i % 3 < 2) { // terminal 9 absent, 7 faulted on bus A
            EXPECT_EQ(std::tuple(m.TerminalAddress, m.Flags & (Msg::FlagNoResponse | Msg::FlagRetried)),
                std::tuple(i % 3 == 0 ? 9 : 7, Msg::FlagNoResponse))
                << i;
        } else {
            EXPECT_EQ(std::tuple(m.Retry, m.Flags & (Msg::FlagNoResponse | Msg::FlagRetried | Msg::FlagBusB),
                          m.StatusWord1, m.Data.size()),
                std::tuple(Msg::RetryOtherBus, Msg::FlagRetried | Msg::FlagBusB, 7u << 11, 2u))
                << i;
        }
    }
    EXPECT_TRUE(WaitUntil([&] { return !bc->IsRunning(); }));
}

// The switch is at a minor-frame boundary; a second change waits for the first.
TEST_F(Mil1553, MajorFrameChangesWhileRunningAndStops)
{
    Bc* bc = OpenBc(rig);
    ASSERT_NE(bc, nullptr);
    const CKVX_HdwMilStd1553BusController c = Schedule({RtToBc(7, 1, 1), RtToBc(7, 1, 2)}, {Minor(1000, {0, 1})});
    ASSERT_EQ(bc->ChangeMajorFrame(c.MajorFrame), 10u); // not running
    ASSERT_EQ(bc->BuildConfiguration(c), 0u);
    ASSERT_EQ(bc->LoadConfiguration(), 0u);
    ASSERT_EQ(bc->RunBc(), 0u);
    EXPECT_EQ(bc->BuildConfiguration(c), 10u); // running
    std::vector<Msg> got = ReadTransfers(bc, 10);
    CKVX_HdwMilStd1553MajorFrame next;
    next.Messages = {RtToBc(7, 2, 3), RtToBc(7, 3, 1), RtToBc(7, 2, 1)};
    next.MinorFrames = {Minor(2000, {0, 1}), Minor(1000, {2})};
    ASSERT_EQ(bc->ChangeMajorFrame(next), 0u);
    EXPECT_EQ(bc->ChangeMajorFrame(next), 10u); // one change at a time
    // Once the unit switched, the next change is taken (back to the first frame).
    EXPECT_TRUE(WaitUntil([&] { return bc->ChangeMajorFrame(c.MajorFrame) == 0; }));
    const std::vector<Msg> more = ReadTransfers(bc, 200);
    got.insert(got.end(), more.begin(), more.end());
    ASSERT_EQ(bc->StopBc(), 0u);
    EXPECT_TRUE(WaitUntil([&] { return !bc->IsRunning(); }));
    EXPECT_EQ(bc->StopBc(), 0u); // also when stopped
    // Phases: first frame, second frame, first frame again.
    unsigned phase = 0;
    size_t firstOfNext = 0;
    for (size_t i = 0; i < got.size(); ++i) {
        const bool second = got[i].Subaddress != 1;
        if (phase == 0 && second) {
            phase = 1;
            firstOfNext = i;
        } else if (phase == 1 && !second) {
            phase = 2;
        }
        EXPECT_EQ(second, phase == 1) << "transfer " << i << " of the wrong frame";
    }
    ASSERT_EQ(phase, 2u);
    // The new frame starts with its minor frame 0 at a minor-frame boundary.
    EXPECT_EQ(got[firstOfNext].Subaddress, 2);
    EXPECT_EQ(got[firstOfNext].WordCount, 3);
    EXPECT_EQ(got[firstOfNext - 1].WordCount, 2); // the old frame's minor frame ended
    // The stop's event comes after the transfers before it: they are all in, no wait needed. A run again starts afresh,
    // at minor frame 0 of the frame last switched to (the first one again).
    ReadTransfers(bc, 1000, 0);
    ASSERT_EQ(bc->RunBc(), 0u);
    const std::vector<Msg> rerun = ReadTransfers(bc, 4);
    ASSERT_GE(rerun.size(), 4u);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(std::tuple(rerun[i].Subaddress, rerun[i].WordCount), std::tuple(1, i % 2 == 0 ? 1 : 2)) << i;
    ASSERT_EQ(bc->StopBc(), 0u);
    EXPECT_TRUE(WaitUntil([&] { return !bc->IsRunning(); }));
}

// 40 messages go as lists of 32 and 8. Beside a schedule leaving 350 µs per
// 1-ms minor frame, one of 700 µs is read as not sent once its list timed out.
TEST_F(Mil1553, OneShotListsOf32AndOneThatNeverFits)
{
    Bc* bc = OpenBc(rig);
    ASSERT_NE(bc, nullptr);
    uint64_t configs = Counters().CommandsByCode[52];
    {
        // All 40 queued before a tick takes any (the device lock is the tick's): else a slow
        // machine's tick may send the first few as a list of their own.
        CKVX_HdwServiceLock hold(*bc);
        for (uint16_t i = 0; i < 40; ++i)
            ASSERT_EQ(bc->SendOneShot(BcToRt(7, 1 + i % 30, {i})), 0u);
    }
    const std::vector<Msg> got = ReadTransfers(bc, 40);
    ASSERT_EQ(got.size(), 40u);
    for (uint16_t i = 0; i < 40; ++i) {
        EXPECT_EQ(std::tuple(got[i].Subaddress, got[i].Data, got[i].StatusWord1, got[i].TransferId & 0x8000),
            std::tuple(1 + i % 30, Words{i}, 7u << 11, 0x8000))
            << i;
    }
    EXPECT_EQ(Counters().CommandsByCode[52], configs + 2); // two lists

    const CKVX_HdwMilStd1553BusController c = Schedule({RtToBc(7, 1, 30)}, {Minor(1000, {0})});
    ASSERT_EQ(bc->BuildConfiguration(c), 0u);
    ASSERT_EQ(bc->LoadConfiguration(), 0u);
    ASSERT_EQ(bc->RunBc(), 0u);
    // Once a scheduled transfer is read, the next configuration is the list's.
    ASSERT_FALSE(ReadTransfers(bc, 1).empty());
    Msg tooLong = BcToRt(7, 2, Words(32, 0x55)); // 698 µs
    tooLong.Retry = Msg::RetrySameBus; // twice that
    EXPECT_EQ(bc->SendOneShot(tooLong), 2u);
    configs = Counters().CommandsByCode[52];
    ASSERT_EQ(bc->SendOneShot(BcToRt(7, 2, Words(32, 0x55))), 0u);
    ASSERT_TRUE(WaitUntil([&] { return Counters().CommandsByCode[52] > configs; })); // its list went
    ASSERT_EQ(bc->SendOneShot(BcToRt(7, 3, {0x66})), 0u);
    std::vector<Msg> oneShots;
    ASSERT_TRUE(WaitUntil([&] {
        for (const Msg& m : ReadTransfers(bc, 1000, 0))
            if (m.TransferId & 0x8000)
                oneShots.push_back(m);
        return oneShots.size() >= 2;
    }));
    ASSERT_EQ(oneShots.size(), 2u);
    EXPECT_EQ(std::tuple(oneShots[0].Subaddress, oneShots[0].Flags, oneShots[1].Data, oneShots[1].Flags),
        std::tuple(2, Msg::FlagNotSent, Words{0x66}, 0));
}

TEST_F(Mil1553, TerminalStatusBitsMonitorAndIllegalSubaddress)
{
    Rt* rt = halden_test::OpenRt(rig, nullptr);
    Bc* bc = OpenBc(rig);
    ASSERT_TRUE(rt && bc);
    CKVX_HdwMilStd1553RemoteTerminal t = Terminal(6);
    t.Monitor = 1;
    t.Receive[9].Legal = 0;
    EXPECT_EQ(rt->RunRt(), 10u); // nothing built
    ASSERT_EQ(rt->BuildBufferInit(t), 0u);
    ASSERT_EQ(rt->BuildSubaddressConfiguration(t), 0u);
    ASSERT_EQ(rt->RunRt(), 0u);
    EXPECT_EQ(rt->BuildBufferInit(t), 10u); // running
    ASSERT_EQ(bc->SendOneShot(BcToRt(6, 8, {0x11})), 0u);
    ASSERT_EQ(bc->SendOneShot(BcToRt(6, 9, {0x22})), 0u);
    std::vector<Msg> got = ReadTransfers(bc, 2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(std::tuple(got[0].StatusWord1, got[1].StatusWord1, bool(got[1].Flags & Msg::FlagMessageError)),
        std::tuple(6u << 11, 6u << 11 | 1u << 10, true));
    Msg m;
    EXPECT_EQ(rt->ReadSubaddress(8, m), 0u);
    EXPECT_EQ(m.Data, Words{0x11});
    EXPECT_EQ(rt->ReadSubaddress(9, m), 4u);

    ASSERT_EQ(rt->SetStatusBits(CKVX_HdwMilStd1553RemoteTerminal::StatusServiceRequest), 0u);
    // The bits are taken once the configuration went out: poll until seen.
    EXPECT_TRUE(WaitUntil([&] {
        bc->SendOneShot(RtToBc(6, 2, 1));
        const std::vector<Msg> r = ReadTransfers(bc, 1, 2000);
        return !r.empty() && r.back().StatusWord1 == (6u << 11 | 1u << 8) && (r.back().Flags & Msg::FlagServiceRequest);
    }));
    // Monitor records: the channel's own accesses among them.
    const std::vector<Msg> seen = Collect(rt, 3, &Rt::ReadMonitor);
    ASSERT_GE(seen.size(), 3u);
    EXPECT_EQ(std::tuple(seen[0].GetCommandWord(), seen[0].Data, seen[1].Subaddress),
        std::tuple(BcToRt(6, 8, {0x11}).GetCommandWord(), Words{0x11}, 9));
    ASSERT_EQ(rt->StopRt(), 0u);
    EXPECT_EQ(rt->StopRt(), 0u);
}

// 64 minor frames of 100 ms; after a re-open nothing runs until LoadConfiguration.
TEST_F(Mil1553, StopInTheMiddleOfAMajorFrame)
{
    Bc* bc = RunSchedule(rig, Schedule({RtToBc(7, 1, 2)}, std::vector(64, Minor(100000, {0}))));
    ASSERT_NE(bc, nullptr);
    std::vector<Msg> got = ReadTransfers(bc, 2);
    ASSERT_GE(got.size(), 2u);
    ASSERT_EQ(bc->StopBc(), 0u);
    ASSERT_TRUE(WaitUntil([&] { return !bc->IsRunning(); }));
    CKVX_HdwMilStd1553Buffer rest;
    unsigned n = 0;
    ASSERT_EQ(bc->Read(rest, 1000, n), 0u);
    const size_t total = got.size() + n;
    EXPECT_LT(total, 64u);
    EXPECT_EQ(Counters().Mil1553Transfers[0], total);

    ASSERT_EQ(rig.Port(HDW_PORT_MILSTD1553, 0)->Close(), 0u);
    EXPECT_EQ(bc->Read(rest, 10, n), 29u);
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0), 0u);
    EXPECT_EQ(bc->RunBc(), 10u);
    ASSERT_EQ(bc->LoadConfiguration(), 0u);
    ASSERT_EQ(bc->RunBc(), 0u);
    const std::vector<Msg> again = ReadTransfers(bc, 1);
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(std::tuple(again[0].StatusWord1, again[0].Flags), std::tuple(7u << 11, 0));
}
} // namespace
