// Several application threads on the ports of one emulated Halden while the timer ticks: each owns its ports and
// opens, configures, moves traffic through them and closes them again, as the threads of a bench rig do.
#include "UnitRig.h"

#include <poll.h>

#include <chrono>
#include <shared_mutex>
#include <thread>

using namespace halden_test;

namespace {

using Arx = CKVX_HdwArinc429InBufferService;
using Atx = CKVX_HdwArinc429OutBufferService;
using Signals = CKVX_HdwSignalService;
using SignalList = std::vector<Signals::CSignal>;

std::string Link(bool udp)
{
    return udp ? "UDP" : "pty";
}

// A service of `port` enabled with `params`, or null (reported).
template <class S>
S* EnableOn(CKVX_HdwPort* port, unsigned type, CKVX_HdwService::CParameters* params = nullptr)
{
    CKVX_HdwService* s = nullptr;
    EXPECT_EQ(port->EnableService(type, &s, params), 0u) << "service " << type;
    return dynamic_cast<S*>(s);
}

// Disables every service of the closed `port`, one by one as an application does.
void DisableAll(CKVX_HdwPort* port)
{
    std::vector<CKVX_HdwService*> services(port->GetServiceList().begin(), port->GetServiceList().end());
    for (CKVX_HdwService* s : services)
        EXPECT_EQ(port->DisableService(s), 0u);
    EXPECT_EQ(port->GetServiceCount(), 0u);
}

// One cycle on ARINC 429 pair `ch`: services enabled, a label filter set before the open and widened while open,
// words of two labels sent, only the accepted ones read back complete and in order, closed, services disabled.
void Arinc429Cycle(UnitRig& rig, unsigned ch, unsigned cycle, const std::string& where)
{
    CKVX_HdwPort* rx = rig.Port(HDW_PORT_ARINC429_RX, ch);
    CKVX_HdwPort* tx = rig.Port(HDW_PORT_ARINC429_TX, ch);
    auto* in = EnableOn<Arx>(rx, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* out = EnableOn<Atx>(tx, HDW_SERVICE_ARINC429_OUT_BUFFER);
    ASSERT_TRUE(in && out) << where;
    const unsigned kept = 0x10 + ch * 0x20 + cycle % 16, other = kept + 0x80;
    ASSERT_EQ(in->DiscardAllMessages(), 0u);
    ASSERT_EQ(in->AcceptMessage(uint8_t(kept), 0xF, 0xF), 0u);
    ASSERT_EQ(std::tuple(rig.Open(HDW_PORT_ARINC429_RX, ch), rig.Open(HDW_PORT_ARINC429_TX, ch)), std::tuple(0u, 0u))
        << where << "open (receiver, transmitter)";
    std::vector<CKVX_HdwArinc429Message> first, expected;
    for (unsigned i = 0; i < 40; ++i) {
        first.push_back(Word(i % 3 ? kept : other, cycle * 1000 + i));
        if (i % 3)
            expected.push_back(first.back());
    }
    ASSERT_EQ(out->Write(first.data(), unsigned(first.size()), 0), 0u) << where;
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(in, expected.size()), expected) << where << "filtered words";
    // The filter change goes to the unit ahead of the words written after it.
    ASSERT_EQ(in->AcceptMessage(uint8_t(other), 0xF, 0xF), 0u) << where;
    const std::vector<CKVX_HdwArinc429Message> both = {
        Word(other, 1), Word(kept, 2), Word(other, 3), Word(kept, 4), Word(other, 5)};
    ASSERT_EQ(out->Write(const_cast<CKVX_HdwArinc429Message*>(both.data()), unsigned(both.size()), 0), 0u) << where;
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(in, both.size()), both) << where << "after the filter change";
    EXPECT_TRUE(WaitUntil([&] { return Idle(out); })) << where;
    EXPECT_EQ(std::tuple(rx->Close(), tx->Close()), std::tuple(0u, 0u)) << where;
    EXPECT_EQ(out->GetStatus(), unsigned(HDW_SERVICE_STOPPED)) << where;
    DisableAll(rx);
    DisableAll(tx);
}

bool SameFrame(const CKVX_HdwCanMessage& a, const CKVX_HdwCanMessage& b)
{
    return a.Identifier == b.Identifier && a.Extended == b.Extended && a.Dlc == b.Dlc &&
        std::equal(a.Data, a.Data + a.Dlc, b.Data);
}

