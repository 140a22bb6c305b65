// The Halden end to end: losses counted exactly, the paced FIFO, signals, the unit clock's wrap.
#include "UnitRig.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <poll.h>

using namespace halden_test;

namespace {

constexpr uint64_t kWrap = uint64_t(1) << 32;

CKVX_HdwKvxUnitInstance* Instance(UnitRig& rig)
{
    CKVX_HdwKvxUnitInstance* inst = nullptr;
    EXPECT_TRUE(WithCommandDevice(rig.Device.get(), [&](auto& d) { inst = d.GetUnitInstance(0); }));
    return inst;
}

class HaldenLosses : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }
    UnitRig rig{UnitNamed("halden"), false};
};

template <class TService>
void SetBufferSize(TService* service, uint32_t size)
{
    typename TService::CParameters p;
    p.BufferSize = size;
    ASSERT_EQ(service->SetParameters(&p), 0u);
}

// Sleeps in poll() on the descriptor of `signals` until `done` (or 30 s), handing each signal read to `each` and
// then, after each batch, calling `afterBatch`: the place to read the input and check that no signal ran ahead.
void PollSignals(CKVX_HdwSignalService* signals, const std::function<bool()>& done,
    const std::function<void(const CKVX_HdwSignalService::CSignal&)>& each, const std::function<void()>& afterBatch)
{
    const int fd = signals->GetFileDescriptor();
    ASSERT_GE(fd, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done() && !::testing::Test::HasFatalFailure() && std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 200) != 1)
            continue;
        CKVX_HdwSignalService::CSignal sig[256];
        unsigned n = 0;
        ASSERT_EQ(signals->ReadSignals(sig, 256, n), 0u);
        std::for_each(sig, sig + n, each);
        afterBatch();
    }
}

// An output wired to an input that nobody reads: a Write over the output's size (sent.size() - 1) is refused and
// counted; the input keeps the newest `inSize` items and counts the others dropped.
template <class TIn, class TOut, class TItem, class Key>
void ExpectNewestKept(TIn* in, TOut* out, const std::function<unsigned(bool)>& open, const std::vector<TItem>& sent,
    unsigned inSize, Key key, const std::function<uint64_t()>& received)
{
    ASSERT_TRUE(in && out);
    const unsigned n = unsigned(sent.size()) - 1;
    SetBufferSize(in, inSize);
    SetBufferSize(out, n);
    ASSERT_EQ(open(true), 0u); // the input first
    ASSERT_EQ(open(false), 0u);
    EXPECT_EQ(out->Write(const_cast<TItem*>(sent.data()), n + 1, 0), 2u);
    EXPECT_EQ(out->GetUnplacedCount(), n + 1);
    ASSERT_EQ(out->Write(const_cast<TItem*>(sent.data()), n, 0), 0u);
    ASSERT_TRUE(WaitUntil([&] { return in->GetDroppedCount() >= n - inSize; }, 30000));
    EXPECT_EQ(received(), n);
    const auto got = ReadAll<TItem>(in, inSize);
    ASSERT_EQ(got.size(), inSize);
    for (unsigned i = 0; i < inSize; ++i)
        ASSERT_EQ(key(got[i]), key(sent[n - inSize + i])) << i;
    EXPECT_EQ(in->GetDroppedCount(), n - inSize);
    EXPECT_EQ(out->GetUnplacedCount(), n + 1);
}

