// Unplug and plug back with reconnect on, on a pseudo-terminal behind a symbolic link or UDP.
#include "UnitRig.h"

#include <unistd.h>

using namespace halden_test;

namespace {

constexpr unsigned kCh = 1;
constexpr unsigned kCycles = 5;
constexpr unsigned kBatch = 200;
constexpr uint32_t kUnitSignals = (1u << (HDW_SIGNAL_UNIT_LOST - 1)) | (1u << (HDW_SIGNAL_UNIT_BACK - 1));

bool IsLost(unsigned state)
{
    return state == HDW_UNIT_LINK_LOST || state == HDW_UNIT_LINK_OPENING;
}

hdwsim::Emulator::Options SimOptions(bool udp)
{
    hdwsim::Emulator::Options o = EmulatorOptions(udp);
    if (!udp)
        o.LinkPath = "/tmp/hdwlib-reconnect-" + std::to_string(getpid()) + "-pty";
    return o;
}

// Start adds an ARINC 429 pair on kCh and a signal service for the unit's comings and goings.
class ReconnectRig {
public:
    ReconnectRig(bool udp, const UnitCase& unit = UnitNamed("halden")) : Rig(unit, SimOptions(udp))
    {
        if (udp)
            Rig.SetEchoTimeout(1500); // loss over UDP shows by the echo time-out
        Rig.Reconnect = true;
    }

    void Start()
    {
        ASSERT_NO_FATAL_FAILURE(Rig.Start());
        CKVX_HdwSignalService::CParameters sp;
        sp.SignalMask = kUnitSignals;
        Signals = Rig.Enable<CKVX_HdwSignalService>(HDW_PORT_ARINC429_RX, kCh, HDW_SERVICE_SIGNAL, &sp);
        ASSERT_NE(Signals, nullptr);
        Pair = Rig.OpenArinc429Pair(kCh);
        ASSERT_TRUE(Pair.In && Pair.Out);
    }

    CKVX_HdwKvxUnitLinkStatus Status()
    {
        CKVX_HdwKvxUnitLinkStatus s;
        EXPECT_TRUE(WithCommandDevice(Rig.Device.get(), [&](auto& d) { EXPECT_EQ(d.GetUnitLinkStatus(0, s), 0u); }));
        return s;
    }

    // Queues the next `count` words (data = sequence number).
    void WriteNext(unsigned count)
    {
        std::vector<CKVX_HdwArinc429Message> words = Sequence(0x51, count, m_Next);
        m_Next += count;
        ASSERT_EQ(Pair.Out->Write(words.data(), count, 0), 0u);
    }
    uint32_t Written() const { return m_Next; }

    // Waits for `done`, taking what the receiver and the signal service hold.
    bool WaitFor(const std::function<bool()>& done, unsigned timeoutMs = 20000)
    {
        return WaitUntil(
            [&] {
                if (Pair.In)
                    TakeAll(Pair.In, Received);
                CKVX_HdwSignalService::CSignal s;
                while (Signals && Signals->GetSignal(s) == 0)
                    Seen.push_back(s);
                return done();
            },
            timeoutMs);
    }
    size_t SignalsOf(unsigned kind) const
    {
        return size_t(std::count_if(Seen.begin(), Seen.end(), [&](const auto& s) { return s.Kind == kind; }));
    }
    // Unplugs the unit until lost, runs `whileAway`, plugs it back until returned.
    void Replug(const std::function<void()>& whileAway = {})
    {
        const unsigned returns = Status().Returns;
        Rig.Sim.Unplug();
        ASSERT_TRUE(WaitFor([&] { return IsLost(Status().State); }));
        if (whileAway)
            whileAway();
        ASSERT_TRUE(Rig.Sim.Plug());
        ASSERT_TRUE(WaitFor([&] { return Status().Returns == returns + 1; }));
    }
    // Idle for several probes (commands these units take), and not lost.
    void IdleForProbes()
    {
        const auto probes = [&] {
            return Rig.Sim.GetCounters().CommandsByCode[1] + Rig.Sim.GetCounters().CommandsByCode[2];
        };
        const uint64_t before = probes();
        ASSERT_TRUE(WaitFor([&] { return probes() >= before + 4; }));
        EXPECT_EQ(std::tuple(Status().Outages, Rig.Sim.GetCounters().CommandsUnknown), std::tuple(0u, 0u));
    }
    bool HasWord(uint32_t seq) const
    {
        return std::any_of(Received.begin(), Received.end(), [&](const auto& w) { return w.Data == seq; });
    }

