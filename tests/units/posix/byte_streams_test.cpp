// Byte streams over ARINC 429 on the Halden and Pellor, and over paced CAN on the Quillan.
#include "UnitRig.h"

using namespace unit_test;

namespace {

using ByteIn = CKVX_HdwKvxHaldenDevice::CArinc429ByteInBufferService;
using ByteOut = CKVX_HdwKvxHaldenDevice::CArinc429ByteOutBufferService;

// A unit and its pair (the Pellor's above 7: events carry upper channel bits).
struct StreamCase {
    const char* Sim;
    unsigned First;
};

class Arinc429Bytes : public ::testing::TestWithParam<StreamCase> {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(rig.Start());
        CKVX_HdwArinc429ByteInBufferService::CParameters pi;
        CKVX_HdwArinc429ByteOutBufferService::CParameters po;
        std::tie(pi.Label, pi.Sdi, pi.BufferSize) = std::tie(po.Label, po.Sdi, po.BufferSize) = std::tuple(0xC5, 2, 0);
        CKVX_HdwArinc429RxPort::CParameters rp;
        CKVX_HdwArinc429TxPort::CParameters tp;
        rp.BaudRate = tp.BaudRate = 100000;
        In = rig.OpenWith<ByteIn>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_BYTE_IN_BUFFER, rp, &pi);
        Out = rig.OpenWith<ByteOut>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_BYTE_OUT_BUFFER, tp, &po);
        ASSERT_TRUE(In && Out);
    }

    UnitRig rig{UnitNamed(GetParam().Sim), false};
    const unsigned ch = GetParam().First;
    ByteIn* In = nullptr;
    ByteOut* Out = nullptr;
};

TEST_P(Arinc429Bytes, HundredKilobytesCrossUnpacedUnchanged)
{
    // The stream runs alone on its pair (beside signals), its label only let through.
    CKVX_HdwService* other = nullptr;
    EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_RX, ch)->EnableService(HDW_SERVICE_ARINC429_IN_BUFFER, &other, nullptr), 10u);
    EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_TX, ch)->EnableService(HDW_SERVICE_ARINC429_OUT_BUFFER, &other, nullptr), 10u);
    const auto rx = rig.Sim.A429Receiver(ch);
    EXPECT_TRUE(rx.Enabled);
    for (unsigned label = 0; label < 256; ++label)
        EXPECT_EQ((rx.Filter[label >> 3] >> (label & 7)) & 1, label == 0xC5 ? 1 : 0) << label;

    const auto sent = Pattern(100 * 1024 + 1, ch); // an odd length: the last word carries one byte
    ASSERT_EQ(Out->Write(const_cast<uint8_t*>(sent.data()), 60000, 0), 0u);
    ASSERT_EQ(Out->Write(const_cast<uint8_t*>(sent.data()) + 60000, unsigned(sent.size() - 60000), 0), 0u);
    // In order, none lost, repeated or rejected, the FIFO never overflowed.
    const auto got = ReadAll<uint8_t>(In, sent.size(), 120000);
    ASSERT_EQ(got.size(), sent.size());
    EXPECT_TRUE(got == sent);
    EXPECT_EQ(std::tuple(In->GetLostWords(), In->GetRepeatedWords(), In->GetRejectedWords(), In->GetDroppedBytes()),
        std::tuple(0u, 0u, 0u, 0u));
    EXPECT_TRUE(WaitUntil([&] { return Idle(Out); }));
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(c.A429Received[ch], (sent.size() + 1) / 2);
    EXPECT_EQ(c.A429FifoDropped[ch], 0u);
    EXPECT_LE(c.A429FifoPeak[ch], 512u);
}