TEST_F(HaldenLosses, InputsKeepTheNewestItemsCountingTheDroppedOnesAndOutputsCountWhatDidNotFit)
{
    auto* in = rig.Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, 0, HDW_SERVICE_ARINC429_IN_BUFFER);
    ExpectNewestKept(
        in, rig.Enable<CKVX_HdwArinc429OutBufferService>(HDW_PORT_ARINC429_TX, 0, HDW_SERVICE_ARINC429_OUT_BUFFER),
        [&](bool rx) { return rig.Open(rx ? HDW_PORT_ARINC429_RX : HDW_PORT_ARINC429_TX, 0); }, Sequence(0x31, 151),
        100, [](const auto& m) { return m; }, [&] { return rig.Sim.GetCounters().A429Received[0]; });
    unsigned waiting = 1;
    ASSERT_EQ(in->GetReadMessagesNumber(waiting), 0u);
    EXPECT_EQ(waiting, 0u);
    // A new start counts afresh.
    ASSERT_EQ(in->Stop(), 0u);
    ASSERT_EQ(in->Start(), 0u);
    EXPECT_EQ(in->GetDroppedCount(), 0u);
    const auto c = Instance(rig)->GetLossCounters();
    EXPECT_EQ(std::tuple(c.BadFrames(), c.EchoTimeouts, c.LostCommands), std::tuple(0u, 0u, 0u));

    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < 101; ++i)
        frames.push_back(Frame(0x100 + i, 8, uint8_t(i)));
    ExpectNewestKept(
        rig.Enable<CKVX_HdwCanInBufferService>(HDW_PORT_CAN, 1, HDW_SERVICE_CAN_IN_BUFFER),
        rig.Enable<CKVX_HdwCanOutBufferService>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER),
        [&](bool rx) { return rig.Open(HDW_PORT_CAN, rx ? 1 : 0); }, frames, 40,
        [](const auto& m) { return std::pair(m.Identifier, m.Data[0]); },
        [&] { return rig.Sim.GetCounters().CanReceived[1]; });
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = 115200;
    ExpectNewestKept(
        rig.Enable<CKVX_HdwByteInBufferService>(HDW_PORT_UART, 1, HDW_SERVICE_BYTE_IN_BUFFER),
        rig.Enable<CKVX_HdwByteOutBufferService>(HDW_PORT_UART, 0, HDW_SERVICE_BYTE_OUT_BUFFER),
        [&](bool rx) { return rig.Open(HDW_PORT_UART, rx ? 1 : 0, p); }, Pattern(2001, 13), 1000,
        [](uint8_t b) { return b; }, [&] { return rig.Sim.GetCounters().UartReceived[1]; });
}

// Words one by one across the 32-bit wrap: unwrapped times rise by less than a second, the latest never
// goes back, and the unit's "now" maps to the host's. (A paced FIFO that fills up: HaldenFifoTopUp.)
TEST(HaldenUnitTime, UnwrappedTimeCrossesTheUnitClocksWrapWithoutAStep)
{
    auto o = EmulatorOptions(false, true); // the bus paced
    o.ClockStartUs = uint32_t(kWrap - 1500000);
    UnitRig rig(UnitNamed("halden"), o);
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    CKVX_HdwKvxUnitInstance* inst = Instance(rig);
    ASSERT_NE(inst, nullptr);
    UnitRig::Arinc429Pair c = rig.OpenArinc429Pair(1, 100000);
    ASSERT_TRUE(c.In && c.Out);

    std::vector<uint64_t> times;
    uint64_t latest = 0, previousLatest = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (unsigned i = 0; latest < kWrap + 1000000 && std::chrono::steady_clock::now() < deadline; ++i) {
        auto w = Word(0x42, i);
        ASSERT_EQ(c.Out->Write(&w, 1, 0), 0u);
        const auto got = ReadAll<CKVX_HdwArinc429Message>(c.In, 1);
        ASSERT_EQ(got.size(), 1u) << "word " << i;
        ASSERT_EQ(got[0], w);
        const uint64_t t = inst->UnwrapUnitTime(got[0].TimeStamp);
        EXPECT_EQ(uint32_t(t), uint32_t(got[0].TimeStamp));
        times.push_back(t);
        ASSERT_TRUE(inst->GetLatestUnitTime(latest));
        ASSERT_GE(latest, previousLatest);
        ASSERT_GE(latest, t);
        previousLatest = latest;
    }
    ASSERT_GE(latest, kWrap + 1000000) << "the unit clock did not pass its wrap in time";
    ASSERT_GE(times.size(), 10u);
    EXPECT_LT(times.front(), kWrap);
    for (size_t i = 1; i < times.size(); ++i) {
        ASSERT_GE(times[i], times[i - 1]) << i;
        ASSERT_LT(times[i] - times[i - 1], 1000000u) << i;
    }

    uint64_t host = 0, wall = 0;
    ASSERT_TRUE(inst->MapUnitTime(latest, host, wall));
    const uint64_t now = CKVX_HdwKvxUnitInstance::HostMonotonicMicroseconds();
    EXPECT_LE(host, now + 100000);
    EXPECT_GT(host + 5000000, now);
    const auto wallNow = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_NEAR(double(wall), double(std::chrono::duration_cast<std::chrono::microseconds>(wallNow).count()), 6e6);
    EXPECT_NEAR(inst->GetUnitClockRate(), 1.0, 0.01);
}