    UnitRig Rig;
    CKVX_HdwSignalService* Signals = nullptr;
    UnitRig::Arinc429Pair Pair;
    std::vector<CKVX_HdwArinc429Message> Received;
    std::vector<CKVX_HdwSignalService::CSignal> Seen;

private:
    uint32_t m_Next = 0;
};

// Words in flight at each unplug and written while away resume in order, never twice, the gaps counted lost.
void RunCycles(bool udp)
{
    ReconnectRig r(udp);
    ASSERT_NO_FATAL_FAILURE(r.Start());
    // Label output on pair 2: the unit returns without its table; the service resends it with the data given away.
    auto* labelIn =
        r.Rig.OpenWith<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, 2, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* labelOut =
        r.Rig.OpenWith<CKVX_HdwArinc429OutLbloService>(HDW_PORT_ARINC429_TX, 2, HDW_SERVICE_ARINC429_LABEL_OUT);
    ASSERT_TRUE(labelIn && labelOut);
    CKVX_HdwArinc429OutLbloService::CLabelCtrl ctrl(0x31, 10);
    ASSERT_EQ(labelOut->SetLabelsCtrl(&ctrl, 1), 0u);
    CKVX_HdwArinc429Message label = Word(0x31, 0x100);
    ASSERT_EQ(labelOut->UpdateMessages(&label, 1), 0u);
    std::vector<CKVX_HdwArinc429Message> labels;
    const auto labelCame = [&] {
        TakeAll(labelIn, labels);
        return std::count_if(labels.begin(), labels.end(), [&](const auto& w) { return w == label; }) >= 3;
    };
    ASSERT_TRUE(WaitUntil(labelCame));
    for (unsigned cycle = 0; cycle < kCycles; ++cycle) {
        SCOPED_TRACE(cycle);
        r.WriteNext(kBatch);
        const uint32_t last = r.Written() - 1;
        ASSERT_TRUE(r.WaitFor([&] { return r.HasWord(last); }));
        r.WriteNext(kBatch);
        r.Rig.Sim.Unplug();
        ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_LOST) == cycle + 1; }));
        EXPECT_EQ(r.Status().Outages, cycle + 1);
        r.WriteNext(kBatch);
        label = Word(0x31, 0x101 + cycle);
        ASSERT_EQ(labelOut->UpdateMessages(&label, 1), 0u);
        ASSERT_TRUE(r.Rig.Sim.Plug());
        ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_BACK) == cycle + 1; }));
        EXPECT_EQ(std::tuple(r.Pair.In->GetStatus(), r.Pair.Out->GetStatus(), labelOut->GetStatus()),
            std::tuple(unsigned(HDW_SERVICE_RUNNING), unsigned(HDW_SERVICE_RUNNING), unsigned(HDW_SERVICE_RUNNING)));
        ASSERT_TRUE(WaitUntil(labelCame)) << "the label did not come back";
    }
    r.WriteNext(kBatch);
    const uint32_t last = r.Written() - 1;
    ASSERT_TRUE(r.WaitFor([&] { return r.HasWord(last); })) << "traffic did not resume";

    // Each word at most once, in order; no more missing than reported lost.
    for (size_t i = 1; i < r.Received.size(); ++i)
        ASSERT_GT(r.Received[i].Data, r.Received[i - 1].Data) << "word " << i;
    const CKVX_HdwKvxUnitLinkStatus s = r.Status();
    EXPECT_LE(r.Written() - r.Received.size(), s.LostItems);
    EXPECT_EQ(std::tuple(s.State, s.Outages, s.Returns), std::tuple(unsigned(HDW_UNIT_LINK_UP), kCycles, kCycles));

    // The signals come in pairs, lost before back, counting up.
    ASSERT_EQ(r.Seen.size(), 2 * kCycles);
    uint64_t lostItems = 0;
    for (unsigned i = 0; i < kCycles; ++i) {
        const auto& lost = r.Seen[2 * i];
        const auto& back = r.Seen[2 * i + 1];
        EXPECT_EQ(std::tuple(lost.Kind, lost.Value, back.Kind, back.Value, back.Port),
            std::tuple(unsigned(HDW_SIGNAL_UNIT_LOST), i + 1, unsigned(HDW_SIGNAL_UNIT_BACK), i + 1,
                r.Rig.Port(HDW_PORT_ARINC429_RX, kCh)))
            << i;
        lostItems += lost.Aux;
    }
    EXPECT_EQ(lostItems, s.LostItems);
}