// One cycle on CAN 0 -> 1: frames of varying identifiers and lengths arrive complete and in order.
void CanCycle(UnitRig& rig, unsigned cycle, const std::string& where)
{
    CKVX_HdwPort* tx = rig.Port(HDW_PORT_CAN, 0);
    CKVX_HdwPort* rx = rig.Port(HDW_PORT_CAN, 1);
    auto* out = EnableOn<CKVX_HdwCanOutBufferService>(tx, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* in = EnableOn<CKVX_HdwCanInBufferService>(rx, HDW_SERVICE_CAN_IN_BUFFER);
    ASSERT_TRUE(in && out) << where;
    ASSERT_EQ(std::tuple(rig.Open(HDW_PORT_CAN, 1), rig.Open(HDW_PORT_CAN, 0)), std::tuple(0u, 0u))
        << where << "open (receiver, transmitter)";
    std::vector<CKVX_HdwCanMessage> sent;
    for (unsigned i = 0; i < 30; ++i)
        sent.push_back(Frame(0x100 + i * 7 + cycle, uint8_t(i % 9), uint8_t(cycle * 31 + i), i % 4 == 0));
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u) << where;
    const auto got = ReadAll<CKVX_HdwCanMessage>(in, sent.size());
    ASSERT_EQ(got.size(), sent.size()) << where;
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_TRUE(SameFrame(got[i], sent[i])) << where << "frame " << i;
    EXPECT_TRUE(WaitUntil([&] { return Idle(out); })) << where;
    EXPECT_EQ(std::tuple(tx->Close(), rx->Close()), std::tuple(0u, 0u)) << where;
    DisableAll(tx);
    DisableAll(rx);
}

// One cycle on UART 0 -> 1: a byte stream arrives whole, with parameters that change from cycle to cycle.
void UartCycle(UnitRig& rig, unsigned cycle, const std::string& where)
{
    CKVX_HdwPort* tx = rig.Port(HDW_PORT_UART, 0);
    CKVX_HdwPort* rx = rig.Port(HDW_PORT_UART, 1);
    CKVX_HdwByteOutBufferService::CParameters po;
    CKVX_HdwByteInBufferService::CParameters pi;
    po.BufferSize = pi.BufferSize = 4096;
    auto* out = EnableOn<CKVX_HdwByteOutBufferService>(tx, HDW_SERVICE_BYTE_OUT_BUFFER, &po);
    auto* in = EnableOn<CKVX_HdwByteInBufferService>(rx, HDW_SERVICE_BYTE_IN_BUFFER, &pi);
    ASSERT_TRUE(in && out) << where;
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = cycle % 2 ? 115200 : 57600;
    ASSERT_EQ(std::tuple(rig.Open(HDW_PORT_UART, 1, p), rig.Open(HDW_PORT_UART, 0, p)), std::tuple(0u, 0u))
        << where << "open (receiver, transmitter)";
    std::vector<uint8_t> sent = Pattern(1500 + cycle * 100, 77 + cycle);
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u) << where;
    EXPECT_TRUE(ReadAll<uint8_t>(in, sent.size()) == sent) << where << "bytes lost or out of order";
    EXPECT_TRUE(WaitUntil([&] { return Idle(out); })) << where;
    EXPECT_EQ(std::tuple(tx->Close(), rx->Close()), std::tuple(0u, 0u)) << where;
    DisableAll(tx);
    DisableAll(rx);
}

// One cycle on MIL-STD-1553: terminal 5 on channel 1, one-shot transfers from the controller on 0, each read back
// in order with its data, and the terminal sees every one.
void Mil1553Cycle(UnitRig& rig, unsigned cycle, const std::string& where)
{
    const CKVX_HdwMilStd1553RemoteTerminal t = Terminal(5, {0x51, 0x52});
    Rt* rt = OpenRt(rig, &t);
    Bc* bc = OpenBc(rig);
    ASSERT_TRUE(rt && bc) << where;
    std::vector<Words> data;
    for (uint16_t i = 0; i < 12; ++i) {
        data.push_back({uint16_t(cycle), i, uint16_t(0xA000 + i)});
        ASSERT_EQ(bc->SendOneShot(BcToRt(5, 1, data.back())), 0u) << where;
    }
    const std::vector<Msg> sent = ReadTransfers(bc, data.size());
    const std::vector<Msg> seen = ReadTransfers(rt, data.size());
    ASSERT_EQ(std::tuple(sent.size(), seen.size()), std::tuple(data.size(), data.size())) << where;
    for (size_t i = 0; i < data.size(); ++i)
        EXPECT_EQ(std::tuple(sent[i].Data, sent[i].StatusWord1, seen[i].Data), std::tuple(data[i], 5u << 11, data[i]))
            << where << "transfer " << i;
    EXPECT_EQ(std::tuple(rig.Port(HDW_PORT_MILSTD1553, 0)->Close(), rig.Port(HDW_PORT_MILSTD1553, 1)->Close()),
        std::tuple(0u, 0u))
        << where;
    DisableAll(rig.Port(HDW_PORT_MILSTD1553, 0));
    DisableAll(rig.Port(HDW_PORT_MILSTD1553, 1));
}

