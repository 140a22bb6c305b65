// Every further command-protocol unit against the emulator playing it:
// enumeration over each transport, channel counts and port classes, a round
// trip on each bus kind, the frame payload limit, the command codes on the
// wire, and the commands a unit must never be sent.
#include "UnitRig.h"

#include <set>

using namespace unit_test;

namespace {

class UnitEndToEnd : public ::testing::TestWithParam<UnitCase> {};

std::string CaseName(const ::testing::TestParamInfo<UnitCase>& info)
{
    return info.param.Sim;
}

// The command codes a unit may be sent: the fixed ones of its command set
// and its per-channel codes.
std::set<unsigned> AllowedCodes(const UnitCase& u)
{
    std::set<unsigned> codes{1, 2};
    if (u.Atx) {
        codes.insert({16, 17, 18});
        for (unsigned ch = 0; ch < u.Atx; ++ch)
            codes.insert(u.AtxConfigBase + ch);
        for (unsigned ch = 0; ch < u.Arx; ++ch)
            codes.insert(u.ArxConfigBase + ch);
    }
    for (unsigned ch = 0; ch < u.Can; ++ch) {
        codes.insert(u.CanConfigBase + ch);
        codes.insert(u.CanPushBase + ch);
    }
    if (u.KeepAlive)
        codes.insert(4);
    return codes;
}

// Nothing outside the unit's command set reached it, and it understood all.
void ExpectOnlyAllowedCommands(const UnitRig& rig)
{
    const hdwsim::Counters c = rig.Sim.GetCounters();
    const std::set<unsigned> allowed = AllowedCodes(rig.Unit);
    for (unsigned code = 0; code < 128; ++code)
        if (!allowed.count(code)) {
            EXPECT_EQ(c.CommandsByCode[code], 0u) << "code " << code << " sent to " << rig.Unit.Sim;
        }
    EXPECT_EQ(c.CommandsUnknown, 0u);
    EXPECT_EQ(c.FramesMalformed, 0u);
}

void ExpectPortCounts(UnitRig& rig)
{
    const UnitCase& u = rig.Unit;
    EXPECT_EQ(rig.Manager.GetPortCount(HDW_PORT_ARINC429_TX), u.Atx);
    EXPECT_EQ(rig.Manager.GetPortCount(HDW_PORT_ARINC429_RX), u.Arx);
    EXPECT_EQ(rig.Manager.GetPortCount(HDW_PORT_CAN), u.Can);
    EXPECT_EQ(rig.Manager.GetPortCount(HDW_PORT_UART), 0u);
    EXPECT_EQ(rig.Manager.GetPortCount(HDW_PORT_MILSTD1553), 0u);
    for (unsigned ch = 0; ch < u.Atx; ++ch) {
        CKVX_HdwPort* p = rig.Port(HDW_PORT_ARINC429_TX, ch);
        ASSERT_NE(dynamic_cast<CKVX_HdwArinc429TxPort*>(p), nullptr);
        EXPECT_EQ(p->GetChannelId(), CKVX_String(std::to_string(ch)));
    }
    for (unsigned ch = 0; ch < u.Arx; ++ch)
        ASSERT_NE(dynamic_cast<CKVX_HdwArinc429RxPort*>(rig.Port(HDW_PORT_ARINC429_RX, ch)), nullptr);
    for (unsigned ch = 0; ch < u.Can; ++ch) {
        CKVX_HdwPort* p = rig.Port(HDW_PORT_CAN, ch);
        ASSERT_NE(dynamic_cast<CKVX_HdwCanPort*>(p), nullptr);
        EXPECT_EQ(p->GetChannelId(), CKVX_String(std::to_string(ch)));
    }
}

void OpenFirstPort(UnitRig& rig)
{
    if (rig.Unit.Atx) {
        rig.Enable<CKVX_HdwArinc429OutBufferService>(HDW_PORT_ARINC429_TX, 0, HDW_SERVICE_ARINC429_OUT_BUFFER);
        CKVX_HdwArinc429TxPort::CParameters tp;
        tp.BaudRate = 100000;
        ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 0, tp), 0u);
    } else {
        rig.Enable<CKVX_HdwCanOutBufferService>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER);
        CKVX_HdwCanPort::CParameters p;
        p.BitRate = 500000;
        ASSERT_EQ(rig.Open(HDW_PORT_CAN, 0, p), 0u);
    }
}

TEST_P(UnitEndToEnd, EnumeratesOverSerialWithItsIdentityChannelsAndPortClasses)
{
    UnitRig rig(GetParam(), false);
    rig.Start();
    EXPECT_EQ(rig.Device->GetDeviceCode(), GetParam().Code);
    ExpectPortCounts(rig);
    CKVX_HdwManager::CPortInfoVector list;
    ASSERT_EQ(rig.Manager.GetPortList(list), 0u);
    ASSERT_GT(list.GetLength(), 0u);
    for (const auto& info : list) {
        EXPECT_EQ(info.DeviceCode, GetParam().Code);
        EXPECT_EQ(info.FullName, CKVX_String(GetParam().Model));
        EXPECT_FALSE(info.Key.IsEmpty());
    }
}