TEST(Reconnect, FiveUnplugsOverPtyAndRestartsOverUdpDuringTraffic)
{
    for (bool udp : {false, true}) {
        SCOPED_TRACE(udp ? "UDP" : "pty");
        RunCycles(udp);
    }
}

// On a stepped clock; the return's signal tells how long the unit was away.
TEST(Reconnect, RetriesBackOffFrom100MsDoublingTo2sAndOpeningAnotherPortTriesAtOnce)
{
    ReconnectRig r(false, SteppedHalden());
    std::atomic<uint64_t>& now = ClockOf(r.Rig);
    const uint64_t t0 = now = 1'000'000;
    ASSERT_NO_FATAL_FAILURE(r.Start());
    r.Rig.Sim.Unplug();
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_LOST) == 1; }));
    // The failed attempts once some ticks have passed at `ms` after the loss.
    auto attemptsAt = [&](uint64_t ms) {
        now = t0 + ms;
        const uint64_t from = r.Rig.Manager.GetTickCounter();
        EXPECT_TRUE(WaitUntil([&] { return r.Rig.Manager.GetTickCounter() >= from + 20; }));
        return r.Status().FailedAttempts;
    };
    const std::vector<std::pair<uint64_t, uint32_t>> steps = {{99, 0}, {100, 1}, {299, 1}, {300, 2}, {699, 2}, {700, 3},
        {1499, 3}, {1500, 4}, {3099, 4}, {3100, 5}, {5099, 5}, {5100, 6}, {7099, 6}, {7100, 7}};
    for (const auto& [ms, attempts] : steps)
        EXPECT_EQ(attemptsAt(ms), attempts) << "at " << ms << " ms";
    EXPECT_EQ(r.Status().State, unsigned(HDW_UNIT_LINK_LOST));

    ASSERT_TRUE(r.Rig.Sim.Plug());
    now = t0 + 9100;
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_BACK) == 1; }));
    const auto back =
        std::find_if(r.Seen.begin(), r.Seen.end(), [](const auto& s) { return s.Kind == HDW_SIGNAL_UNIT_BACK; });
    EXPECT_EQ(std::tuple(back->Value, back->Aux, back->TimeStamp), std::tuple(1u, 9100u, t0 + 9100));
    EXPECT_EQ(r.Status().FailedAttempts, 7u);

    // Lost again, the clock standing (the tick does not retry): opening another port tries the unit at once; back, the
    // ports kept open are configured again and carry words beside the new ones.
    auto* out2 =
        r.Rig.Enable<CKVX_HdwArinc429OutBufferService>(HDW_PORT_ARINC429_TX, 2, HDW_SERVICE_ARINC429_OUT_BUFFER);
    auto* in2 = r.Rig.Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, 2, HDW_SERVICE_ARINC429_IN_BUFFER);
    ASSERT_TRUE(out2 && in2);
    r.Rig.Sim.Unplug();
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_LOST) == 2; }));
    EXPECT_EQ(r.Rig.Open(HDW_PORT_ARINC429_TX, 2), unsigned(HDW_ERR_LINK));
    EXPECT_EQ(std::tuple(r.Status().State, r.Status().FailedAttempts), std::tuple(unsigned(HDW_UNIT_LINK_LOST), 8u));
    ASSERT_TRUE(r.Rig.Sim.Plug());
    ASSERT_EQ(r.Rig.Open(HDW_PORT_ARINC429_RX, 2), 0u);
    ASSERT_EQ(r.Rig.Open(HDW_PORT_ARINC429_TX, 2), 0u);
    EXPECT_EQ(std::tuple(r.Status().State, r.Status().Returns), std::tuple(unsigned(HDW_UNIT_LINK_UP), 2u));
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_BACK) == 2; }));
    r.WriteNext(30);
    std::vector<CKVX_HdwArinc429Message> sent = Sequence(0x53, 30);
    ASSERT_EQ(out2->Write(sent.data(), 30, 0), 0u);
    ASSERT_TRUE(r.WaitFor([&] { return r.HasWord(r.Written() - 1); }));
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(in2, 30), sent);
}

