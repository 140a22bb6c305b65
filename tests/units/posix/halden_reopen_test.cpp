// Closing and re-opening a unit's ports after faults; what a close sends.
#include "UnitRig.h"

#include <array>
#include <thread>

using namespace halden_test;

namespace {

// Echo time-out while a fault is injected: short, so that the services fail soon.
constexpr unsigned kFaultEchoTimeoutMs = 120;
constexpr unsigned kRounds = 20;
constexpr unsigned kWords = 12;
constexpr unsigned kCh = 1;
const std::vector<uint8_t> kNoise = {0x00, 0x13, 0x37, 0x5A, 0x02}; // no start byte

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
        // Noise without a start byte loses the frame after it.
        {"stray bytes", [](auto& s) { s.InsertStrayBytes(kNoise); }, none},
        {"bad CRC", [](auto& s) { s.CorruptNextFrameCrc(1); }, none},
        {"late answers", [](auto& s) { s.SetAnswerDelayMs(kFaultEchoTimeoutMs + 150); },
            [](auto& s) { s.SetAnswerDelayMs(0); }},
        {"hang-up", [](auto& s) { s.SetHungUp(true); }, [](auto& s) { s.SetHungUp(false); }},
    };
}

// After each fault of each round, an ARINC 429 pair is closed and re-opened while the unit may still send the tail of
// the earlier exchange; the first failed step ends the matrix of its link.
void RunMatrix(bool udp)
{
    UnitRig rig(UnitNamed("halden"), udp);
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    UnitRig::Arinc429Pair p = rig.OpenArinc429Pair(kCh);
    ASSERT_TRUE(p.In && p.Out);
    unsigned label = 0;
    for (unsigned round = 0; round < kRounds; ++round)
        for (const Fault& f : Faults()) {
            const std::string where =
                std::string(udp ? "UDP" : "pty") + ", round " + std::to_string(round) + ", " + f.Name + ": ";
            // The fault, then a word that meets it: the services fail, but for a plain close and noise at the re-open.
            rig.SetEchoTimeout(kFaultEchoTimeoutMs);
            f.Begin(rig.Sim);
            CKVX_HdwArinc429Message w = Word(0x3F, round);
            EXPECT_EQ(p.Out->Write(&w, 1, 0), 0u) << where;
            const bool fails = std::string(f.Name) != "plain close" && !f.NoiseAtReopen;
            const bool settled = WaitUntil([&] {
                return fails ? p.In->GetStatus() == unsigned(HDW_SERVICE_FAILED)
                             : rig.Sim.GetCounters().A429Pushed[kCh] > 0 && Idle(p.Out);
            });
            ASSERT_TRUE(settled) << where << (fails ? "services did not fail" : "the word was not sent");
            f.End(rig.Sim);

            EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_RX, kCh)->Close(), 0u) << where;
            EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_TX, kCh)->Close(), 0u) << where;
            rig.SetEchoTimeout(kEchoTimeoutMs);
            if (f.NoiseAtReopen) {
                // Right before the echoes of the new session.
                ASSERT_TRUE(WaitUntil([&] {
                    const hdwsim::Counters c = rig.Sim.GetCounters();
                    return c.EchoesSent + c.EchoesSuppressed == c.CommandsReceived;
                })) << where
                    << "the unit did not answer";
                rig.Sim.InsertStrayBytes(kNoise);
            }
            const unsigned rx = rig.Open(HDW_PORT_ARINC429_RX, kCh), tx = rig.Open(HDW_PORT_ARINC429_TX, kCh);
            ASSERT_EQ(std::tuple(rx, tx, p.In->GetStatus()), std::tuple(0u, 0u, unsigned(HDW_SERVICE_RUNNING)))
                << where << "re-open (receiver, transmitter, receiver's status)";
            std::vector<CKVX_HdwArinc429Message> sent;
            label = (label + 1) % 200;
            for (unsigned i = 0; i < kWords; ++i)
                sent.push_back(Word(0x40 + label, i, i & 3));
            EXPECT_EQ(p.Out->Write(sent.data(), kWords, 0), 0u) << where;
            ASSERT_EQ(ReadAll<CKVX_HdwArinc429Message>(p.In, kWords), sent) << where << "words lost or out of order";
        }
}

TEST(HaldenReopen, EveryFaultThenCloseAndFirstOpenCarriesWordsInOrder)
{
    std::thread ethernet([] { RunMatrix(true); });
    RunMatrix(false);
    ethernet.join();
}

