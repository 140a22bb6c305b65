// The Halden's two MIL-STD-1553 channels through the whole stack against the
// emulated unit: opening and closing, and the unit's MIL-STD-1553 events
// reaching the channel's signal service (the ports and their keys:
// units_end_to_end_test).
#include "UnitRig.h"

using namespace halden_test;

namespace {

using MilPort = CKVX_HdwKvxHaldenDevice::CMilStd1553Port;
using Signals = CKVX_HdwKvxHaldenDevice::CSignalService;

// Remote-terminal access (kind 2): terminal 5, subaddress 17, receive, two
// words; 3-bit field 6, flag set, 5-bit field 9.
const std::vector<uint8_t> kRtAccess = {2, 5 << 3 | 6, 17, 1 << 6 | 2, 9, 0x34, 0x12, 0x78, 0x56};
// Transfer completed (kind 1): transfer 0x0102, one word, status words
// 0x2800 and 0x0000, flags 0x0040.
const std::vector<uint8_t> kTransfer = {1, 0x02, 0x01, 1, 0, 0xCD, 0xAB, 0x00, 0x28, 0x00, 0x00, 0x40, 0x00};

// On a pseudo-terminal; the same event frames over UDP: units_end_to_end_test.
TEST(HaldenMilStd1553, InjectedEventsReachTheirChannelsSignalService)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    auto* sig0 = rig.Enable<Signals>(HDW_PORT_MILSTD1553, 0, HDW_SERVICE_SIGNAL);
    auto* sig1 = rig.Enable<Signals>(HDW_PORT_MILSTD1553, 1, HDW_SERVICE_SIGNAL);
    ASSERT_TRUE(sig0 && sig1);
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 1), 0u);

    ASSERT_TRUE(rig.Sim.InjectMilStd1553Event(1, kRtAccess));
    ASSERT_TRUE(rig.Sim.InjectMilStd1553Event(0, kTransfer));
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(sig1->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_MIL1553_MESSAGE));
    EXPECT_EQ(s.Port, rig.Port(HDW_PORT_MILSTD1553, 1));
    // Command word: terminal 5, receive, subaddress 17, 2 words.
    EXPECT_EQ(s.Value, (5u << 11) | (17u << 5) | 2u);
    EXPECT_EQ(s.Aux, (2u << 24) | (9u << 8) | (1u << 3) | 6u);
    EXPECT_NE(s.TimeStamp, 0u);
    ASSERT_EQ(sig0->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_MIL1553_MESSAGE));
    EXPECT_EQ(s.Value, 0x28000102u);
    EXPECT_EQ(s.Aux, (1u << 24) | 0x40u);
    // Each event reached its own channel only.
    unsigned left = 9;
    EXPECT_EQ(sig0->GetSignalsNumber(left), 0u);
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(sig1->GetSignalsNumber(left), 0u);
    EXPECT_EQ(left, 0u);
    auto* port = dynamic_cast<MilPort*>(rig.Port(HDW_PORT_MILSTD1553, 1)); // the driver's own class
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->GetMessageCount(), 1u);
    EXPECT_FALSE(rig.Sim.InjectMilStd1553Event(2, kRtAccess)); // the unit has two channels
}

TEST(HaldenMilStd1553, OpensClosesAndRefusesTheBusServicesForNow)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    CKVX_HdwPort* port = rig.Port(HDW_PORT_MILSTD1553, 0);
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->Open(nullptr), 15u); // no service yet
    for (unsigned type : {unsigned(HDW_SERVICE_MIL1553_BC), unsigned(HDW_SERVICE_MIL1553_RT), 2u, 3u, 9u}) {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(port->EnableService(type, &s, nullptr), 10u) << type;
        EXPECT_EQ(s, nullptr);
    }
    ASSERT_NE(rig.Enable<Signals>(HDW_PORT_MILSTD1553, 0, HDW_SERVICE_SIGNAL), nullptr);
    // The other channel keeps the unit's link open, so that closing and
    // re-opening channel 0 is about the port, not about the link's session.
    ASSERT_NE(rig.Enable<Signals>(HDW_PORT_MILSTD1553, 1, HDW_SERVICE_SIGNAL), nullptr);
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 1), 0u);
    CKVX_HdwMilStd1553Port::CParameters p;
    p.ResponseTimeoutUs = 2;
    EXPECT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0, p), 2u);
    p.ResponseTimeoutUs = 30;
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0, p), 0u);
    EXPECT_TRUE(port->IsOpen());
    EXPECT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0, p), 18u);
    EXPECT_EQ(port->Close(), 0u);
    EXPECT_FALSE(port->IsOpen());
    // And again, after a close.
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0), 0u);
    EXPECT_TRUE(port->IsOpen());
    EXPECT_EQ(port->Close(), 0u);
    EXPECT_EQ(rig.Port(HDW_PORT_MILSTD1553, 1)->Close(), 0u);
    EXPECT_EQ(rig.Sim.GetCounters().CommandsUnknown, 0u);
}

} // namespace
