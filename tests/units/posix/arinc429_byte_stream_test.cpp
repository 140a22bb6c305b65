// Byte streams over ARINC 429 from transmitter k to receiver k (wired
// together on the unit), through the whole stack against the emulated
// Halden and the 16-channel Pellor on a pseudo-terminal: a large stream and
// a word lost on the wire, and the services a stream excludes.
#include "UnitRig.h"

using namespace unit_test;

namespace {

using ByteIn = CKVX_HdwKvxHaldenDevice::CArinc429ByteInBufferService;
using ByteOut = CKVX_HdwKvxHaldenDevice::CArinc429ByteOutBufferService;

// A unit and the channel pair its tests use (the Pellor's above 7, so that
// its receive and transmit events carry the channel's upper bits).
struct StreamCase {
    const char* Sim;
    unsigned First;
};

std::ostream& operator<<(std::ostream& os, const StreamCase& c)
{
    return os << c.Sim;
}

std::vector<uint8_t> Pattern(size_t n, unsigned seed)
{
    std::vector<uint8_t> b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = uint8_t((i * 131 + seed) ^ (i >> 9));
    return b;
}

class Arinc429Bytes : public ::testing::TestWithParam<StreamCase> {
protected:
    struct Stream {
        ByteIn* In = nullptr;
        ByteOut* Out = nullptr;
    };

    void StartRig()
    {
        rig = std::make_unique<UnitRig>(UnitNamed(GetParam().Sim), false);
        rig->Start();
    }

    // Enables the stream services of pair `ch` (label 0xC5, SDI 2) and opens
    // both ports at `rate`.
    Stream OpenStream(unsigned ch, uint32_t rate)
    {
        CKVX_HdwArinc429ByteInBufferService::CParameters pi;
        pi.Label = 0xC5;
        pi.Sdi = 2;
        pi.BufferSize = 0;
        CKVX_HdwArinc429ByteOutBufferService::CParameters po;
        po.Label = 0xC5;
        po.Sdi = 2;
        po.BufferSize = 0;
        Stream s;
        s.In = rig->Enable<ByteIn>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_BYTE_IN_BUFFER, &pi);
        s.Out = rig->Enable<ByteOut>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_BYTE_OUT_BUFFER, &po);
        if (!s.In || !s.Out)
            return {};
        CKVX_HdwArinc429RxPort::CParameters rp;
        CKVX_HdwArinc429TxPort::CParameters tp;
        rp.BaudRate = tp.BaudRate = rate;
        EXPECT_EQ(rig->Open(HDW_PORT_ARINC429_RX, ch, rp), 0u);
        EXPECT_EQ(rig->Open(HDW_PORT_ARINC429_TX, ch, tp), 0u);
        return s;
    }

    // Every byte arrived in order, none was lost, repeated or rejected, the
    // output has nothing left, and the unit's FIFO never overflowed.
    void ExpectClean(const Stream& s, unsigned ch, const std::vector<uint8_t>& sent, unsigned timeoutMs)
    {
        const auto got = ReadAll<uint8_t>(s.In, sent.size(), timeoutMs);
        ASSERT_EQ(got.size(), sent.size()) << "channel " << ch;
        EXPECT_TRUE(got == sent) << "channel " << ch;
        EXPECT_EQ(s.In->GetLostWords(), 0u);
        EXPECT_EQ(s.In->GetRepeatedWords(), 0u);
        EXPECT_EQ(s.In->GetRejectedWords(), 0u);
        EXPECT_EQ(s.In->GetDroppedBytes(), 0u);
        EXPECT_TRUE(WaitUntil([&] { return Idle(s.Out); }));
        const hdwsim::Counters c = rig->Sim.GetCounters();
        EXPECT_EQ(c.A429Received[ch], (sent.size() + 1) / 2);
        EXPECT_EQ(c.A429FifoDropped[ch], 0u);
        EXPECT_LE(c.A429FifoPeak[ch], 512u);
    }

    std::unique_ptr<UnitRig> rig;
};

