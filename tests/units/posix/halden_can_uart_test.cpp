// CAN and UART (channel 0 wired to 1) through the whole stack against the
// emulated Halden on a pseudo-terminal. Frames of every kind on every unit:
// units_end_to_end_test; frames held back to a full CAN FIFO:
// QuillanBytes.FrameAndByteServicesShareTheChannels.
#include "UnitRig.h"

using namespace halden_test;

namespace {

using CanOut = CKVX_HdwKvxHaldenDevice::CCanOutBufferService;
using UartIn = CKVX_HdwKvxHaldenDevice::CUartByteInBufferService;
using UartOut = CKVX_HdwKvxHaldenDevice::CUartByteOutBufferService;

TEST(HaldenCan, FaultStatusFollowsTheUnitAndIsSignalledAndOnlyFrameServicesAreAdmitted)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, 0, HDW_SERVICE_SIGNAL);
    auto* out = rig.Enable<CanOut>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* port = dynamic_cast<CKVX_HdwCanPort*>(rig.Port(HDW_PORT_CAN, 0));
    ASSERT_NE(port, nullptr);
    // Byte streams over CAN are the Quillan's (quillan_can_bytes_test).
    for (unsigned type : {unsigned(HDW_SERVICE_BYTE_IN_BUFFER), unsigned(HDW_SERVICE_BYTE_OUT_BUFFER)}) {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(port->EnableService(type, &s, nullptr), 10u) << type;
        EXPECT_EQ(s, nullptr);
    }
    CKVX_HdwCanPort::CFaultStatus status;
    ASSERT_EQ(port->GetFaultStatus(&status), 0u);
    EXPECT_EQ(status.Status, 3u); // not started
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 0), 0u);
    // The started controller reports "error active".
    ASSERT_TRUE(WaitUntil([&] { return port->GetFaultStatus(&status) == 0 && status.Status == 0; }));
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(signals->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_CAN_STATUS_CHANGED));
    EXPECT_EQ(s.FaultStatus.Status, 0u);
    // A sent frame is signalled as sent.
    CKVX_HdwCanMessage f = Frame(0x42, 1, 9);
    ASSERT_EQ(out->Write(&f, 1, 0), 0u);
    ASSERT_EQ(signals->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_CAN_SENT));
    EXPECT_EQ(s.Can.Identifier, 0x42u);
    // A bit timing the unit cannot make is refused before anything is sent.
    ASSERT_EQ(port->Close(), 0u);
    CKVX_HdwCanPort::CParameters p;
    p.BitRate = 1000; // below what the largest prescaler reaches
    EXPECT_EQ(rig.Open(HDW_PORT_CAN, 0, p), 2u);
    EXPECT_FALSE(port->IsOpen());
}

TEST(HaldenUart, BytesCrossFromChannelZeroToOne)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    auto* out = rig.Enable<UartOut>(HDW_PORT_UART, 0, HDW_SERVICE_BYTE_OUT_BUFFER);
    auto* in = rig.Enable<UartIn>(HDW_PORT_UART, 1, HDW_SERVICE_BYTE_IN_BUFFER);
    CKVX_HdwUartPort::CParameters p;
    // A line setting the unit cannot make is refused, and the port stays shut.
    p.StopBits = CKVX_HdwUartPort::CParameters::StopBitsOneAndHalf;
    EXPECT_EQ(rig.Open(HDW_PORT_UART, 1, p), 2u);
    EXPECT_FALSE(rig.Port(HDW_PORT_UART, 1)->IsOpen());
    p.StopBits = CKVX_HdwUartPort::CParameters::StopBitsOne;
    p.BaudRate = 115200;
    ASSERT_EQ(rig.Open(HDW_PORT_UART, 1, p), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_UART, 0, p), 0u);

    // More than one transmit record, more than one frame.
    std::vector<uint8_t> sent(5000);
    for (size_t i = 0; i < sent.size(); ++i)
        sent[i] = uint8_t(i * 7 + (i >> 8));
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u);
    EXPECT_EQ(ReadAll<uint8_t>(in, sent.size()), sent);
    unsigned pending = 1;
    EXPECT_TRUE(WaitUntil([&] { return out->GetBytesToBeWritten(pending) == 0 && pending == 0; }));
    EXPECT_EQ(rig.Sim.GetCounters().UartReceived[1], sent.size());
    EXPECT_EQ(out->Write(sent.data(), 1, 1), 2u);
}

} // namespace