// Filter changes and DiscardMessage reach the unit's label table and leave a receiver that DisableRx switched off as it
// is; what the last close queued reaches the unit before the session ends.
TEST(HaldenReceiverOnUnit, FilterChangesReachTheLabelTableAndTheLastCloseSendsWhatItQueued)
{
    UnitRig rig(UnitNamed("halden"), false);
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    const auto receiver = [&] { return rig.Sim.A429Receiver(kCh); };
    const auto passes = [](const auto& r, unsigned label) { return ((r.Filter[label >> 3] >> (label & 7)) & 1) != 0; };
    // Runs `change`, then waits for the unit to take the receiver's configuration.
    const auto reconfigure = [&](const std::function<unsigned()>& change) {
        const auto configs = [&] { return rig.Sim.GetCounters().CommandsByCode[rig.Unit.ArxConfigBase + kCh]; };
        const uint64_t before = configs();
        ASSERT_EQ(change(), 0u);
        ASSERT_TRUE(WaitUntil([&] { return configs() > before; }));
    };
    auto* in = rig.OpenWith<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, kCh, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* lblo =
        rig.OpenWith<CKVX_HdwArinc429OutLbloService>(HDW_PORT_ARINC429_TX, kCh, HDW_SERVICE_ARINC429_LABEL_OUT);
    ASSERT_TRUE(in && lblo);
    ASSERT_TRUE(WaitUntil([&] { return receiver().Enabled && passes(receiver(), 0x31); }));
    // DiscardMessage on a running channel: the unit drops the label itself.
    ASSERT_NO_FATAL_FAILURE(reconfigure([&] { return in->DiscardMessage(0x31); }));
    EXPECT_EQ(std::tuple(passes(receiver(), 0x31), passes(receiver(), 0x32), receiver().Enabled),
        std::tuple(false, true, true));

    // Filter changes on a receiver switched off: the table follows, the channel stays off until EnableRx.
    ASSERT_NO_FATAL_FAILURE(reconfigure([&] { return in->DisableRx(); }));
    EXPECT_FALSE(receiver().Enabled);
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
        ASSERT_NO_FATAL_FAILURE(reconfigure(c.Run));
        const auto r = receiver();
        EXPECT_FALSE(r.Enabled);
        EXPECT_EQ((std::array{passes(r, 0x31), passes(r, 0x32), passes(r, 0x33)}), c.Pass);
    }
    ASSERT_NO_FATAL_FAILURE(reconfigure([&] { return in->EnableRx(); }));
    EXPECT_TRUE(receiver().Enabled);
    ASSERT_NO_FATAL_FAILURE(reconfigure([&] { return in->DiscardMessage(0x33); }));
    EXPECT_EQ(std::tuple(receiver().Enabled, passes(receiver(), 0x33)), std::tuple(true, false));

    const hdwsim::Counters before = rig.Sim.GetCounters();
    ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_RX, kCh)->Close(), 0u);
    ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_TX, kCh)->Close(), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().SessionCloses > before.SessionCloses; }));
    EXPECT_FALSE(receiver().Enabled);
    const hdwsim::Counters after = rig.Sim.GetCounters();
    EXPECT_EQ(std::tuple(after.A429LabelResets[kCh], after.SessionCloses),
        std::tuple(before.A429LabelResets[kCh] + 1, before.SessionCloses + 1));
    // In that order: receiver off, transmitter off, label reset, session close.
    const std::vector<uint8_t> log = rig.Sim.RecentCommandCodes();
    const std::vector<uint8_t> expected = {
        uint8_t(rig.Unit.ArxConfigBase + kCh), uint8_t(rig.Unit.AtxConfigBase + kCh), 18, 1};
    ASSERT_GE(log.size(), expected.size());
    EXPECT_EQ(std::vector<uint8_t>(log.end() - expected.size(), log.end()), expected);
}

TEST(HaldenFaults, HungUpLinkGivesResultCodesAndANewLinkWorks)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    UnitRig::Arinc429Pair p = rig.OpenArinc429Pair(0);
    rig.Sim.ClosePty();
    CKVX_HdwArinc429Message w = Word(3, 3);
    ASSERT_TRUE(WaitUntil([&] {
        p.Out->Write(&w, 1, 0);
        CKVX_HdwArinc429Message buf[2];
        unsigned n = 0;
        return p.In->Read(buf, 2, n) == 15;
    }));
    EXPECT_EQ(p.Out->Write(&w, 1, 0), 15u);

    std::string error;
    ASSERT_TRUE(rig.Sim.ReopenPty(&error)) << error;
    ASSERT_EQ(rig.Manager.Stop(), 0u);
    ASSERT_NO_FATAL_FAILURE(rig.Enumerate());
    ASSERT_EQ(rig.Manager.Run(), 0u);
    UnitRig::Arinc429Pair q = rig.OpenArinc429Pair(0);
    std::vector<CKVX_HdwArinc429Message> sent = Sequence(0x47, 20);
    ASSERT_EQ(q.Out->Write(sent.data(), unsigned(sent.size()), 0), 0u);
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(q.In, sent.size()), sent);
}

} // namespace