// Runs `cycle` `count` times on a thread of its own, stopping at the first fatal failure.
std::thread Worker(const char* name, unsigned count, bool udp, std::function<void(unsigned, const std::string&)> cycle)
{
    return std::thread([=] {
        for (unsigned c = 0; c < count; ++c) {
            const std::string where = Link(udp) + ", " + name + " cycle " + std::to_string(c) + ": ";
            cycle(c, where);
            if (::testing::Test::HasFatalFailure())
                return;
        }
    });
}

class ConcurrentUse : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }

    UnitRig rig{UnitNamed("halden"), EmulatorOptions(GetParam())};
};

// Five threads, each on its own ports of the one unit, open, configure, send, read and close again and again; the
// unit session ends and starts anew whenever the last port of one happens to close while another is opening.
TEST_P(ConcurrentUse, ThreadsCycleTheirOwnPortsOfOneUnit)
{
    const bool udp = GetParam();
    std::vector<std::thread> threads;
    threads.push_back(Worker("ARINC 429 pair 0", 8, udp, [&](unsigned c, auto& w) { Arinc429Cycle(rig, 0, c, w); }));
    threads.push_back(Worker("ARINC 429 pair 3", 8, udp, [&](unsigned c, auto& w) { Arinc429Cycle(rig, 3, c, w); }));
    threads.push_back(Worker("CAN", 8, udp, [&](unsigned c, auto& w) { CanCycle(rig, c, w); }));
    threads.push_back(Worker("UART", 8, udp, [&](unsigned c, auto& w) { UartCycle(rig, c, w); }));
    threads.push_back(Worker("MIL-STD-1553", 6, udp, [&](unsigned c, auto& w) { Mil1553Cycle(rig, c, w); }));
    for (std::thread& t : threads)
        t.join();
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(std::tuple(c.FramesBadCrc, c.FramesMalformed, c.CommandsUnknown), std::tuple(0u, 0u, 0u));
}

// Two threads whose ports are the only open ones of the unit by turns: each Close may be the unit's last while the
// other thread opens its ports or writes to them, and every Open must still find the unit and every word arrive.
TEST_P(ConcurrentUse, LastCloseRacesAnOpenAndAWriteOnAnotherPort)
{
    const bool udp = GetParam();
    std::thread can = Worker("CAN", 60, udp, [&](unsigned c, auto& w) { CanCycle(rig, c, w); });
    std::thread arinc = Worker("ARINC 429 pair 1", 60, udp, [&](unsigned c, auto& w) { Arinc429Cycle(rig, 1, c, w); });
    can.join();
    arinc.join();
}

