// Byte streams over ARINC 429 from transmitter k to receiver k (wired
// together on the unit), through the whole stack against the emulated
// Halden and the 16-channel Pellor on a pseudo-terminal: large streams
// unpaced, smaller ones at the buses' bit rates, a word lost on the wire,
// and which services a channel admits beside a stream.
#include "UnitRig.h"

using namespace unit_test;

namespace {

using ByteIn = CKVX_HdwKvxHaldenDevice::CArinc429ByteInBufferService;
using ByteOut = CKVX_HdwKvxHaldenDevice::CArinc429ByteOutBufferService;

// A unit and the two channel pairs its tests use (the Pellor's above 7, so
// that its receive and transmit events carry the channel's upper bits).
struct StreamCase {
    const char* Sim;
    unsigned First, Second;
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

    void StartRig(bool pacing)
    {
        rig = std::make_unique<UnitRig>(UnitNamed(GetParam().Sim), EmulatorOptions(false, pacing));
        rig->Start();
    }

    // Enables the stream services of pair `ch` (label 0xC5, SDI 2) and opens
    // both ports at `rate`.
    Stream OpenStream(unsigned ch, uint32_t rate, uint32_t inSize = 0, uint32_t outSize = 0)
    {
        CKVX_HdwArinc429ByteInBufferService::CParameters pi;
        pi.Label = 0xC5;
        pi.Sdi = 2;
        pi.BufferSize = inSize;
        CKVX_HdwArinc429ByteOutBufferService::CParameters po;
        po.Label = 0xC5;
        po.Sdi = 2;
        po.BufferSize = outSize;
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
    StartRig(false);
    const unsigned ch = GetParam().First;
    const Stream s = OpenStream(ch, 100000);
    ASSERT_TRUE(s.In && s.Out);
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

// Both pairs at once, one at each physical rate: 4 kB is 2048 words, about
// 0.7 s of bus time at 100 kbit/s and 6 s at 12.5 kbit/s.
TEST_P(Arinc429Bytes, FourKilobytesCrossAtBothPhysicalRates)
{
    StartRig(true);
    const unsigned fast = GetParam().First, slow = GetParam().Second;
    const Stream f = OpenStream(fast, 100000);
    const Stream s = OpenStream(slow, 12500);
    ASSERT_TRUE(f.In && f.Out && s.In && s.Out);
    const auto sentFast = Pattern(4096, 1);
    const auto sentSlow = Pattern(4096, 2);
    ASSERT_EQ(f.Out->Write(const_cast<uint8_t*>(sentFast.data()), 4096, 0), 0u);
    ASSERT_EQ(s.Out->Write(const_cast<uint8_t*>(sentSlow.data()), 4096, 0), 0u);
    ExpectClean(f, fast, sentFast, 60000);
    ExpectClean(s, slow, sentSlow, 60000);
}

TEST_P(Arinc429Bytes, AWordLostOnTheWireIsCountedAndTheStreamGoesOn)
{
    StartRig(false);
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

TEST_P(Arinc429Bytes, AWriteLargerThanTheFreeBufferIsRefusedWhole)
{
    StartRig(false);
    const unsigned ch = GetParam().First;
    const Stream s = OpenStream(ch, 100000, 0, 64);
    ASSERT_TRUE(s.In && s.Out);
    auto sent = Pattern(65, 5);
    EXPECT_EQ(s.Out->Write(sent.data(), 65, 0), unsigned(HDW_ERR_ARGUMENT));
    EXPECT_TRUE(Idle(s.Out));
    ASSERT_EQ(s.Out->Write(sent.data(), 64, 0), 0u);
    sent.resize(64);
    EXPECT_EQ(ReadAll<uint8_t>(s.In, 64, 20000), sent);
    EXPECT_EQ(rig->Sim.GetCounters().A429Pushed[ch], 32u);
}

TEST_P(Arinc429Bytes, AStreamExcludesTheChannelsOtherBufferServices)
{
    StartRig(false);
    const unsigned ch = GetParam().First, other = GetParam().Second;
    CKVX_HdwPort* rx = rig->Port(HDW_PORT_ARINC429_RX, ch);
    CKVX_HdwPort* tx = rig->Port(HDW_PORT_ARINC429_TX, ch);
    ASSERT_TRUE(rx && tx);
    auto enable = [](CKVX_HdwPort* port, unsigned type) {
        CKVX_HdwService* s = nullptr;
        return port->EnableService(type, &s, nullptr);
    };
    // Receiver: the byte input excludes the word input and the
    // label-oriented input, and is excluded by either; signals go beside it.
    ASSERT_EQ(enable(rx, HDW_SERVICE_BYTE_IN_BUFFER), 0u);
    EXPECT_EQ(enable(rx, HDW_SERVICE_ARINC429_IN_BUFFER), 10u);
    EXPECT_EQ(enable(rx, HDW_SERVICE_ARINC429_LABEL_IN), 10u);
    EXPECT_EQ(enable(rx, HDW_SERVICE_BYTE_IN_BUFFER), 26u);
    EXPECT_EQ(enable(rx, HDW_SERVICE_SIGNAL), 0u);
    EXPECT_EQ(enable(rx, HDW_SERVICE_BYTE_OUT_BUFFER), 10u); // not a receiver's
    CKVX_HdwPort* rx2 = rig->Port(HDW_PORT_ARINC429_RX, other);
    ASSERT_EQ(enable(rx2, HDW_SERVICE_ARINC429_IN_BUFFER), 0u);
    EXPECT_EQ(enable(rx2, HDW_SERVICE_BYTE_IN_BUFFER), 10u);

    // Transmitter: the byte output runs alone.
    ASSERT_EQ(enable(tx, HDW_SERVICE_BYTE_OUT_BUFFER), 0u);
    for (unsigned type : {unsigned(HDW_SERVICE_ARINC429_OUT_BUFFER), unsigned(HDW_SERVICE_ARINC429_LABEL_OUT),
             unsigned(HDW_SERVICE_DATA_GENERATOR), unsigned(HDW_SERVICE_BYTE_IN_BUFFER)})
        EXPECT_EQ(enable(tx, type), 10u) << type;
    EXPECT_EQ(enable(tx, HDW_SERVICE_SIGNAL), 0u);
    CKVX_HdwPort* tx2 = rig->Port(HDW_PORT_ARINC429_TX, other);
    ASSERT_EQ(enable(tx2, HDW_SERVICE_ARINC429_LABEL_OUT), 0u);
    EXPECT_EQ(enable(tx2, HDW_SERVICE_BYTE_OUT_BUFFER), 10u);
}

INSTANTIATE_TEST_SUITE_P(Units, Arinc429Bytes,
    ::testing::Values(StreamCase{"halden", 0, 3}, StreamCase{"pellor", 9, 14}),
    [](const ::testing::TestParamInfo<StreamCase>& p) { return std::string(p.param.Sim); });

} // namespace
