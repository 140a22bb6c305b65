// Every command-protocol unit against its emulator; probes of one USB identity; port keys.
#include "UnitRig.h"

#include <algorithm>
#include <set>

using namespace unit_test;

namespace {

class UnitEndToEnd : public ::testing::TestWithParam<UnitCase> {};

// Nothing outside the unit's command set reached it, and it understood all.
void ExpectOnlyAllowedCommands(const UnitRig& rig)
{
    const UnitCase& u = rig.Unit;
    std::set<unsigned> allowed{1, 2};
    if (u.Atx) {
        allowed.insert({16, 17, 18});
        for (unsigned ch = 0; ch < u.Atx; ++ch)
            allowed.insert(u.AtxConfigBase + ch);
        for (unsigned ch = 0; ch < u.Arx; ++ch)
            allowed.insert(u.ArxConfigBase + ch);
    }
    for (unsigned ch = 0; ch < u.Can; ++ch) {
        allowed.insert(u.CanConfigBase + ch);
        allowed.insert(u.CanPushBase + ch);
    }
    if (u.KeepAlive)
        allowed.insert(4);
    const hdwsim::Counters c = rig.Sim.GetCounters();
    for (unsigned code = 0; code < 128; ++code)
        EXPECT_EQ(allowed.count(code) ? 0 : c.CommandsByCode[code], 0u) << "code " << code << " sent to " << u.Sim;
    EXPECT_EQ(c.CommandsUnknown, 0u);
    EXPECT_EQ(c.FramesMalformed, 0u);
}

// Waits for `count` signals of `kind` and gives their frames; a signal of another kind fails.
std::vector<CKVX_HdwCanMessage> TakeCanSignals(CKVX_HdwSignalService* signals, unsigned kind, size_t count)
{
    std::vector<CKVX_HdwCanMessage> got;
    WaitUntil([&] {
        CKVX_HdwSignalService::CSignal batch[32];
        unsigned n = 0;
        EXPECT_EQ(signals->ReadSignals(batch, 32, n), 0u);
        for (unsigned i = 0; i < n; ++i) {
            EXPECT_EQ(batch[i].Kind, kind) << "signal " << got.size() + i;
            got.push_back(batch[i].Can);
        }
        return got.size() >= count;
    });
    return got;
}

// Opens the first ARINC 429 transmitter or CAN channel, and so the session.
void OpenFirstPort(UnitRig& rig)
{
    const unsigned type = rig.Unit.Atx ? HDW_PORT_ARINC429_TX : HDW_PORT_CAN;
    ASSERT_NE(rig.Enable<CKVX_HdwSignalService>(type, 0, HDW_SERVICE_SIGNAL), nullptr);
    ASSERT_EQ(rig.Open(type, 0), 0u);
}

// Words on all pairs at once (several frames each), then CAN on all buses (a lone one hears itself), times rising.
// The receiving channel's signals take only frames received, the sending one's only frames sent.
TEST_P(UnitEndToEnd, Arinc429WordsAndCanFramesGoRoundOnEveryPairAndBus)
{
    const UnitCase& u = GetParam();
    UnitRig rig(u, false);
    rig.Start();
    if (u.Atx) {
        std::vector<std::pair<unsigned, unsigned>> counts{{0, 10000}};
        for (unsigned ch = 1; ch < u.Atx; ++ch)
            counts.push_back({ch, 300});
        ASSERT_NO_FATAL_FAILURE(ExpectArinc429RoundTrip(rig, counts));
    }
    for (unsigned from = 0; from < u.Can; from += 2) {
        const unsigned to = u.Can == 1 ? from : from + 1;
        auto* out = rig.Enable<CKVX_HdwCanOutBufferService>(HDW_PORT_CAN, from, HDW_SERVICE_CAN_OUT_BUFFER);
        auto* in = rig.Enable<CKVX_HdwCanInBufferService>(HDW_PORT_CAN, to, HDW_SERVICE_CAN_IN_BUFFER);
        auto* heard = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, to, HDW_SERVICE_SIGNAL);
        auto* told = to == from ? nullptr : rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, from, HDW_SERVICE_SIGNAL);
        ASSERT_TRUE(in && out && heard && (told || to == from));
        const std::pair<CKVX_HdwSignalService*, unsigned> sides[] = {
            {heard, HDW_SIGNAL_CAN_RECEIVED}, {told, HDW_SIGNAL_CAN_SENT}};
        for (auto [signals, kind] : sides) {
            CKVX_HdwSignalService::CParameters sp;
            sp.SignalMask = 1u << (kind - 1);
            ASSERT_TRUE(!signals || signals->SetParameters(&sp) == 0u);
        }
        CKVX_HdwCanPort::CParameters p;
        p.BitRate = 500000;
        ASSERT_EQ(rig.Open(HDW_PORT_CAN, to, p), 0u);
        ASSERT_EQ(to == from ? 0u : rig.Open(HDW_PORT_CAN, from, p), 0u);
        std::vector<CKVX_HdwCanMessage> frames;
        for (unsigned i = 0; i < 20; ++i) { // every length, identifiers up to the highest, some remote
            frames.push_back(Frame((i % 2 ? 0x1FFFFFFF : 0x7FF) - i - from, uint8_t(i % 9), uint8_t(i), i % 2 == 1));
            frames.back().Rtr = i % 5 == 4 ? 1 : 0;
        }
        const auto key = [](const CKVX_HdwCanMessage& m) {
            return std::tuple(m.Identifier, m.Extended, m.Rtr, m.Dlc, std::vector<uint8_t>(m.Data, m.Data + m.Dlc));
        };
        // The second round (other identifiers, lengths shifted) goes out in the frame objects the first one left.
        for (unsigned round = 0; round < 2; ++round) {
            if (round == 1) {
                std::rotate(frames.begin(), frames.begin() + 7, frames.end());
                for (CKVX_HdwCanMessage& f : frames)
                    f.Identifier ^= 0x155;
            }
            ASSERT_EQ(out->Write(frames.data(), 20, 0), 0u);
            const auto got = ReadAll<CKVX_HdwCanMessage>(in, 20);
            ASSERT_EQ(got.size(), 20u) << "from channel " << from << ", round " << round;
            for (unsigned i = 0; i < 20; ++i) {
                EXPECT_EQ(key(got[i]), key(frames[i])) << i;
                EXPECT_GE(got[i].TimeStamp, i > 0 ? got[i - 1].TimeStamp : 1) << i; // the clock starts at 1000 us
            }
            for (auto [signals, kind] : sides) {
                if (!signals)
                    continue;
                const auto announced = TakeCanSignals(signals, kind, 20);
                ASSERT_EQ(announced.size(), 20u) << "kind " << kind << ", round " << round;
                for (unsigned i = 0; i < 20; ++i)
                    EXPECT_EQ(key(announced[i]), key(frames[i])) << "kind " << kind << ", " << i;
            }
        }
        const hdwsim::Counters c = rig.Sim.GetCounters();
        EXPECT_EQ(std::tuple(c.CanPushed[from], c.CanReceived[to], c.CommandsByCode[u.CanPushBase + from]),
            std::tuple(40u, 40u, 40u));
    }
    ExpectOnlyAllowedCommands(rig);
}