// Readers on a signal group and one blocked in WaitSignal while another thread closes the ports under them: every
// signal of a batch is read in order, a close wakes the blocked reader with 29 at once, re-opened ports signal again.
TEST_P(ConcurrentUse, SignalReadersWhileAnotherThreadClosesThePorts)
{
    const std::string where = Link(GetParam()) + ": ";
    constexpr unsigned kBatches = 8, kWords = 25;
    const unsigned chans[2] = {1, 2};
    Signals* rxSignals[2] = {};
    Atx* outs[2] = {};
    Arx* ins[2] = {};
    CKVX_HdwSignalGroup group;
    for (unsigned k = 0; k < 2; ++k) {
        rxSignals[k] = rig.Enable<Signals>(HDW_PORT_ARINC429_RX, chans[k], HDW_SERVICE_SIGNAL);
        ins[k] = rig.Enable<Arx>(HDW_PORT_ARINC429_RX, chans[k], HDW_SERVICE_ARINC429_IN_BUFFER);
        outs[k] = rig.Enable<Atx>(HDW_PORT_ARINC429_TX, chans[k], HDW_SERVICE_ARINC429_OUT_BUFFER);
        ASSERT_TRUE(rxSignals[k] && ins[k] && outs[k]);
        ASSERT_EQ(rxSignals[k]->JoinGroup(&group), 0u);
    }
    auto* txSignals = rig.Enable<Signals>(HDW_PORT_ARINC429_TX, chans[0], HDW_SERVICE_SIGNAL);
    ASSERT_TRUE(txSignals);
    ASSERT_EQ(group.GetMemberCount(), 2u);

    // The group reader: every received word's signal, per port, in the order sent.
    std::atomic<bool> done{false};
    std::atomic<unsigned> received[2] = {0, 0};
    std::thread groupReader([&] {
        pollfd p{group.GetFileDescriptor(), POLLIN, 0};
        while (!done) {
            poll(&p, 1, 20);
            for (unsigned k = 0; k < 2; ++k) {
                Signals::CSignal s[16];
                unsigned n = 0;
                const unsigned rc = rxSignals[k]->ReadSignals(s, 16, n);
                EXPECT_TRUE(rc == 0 || rc == HDW_ERR_SERVICE_NOT_RUNNING) << where << "ReadSignals " << rc;
                for (unsigned i = 0; i < n; ++i) {
                    const unsigned index = received[k] % kWords, batch = received[k] / kWords;
                    EXPECT_EQ(std::tuple(s[i].Kind, s[i].Port, s[i].Arinc429),
                        std::tuple(unsigned(HDW_SIGNAL_ARINC429_RECEIVED), rig.Port(HDW_PORT_ARINC429_RX, chans[k]),
                            PairWord(chans[k], batch * kWords + index)))
                        << where << "port " << k << " signal " << received[k];
                    ++received[k];
                }
            }
        }
    });
    // The blocked reader: SENT signals until the close ends its wait with 29, then again after each re-open.
    std::atomic<unsigned> sentSignals{0}, wokenByClose{0};
    std::atomic<bool> reopened{false};
    std::thread waiter([&] {
        while (!done) {
            Signals::CSignal s;
            const auto t0 = std::chrono::steady_clock::now();
            const unsigned rc = txSignals->WaitSignal(s, 20000);
            const auto waited = std::chrono::steady_clock::now() - t0;
            if (rc == 0) {
                EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_ARINC429_SENT)) << where;
                ++sentSignals;
                continue;
            }
            EXPECT_EQ(rc, unsigned(HDW_ERR_SERVICE_NOT_RUNNING)) << where << "WaitSignal";
            EXPECT_LT(waited, std::chrono::seconds(10)) << where << "the close did not wake WaitSignal";
            ++wokenByClose;
            // Stopped: waits return at once until the port opens again.
            WaitUntil([&] { return reopened.load() || done.load(); }, 30000);
        }
    });

    // A failed check ends the batches, not the program: the threads are joined first.
    [&] {
        for (unsigned b = 0; b < kBatches; ++b) {
            SCOPED_TRACE(b);
            for (unsigned k = 0; k < 2; ++k)
                ASSERT_EQ(
                    std::tuple(rig.Open(HDW_PORT_ARINC429_RX, chans[k]), rig.Open(HDW_PORT_ARINC429_TX, chans[k])),
                    std::tuple(0u, 0u))
                    << where;
            reopened = true;
            for (unsigned k = 0; k < 2; ++k) {
                std::vector<CKVX_HdwArinc429Message> words;
                for (unsigned i = 0; i < kWords; ++i)
                    words.push_back(PairWord(chans[k], b * kWords + i));
                ASSERT_EQ(outs[k]->Write(words.data(), kWords, 0), 0u) << where;
            }
            ASSERT_TRUE(WaitUntil([&] {
                return received[0] == (b + 1) * kWords && received[1] == (b + 1) * kWords &&
                    sentSignals == (b + 1) * kWords;
            })) << where
                << "signals read " << received[0] << ", " << received[1] << ", sent " << sentSignals;
            for (unsigned k = 0; k < 2; ++k)
                EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(ins[k], kWords).size(), kWords) << where;
            // The waiter is asleep in WaitSignal (nothing more to send) when its port closes.
            reopened = false;
            const unsigned woken = wokenByClose;
            for (unsigned k = 0; k < 2; ++k)
                ASSERT_EQ(std::tuple(rig.Port(HDW_PORT_ARINC429_TX, chans[k])->Close(),
                              rig.Port(HDW_PORT_ARINC429_RX, chans[k])->Close()),
                    std::tuple(0u, 0u))
                    << where;
            EXPECT_TRUE(WaitUntil([&] { return wokenByClose > woken; })) << where << "WaitSignal not woken by Close";
            EXPECT_EQ(group.GetReadyMembers(), 0u) << where << "a closed port left the group readable";
        }
    }();
    done = true;
    reopened = true;
    groupReader.join();
    waiter.join();
    EXPECT_EQ(std::tuple(received[0].load(), received[1].load()), std::tuple(kBatches * kWords, kBatches * kWords));
}