TEST_P(Arinc429Bytes, HundredKilobytesCrossUnpacedUnchanged)
{
    StartRig();
    const unsigned ch = GetParam().First;
    const Stream s = OpenStream(ch, 100000);
    ASSERT_TRUE(s.In && s.Out);
    // The stream runs alone on its pair, beside signals only.
    CKVX_HdwService* other = nullptr;
    EXPECT_EQ(rig->Port(HDW_PORT_ARINC429_RX, ch)->EnableService(HDW_SERVICE_ARINC429_IN_BUFFER, &other, nullptr), 10u);
    EXPECT_EQ(
        rig->Port(HDW_PORT_ARINC429_TX, ch)->EnableService(HDW_SERVICE_ARINC429_OUT_BUFFER, &other, nullptr), 10u);
    // Only the stream's label reaches the receiver.
    const auto rx = rig->Sim.A429Receiver(ch);
    EXPECT_TRUE(rx.Enabled);
    for (unsigned label = 0; label < 256; ++label)
        EXPECT_EQ((rx.Filter[label >> 3] >> (label & 7)) & 1, label == 0xC5 ? 1 : 0) << label;

    const auto sent = Pattern(100 * 1024 + 1, ch); // an odd length: the last word carries one byte
    ASSERT_EQ(s.Out->Write(const_cast<uint8_t*>(sent.data()), 60000, 0), 0u);
    ASSERT_EQ(s.Out->Write(const_cast<uint8_t*>(sent.data()) + 60000, unsigned(sent.size() - 60000), 0), 0u);
    ExpectClean(s, ch, sent, 120000);
}

TEST_P(Arinc429Bytes, AWordLostOnTheWireIsCountedAndTheStreamGoesOn)
{
    StartRig();
    const unsigned ch = GetParam().First;
    const Stream s = OpenStream(ch, 100000);
    ASSERT_TRUE(s.In && s.Out);
    const auto first = Pattern(200, 3);
    ASSERT_EQ(s.Out->Write(const_cast<uint8_t*>(first.data()), 200, 0), 0u);
    unsigned pending = 1;
    ASSERT_TRUE(WaitUntil([&] { return s.In->GetReadBufferBytes(pending) == 0 && pending == 200; }, 20000));
    // Each byte carries the unit's time of its word: the two of a word the
    // same, later words no earlier.
    std::vector<uint8_t> got(200);
    std::vector<uint64_t> times(200);
    unsigned n = 0;
    ASSERT_EQ(s.In->ReadTimed(got.data(), times.data(), 200, n), 0u);
    ASSERT_EQ(n, 200u);
    EXPECT_EQ(got, first);
    for (unsigned i = 0; i < 200; i += 2) {
        EXPECT_NE(times[i], 0u); // the emulator's clock starts at 1000 us
        EXPECT_EQ(times[i + 1], times[i]) << i;
        if (i > 0) {
            EXPECT_GE(times[i], times[i - 1]) << i;
        }
    }

    // The next word (the first of the next write) never reaches the
    // receiver, and the one after it arrives with a flipped parity bit.
    ASSERT_TRUE(rig->Sim.LoseNextA429Words(ch, 1));
    rig->Sim.FlipNextA429Parity(1);
    const auto second = Pattern(201, 4);
    ASSERT_EQ(s.Out->Write(const_cast<uint8_t*>(second.data()), 201, 0), 0u);
    const std::vector<uint8_t> expected(second.begin() + 4, second.end());
    EXPECT_EQ(ReadAll<uint8_t>(s.In, expected.size(), 20000), expected);
    EXPECT_EQ(s.In->GetLostWords(), 2u);
    EXPECT_EQ(s.In->GetRejectedWords(), 1u);
    EXPECT_EQ(s.In->GetRepeatedWords(), 0u);
    EXPECT_EQ(rig->Sim.GetCounters().A429WireLost[ch], 1u);
    // Every word left the transmitter all the same.
    EXPECT_TRUE(WaitUntil([&] { return Idle(s.Out); }));
}

INSTANTIATE_TEST_SUITE_P(Units, Arinc429Bytes, ::testing::Values(StreamCase{"halden", 0}, StreamCase{"pellor", 9}),
    [](const ::testing::TestParamInfo<StreamCase>& p) { return std::string(p.param.Sim); });

} // namespace
