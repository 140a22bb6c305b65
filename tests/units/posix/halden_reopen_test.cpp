// Closing and re-opening the ports of a unit after it misbehaved, on a
// pseudo-terminal and over UDP: the unit may still be sending the tail of
// the earlier exchange (late echoes, events, noise) when the new session
// starts, and the first Open must succeed all the same. Also what a close
// sends before the session ends.
#include "UnitRig.h"

#include <array>
#include <thread>

using namespace halden_test;

namespace {

// Echo time-out while a fault is injected: short, so that a unit that does
// not answer fails the services quickly. Normal traffic gets the rig's own.
constexpr unsigned kFaultEchoTimeoutMs = 120;
constexpr unsigned kRounds = 20;
constexpr unsigned kWords = 12;
constexpr unsigned kCh = 1;

struct Fault {
    const char* Name;
    std::function<void(hdwsim::Emulator&)> Begin;
    std::function<void(hdwsim::Emulator&)> End;
    bool NoiseAtReopen = false; // stray bytes before the unit's first answer to the re-open
};

std::vector<Fault> Faults()
{
    auto none = [](hdwsim::Emulator&) {};
    return {
        {"plain close", none, none},
        {"noise at re-open", none, none, true},
        {"withheld echoes", [](auto& s) { s.SetEchoEnabled(false); }, [](auto& s) { s.SetEchoEnabled(true); }},
        // Noise without a start byte, then a frame: that frame is lost.
        {"stray bytes",
            [](auto& s) {
                s.InsertStrayBytes({0x00, 0x13, 0x37, 0x5A, 0x02});
            },
            none},
        {"bad CRC", [](auto& s) { s.CorruptNextFrameCrc(1); }, none},
        {"late answers", [](auto& s) { s.SetAnswerDelayMs(kFaultEchoTimeoutMs + 150); },
            [](auto& s) { s.SetAnswerDelayMs(0); }},
        {"hang-up", [](auto& s) { s.SetHungUp(true); }, [](auto& s) { s.SetHungUp(false); }},
    };
}

// One transport: each round runs every fault; after each, both ports of an
// ARINC 429 pair are closed, re-opened (each at the first Open) and carry
// words in order. Failures are reported, not thrown, so that this can run on
// a thread of its own.
void RunMatrix(bool udp)
{
    UnitRig rig(UnitNamed("halden"), udp);
    rig.Start();
    if (::testing::Test::HasFatalFailure())
        return;
    UnitRig::Arinc429Pair p = rig.OpenArinc429Pair(kCh);
    if (!p.In || !p.Out)
        return;
    const auto faults = Faults();
    unsigned label = 0;
    for (unsigned round = 0; round < kRounds; ++round) {
        for (const Fault& f : faults) {
            const std::string where =
                std::string(udp ? "UDP" : "pty") + ", round " + std::to_string(round) + ", " + f.Name;
            // Reports a failed step; the round cannot go on after one.
            const auto failed = [&](bool ok, const std::string& what) {
                if (!ok)
                    ADD_FAILURE() << where << ": " << what;
                return !ok;
            };
            // The fault, then a word that meets it. A fault that loses or
            // holds back an echo fails the services once the echo time-out
            // has passed; the others leave them running.
            rig.SetEchoTimeout(kFaultEchoTimeoutMs);
            f.Begin(rig.Sim);
            CKVX_HdwArinc429Message w = Word(0x3F, round);
            EXPECT_EQ(p.Out->Write(&w, 1, 0), 0u) << where;
            const bool fails = std::string(f.Name) != "plain close" && !f.NoiseAtReopen;
            const bool settled = WaitUntil([&] {
                return fails ? p.In->GetStatus() == unsigned(HDW_SERVICE_FAILED)
                             : rig.Sim.GetCounters().A429Pushed[kCh] > 0 && Idle(p.Out);
            });
            if (failed(settled, fails ? "services did not fail" : "the word was not sent"))
                return;
            f.End(rig.Sim);

            // Closed and re-opened at once, whatever the unit still sends.
            EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_RX, kCh)->Close(), 0u) << where;
            EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_TX, kCh)->Close(), 0u) << where;
            rig.SetEchoTimeout(kEchoTimeoutMs);
            if (f.NoiseAtReopen) {
                // Once the unit has answered everything, so that the noise
                // comes right before the echoes of the new session.
                if (failed(WaitUntil([&] {
                        const hdwsim::Counters c = rig.Sim.GetCounters();
                        return c.EchoesSent + c.EchoesSuppressed == c.CommandsReceived;
                    }),
                        "the unit did not answer"))
                    return;
                rig.Sim.InsertStrayBytes({0x00, 0x13, 0x37, 0x5A, 0x02});
            }
            const unsigned rx = rig.Open(HDW_PORT_ARINC429_RX, kCh, CKVX_HdwArinc429RxPort::CParameters());
            const unsigned tx = rig.Open(HDW_PORT_ARINC429_TX, kCh, CKVX_HdwArinc429TxPort::CParameters());
            if (failed(rx == 0 && tx == 0,
                    "re-open gave " + std::to_string(rx) + " (receiver), " + std::to_string(tx) + " (transmitter)") ||
                failed(p.In->GetStatus() == unsigned(HDW_SERVICE_RUNNING), "receiver not running after the re-open"))
                return;
            std::vector<CKVX_HdwArinc429Message> sent;
            label = (label + 1) % 200;
            for (unsigned i = 0; i < kWords; ++i)
                sent.push_back(Word(0x40 + label, i, i & 3));
            EXPECT_EQ(p.Out->Write(sent.data(), kWords, 0), 0u) << where;
            const auto got = ReadAll<CKVX_HdwArinc429Message>(p.In, kWords);
            if (failed(got == sent,
                    std::to_string(got.size()) + " of " + std::to_string(kWords) + " words, or out of order"))
                return;
        }
    }
}