// Over each transport, frames of 700 status requests attached at once keep to the unit's payload limit, full. Over the
// serial link: Pellor's 400 ms session watchdog does not expire until the host stops; a critical failure (Halden and
// Pellor send them) fails every open port's services.
TEST_P(UnitEndToEnd, FramesKeepToThePayloadLimitKeepAlivesGoWhereTakenAndACriticalFailureFailsEveryOpenPort)
{
    const UnitCase& u = GetParam();
    for (bool udp : {false, true}) {
        if (udp && !u.Ethernet)
            continue;
        SCOPED_TRACE(udp ? "udp" : "serial");
        const unsigned limit = udp ? u.EthernetLimit : 4000;
        UnitRig rig(u, udp);
        ASSERT_TRUE(!u.KeepAlive || WithCommandDevice(rig.Device.get(), [](auto& d) { d.SetSessionWatchdog(400); }));
        rig.Start();
        OpenFirstPort(rig);
        const hdwsim::Counters before = rig.Sim.GetCounters();
        constexpr unsigned kCount = 700;
        unsigned attached = 0;
        rig.Device->DeviceLock(0);
        EXPECT_TRUE(WithCommandDevice(rig.Device.get(), [&](auto& d) {
            for (unsigned i = 0; i < kCount; ++i)
                attached += d.AttachStatusRequestCommand(0, 0, 0) == 0 ? 1 : 0;
        }));
        rig.Device->DeviceUnlock(0);
        ASSERT_EQ(attached, kCount);
        ASSERT_TRUE(
            WaitUntil([&] { return rig.Sim.GetCounters().CommandsByCode[2] - before.CommandsByCode[2] >= kCount; }));
        const hdwsim::Counters after = rig.Sim.GetCounters();
        EXPECT_LE(after.LargestFramePayload, limit);
        EXPECT_EQ(after.LargestFramePayload, limit / 7 * 7);
        if (udp)
            continue;

        if (u.KeepAlive) {
            ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().KeepAlives >= 5; }));
            EXPECT_EQ(std::tuple(rig.Sim.GetCounters().WatchdogExpiries, rig.Sim.GetCounters().CommandsUnknown),
                std::tuple(0u, 0u));
        } else {
            // Four keep-alive periods, and the builder refuses.
            const uint64_t start = CKVX_HdwTimer::GetTickCount();
            WaitUntil(
                [&] { return CKVX_HdwTimer::GetElapsedTicks(start) >= 4 * CKVX_HdwKvxPellorDevice::KeepAliveIdleMs; });
            EXPECT_EQ(rig.Sim.GetCounters().CommandsByCode[4], 0u);
            EXPECT_TRUE(
                WithCommandDevice(rig.Device.get(), [](auto& d) { EXPECT_EQ(d.AttachKeepAliveCommand(0), 2u); }));
        }
        const bool sends = u.Sim == std::string("halden") || u.Sim == std::string("pellor");
        std::vector<CKVX_HdwService*> services;
        for (const auto& [type, count] : {std::pair{unsigned(HDW_PORT_ARINC429_TX), u.Atx}, {HDW_PORT_CAN, u.Can}}) {
            if (!count)
                continue;
            services.push_back(rig.Enable<CKVX_HdwSignalService>(type, count - 1, HDW_SERVICE_SIGNAL));
            ASSERT_NE(services.back(), nullptr);
            ASSERT_EQ(rig.Open(type, count - 1), 0u);
            EXPECT_EQ(services.back()->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
        }
        ASSERT_EQ(rig.Sim.InjectCriticalFailure(2), sends);
        for (CKVX_HdwService* s : services)
            EXPECT_TRUE(!sends || WaitUntil([&] { return s->GetStatus() == unsigned(HDW_SERVICE_FAILED); }));
        if (u.KeepAlive) {
            rig.Manager.Stop();
            EXPECT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().WatchdogExpiries == 1; }));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Units, UnitEndToEnd, ::testing::ValuesIn(AllUnits()),
    [](const ::testing::TestParamInfo<UnitCase>& p) { return std::string(p.param.Sim); });