// A transmit FIFO more than half full waits for its refill on its own, but a frame that goes out for another
// output tops it up: with a word on a fast channel every few ticks, the slow channel's FIFO never falls to half.
TEST(HaldenFifoTopUp, AFrameSentForAnotherOutputTopsUpAFifoThatIsMoreThanHalfFull)
{
    UnitRig rig(UnitNamed("halden"), EmulatorOptions(false, true)); // the bus paced
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    // The fast output's port comes first in the tick: its push is queued when the slow one looks.
    UnitRig::Arinc429Pair fast = rig.OpenArinc429Pair(1, 100000);
    UnitRig::Arinc429Pair slow = rig.OpenArinc429Pair(0, 12500);
    ASSERT_TRUE(fast.Out && slow.Out);
    auto level = [&] {
        const hdwsim::Counters c = rig.Sim.GetCounters();
        return c.A429Pushed[0] - c.A429Transmitted[0];
    };

    std::vector<CKVX_HdwArinc429Message> words = Sequence(0x21, 900);
    ASSERT_EQ(slow.Out->Write(words.data(), unsigned(words.size()), 0), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429Pushed[0] >= KvxArinc429TxFifoWords; }, 30000));

    // 400 words leave the slow transmitter (at 347 words/s): alone, its FIFO would fall to 256 before the refill.
    uint64_t lowest = KvxArinc429TxFifoWords;
    unsigned i = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (rig.Sim.GetCounters().A429Transmitted[0] < 400 && std::chrono::steady_clock::now() < deadline) {
        auto w = Word(0x42, i++);
        ASSERT_EQ(fast.Out->Write(&w, 1, 0), 0u);
        ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429Pushed[1] >= i; }, 30000));
        lowest = std::min(lowest, level());
    }
    ASSERT_GE(rig.Sim.GetCounters().A429Transmitted[0], 400u);
    EXPECT_GT(lowest, 400u) << "the slow FIFO was not topped up by the fast channel's frames";

    ASSERT_TRUE(WaitUntil([&] { return Idle(slow.Out) && Idle(fast.Out); }, 30000));
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(std::tuple(c.A429FifoDropped[0], c.A429Pushed[0], c.A429FifoPeak[0]),
        std::tuple(0u, words.size(), uint64_t(KvxArinc429TxFifoWords)));
    EXPECT_EQ(std::tuple(c.A429FifoDropped[1], c.A429Pushed[1]), std::tuple(0u, uint64_t(i)));
}