// The attempt (1.5 s of handshake) runs on a thread of its own; a port closed during one ends the outage at once.
TEST(Reconnect, AnAttemptOnASilentUdpUnitDoesNotHoldUpTheTickNorTakesAnotherUnitAtItsAddress)
{
    ReconnectRig r(true);
    ASSERT_NO_FATAL_FAILURE(r.Start());
    r.Rig.Sim.Unplug();
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_LOST) == 1; }));
    uint64_t most = 0;
    for (unsigned attempt = 0; attempt < 2; ++attempt) {
        ASSERT_TRUE(r.WaitFor([&] { return r.Status().State == HDW_UNIT_LINK_OPENING; }, 30000));
        const uint64_t from = r.Rig.Manager.GetTickCounter();
        const uint32_t failed = r.Status().FailedAttempts;
        ASSERT_TRUE(r.WaitFor([&] { return r.Status().FailedAttempts > failed; }, 30000));
        most = std::max(most, r.Rig.Manager.GetTickCounter() - from);
    }
    EXPECT_GE(most, 10u) << "the tick waited for the attempt"; // held up, it would count one or two

    ASSERT_TRUE(r.WaitFor([&] { return r.Status().State == HDW_UNIT_LINK_OPENING; }, 30000));
    for (unsigned type : {HDW_PORT_ARINC429_RX, HDW_PORT_ARINC429_TX})
        EXPECT_EQ(r.Rig.Port(type, kCh)->Close(), 0u);
    EXPECT_EQ(r.Status().State, unsigned(HDW_UNIT_LINK_UP));
    ASSERT_TRUE(r.Rig.Sim.Plug());
    // Opened by hand, as on a fresh start.
    for (unsigned type : {HDW_PORT_ARINC429_RX, HDW_PORT_ARINC429_TX})
        ASSERT_EQ(r.Rig.Open(type, kCh), 0u);
    r.WriteNext(20);
    ASSERT_TRUE(r.WaitFor([&] { return r.HasWord(r.Written() - 1); }));

    // Over UDP a unit is its address and serial number: another one at that address is not taken, the unit itself is.
    hdwsim::Emulator::Options o = EmulatorOptions(true);
    o.UdpPort = r.Rig.Sim.UdpPort();
    const size_t lost = r.SignalsOf(HDW_SIGNAL_UNIT_LOST), back = r.SignalsOf(HDW_SIGNAL_UNIT_BACK);
    r.Rig.Sim.Stop();
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_LOST) == lost + 1; }));
    const uint32_t failed = r.Status().FailedAttempts;
    o.SerialNumber = "OTHER-0001";
    auto other = std::make_unique<hdwsim::Emulator>(*hdwsim::FindUnitModel("halden"), o);
    ASSERT_TRUE(other->Start());
    ASSERT_TRUE(r.WaitFor([&] { return r.Status().FailedAttempts >= failed + 2; }, 30000));
    EXPECT_TRUE(IsLost(r.Status().State));
    EXPECT_EQ(r.SignalsOf(HDW_SIGNAL_UNIT_BACK), back);
    EXPECT_EQ(other->GetCounters().FramesReceived, 0u) << "commands went to the other unit";
    other->Stop();
    o.SerialNumber.clear(); // the model's own, as the first unit
    hdwsim::Emulator same(*hdwsim::FindUnitModel("halden"), o);
    ASSERT_TRUE(same.Start());
    ASSERT_TRUE(r.WaitFor([&] { return r.SignalsOf(HDW_SIGNAL_UNIT_BACK) == back + 1; }, 30000));
    r.WriteNext(50);
    ASSERT_TRUE(r.WaitFor([&] { return r.HasWord(r.Written() - 1); }));
}