// Probes `played` with the driver of `driver`, up to `attempts` times (the probe waits a fixed 200 ms).
unsigned Probe(const char* played, const char* driver, int attempts, hdwsim::Counters* counters = nullptr)
{
    unsigned rc = 99;
    for (int attempt = 0; attempt < attempts && rc != 0; ++attempt) {
        UnitRig rig(UnitNamed(played), false);
        rig.StartSim();
        std::unique_ptr<CKVX_HdwDevice> probe(UnitNamed(driver).Make());
        EXPECT_TRUE(WithCommandDevice(probe.get(), [&](auto& d) { rc = d.CheckUartLink(rig.Sim.PtyPath()); }));
        if (counters) {
            WaitUntil([&] { return rig.Sim.GetCounters().CommandsReceived >= 2; });
            *counters = rig.Sim.GetCounters();
        }
    }
    return rc;
}

TEST(UnitKindProbe, EachDriversProbeTakesItsOwnUnitOnlyAndLeavesOthersUntouched)
{
    // Mirrow and Quillan share a USB identity, not a probe answer; Halden Small (both buses) is neither kind.
    for (const UnitCase& u : AllUnits())
        EXPECT_EQ(Probe(u.Sim, u.Sim, 5), 0u) << u.Sim;
    // A wrong kind's probe leaves the unit untouched: a session close and a status request, understood; none opened.
    const std::pair<const char*, const char*> strangers[] = {{"quillan", "mirrow"}, {"mirrow", "quillan"},
        {"haldensmall", "mirrow"}, {"haldensmall", "quillan"}, {"mirrow", "haldensmall"}, {"quillan", "haldensmall"}};
    for (const auto& [played, driver] : strangers) {
        SCOPED_TRACE(std::string(played) + " probed by " + driver);
        hdwsim::Counters c;
        EXPECT_NE(Probe(played, driver, 1, &c), 0u);
        EXPECT_EQ(
            std::tuple(c.CommandsByCode[1], c.CommandsByCode[2], c.CommandsReceived, c.CommandsUnknown, c.SessionOpens),
            std::tuple(1u, 1u, 2u, 0u, 0u));
    }
}

