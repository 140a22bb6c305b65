// CAN (channel 0 wired to 1) and UART (0 wired to 1) through the whole stack
// against the emulated Halden on a pseudo-terminal (frames of every kind on
// every unit: units_end_to_end_test).
#include "UnitRig.h"

using namespace halden_test;

namespace {

using CanIn = CKVX_HdwKvxHaldenDevice::CCanInBufferService;
using CanOut = CKVX_HdwKvxHaldenDevice::CCanOutBufferService;
using UartIn = CKVX_HdwKvxHaldenDevice::CUartByteInBufferService;
using UartOut = CKVX_HdwKvxHaldenDevice::CUartByteOutBufferService;

CKVX_HdwCanMessage Frame(bool extended, uint32_t id, uint8_t dlc, bool rtr, uint8_t seed)
{
    CKVX_HdwCanMessage m;
    m.Extended = extended ? 1 : 0;
    m.Identifier = id;
    m.Dlc = dlc;
    m.Rtr = rtr ? 1 : 0;
    for (unsigned i = 0; i < dlc && i < 8; ++i)
        m.Data[i] = uint8_t(seed + 17 * i);
    return m;
}

void ExpectSameFrame(const CKVX_HdwCanMessage& got, const CKVX_HdwCanMessage& sent, size_t index)
{
    EXPECT_EQ(got.Extended, sent.Extended) << index;
    EXPECT_EQ(got.Identifier, sent.Identifier) << index;
    EXPECT_EQ(got.Dlc, sent.Dlc) << index;
    EXPECT_EQ(got.Rtr, sent.Rtr) << index;
    for (unsigned i = 0; i < sent.Dlc && i < 8; ++i)
        EXPECT_EQ(got.Data[i], sent.Data[i]) << index << " byte " << i;
}

TEST(HaldenCan, ManyFramesAreHeldBackToTheUnitsFifo)
{
    // Paced at 125 kbit/s a frame takes about 1 ms: the 64-frame FIFO fills
    // up and stays full for over a second, long enough to be seen full
    // (the unit counts no CAN FIFO peak) on a loaded machine.
    Rig rig(false, true);
    rig.Start();
    auto* out = rig.Enable<CanOut>(HDW_PORT_CAN, 1, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* in = rig.Enable<CanIn>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_IN_BUFFER);
    CKVX_HdwCanPort::CParameters p;
    p.BitRate = 125000;
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 0, p), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 1, p), 0u);
    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < 1500; ++i)
        frames.push_back(Frame(i & 1, i, uint8_t(i % 9), false, uint8_t(i)));
    ASSERT_EQ(out->Write(frames.data(), unsigned(frames.size()), 0), 0u);
    size_t highest = 0;
    std::vector<CKVX_HdwCanMessage> got;
    std::vector<CKVX_HdwCanMessage> chunk(64);
    ASSERT_TRUE(WaitUntil(
        [&] {
            highest = std::max(highest, rig.Sim.CanFifoLevel(1));
            unsigned n = 0;
            if (in->Read(chunk.data(), unsigned(chunk.size()), n) == 0)
                got.insert(got.end(), chunk.begin(), chunk.begin() + n);
            return got.size() >= frames.size();
        },
        30000));
    EXPECT_GE(highest, 32u);
    EXPECT_LE(highest, 64u);
    EXPECT_EQ(rig.Sim.GetCounters().CanFifoDropped[1], 0u);
    ASSERT_EQ(got.size(), frames.size());
    for (size_t i = 0; i < frames.size(); ++i)
        ExpectSameFrame(got[i], frames[i], i);
}

TEST(HaldenCan, FaultStatusFollowsTheUnitAndIsSignalled)
{
    Rig rig;
    rig.Start();
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, 0, HDW_SERVICE_SIGNAL);
    auto* out = rig.Enable<CanOut>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* port = dynamic_cast<CKVX_HdwCanPort*>(rig.Port(HDW_PORT_CAN, 0));
    ASSERT_NE(port, nullptr);
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
    CKVX_HdwCanMessage f = Frame(false, 0x42, 1, false, 9);
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
    Rig rig;
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