// Tables, data given while away and run are written again, missed transfers counted lost. A schedule of 255 cycles runs
// what it had left: of 2-ms cycles it ended while away; of 20-ms cycles it stops after 255 in all.
TEST(Reconnect, MilStd1553ControllerAndTerminalResumeAfterAReturn)
{
    for (const unsigned minorUs : {2000u, 20000u}) {
        SCOPED_TRACE(minorUs);
        ReconnectRig r(false);
        ASSERT_NO_FATAL_FAILURE(r.Start());
        const Words oldTx = {0x101, 0x102}, newTx = {0x201, 0x202};
        const CKVX_HdwMilStd1553RemoteTerminal t = Terminal(5, oldTx);
        Rt* rt = OpenRt(r.Rig, &t);
        const uint64_t all = 255 * 2;
        Bc* bc = RunSchedule(r.Rig, Schedule({BcToRt(5, 1, {0xA1}), RtToBc(5, 2, 2)}, {Minor(minorUs, {0, 1})}, 255));
        ASSERT_TRUE(rt && bc);
        size_t seen = ReadTransfers(bc, 10).size();
        ASSERT_GE(seen, 10u);

        ASSERT_NO_FATAL_FAILURE(r.Replug([&] {
            seen += ReadTransfers(bc, 100000, 0).size(); // what came before the loss
            ReadTransfers(rt, 100000, 0);
            ASSERT_EQ(rt->UpdateTransmitData(2, newTx), 0u);
            // Away for three attempts (back-off 100, 200, 400 ms).
            ASSERT_TRUE(r.WaitFor([&] { return r.Status().FailedAttempts >= 3; }));
        }));
        EXPECT_TRUE(rt->IsRunning());
        if (minorUs == 2000) {
            EXPECT_FALSE(bc->IsRunning());
            EXPECT_EQ(seen + bc->GetLostCount(), all);
            continue;
        }
        const std::vector<Msg> got = ReadTransfers(bc, 40);
        ASSERT_GE(got.size(), 40u);
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(std::tuple(got[i].Subaddress, got[i].Flags, got[i].Subaddress == 1 || got[i].Data == newTx),
                std::tuple(i % 2 == 0 ? 1 : 2, 0, true))
                << i;
            EXPECT_GT(got[i].TimeStamp, i > 0 ? got[i - 1].TimeStamp : 0) << i;
        }
        const std::vector<Msg> access = ReadTransfers(rt, 10);
        ASSERT_GE(access.size(), 10u);
        EXPECT_EQ(access.back().Data, Words{0xA1});
        EXPECT_GT(bc->GetLostCount(), 0u);
        // The 255 cycles, the last one begun again whole.
        seen += got.size();
        ASSERT_TRUE(r.WaitFor([&] {
            seen += ReadTransfers(bc, 100000, 0).size();
            return !bc->IsRunning();
        }));
        seen += ReadTransfers(bc, 100000, 0).size();
        EXPECT_GE(seen + bc->GetLostCount(), all);
        EXPECT_LT(seen + bc->GetLostCount(), all + 2);
    }
}