// The manager stopped and run again while two threads stream through open ports: Stop closes every port under them
// (their calls answer with result codes, never crash), and after Run each re-opens and streams in order again.
TEST_P(ConcurrentUse, ManagerStopAndRunWhileThreadsStreamThroughOpenPorts)
{
    const std::string where = Link(GetParam()) + ": ";
    constexpr unsigned kRuns = 4;
    std::atomic<unsigned> run{0}; // the run the manager is in; odd while stopped
    std::shared_mutex opening; // an Open racing Stop is the application's to avoid: held around both
    std::atomic<bool> done{false};
    std::atomic<unsigned> batches[2] = {0, 0};
    const unsigned chans[2] = {0, 2};
    Arx* ins[2] = {};
    Atx* outs[2] = {};
    for (unsigned k = 0; k < 2; ++k) {
        ins[k] = rig.Enable<Arx>(HDW_PORT_ARINC429_RX, chans[k], HDW_SERVICE_ARINC429_IN_BUFFER);
        outs[k] = rig.Enable<Atx>(HDW_PORT_ARINC429_TX, chans[k], HDW_SERVICE_ARINC429_OUT_BUFFER);
        ASSERT_TRUE(ins[k] && outs[k]);
    }
    const auto stream = [&](unsigned k) {
        unsigned seq = 0;
        while (!done) {
            std::shared_lock lock(opening);
            const unsigned myRun = run;
            ASSERT_EQ(std::tuple(rig.Open(HDW_PORT_ARINC429_RX, chans[k]), rig.Open(HDW_PORT_ARINC429_TX, chans[k])),
                std::tuple(0u, 0u))
                << where << "open in run " << myRun;
            lock.unlock();
            // Batches until Stop closes the ports: a whole batch arrives in order, or a call answers 29.
            while (!done) {
                std::vector<CKVX_HdwArinc429Message> words = Sequence(0x30 + k, 20, seq);
                seq += 20;
                const unsigned wrc = outs[k]->Write(words.data(), 20, 0);
                if (wrc != 0) {
                    EXPECT_EQ(wrc, unsigned(HDW_ERR_SERVICE_NOT_RUNNING)) << where;
                    break;
                }
                std::vector<CKVX_HdwArinc429Message> got;
                unsigned rrc = 0;
                WaitUntil([&] {
                    CKVX_HdwArinc429Message chunk[64];
                    unsigned n = 0;
                    rrc = ins[k]->Read(chunk, 64, n);
                    got.insert(got.end(), chunk, chunk + n);
                    return got.size() >= 20 || (rrc != 0 && rrc != HDW_ERR_NOTHING_TO_READ);
                });
                if (got.size() < 20) {
                    EXPECT_EQ(rrc, unsigned(HDW_ERR_SERVICE_NOT_RUNNING)) << where << "a batch stalled";
                    break;
                }
                EXPECT_EQ(got, words) << where << "port " << k;
                ++batches[k];
                if (!rig.Port(HDW_PORT_ARINC429_TX, chans[k])->IsOpen())
                    break;
            }
            // Closed by Stop: wait for the next run.
            WaitUntil([&] { return run != myRun || done; }, 60000);
        }
    };
    std::thread a(stream, 0), b(stream, 1);
    // A failed check ends the runs, not the program: the threads are joined first.
    [&] {
        for (unsigned r = 0; r < kRuns; ++r) {
            SCOPED_TRACE(r);
            const unsigned before[2] = {batches[0], batches[1]};
            ASSERT_TRUE(WaitUntil([&] { return batches[0] >= before[0] + 5 && batches[1] >= before[1] + 5; }, 30000))
                << where << "no traffic in run " << r;
            std::unique_lock lock(opening);
            ++run;
            ASSERT_EQ(rig.Manager.Stop(), 0u) << where;
            EXPECT_FALSE(rig.Manager.IsRunning());
            for (unsigned k = 0; k < 2; ++k)
                EXPECT_EQ(std::tuple(rig.Port(HDW_PORT_ARINC429_RX, chans[k])->IsOpen(),
                              rig.Port(HDW_PORT_ARINC429_TX, chans[k])->IsOpen()),
                    std::tuple(false, false))
                    << where;
            ASSERT_EQ(rig.Manager.Run(), 0u) << where;
            ++run;
        }
    }();
    done = true;
    a.join();
    b.join();
}

INSTANTIATE_TEST_SUITE_P(
    Links, ConcurrentUse, ::testing::Values(false, true), [](const auto& p) { return p.param ? "Udp" : "Pty"; });

} // namespace