TEST(UnitKeys, AStoredKeyFindsTheSamePhysicalPortAfterTheUnitsComeInAnotherOrder)
{
    hdwsim::Emulator first(*hdwsim::FindUnitModel("arvane"), EmulatorOptions(false));
    hdwsim::Emulator second(*hdwsim::FindUnitModel("arvane"), EmulatorOptions(false));
    ASSERT_TRUE(first.Start());
    ASSERT_TRUE(second.Start());

    CKVX_String key;
    {
        CKVX_HdwKvxArvaneDevice device;
        CKVX_HdwManager manager;
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        CKVX_HdwManager::CInitPortDesc links[2] = {{6, first.PtyPath()}, {6, second.PtyPath()}};
        ASSERT_NO_FATAL_FAILURE(EnumerateLinks(manager, links, 2));
        CKVX_HdwManager::CPortInfoVector list;
        ASSERT_EQ(manager.GetPortList(HDW_PORT_ARINC429_TX, list), 0u);
        for (const auto& info : list)
            if (info.AbsNum == 8 + 5)
                key = info.Key;
    }
    ASSERT_FALSE(key.IsEmpty());

    // The other order: the key finds the second unit's transmitter 5.
    UnitRig rig(UnitNamed("arvane"), false);
    ASSERT_EQ(rig.Manager.AttachDevice(rig.Device.get()), 0u);
    CKVX_HdwManager::CInitPortDesc links[2] = {{6, second.PtyPath()}, {6, first.PtyPath()}};
    ASSERT_NO_FATAL_FAILURE(EnumerateLinks(rig.Manager, links, 2));
    unsigned absNum = 99;
    CKVX_HdwPort* port = rig.Manager.FindPort(key, &absNum);
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(absNum, 5u);
    EXPECT_EQ(port, rig.Port(HDW_PORT_ARINC429_TX, 5));
    ASSERT_EQ(rig.Manager.Run(), 0u);
    ASSERT_NO_FATAL_FAILURE(ExpectArinc429RoundTrip(rig, {{5, 10}}, &second));
    EXPECT_EQ(first.GetCounters().A429Transmitted[5], 0u);
}

} // namespace