TEST(HaldenReopen, EveryFaultThenCloseAndFirstOpenCarriesWordsInOrder)
{
    // Both transports at once: each has its own emulator and manager.
    std::thread ethernet([] { RunMatrix(true); });
    RunMatrix(false);
    ethernet.join();
}

// Closing the last port of a unit: what the port's close and its services'
// Stop queued reaches the unit before the session ends; the receiver's
// filter changes and DiscardMessage reach the unit's label table, and a
// filter change leaves a receiver that DisableRx switched off as it is.
class HaldenReceiverOnUnit : public ::testing::Test {
protected:
    void SetUp() override
    {
        rig = std::make_unique<UnitRig>(UnitNamed("halden"), false);
        ASSERT_NO_FATAL_FAILURE(rig->Start());
    }
    hdwsim::UnitEngine::A429RxState Receiver() { return rig->Sim.A429Receiver(kCh); }
    static bool Passes(const hdwsim::UnitEngine::A429RxState& r, unsigned label)
    {
        return (r.Filter[label >> 3] >> (label & 7)) & 1;
    }
    unsigned RxConfigs() { return unsigned(rig->Sim.GetCounters().CommandsByCode[rig->Unit.ArxConfigBase + kCh]); }
    // Runs `change` and waits until the unit has taken one more receiver
    // configuration.
    template <class F>
    void Reconfigure(F&& change)
    {
        const unsigned before = RxConfigs();
        ASSERT_EQ(change(), 0u);
        ASSERT_TRUE(WaitUntil([&] { return RxConfigs() > before; }));
    }
    std::unique_ptr<UnitRig> rig;
};