// Sleeping in poll() on the signals, then reading, finds every word announced.
TEST_F(HaldenLosses, Arinc429SignalsTellWordsSentAndReceivedBeforeThePollReadsThem)
{
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_ARINC429_RX, 2, HDW_SERVICE_SIGNAL);
    auto* txSignals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_ARINC429_TX, 2, HDW_SERVICE_SIGNAL);
    ASSERT_TRUE(signals && txSignals);
    UnitRig::Arinc429Pair c = rig.OpenArinc429Pair(2, 100000);
    std::vector<CKVX_HdwArinc429Message> words = Sequence(0x42, 200, 0x12300);
    ASSERT_EQ(c.Out->Write(words.data(), unsigned(words.size()), 0), 0u);

    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(txSignals->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(std::tuple(s.Kind, s.Arinc429), std::tuple(unsigned(HDW_SIGNAL_ARINC429_SENT), words[0]));
    unsigned announced = 0, read = 0;
    PollSignals(
        signals, [&] { return read >= words.size() && announced >= words.size(); },
        [&](const CKVX_HdwSignalService::CSignal& sig) {
            if (sig.Kind != HDW_SIGNAL_ARINC429_RECEIVED)
                return;
            ASSERT_LT(announced, words.size());
            EXPECT_EQ(sig.Arinc429, words[announced]);
            EXPECT_EQ(sig.Port, rig.Port(HDW_PORT_ARINC429_RX, 2));
            EXPECT_NE(sig.TimeStamp, 0u);
            ++announced;
        },
        [&] {
            CKVX_HdwArinc429Message got[256];
            unsigned m = 0;
            ASSERT_EQ(c.In->Read(got, 256, m), 0u);
            read += m;
            EXPECT_GE(read, announced) << "a signal came before its word";
        });
    EXPECT_EQ(std::tuple(read, announced), std::tuple(words.size(), words.size()));
}

// UART signals carry counts: the received ones add up to the bytes the input
// service holds by the time each is read, the sent ones to the bytes written.
TEST_F(HaldenLosses, UartSignalsCountTheBytesReceivedAndSentAndNeverRunAheadOfTheInput)
{
    auto* rxSignals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_UART, 1, HDW_SERVICE_SIGNAL);
    auto* txSignals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_UART, 0, HDW_SERVICE_SIGNAL);
    auto* in = rig.Enable<CKVX_HdwByteInBufferService>(HDW_PORT_UART, 1, HDW_SERVICE_BYTE_IN_BUFFER);
    auto* out = rig.Enable<CKVX_HdwByteOutBufferService>(HDW_PORT_UART, 0, HDW_SERVICE_BYTE_OUT_BUFFER);
    ASSERT_TRUE(rxSignals && txSignals && in && out);
    SetBufferSize(in, 5000);
    SetBufferSize(out, 5000);
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = 115200;
    ASSERT_EQ(rig.Open(HDW_PORT_UART, 1, p), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_UART, 0, p), 0u);
    std::vector<uint8_t> sent = Pattern(5000, 29);
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u);

    std::vector<uint8_t> got;
    uint64_t announced = 0, confirmed = 0, lastTime = 0;
    const auto takeSent = [&] {
        CKVX_HdwSignalService::CSignal sig[64];
        unsigned n = 0;
        while (txSignals->ReadSignals(sig, 64, n) == 0 && n > 0)
            for (unsigned i = 0; i < n; ++i) {
                ASSERT_EQ(sig[i].Kind, unsigned(HDW_SIGNAL_UART_SENT));
                confirmed += sig[i].Value;
            }
    };
    PollSignals(
        rxSignals,
        [&] {
            // The last bytes may be read before the signals that announce them.
            return takeSent(), got.size() >= sent.size() && announced >= sent.size() && confirmed >= sent.size();
        },
        [&](const CKVX_HdwSignalService::CSignal& sig) {
            ASSERT_EQ(sig.Kind, unsigned(HDW_SIGNAL_UART_RECEIVED));
            EXPECT_GT(sig.Value, 0u);
            EXPECT_EQ(sig.Port, rig.Port(HDW_PORT_UART, 1));
            EXPECT_GE(sig.TimeStamp, lastTime);
            lastTime = sig.TimeStamp;
            announced += sig.Value;
        },
        [&] {
            TakeAll(in, got);
            ASSERT_GE(got.size(), announced) << "a signal came before its bytes";
        });
    EXPECT_EQ(std::tuple(got.size(), announced, confirmed), std::tuple(sent.size(), sent.size(), sent.size()));
    EXPECT_TRUE(got == sent);
}

} // namespace
