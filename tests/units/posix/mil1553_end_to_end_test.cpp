// MIL-STD-1553 through the whole stack against the emulated Halden: a bus
// controller on channel 0 runs its major frame against the library's remote
// terminal on channel 1, and a passive monitor. Schedule changes, one-shot
// lists, stops and bad input at the service level: tests/bus/mil1553_*; the
// SRAM images word by word: tests/units/mil1553_records_test.cpp.
#include "Mil1553Rig.h"

using namespace halden_test;

namespace {

class Mil1553 : public ::testing::Test {
protected:
    // The unit with simulated terminals at `terminals`, started.
    void Start(std::vector<unsigned> terminals = {})
    {
        rig = std::make_unique<UnitRig>(UnitNamed("halden"), MilOptions(false, std::move(terminals)));
        ASSERT_NO_FATAL_FAILURE(rig->Start());
    }
    const hdwsim::Counters Counters() { return rig->Sim.GetCounters(); }

    std::unique_ptr<UnitRig> rig;
};

// Two minor frames (2 ms, 3 ms) for 40 major frame cycles: every receive
// message reaches the terminal with its words, every transmit message
// reaches the controller in order with the terminal's status word; an
// update of the terminal's words while the bus runs is never seen mixed.
TEST_F(Mil1553, MajorFrameRunsManyCyclesBetweenControllerAndTerminal)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const Words oldTx = {0x101, 0x102, 0x103, 0x104}, newTx = {0x201, 0x202, 0x203, 0x204};
    const CKVX_HdwMilStd1553RemoteTerminal t = Terminal(5, oldTx);
    Rt* rt = OpenRt(*rig, &t);
    CKVX_HdwMilStd1553BusController c;
    c.MajorFrame.Messages = {BcToRt(5, 1, {0xA1, 0xA2, 0xA3}), RtToBc(5, 2, 4), BcToRt(5, 3, {0xC1})};
    c.MajorFrame.MinorFrames = {Minor(2000, {0, 1}), Minor(3000, {1, 2})};
    c.StopAfter = 40;
    Bc* bc = RunSchedule(*rig, c);
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
        EXPECT_EQ(m.Subaddress, order[i % 4][0]);
        EXPECT_EQ(m.Transmit, order[i % 4][1]);
        EXPECT_EQ(m.TerminalAddress, 5);
        EXPECT_EQ(m.StatusWord1, 5u << 11);
        EXPECT_EQ(m.Flags, 0);
        if (i > 0) {
            EXPECT_GT(m.TimeStamp, got[i - 1].TimeStamp);
        }
        if (m.Subaddress == 2) {
            // Old words until the update, new ones after: never a mix.
            if (m.Data == newTx)
                switched = true;
            else
                EXPECT_TRUE(!switched && m.Data == oldTx);
        }
    }
    EXPECT_TRUE(switched);
    // The terminal reported every receive access (its transmit subaddresses
    // are not reported), in order, the received words whole.
    const std::vector<Msg> access = ReadTransfers(rt, 80);
    ASSERT_EQ(access.size(), 80u);
    for (size_t i = 0; i < access.size(); ++i) {
        const Msg& a = access[i];
        EXPECT_EQ(a.Transmit, 0);
        EXPECT_EQ(a.Subaddress, i % 2 == 0 ? 1 : 3) << i;
        EXPECT_EQ(a.Data, a.Subaddress == 1 ? Words({0xA1, 0xA2, 0xA3}) : Words({0xC1})) << i;
        EXPECT_EQ(a.StatusWord1, 5u << 11);
    }
    Msg last;
    ASSERT_EQ(rt->ReadSubaddress(1, last), 0u);
    EXPECT_EQ(last.Data, Words({0xA1, 0xA2, 0xA3}));
    // StopAfter ends the run by itself.
    EXPECT_TRUE(WaitUntil([&] { return !bc->IsRunning(); }));
    EXPECT_EQ(bc->GetLostCount(), 0u);
    EXPECT_EQ(rt->GetLostCount(), 0u);
}

// A channel that only watches: the RT service without a terminal address and
// with the monitor on sees every transfer with its words; the controller's
// signal service gets one signal per completed transfer.
TEST_F(Mil1553, PassiveMonitorAndSignalsSeeEveryTransfer)
{
    ASSERT_NO_FATAL_FAILURE(Start({7}));
    using Signals = CKVX_HdwKvxHaldenDevice::CSignalService;
    auto* sig = rig->Enable<Signals>(HDW_PORT_MILSTD1553, 0, HDW_SERVICE_SIGNAL);
    CKVX_HdwMilStd1553RemoteTerminal watch = Terminal(CKVX_HdwMilStd1553RemoteTerminal::NoTerminal);
    watch.Monitor = 1;
    const uint64_t configs = Counters().CommandsByCode[53];
    Rt* mon = OpenRt(*rig, &watch);
    Bc* bc = OpenBc(*rig);
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
        EXPECT_EQ(seen[i].GetCommandWord(), sent[i].GetCommandWord()) << i;
        EXPECT_EQ(seen[i].Data, Words({uint16_t(0x400 + i), i})) << i;
        EXPECT_EQ(seen[i].StatusWord1, 7u << 11) << i;
        EXPECT_EQ(seen[i].TimeStamp, sent[i].TimeStamp) << i;
    }
    CKVX_HdwMilStd1553Buffer none;
    unsigned n = 0;
    EXPECT_EQ(mon->Read(none, 10, n), 0u);
    EXPECT_EQ(n, 0u); // no terminal: no accesses of its own
    for (uint16_t i = 0; i < 10; ++i) {
        CKVX_HdwSignalService::CSignal s;
        ASSERT_EQ(sig->WaitSignal(s, 10000), 0u);
        EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_MIL1553_MESSAGE));
        EXPECT_EQ(s.Value, sent[i].TransferId | (7u << 11) << 16);
        EXPECT_EQ(s.Aux, 1u << 24);
        EXPECT_EQ(s.TimeStamp, sent[i].TimeStamp);
    }
}

} // namespace