TEST_F(HaldenReceiverOnUnit, LastCloseSendsChannelOffAndLabelResetBeforeTheSessionCloses)
{
    auto* in = rig->Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, kCh, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* lblo = rig->Enable<CKVX_HdwArinc429OutLbloService>(HDW_PORT_ARINC429_TX, kCh, HDW_SERVICE_ARINC429_LABEL_OUT);
    ASSERT_TRUE(in && lblo);
    ASSERT_EQ(rig->Open(HDW_PORT_ARINC429_RX, kCh), 0u);
    ASSERT_EQ(rig->Open(HDW_PORT_ARINC429_TX, kCh), 0u);
    ASSERT_TRUE(WaitUntil([&] { return Receiver().Enabled; }));
    const hdwsim::Counters before = rig->Sim.GetCounters();

    ASSERT_EQ(rig->Port(HDW_PORT_ARINC429_RX, kCh)->Close(), 0u);
    ASSERT_EQ(rig->Port(HDW_PORT_ARINC429_TX, kCh)->Close(), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig->Sim.GetCounters().SessionCloses > before.SessionCloses; }));
    EXPECT_FALSE(Receiver().Enabled);
    const hdwsim::Counters after = rig->Sim.GetCounters();
    EXPECT_EQ(after.A429LabelResets[kCh], before.A429LabelResets[kCh] + 1);
    EXPECT_EQ(after.SessionCloses, before.SessionCloses + 1);
    // In that order: receiver off, transmitter off, label reset, session close.
    const std::vector<uint8_t> log = rig->Sim.RecentCommandCodes();
    const std::vector<uint8_t> expected = {
        uint8_t(rig->Unit.ArxConfigBase + kCh), uint8_t(rig->Unit.AtxConfigBase + kCh), 18, 1};
    ASSERT_GE(log.size(), expected.size());
    std::vector<uint8_t> tail(log.end() - expected.size(), log.end());
    EXPECT_EQ(tail, expected);
}

TEST_F(HaldenReceiverOnUnit, FilterChangesReachTheLabelTableAndKeepTheChannelOnOrOff)
{
    auto* in = rig->Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, kCh, HDW_SERVICE_ARINC429_IN_BUFFER);
    ASSERT_TRUE(in);
    ASSERT_EQ(rig->Open(HDW_PORT_ARINC429_RX, kCh), 0u);
    ASSERT_TRUE(WaitUntil([&] { return Receiver().Enabled && Passes(Receiver(), 0x31); }));

    // DiscardMessage on a running channel: the unit drops the label itself.
    ASSERT_NO_FATAL_FAILURE(Reconfigure([&] { return in->DiscardMessage(0x31); }));
    EXPECT_FALSE(Passes(Receiver(), 0x31));
    EXPECT_TRUE(Passes(Receiver(), 0x32));
    EXPECT_TRUE(Receiver().Enabled);

    // Every filter change on a receiver that is switched off: the table
    // follows, the channel stays off; EnableRx switches it on again.
    ASSERT_NO_FATAL_FAILURE(Reconfigure([&] { return in->DisableRx(); }));
    EXPECT_FALSE(Receiver().Enabled);
    struct Change {
        const char* Name;
        std::function<unsigned()> Run;
        std::array<bool, 3> Pass; // labels 0x31, 0x32, 0x33 afterwards
    };
    const std::vector<Change> changes = {
        {"DiscardAllMessages", [&] { return in->DiscardAllMessages(); }, {false, false, false}},
        {"AcceptMessage", [&] { return in->AcceptMessage(0x32, 0xF, 0xF); }, {false, true, false}},
        {"DiscardMessage", [&] { return in->DiscardMessage(0x32); }, {false, false, false}},
        {"AcceptAllMessages", [&] { return in->AcceptAllMessages(); }, {true, true, true}},
    };
    for (const Change& c : changes) {
        SCOPED_TRACE(c.Name);
        ASSERT_NO_FATAL_FAILURE(Reconfigure(c.Run));
        const auto r = Receiver();
        EXPECT_FALSE(r.Enabled);
        EXPECT_EQ(Passes(r, 0x31), c.Pass[0]);
        EXPECT_EQ(Passes(r, 0x32), c.Pass[1]);
        EXPECT_EQ(Passes(r, 0x33), c.Pass[2]);
    }
    ASSERT_NO_FATAL_FAILURE(Reconfigure([&] { return in->EnableRx(); }));
    EXPECT_TRUE(Receiver().Enabled);
    ASSERT_NO_FATAL_FAILURE(Reconfigure([&] { return in->DiscardMessage(0x33); }));
    EXPECT_TRUE(Receiver().Enabled);
    EXPECT_FALSE(Passes(Receiver(), 0x33));
}

} // namespace
