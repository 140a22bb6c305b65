// Byte streams over CAN between the Quillan's two CAN channels (wired
// together on the unit), through the whole stack against the emulated unit
// on a pseudo-terminal, with the unit's buses paced at their bit rates so
// that its 64-frame transmit FIFO fills as a real one does.
#include "UnitRig.h"

using namespace unit_test;

namespace {

using ByteIn = CKVX_HdwKvxQuillanDevice::CCanByteInBufferService;
using ByteOut = CKVX_HdwKvxQuillanDevice::CCanByteOutBufferService;
using FrameIn = CKVX_HdwKvxQuillanDevice::CCanInBufferService;
using FrameOut = CKVX_HdwKvxQuillanDevice::CCanOutBufferService;

TEST(QuillanBytes, FrameAndByteServicesShareTheChannels)
{
    UnitRig rig(UnitNamed("quillan"), EmulatorOptions(false, true));
    rig.Start();
    CKVX_HdwCanByteOutBufferService::CParameters po;
    po.BufferSize = 0;
    po.Identifier = 0x300;
    CKVX_HdwCanByteInBufferService::CParameters pi;
    pi.BufferSize = 0;
    pi.Identifier = 0x300;
    auto* bytesOut = rig.Enable<ByteOut>(HDW_PORT_CAN, 0, HDW_SERVICE_BYTE_OUT_BUFFER, &po);
    auto* framesOut = rig.Enable<FrameOut>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* bytesIn = rig.Enable<ByteIn>(HDW_PORT_CAN, 1, HDW_SERVICE_BYTE_IN_BUFFER, &pi);
    auto* framesIn = rig.Enable<FrameIn>(HDW_PORT_CAN, 1, HDW_SERVICE_CAN_IN_BUFFER);
    ASSERT_TRUE(bytesOut && framesOut && bytesIn && framesIn);
    // One of each type per port.
    CKVX_HdwService* again = nullptr;
    EXPECT_EQ(rig.Port(HDW_PORT_CAN, 0)->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &again, nullptr), 26u);
    CKVX_HdwCanPort::CParameters p;
    p.BitRate = 500000;
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 1, p), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 0, p), 0u);

    std::vector<uint8_t> sent(3001); // 375 full frames and one of 1 byte
    for (size_t i = 0; i < sent.size(); ++i)
        sent[i] = uint8_t(i ^ (i >> 8) ^ 0x5A);
    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < 400; ++i)
        frames.push_back(Frame(0x400 + (i % 0x100), uint8_t(i % 9), uint8_t(i), i % 3 == 0));
    // Both queues fill the one transmit FIFO at once.
    ASSERT_EQ(bytesOut->Write(sent.data(), 1500, 0), 0u);
    ASSERT_EQ(framesOut->Write(frames.data(), unsigned(frames.size()), 0), 0u);
    ASSERT_EQ(bytesOut->Write(sent.data() + 1500, 1501, 0), 0u);

    EXPECT_TRUE(ReadAll<uint8_t>(bytesIn, sent.size()) == sent); // the timed read: tests/bus can_test
    // The frame input gets every frame: the other frames in their order, and
    // the stream's too.
    const size_t total = frames.size() + 376;
    const auto all = ReadAll<CKVX_HdwCanMessage>(framesIn, total);
    ASSERT_EQ(all.size(), total);
    std::vector<CKVX_HdwCanMessage> others;
    size_t stream = 0;
    for (const auto& m : all) {
        if (m.Extended == 0 && m.Identifier == 0x300)
            ++stream;
        else
            others.push_back(m);
    }
    EXPECT_EQ(stream, 376u);
    ASSERT_EQ(others.size(), frames.size());
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(others[i].Identifier, frames[i].Identifier) << i;
        EXPECT_EQ(others[i].Dlc, frames[i].Dlc) << i;
        EXPECT_EQ(others[i].Extended, frames[i].Extended) << i;
    }
    EXPECT_EQ(rig.Sim.GetCounters().CanFifoDropped[0], 0u);
    EXPECT_TRUE(WaitUntil([&] { return Idle(framesOut) && Idle(bytesOut); }));
}

} // namespace