// The output bank drives what was last written (not InitialState), the inputs count no false loss; an I2C transfer on
// the unit at the loss ends with 14, the masters are configured again.
TEST(Reconnect, DiscreteAndBusMastersComeBackAsTheApplicationLeftThem)
{
    {
        ReconnectRig r(false, UnitNamed("travin"));
        ASSERT_NO_FATAL_FAILURE(r.Rig.Start());
        CKVX_HdwDiscreteInPort::CParameters ip;
        ip.DebounceUs = 0;
        CKVX_HdwDiscreteOutPort::CParameters op;
        op.InitialState = 0x81;
        auto* in = r.Rig.OpenWith<CKVX_HdwDiscreteInService>(HDW_PORT_DISCRETE_IN, 2, HDW_SERVICE_DISCRETE_IN, ip);
        auto* out = r.Rig.OpenWith<CKVX_HdwDiscreteOutService>(HDW_PORT_DISCRETE_OUT, 2, HDW_SERVICE_DISCRETE_OUT, op);
        ASSERT_TRUE(in && out);
        ASSERT_NO_FATAL_FAILURE(r.IdleForProbes());
        ASSERT_EQ(out->WriteAll(0x3C), 0u);
        uint32_t state = 0;
        uint64_t time = 0;
        ASSERT_TRUE(r.WaitFor([&] { return in->GetState(state, time) == 0 && state == 0x3C; }));
        ASSERT_NO_FATAL_FAILURE(r.Replug());
        ASSERT_TRUE(r.WaitFor([&] { return out->GetDriven(state, time) == 0 && state == 0x3C; }));
        ASSERT_EQ(out->Toggle(0x01), 0u);
        ASSERT_TRUE(r.WaitFor([&] { return in->GetState(state, time) == 0 && state == 0x3D; }));
        // Debounce 0 came back too: the toggle is one change, nothing lost.
        CKVX_HdwDiscreteInService::CChange last;
        unsigned n = 0;
        while (in->Read(&last, 1, n) == 0 && n) {}
        EXPECT_EQ(last.State, 0x3Du);
        uint64_t lost = 1;
        ASSERT_EQ(in->GetLostCount(lost), 0u);
        EXPECT_EQ(lost, 0u);
        EXPECT_EQ(r.Rig.Sim.GetCounters().CommandsByCode[36 + 2], 2u); // open and return
    }
    {
        ReconnectRig r(false, UnitNamed("wendal"));
        ASSERT_NO_FATAL_FAILURE(r.Rig.Start());
        CKVX_HdwI2cPort::CParameters ip;
        ip.BusSpeed = 400000;
        CKVX_HdwSpiPort::CParameters sp;
        sp.Mode = 3;
        auto* i2c = r.Rig.OpenWith<CKVX_HdwI2cMasterService>(HDW_PORT_I2C, 0, HDW_SERVICE_I2C_MASTER, ip);
        auto* spi = r.Rig.OpenWith<CKVX_HdwSpiMasterService>(HDW_PORT_SPI, 1, HDW_SERVICE_SPI_MASTER, sp);
        ASSERT_TRUE(i2c && spi);
        ASSERT_NO_FATAL_FAILURE(r.IdleForProbes());
        // The unit takes the transfer; its answer is held back past the unplug.
        r.Rig.Sim.SetAnswerDelayMs(5000);
        CKVX_HdwI2cTransfer onUnit = I2c(0x50, {}, 1);
        ASSERT_EQ(i2c->Submit(onUnit), 0u);
        ASSERT_TRUE(r.WaitFor([&] { return r.Rig.Sim.GetCounters().CommandsByCode[116] == 1; }));
        ASSERT_NO_FATAL_FAILURE(r.Replug([&] { r.Rig.Sim.SetAnswerDelayMs(0); }));
        CKVX_HdwI2cTransfer ended;
        ASSERT_TRUE(r.WaitFor([&] { return i2c->ReadResult(ended) == 0; }));
        EXPECT_EQ(ended.Result, unsigned(HDW_ERR_LINK));
        EXPECT_EQ(i2c->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
        CKVX_HdwI2cTransfer w = I2c(0x50, {0x10, 7, 8});
        EXPECT_EQ(i2c->Transfer(w, 20000), 0u);
        CKVX_HdwSpiTransfer s = Spi({0x10, 7, 8});
        ASSERT_EQ(spi->Transfer(s, 20000), 0u);
        EXPECT_EQ(s.In.Items(), (std::vector<uint8_t>{0x10, 7, 8}));
        // I2C master 0 and SPI master 1 configured at the open and at the return.
        EXPECT_EQ(std::tuple(r.Rig.Sim.GetCounters().CommandsByCode[112], r.Rig.Sim.GetCounters().CommandsByCode[115]),
            std::tuple(2u, 2u));
    }
}

} // namespace
