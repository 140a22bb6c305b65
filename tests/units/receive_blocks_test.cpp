// The receive machine fed whole reads at once (whole records and event bodies
// copied as blocks)
// must end every frame exactly where, and exactly as, the byte-wise machine
// does: same frames, same CRC verdicts, same event records and positions,
// same state between reads, whatever the read boundaries.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

using namespace unittest;
using Bytes = std::vector<uint8_t>;

namespace {

// What the machine showed at the end of one frame.
struct FrameSeen {
    size_t EndOffset = 0; // stream offset just past the frame's last byte
    bool CrcOk = false;
    std::vector<uint32_t> Positions;
    Bytes Events; // the event buffer up to the last written byte
    bool operator==(const FrameSeen&) const = default;
};

FrameSeen Snapshot(Base::CDeviceInstance* inst, size_t endOffset, bool ok)
{
    FrameSeen f;
    f.EndOffset = endOffset;
    f.CrcOk = ok;
    for (uint32_t p : inst->EventPosList)
        f.Positions.push_back(p);
    f.Events.assign(inst->EventBuffer.begin(), inst->EventBuffer.begin() + inst->EventBufferUsed + 1);
    return f;
}

// A stream with everything the machine must tell apart: good frames with
// short and long records, stray bytes before a frame (which loses it), a
// bad CRC, a zero event count, a zero event length, a record of L = 1.
Bytes MixedStream()
{
    std::vector<Bytes> parts;
    parts.push_back(UnitFrame({A429RxRecord(0, 0x11111111), EchoRecord(7)}));
    std::vector<Bytes> many;
    for (unsigned i = 0; i < 100; ++i)
        many.push_back(A429RxRecord(i & 3, 0x40000000u | i, i));
    parts.push_back(UnitFrame(many));
    parts.push_back({0x00, 0x13});
    parts.push_back(UnitFrame({A429RxRecord(1, 0x22222222)})); // lost after the stray bytes
    parts.push_back(UnitFrame({A429RxRecord(2, 0x33333333)}));
    Bytes bad = UnitFrame({A429RxRecord(3, 0x44444444)});
    bad.back() ^= 0x5A;
    parts.push_back(bad);
    parts.push_back({0xA5, 0x00, 0x00, 0x00, 0x00}); // zero event count
    parts.push_back({0xA5, 0x05, 0x00, 0x01, 0x00, 0x00}); // zero event length
    parts.push_back(UnitFrame({{1, 0x10}, EventRecord(9, 1, 5, Bytes(200, 0xEE))}));
    // Record sizes on each side of the block copy's word moves (3 to 17 bytes).
    std::vector<Bytes> sized;
    for (unsigned n : {3u, 4u, 5u, 7u, 8u, 9u, 15u, 16u, 17u}) {
        Bytes r(n);
        r[0] = uint8_t(n - 1);
        for (unsigned k = 1; k < n; ++k)
            r[k] = uint8_t(0x30 + n * 7 + k);
        sized.push_back(r);
    }
    parts.push_back(UnitFrame(sized));
    parts.push_back(UnitFrame({A429RxRecord(0, 0x55555555)}));
    Bytes stream;
    for (const Bytes& p : parts)
        stream.insert(stream.end(), p.begin(), p.end());
    return stream;
}

// The receive machine's state between reads: its state number, counters and
// the raw bytes of the frame so far.
auto MachineState(const Base::CDeviceInstance* i)
{
    return std::tuple(i->RxState, i->RawIndex, i->WritePos, i->EventBytes, i->EventLength, i->EventsCompleted,
        i->EventBufferUsed, Bytes(i->RawBuffer.begin(), i->RawBuffer.begin() + i->RawIndex));
}

std::vector<FrameSeen> ByteWise(const Bytes& stream)
{
    TestUnit dev;
    dev.AddInstance();
    std::vector<FrameSeen> seen;
    for (size_t i = 0; i < stream.size(); ++i) {
        bool ok = false;
        const unsigned rc = dev.FeedByte(dev.Inst(), stream[i], ok);
        EXPECT_NE(rc, 14u);
        if (rc == 1)
            seen.push_back(Snapshot(dev.Inst(), i + 1, ok));
    }
    return seen;
}

// Feeds `stream` in reads of the given sizes (cycled) and checks the state
// between reads against a byte-wise twin fed the same bytes.
std::vector<FrameSeen> InReads(const Bytes& stream, const std::vector<unsigned>& sizes)
{
    TestUnit dev, twin;
    dev.AddInstance();
    twin.AddInstance();
    std::vector<FrameSeen> seen;
    size_t offset = 0;
    for (size_t r = 0; offset < stream.size(); ++r) {
        const unsigned size = std::min<unsigned>(sizes[r % sizes.size()], unsigned(stream.size() - offset));
        const uint8_t* read = stream.data() + offset;
        for (unsigned left = size; left > 0;) {
            unsigned used = 0;
            bool ok = false;
            const unsigned rc = dev.FeedBytes(dev.Inst(), read, left, used, ok);
            EXPECT_NE(rc, 14u);
            EXPECT_LE(used, left);
            EXPECT_TRUE(used > 0) << "no progress";
            if (used == 0)
                return seen;
            read += used;
            left -= used;
            offset += used;
            if (rc == 1)
                seen.push_back(Snapshot(dev.Inst(), offset, ok));
            else
                EXPECT_EQ(left, 0u) << "stopped early without a frame";
        }
        for (size_t i = offset - size; i < offset; ++i) {
            bool ok = false;
            twin.FeedByte(twin.Inst(), stream[i], ok);
        }
        EXPECT_EQ(MachineState(dev.Inst()), MachineState(twin.Inst())) << "after offset " << offset;
    }
    return seen;
}

// The whole stream in one read, reads of every size up to 40, and reads of
// random sizes.
TEST(ReceiveInBlocks, AnyReadSizesEndTheFramesAsTheByteWiseMachineDoes)
{
    const Bytes stream = MixedStream();
    const std::vector<FrameSeen> ref = ByteWise(stream);
    // The stream has every case the byte-wise machine tells apart. Good: the
    // first, the 100-event frame, the one after the lost one, the one with
    // L = 1, the one of sized records and the last. Bad: the one after the
    // stray bytes, the bad CRC.
    EXPECT_EQ(std::count_if(ref.begin(), ref.end(), [](const FrameSeen& f) { return f.CrcOk; }), 6);
    EXPECT_EQ(std::count_if(ref.begin(), ref.end(), [](const FrameSeen& f) { return !f.CrcOk; }), 2);
    std::vector<std::vector<unsigned>> reads = {{unsigned(stream.size())}};
    for (unsigned size = 1; size <= 40; ++size)
        reads.push_back({size});
    std::mt19937 rng(42);
    for (int round = 0; round < 50; ++round) {
        reads.emplace_back(17);
        for (auto& s : reads.back())
            s = 1 + rng() % 64;
    }
    for (size_t k = 0; k < reads.size(); ++k)
        ASSERT_EQ(InReads(stream, reads[k]), ref) << "read pattern " << k << " (" << reads[k][0] << " bytes first)";
}

} // namespace