TEST_P(UnitEndToEnd, EnumeratesOverEthernetWhereTheUnitHasIt)
{
    if (!GetParam().Ethernet)
        GTEST_SKIP() << GetParam().Sim << " is reached over USB only";
    UnitRig rig(GetParam(), true);
    rig.Start();
    ExpectPortCounts(rig);
    // The session opens with the first port; the highest pair carries words.
    const unsigned ch = GetParam().Atx - 1;
    const auto got = Arinc429RoundTrip(rig, ch, 40);
    ASSERT_EQ(got.size(), 40u);
    EXPECT_EQ(got.back(), Word(0x20 + ch, 39 * 16 + ch, 39 & 3));
    EXPECT_TRUE(rig.Sim.HasUdpSession());
    EXPECT_EQ(rig.Sim.GetCounters().A429Received[ch], 40u);
    ExpectOnlyAllowedCommands(rig);
}

TEST_P(UnitEndToEnd, Arinc429WordsGoRoundOnTheFirstAndLastPair)
{
    const UnitCase& u = GetParam();
    if (!u.Atx)
        GTEST_SKIP() << u.Sim << " has no ARINC 429 channel";
    UnitRig rig(u, false);
    rig.Start();
    for (unsigned ch : {0u, u.Atx - 1}) {
        const auto got = Arinc429RoundTrip(rig, ch, 40);
        ASSERT_EQ(got.size(), 40u) << "channel " << ch;
        for (unsigned i = 0; i < 40; ++i)
            EXPECT_EQ(got[i], Word(0x20 + ch, i * 16 + ch, i & 3)) << "channel " << ch << " word " << i;
        const hdwsim::Counters c = rig.Sim.GetCounters();
        // The words went through the emulated pair of that channel, configured
        // with the unit's own codes.
        EXPECT_EQ(c.A429Received[ch], 40u);
        EXPECT_GE(c.CommandsByCode[u.AtxConfigBase + ch], 1u);
        EXPECT_GE(c.CommandsByCode[u.ArxConfigBase + ch], 1u);
    }
    ExpectOnlyAllowedCommands(rig);
}

TEST_P(UnitEndToEnd, CanFramesGoRoundOnEveryBus)
{
    const UnitCase& u = GetParam();
    if (!u.Can)
        GTEST_SKIP() << u.Sim << " has no CAN channel";
    UnitRig rig(u, false);
    rig.Start();
    for (unsigned from = 0; from < u.Can; from += 2) {
        const unsigned to = u.Can == 1 ? from : from + 1;
        const auto got = CanRoundTrip(rig, from, to, 20);
        ASSERT_EQ(got.size(), 20u) << "from channel " << from;
        for (unsigned i = 0; i < 20; ++i) {
            const CKVX_HdwCanMessage want = Frame(0x100 + i + from, uint8_t(i % 9), uint8_t(i), i % 2 == 1);
            EXPECT_EQ(got[i].Identifier, want.Identifier);
            EXPECT_EQ(got[i].Extended, want.Extended);
            ASSERT_EQ(got[i].Dlc, want.Dlc);
            for (unsigned b = 0; b < want.Dlc; ++b)
                EXPECT_EQ(got[i].Data[b], want.Data[b]);
        }
        const hdwsim::Counters c = rig.Sim.GetCounters();
        EXPECT_EQ(c.CanPushed[from], 20u);
        EXPECT_EQ(c.CanReceived[to], 20u);
        EXPECT_EQ(c.CommandsByCode[u.CanPushBase + from], 20u);
    }
    ExpectOnlyAllowedCommands(rig);
}

TEST_P(UnitEndToEnd, FramesKeepToTheUnitsPayloadLimitOnEachTransport)
{
    const UnitCase& u = GetParam();
    for (bool udp : {false, true}) {
        if (udp && !u.Ethernet)
            continue;
        const unsigned limit = udp ? u.EthernetLimit : 4000;
        UnitRig rig(u, udp);
        rig.Start();
        // An open port opens the unit's session.
        OpenFirstPort(rig);
        const hdwsim::Counters before = rig.Sim.GetCounters();
        // Status requests of no kind: 7 bytes each, taken by every unit and
        // answered by none of its channels; 700 of them are 4900 bytes,
        // attached at once under the device lock.
        constexpr unsigned kCount = 700;
        rig.Device->DeviceLock(0);
        unsigned attached = 0;
        for (unsigned i = 0; i < kCount; ++i)
            attached += AttachStatusRequest(rig.Device.get(), 0, 0) == 0 ? 1 : 0;
        rig.Device->DeviceUnlock(0);
        ASSERT_EQ(attached, kCount);
        ASSERT_TRUE(WaitUntil([&] {
            return rig.Sim.GetCounters().CommandsByCode[2] - before.CommandsByCode[2] >= kCount;
        })) << (udp ? "udp" : "serial");
        const hdwsim::Counters after = rig.Sim.GetCounters();
        EXPECT_LE(after.LargestFramePayload, limit) << (udp ? "udp" : "serial");
        // Full frames: the largest holds as many 7-byte records as fit.
        EXPECT_EQ(after.LargestFramePayload, limit / 7 * 7) << (udp ? "udp" : "serial");
    }
}

INSTANTIATE_TEST_SUITE_P(Units, UnitEndToEnd, ::testing::ValuesIn(AllUnits()), CaseName);

} // namespace