TEST_P(Arinc429Bytes, AWordLostOnTheWireIsCountedAndTheStreamGoesOn)
{
    const auto first = Pattern(200, 3);
    ASSERT_EQ(Out->Write(const_cast<uint8_t*>(first.data()), 200, 0), 0u);
    unsigned pending = 1;
    ASSERT_TRUE(WaitUntil([&] { return In->GetReadBufferBytes(pending) == 0 && pending == 200; }, 20000));
    // Each byte carries the unit's time of its word: rising, the same for both.
    std::vector<uint8_t> got(200);
    std::vector<uint64_t> times(200);
    unsigned n = 0;
    ASSERT_EQ(In->ReadTimed(got.data(), times.data(), 200, n), 0u);
    ASSERT_EQ(n, 200u);
    EXPECT_EQ(got, first);
    for (unsigned i = 0; i < 200; i += 2) {
        EXPECT_GE(times[i], i > 0 ? times[i - 1] : 1) << i; // the emulator's clock starts at 1000 us
        EXPECT_EQ(times[i + 1], times[i]) << i;
    }

    // The next word is lost on the wire, the one after it has a bad parity.
    ASSERT_TRUE(rig.Sim.LoseNextA429Words(ch, 1));
    rig.Sim.FlipNextA429Parity(1);
    const auto second = Pattern(201, 4);
    ASSERT_EQ(Out->Write(const_cast<uint8_t*>(second.data()), 201, 0), 0u);
    const std::vector<uint8_t> expected(second.begin() + 4, second.end());
    EXPECT_EQ(ReadAll<uint8_t>(In, expected.size(), 20000), expected);
    EXPECT_EQ(std::tuple(In->GetLostWords(), In->GetRejectedWords(), In->GetRepeatedWords(),
                  rig.Sim.GetCounters().A429WireLost[ch]),
        std::tuple(2u, 1u, 0u, 1u));
    EXPECT_TRUE(WaitUntil([&] { return Idle(Out); }));
}

INSTANTIATE_TEST_SUITE_P(Units, Arinc429Bytes, ::testing::Values(StreamCase{"halden", 0}, StreamCase{"pellor", 9}),
    [](const ::testing::TestParamInfo<StreamCase>& p) { return std::string(p.param.Sim); });

using CanByteIn = CKVX_HdwKvxQuillanDevice::CCanByteInBufferService;
using CanByteOut = CKVX_HdwKvxQuillanDevice::CCanByteOutBufferService;
using FrameIn = CKVX_HdwKvxQuillanDevice::CCanInBufferService;
using FrameOut = CKVX_HdwKvxQuillanDevice::CCanOutBufferService;

// Paced buses, so that the 64-frame transmit FIFO fills as a real one does.
TEST(QuillanBytes, FrameAndByteServicesShareTheChannels)
{
    UnitRig rig(UnitNamed("quillan"), EmulatorOptions(false, true));
    rig.Start();
    CKVX_HdwCanByteOutBufferService::CParameters po;
    CKVX_HdwCanByteInBufferService::CParameters pi;
    po.BufferSize = pi.BufferSize = 0;
    po.Identifier = pi.Identifier = 0x300;
    auto* bytesOut = rig.Enable<CanByteOut>(HDW_PORT_CAN, 0, HDW_SERVICE_BYTE_OUT_BUFFER, &po);
    auto* framesOut = rig.Enable<FrameOut>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* bytesIn = rig.Enable<CanByteIn>(HDW_PORT_CAN, 1, HDW_SERVICE_BYTE_IN_BUFFER, &pi);
    auto* framesIn = rig.Enable<FrameIn>(HDW_PORT_CAN, 1, HDW_SERVICE_CAN_IN_BUFFER);
    ASSERT_TRUE(bytesOut && framesOut && bytesIn && framesIn);
    // One of each type per port.
    CKVX_HdwService* again = nullptr;
    EXPECT_EQ(rig.Port(HDW_PORT_CAN, 0)->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &again, nullptr), 26u);
    CKVX_HdwCanPort::CParameters p;
    p.BitRate = 500000;
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 1, p), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 0, p), 0u);

    std::vector<uint8_t> sent = Pattern(3001, 0x5A); // 375 full frames and one of 1 byte
    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < 400; ++i)
        frames.push_back(Frame(0x400 + (i % 0x100), uint8_t(i % 9), uint8_t(i), i % 3 == 0));
    // Both queues fill the one transmit FIFO at once.
    ASSERT_EQ(bytesOut->Write(sent.data(), 1500, 0), 0u);
    ASSERT_EQ(framesOut->Write(frames.data(), unsigned(frames.size()), 0), 0u);
    ASSERT_EQ(bytesOut->Write(sent.data() + 1500, 1501, 0), 0u);

    EXPECT_TRUE(ReadAll<uint8_t>(bytesIn, sent.size()) == sent); // the timed read: tests/bus can_test
    // The frame input gets every frame, the stream's too.
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
    for (size_t i = 0; i < frames.size(); ++i)
        EXPECT_EQ(std::tuple(others[i].Identifier, others[i].Dlc, others[i].Extended),
            std::tuple(frames[i].Identifier, frames[i].Dlc, frames[i].Extended))
            << i;
    EXPECT_EQ(rig.Sim.GetCounters().CanFifoDropped[0], 0u);
    EXPECT_TRUE(WaitUntil([&] { return Idle(framesOut) && Idle(bytesOut); }));
}

} // namespace
