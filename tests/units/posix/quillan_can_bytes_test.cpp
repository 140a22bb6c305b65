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

class QuillanBytes : public ::testing::Test {
protected:
    QuillanBytes() : rig(UnitNamed("quillan"), EmulatorOptions(false, true)) {}
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }

    template <class S>
    S* Enable(unsigned channel, unsigned type, CKVX_HdwService::CParameters* params = nullptr)
    {
        return rig.Enable<S>(HDW_PORT_CAN, channel, type, params);
    }

    void Open(unsigned channel)
    {
        CKVX_HdwCanPort::CParameters p;
        p.BitRate = 500000;
        ASSERT_EQ(rig.Open(HDW_PORT_CAN, channel, p), 0u);
    }

    // Reads until `count` bytes are in or 10 s pass.
    static std::vector<uint8_t> ReadBytes(ByteIn* in, size_t count)
    {
        std::vector<uint8_t> got;
        std::vector<uint8_t> chunk(700);
        std::vector<uint64_t> stamps(700);
        WaitUntil([&] {
            unsigned n = 0;
            if (in->ReadTimed(chunk.data(), stamps.data(), unsigned(chunk.size()), n) == 0)
                got.insert(got.end(), chunk.begin(), chunk.begin() + n);
            return got.size() >= count;
        });
        return got;
    }

    static std::vector<uint8_t> Pattern(size_t n)
    {
        std::vector<uint8_t> v(n);
        for (size_t i = 0; i < n; ++i)
            v[i] = uint8_t(i ^ (i >> 8) ^ 0x5A);
        return v;
    }

    UnitRig rig;
};

TEST_F(QuillanBytes, FrameAndByteServicesShareTheChannels)
{
    CKVX_HdwCanByteOutBufferService::CParameters po;
    po.BufferSize = 0;
    po.Identifier = 0x300;
    CKVX_HdwCanByteInBufferService::CParameters pi;
    pi.BufferSize = 0;
    pi.Identifier = 0x300;
    auto* bytesOut = Enable<ByteOut>(0, HDW_SERVICE_BYTE_OUT_BUFFER, &po);
    auto* framesOut = Enable<FrameOut>(0, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* bytesIn = Enable<ByteIn>(1, HDW_SERVICE_BYTE_IN_BUFFER, &pi);
    auto* framesIn = Enable<FrameIn>(1, HDW_SERVICE_CAN_IN_BUFFER);
    ASSERT_TRUE(bytesOut && framesOut && bytesIn && framesIn);
    // One of each type per port.
    CKVX_HdwService* again = nullptr;
    EXPECT_EQ(rig.Port(HDW_PORT_CAN, 0)->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &again, nullptr), 26u);
    Open(1);
    Open(0);

    const std::vector<uint8_t> sent = Pattern(3001); // 375 full frames and one of 1 byte
    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < 400; ++i)
        frames.push_back(Frame(0x400 + (i % 0x100), uint8_t(i % 9), uint8_t(i), i % 3 == 0));
    // Both queues fill the one transmit FIFO at once.
    ASSERT_EQ(bytesOut->Write(const_cast<uint8_t*>(sent.data()), 1500, 0), 0u);
    ASSERT_EQ(framesOut->Write(frames.data(), unsigned(frames.size()), 0), 0u);
    ASSERT_EQ(bytesOut->Write(const_cast<uint8_t*>(sent.data()) + 1500, 1501, 0), 0u);

    EXPECT_TRUE(ReadBytes(bytesIn, sent.size()) == sent);
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
    unsigned pending = 1;
    EXPECT_TRUE(WaitUntil([&] {
        return framesOut->GetMessagesToBeWritten(pending) == 0 && pending == 0 &&
            bytesOut->GetBytesToBeWritten(pending) == 0 && pending == 0;
    }));
}

} // namespace
