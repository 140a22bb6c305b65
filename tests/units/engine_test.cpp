// The unit protocol engine on its own, frames and records written out here (CRC bit by bit), times passed in; the unit
// clock's 32-bit stamps unwrapped and mapped onto the host's clock, every pair made up here.

#include <HdwLib/core/KvxCrc.h>
#include <HdwLib/core/internal/Crc16Tables.h>
#include <HdwLib/units/KvxUnitClock.h>
#include <HdwLib/units/KvxUnitEngine.h>

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <tuple>

using testsupport::BitwiseCrc16;
using unittest::HostFrame;
using unittest::QueuedRecords;
using unittest::UnitFrame;
using Bytes = std::vector<uint8_t>;
using Engine = CKVX_HdwKvxUnitEngine;
using EEcho = Engine::EEcho;
using EFeed = Engine::EFeed;

namespace {

TEST(UnitEngineCrc, CheckValueAndEveryWalkAgreeWithTheBitwiseCrc)
{
    EXPECT_EQ(Engine::Crc16(reinterpret_cast<const uint8_t*>("123456789"), 9), 0x29B1);
    EXPECT_EQ(Engine::Crc16(nullptr, 0), 0xFFFF);
    std::mt19937 rng(7);
    Bytes data(6000);
    for (auto& b : data)
        b = uint8_t(rng());
    // Lengths on each side of the eight-byte steps and of the 16-byte folds
    // (from 32 bytes, where the processor can), then random ones at odd offsets.
    std::vector<std::pair<unsigned, unsigned>> runs; // offset, length
    for (unsigned n : {1u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 48u, 63u, 64u, 65u, 4005u})
        runs.emplace_back(0, n);
    for (int k = 0; k < 40; ++k)
        runs.emplace_back(rng() % 16, rng() % 5000);
    const CKVX_Crc core;
    for (auto [offset, length] : runs) {
        const uint8_t* p = data.data() + offset;
        const uint16_t want = BitwiseCrc16(p, length);
        uint16_t byteWise = 0xFFFF;
        for (unsigned i = 0; i < length; ++i)
            byteWise = uint16_t(Engine::Crc16Table()[(byteWise >> 8) ^ p[i]] ^ (byteWise << 8));
        unsigned short fromCore = 0;
        core.Compute(p, length, fromCore);
        EXPECT_EQ(Engine::Crc16(p, length), want) << "folded or sliced, " << length << " bytes at " << offset;
        EXPECT_EQ(hdw::crc::Crc16UpdateSliced(0xFFFF, p, length), want) << "sliced, " << length << " bytes";
        EXPECT_EQ(byteWise, want) << "table walk, " << length << " bytes";
        EXPECT_EQ(fromCore, want) << "CKVX_Crc, " << length << " bytes";
    }
}

// A command record as the unit reads it, written out field by field.
Bytes Record(uint8_t code, uint16_t number, const Bytes& params)
{
    Bytes r = {uint8_t(params.size() + 4), uint8_t(code | 0x80), uint8_t(number), uint8_t(number >> 8)};
    r.insert(r.end(), params.begin(), params.end());
    return r;
}

Bytes Params(unsigned n, unsigned seed)
{
    Bytes p(n);
    for (unsigned k = 0; k < n; ++k)
        p[k] = uint8_t(seed * 31 + k);
    return p;
}

// Queues records of the given lengths (codes 1, 2, ...).
std::vector<Bytes> Queue(Engine& e, const std::vector<unsigned>& lengths)
{
    std::vector<Bytes> records;
    for (unsigned len : lengths) {
        const uint16_t number = e.CommandCounter;
        const Bytes p = Params(len - 4, number);
        EXPECT_EQ(e.AttachCommand(uint8_t(number + 1), p.data(), unsigned(p.size())), 0u);
        records.push_back(Record(uint8_t(number + 1), number, p));
    }
    return records;
}

std::vector<uint16_t> Waiting(const Engine& e)
{
    std::vector<uint16_t> out;
    for (const auto& w : e.EchoList)
        out.push_back(w.Number);
    return out;
}

TEST(UnitEngineCommands, NumbersRunOnAndWrapAndRecordsCarryThem)
{
    struct Case {
        uint16_t Start;
        std::vector<uint16_t> Want;
    } cases[] = {{0, {0, 1, 2}}, {65534, {65534, 65535, 0, 1}}};
    for (const Case& c : cases) {
        Engine e;
        e.CommandCounter = c.Start;
        std::vector<Bytes> want;
        for (size_t k = 0; k < c.Want.size(); ++k) {
            const Bytes p = Params(unsigned(k * 3), unsigned(k));
            ASSERT_EQ(e.AttachCommand(uint8_t(0x10 + k), p.data(), unsigned(p.size())), 0u);
            EXPECT_EQ(e.GetLastAttachedNumber(), c.Want[k]);
            want.push_back(Record(uint8_t(0x10 + k), c.Want[k], p));
        }
        EXPECT_EQ(QueuedRecords(&e), want) << "from " << c.Start;
        EXPECT_EQ(e.GetLastCommandNum(), uint16_t(c.Want.back() + 1));
    }
    // 255 bytes is the longest record; a refused one takes no number.
    Engine e;
    const Bytes p = Params(252, 1);
    EXPECT_EQ(e.AttachCommand(9, p.data(), 251), 0u);
    EXPECT_EQ(e.AttachCommand(9, p.data(), 252), 2u);
    EXPECT_EQ(QueuedRecords(&e), std::vector<Bytes>{Record(9, 0, Bytes(p.begin(), p.begin() + 251))});
    EXPECT_EQ(e.GetLastCommandNum(), 1);
}

TEST(UnitEngineSending, PacksWhileTheTotalStaysWithinTheLimit)
{
    // 4000 = 16 * 250 and 1345 = 5 * 255 + 70: the transports' limits reached exactly.
    std::vector<unsigned> uart(16, 250), eth(5, 255);
    uart.push_back(4);
    eth.insert(eth.end(), {70, 4});
    struct Case {
        std::vector<unsigned> Lengths;
        unsigned Limit;
        unsigned Packed; // 0: nothing is sent
    } cases[] = {
        {{100, 100, 100}, 300, 3},
        {{100, 100, 101}, 300, 2},
        {{4, 255}, 258, 1},
        {{255}, 254, 0},
        {uart, Engine::PayloadLimitUart, 16},
        {eth, Engine::PayloadLimitEthernet, 6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.Lengths.size() << " records, limit " << c.Limit);
        Engine e;
        e.BytesSent = 10;
        const std::vector<Bytes> records = Queue(e, c.Lengths);
        const auto* frame = e.BuildFrame(c.Limit, 777);
        if (c.Packed == 0) {
            EXPECT_EQ(frame, nullptr);
            EXPECT_TRUE(e.EchoList.IsEmpty());
            continue;
        }
        ASSERT_NE(frame, nullptr);
        const std::vector<Bytes> sent(records.begin(), records.begin() + c.Packed);
        EXPECT_EQ(*frame, HostFrame(sent));
        EXPECT_EQ(std::tuple(e.BytesSent, e.LastSendTime), std::tuple(10 + frame->size() - 5, 777u)) << "payload bytes";
        std::vector<uint16_t> numbers(c.Packed);
        for (unsigned k = 0; k < c.Packed; ++k)
            numbers[k] = uint16_t(k);
        EXPECT_EQ(Waiting(e), numbers);
        for (const auto& w : e.EchoList)
            EXPECT_EQ(w.SendTime, 777u);
        e.FrameSent();
        EXPECT_EQ(e.CommandList.GetLength(), c.Lengths.size() - c.Packed);
        // The rest goes once every echo is back, in a frame of its own.
        for (unsigned k = 0; k < c.Packed; ++k)
            EXPECT_EQ(e.TakeEcho(uint16_t(k)), EEcho::Matched);
        const auto* next = e.BuildFrame(c.Limit, 778);
        if (c.Packed == c.Lengths.size()) {
            EXPECT_EQ(next, nullptr);
            continue;
        }
        ASSERT_NE(next, nullptr);
        EXPECT_EQ(*next, HostFrame({records.begin() + c.Packed, records.end()}));
    }
}

TEST(UnitEngineSending, NothingGoesWhileAnEchoIsOutstanding)
{
    Engine e;
    EXPECT_EQ(e.BuildFrame(Engine::PayloadLimitUart, 0), nullptr) << "nothing queued";
    Queue(e, {5, 6});
    ASSERT_NE(e.BuildFrame(Engine::PayloadLimitUart, 0), nullptr);
    e.FrameSent();
    const std::vector<Bytes> later = Queue(e, {20});
    // Each step: the echo that comes, and whether a frame may go after it.
    for (auto [echo, mayGo] : {std::pair{uint16_t(1), false}, {uint16_t(0), false}, {uint16_t(1), true}}) {
        e.TakeEcho(echo);
        const auto* frame = e.BuildFrame(Engine::PayloadLimitUart, 5);
        EXPECT_EQ(frame != nullptr, mayGo) << "after the echo of " << echo;
        EXPECT_TRUE(!frame || *frame == HostFrame(later)) << "a reused record block keeps nothing of its old record";
    }
}

TEST(UnitEngineSending, AFailedWriteDropsEveryQueuedCommandAndResetQueuesTheUnreadBytes)
{
    Engine e;
    Queue(e, {100, 100, 100});
    ASSERT_NE(e.BuildFrame(150, 0), nullptr);
    e.FrameFailed();
    EXPECT_EQ(e.LostCommands, 3u) << "the written one and the two still queued";
    EXPECT_TRUE(e.CommandList.IsEmpty());
    EXPECT_EQ(e.GetQueuedPayload(), 0u);
    for (uint16_t n : {0, 1, 2})
        EXPECT_EQ(e.IsCommandPending(n), n == 0) << n << ": only the written one still waits for its echo";
    // That frame stays in flight until the time-out reports the unit silent.
    Queue(e, {10});
    EXPECT_EQ(e.BuildFrame(Engine::PayloadLimitUart, 1), nullptr);
    EXPECT_TRUE(e.IsEchoOverdue(500, 500));

    // Unread bytes accumulate until taken; ResetQueues drops them with the queue.
    const Bytes a = {1, 2, 3, 4, 5};
    e.KeepUnread(a.data(), 3);
    e.KeepUnread(a.data() + 3, 2);
    EXPECT_EQ(e.GetUnread(), a);
    e.ResetQueues();
    EXPECT_TRUE(e.GetUnread().empty());
    EXPECT_TRUE(e.CommandList.IsEmpty());
}

TEST(UnitEngineEchoes, MatchOutOfOrderAndStaleBeforeTheSessionIsConfirmed)
{
    struct Step {
        uint16_t Number;
        EEcho Want;
    };
    struct Case {
        const char* Name;
        bool NewSession;
        std::vector<uint16_t> Outstanding;
        std::vector<Step> Steps;
        uint32_t Stale;
    } cases[] = {
        {"out of order", false, {5, 6}, {{6, EEcho::OutOfOrder}, {5, EEcho::Matched}, {6, EEcho::Matched}}, 0},
        {"nothing outstanding", false, {}, {{3, EEcho::OutOfOrder}}, 0},
        {"new session, nothing outstanding", true, {}, {{3, EEcho::Stale}, {4, EEcho::Stale}}, 2},
        // While a session starts, an echo settles the commands sent before it.
        {"new session, a later sending answers", true, {10, 11, 12, 13},
            {{3, EEcho::Stale}, {12, EEcho::Matched}, {10, EEcho::Stale}, {13, EEcho::Matched}, {7, EEcho::OutOfOrder}},
            2},
        {"new session, in order", true, {10, 11}, {{10, EEcho::Matched}, {3, EEcho::Stale}, {11, EEcho::Matched}}, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Name);
        Engine e;
        if (!c.Outstanding.empty()) {
            e.CommandCounter = c.Outstanding.front();
            Queue(e, std::vector<unsigned>(c.Outstanding.size(), 4));
            ASSERT_NE(e.BuildFrame(Engine::PayloadLimitUart, 0), nullptr);
            e.FrameSent();
        }
        if (c.NewSession)
            e.BeginSession();
        EXPECT_EQ(e.IsSessionConfirmed(), !c.NewSession);
        std::vector<uint16_t> left = c.Outstanding;
        for (const Step& s : c.Steps) {
            EXPECT_EQ(e.TakeEcho(s.Number), s.Want) << "echo of " << s.Number;
            if (s.Want == EEcho::Matched)
                left.erase(left.begin(), std::find(left.begin(), left.end(), s.Number) + 1);
            EXPECT_EQ(Waiting(e), left) << "after the echo of " << s.Number;
        }
        EXPECT_EQ(e.StaleEchoes, c.Stale);
        EXPECT_EQ(e.IsSessionConfirmed(), !c.NewSession || !c.Outstanding.empty());
    }
}

TEST(UnitEngineEchoes, OverdueOnceTheOldestHasWaitedTheTimeOut)
{
    struct Case {
        std::vector<uint32_t> SendTimes; // oldest first
        unsigned Timeout;
        std::vector<std::pair<uint32_t, bool>> Checks; // now, overdue
    } cases[] = {
        {{}, 500, {{0, false}, {0xFFFFFFFF, false}}},
        {{1000}, 500, {{1000, false}, {1499, false}, {1500, true}, {90000, true}}},
        {{1000, 1400}, 500, {{1499, false}, {1500, true}}},
        {{0xFFFFFF00}, 500, {{0xFFFFFFFF, false}, {0x000000F3, false}, {0x000000F4, true}}},
        {{7}, 0, {{7, true}}},
    };
    for (const Case& c : cases) {
        Engine e;
        for (size_t k = 0; k < c.SendTimes.size(); ++k)
            e.EchoList += Engine::CEchoWaiting(uint16_t(k), c.SendTimes[k]);
        for (auto [now, overdue] : c.Checks)
            EXPECT_EQ(e.IsEchoOverdue(now, c.Timeout), overdue)
                << c.SendTimes.size() << " waiting, time-out " << c.Timeout << ", now " << now;
    }
    // The time BuildFrame is given is the one the time-out counts from.
    Engine e;
    Queue(e, {4});
    ASSERT_NE(e.BuildFrame(Engine::PayloadLimitUart, 0xFFFFFFF0), nullptr);
    EXPECT_FALSE(e.IsEchoOverdue(0x1E3, 500));
    EXPECT_TRUE(e.IsEchoOverdue(0x1E4, 500));
}

// An event record of `size` bytes in all (L = size - 1).
Bytes EventRecord(unsigned size, unsigned seed)
{
    Bytes r = Params(size, seed);
    r[0] = uint8_t(size - 1);
    return r;
}

// What one complete frame showed.
struct FrameSeen {
    size_t End = 0; // stream offset just past its last byte
    bool Ok = false;
    std::vector<Bytes> Records; // from the position list and the event buffer
    Bytes Events; // the event buffer's head: what the frame wrote, zeros after it
    bool operator==(const FrameSeen&) const = default;
};

FrameSeen Seen(const Engine& e, size_t end, bool ok)
{
    // 4 KiB hold the largest frame of the streams below.
    EXPECT_LT(e.EventBufferUsed, 4096u);
    FrameSeen f{end, ok, {}, Bytes(e.EventBuffer.begin(), e.EventBuffer.begin() + 4096)};
    for (uint32_t p : e.EventPosList)
        f.Records.emplace_back(e.EventBuffer.begin() + p, e.EventBuffer.begin() + p + e.EventBuffer[p] + 1);
    return f;
}

auto MachineState(const Engine& e)
{
    return std::tuple(e.RxState, e.RawIndex, e.LengthField, e.EventCount, e.EventsCompleted, e.EventBytes, e.WritePos,
        e.EventLength, e.ReceivedCrc, e.EventBufferUsed, e.CrcErrors,
        Bytes(e.RawBuffer.begin(), e.RawBuffer.begin() + e.RawIndex));
}

// A stream and the frames it must give, good ones with their records.
struct Stream {
    Bytes Data;
    std::vector<FrameSeen> Want; // End, Ok and, for good frames, Records
    void Add(const Bytes& part, std::optional<bool> ok = {}, const std::vector<Bytes>& records = {})
    {
        Data.insert(Data.end(), part.begin(), part.end());
        if (ok)
            Want.push_back({Data.size(), *ok, *ok ? records : std::vector<Bytes>{}, {}});
    }
    void AddFrame(const std::vector<Bytes>& records) { Add(UnitFrame(records), true, records); }
};

Stream MixedStream()
{
    Stream s;
    s.AddFrame({EventRecord(8, 1), EventRecord(12, 2)});
    std::vector<Bytes> sized, many, large;
    for (unsigned n = 3; n <= 17; ++n)
        sized.push_back(EventRecord(n, n));
    s.AddFrame(sized);
    s.Add({0x00, 0x13, 0x5A});
    s.Add(UnitFrame({EventRecord(9, 3)}), false); // lost after the stray bytes
    s.AddFrame({EventRecord(2, 4), EventRecord(256, 5)});
    Bytes bad = UnitFrame({EventRecord(11, 6)});
    bad.back() ^= 0x5A;
    s.Add(bad, false);
    s.Add({0xA5, 0x00, 0x00, 0x00, 0x00}); // zero event count
    s.Add({0xA5, 0x05, 0x00, 0x01, 0x00, 0x00}); // zero event length
    for (unsigned k = 0; k < 100; ++k)
        many.push_back(EventRecord(3 + k % 15, k));
    s.AddFrame(many);
    for (unsigned k = 0; k < 15; ++k)
        large.push_back(EventRecord(200 + k, k));
    s.AddFrame(large);
    s.AddFrame({EventRecord(17, 9)});
    return s;
}

TEST(UnitEngineReceive, BlockFeedAgreesWithTheByteWiseMachineAfterEveryRead)
{
    const Stream s = MixedStream();
    std::vector<std::vector<unsigned>> patterns = {{unsigned(s.Data.size())}, {1000}, {4096}, {3, 700}};
    for (unsigned size = 1; size <= 64; ++size)
        patterns.push_back({size});
    std::mt19937 rng(42);
    for (int k = 0; k < 20; ++k) {
        patterns.emplace_back(13);
        for (auto& size : patterns.back())
            size = 1 + rng() % 300;
    }
    for (const auto& sizes : patterns) {
        SCOPED_TRACE(::testing::Message() << "reads of " << sizes[0] << " bytes first, " << sizes.size() << " sizes");
        auto block = std::make_unique<Engine>(), byteWise = std::make_unique<Engine>();
        std::vector<FrameSeen> got, want;
        size_t offset = 0, refOffset = 0;
        for (size_t r = 0; offset < s.Data.size(); ++r) {
            const unsigned size = unsigned(std::min<size_t>(sizes[r % sizes.size()], s.Data.size() - offset));
            const size_t firstFrame = got.size();
            for (unsigned left = size; left > 0;) {
                unsigned used = 0;
                bool ok = false;
                const EFeed rc = block->FeedBytes(s.Data.data() + offset, left, used, ok);
                ASSERT_TRUE(used > 0 && used <= left) << "took " << used << " of " << left;
                ASSERT_NE(rc, EFeed::Overflow);
                offset += used;
                left -= used;
                if (rc == EFeed::Frame)
                    got.push_back(Seen(*block, offset, ok));
                else
                    ASSERT_EQ(left, 0u) << "stopped without a frame";
            }
            for (const size_t end = refOffset + size; refOffset < end;) { // the reference, a byte at a time
                bool ok = false;
                const EFeed rc = byteWise->FeedByte(s.Data[refOffset++], ok);
                ASSERT_NE(rc, EFeed::Overflow);
                if (rc == EFeed::Frame)
                    want.push_back(Seen(*byteWise, refOffset, ok));
            }
            ASSERT_EQ(std::vector<FrameSeen>(got.begin() + firstFrame, got.end()),
                std::vector<FrameSeen>(want.begin() + firstFrame, want.end()))
                << "frames of the read ending at " << offset;
            ASSERT_EQ(MachineState(*block), MachineState(*byteWise)) << "after offset " << offset;
        }
        ASSERT_EQ(want.size(), s.Want.size());
        for (size_t k = 0; k < want.size(); ++k)
            EXPECT_EQ(std::tuple(want[k].End, want[k].Ok, want[k].Ok ? want[k].Records : std::vector<Bytes>{}),
                std::tuple(s.Want[k].End, s.Want[k].Ok, s.Want[k].Records))
                << "frame " << k;
        EXPECT_EQ(byteWise->CrcErrors, 2u);
        EXPECT_EQ(byteWise->RxState, Engine::ERxState::Hunting);
    }
}

TEST(UnitEngineReceive, AFullEventBufferOverflowsAndTheMachineHuntsAgain)
{
    // Whole records and event bodies in the read too: the block feed must not take them either.
    const Bytes bytes = {5, 1, 2, 3, 4, 5, 6};
    for (auto state : {Engine::ERxState::RecordLength, Engine::ERxState::RecordBody})
        for (bool block : {false, true}) {
            Engine e;
            std::tie(e.RxState, e.EventCount, e.EventLength, e.EventBytes, e.RawIndex, e.WritePos) =
                std::tuple(state, 2u, 9u, 1u, 40u, Engine::EventBufferSize);
            bool ok = false;
            unsigned used = 1;
            const EFeed rc = block ? e.FeedBytes(bytes.data(), unsigned(bytes.size()), used, ok) : e.FeedByte(5, ok);
            EXPECT_EQ(rc, EFeed::Overflow) << unsigned(state) << (block ? " block" : " byte");
            EXPECT_EQ(std::tuple(used, e.RxState, e.RawIndex, e.WritePos, e.EventCount),
                std::tuple(1u, Engine::ERxState::Hunting, 0u, 0u, 0u));
        }
}

constexpr uint64_t kWrap = uint64_t(1) << 32;

TEST(UnitClock, AUnitSilentAcrossAWrapIsPlacedByTheHostTimeElapsed)
{
    CKVX_HdwKvxUnitClock clock;
    uint64_t host = 1000;
    clock.Unwrap(0x10000000u, host);
    // 80 minutes of silence: one wrap (71.6 min) and a bit; the low bits alone would say 8.4 minutes later.
    const uint64_t later = 0x10000000u + 80ull * 60 * 1000000;
    host += 80ull * 60 * 1000000 + 3000; // the host read it 3 ms late
    EXPECT_EQ(clock.Unwrap(uint32_t(later), host), later);
    // Two wraps and a half of silence.
    const uint64_t muchLater = later + 2 * kWrap + kWrap / 4;
    host += 2 * kWrap + kWrap / 4;
    EXPECT_EQ(clock.Unwrap(uint32_t(muchLater), host), muchLater);
}

TEST(UnitClock, MappingConvergesOnADriftingUnitClockDespiteLateReads)
{
    // The unit clock runs 120 ppm fast; reads come 0.2 to 8 ms after the latest event, now and then as early as 50 us.
    const double ppm = 120e-6;
    const uint64_t host0 = 7000000000, unit0 = kWrap - 30000000;
    std::mt19937 rng(42);
    std::uniform_int_distribution<int> late(200, 8000);
    CKVX_HdwKvxUnitClock clock;
    uint64_t dummy = 0;
    EXPECT_FALSE(clock.ToHost(unit0, dummy));
    auto unitAt = [&](uint64_t host) { return unit0 + uint64_t(double(host - host0) * (1.0 + ppm)); };
    for (uint64_t host = host0; host < host0 + 120000000; host += 10000) {
        const unsigned delay = rng() % 50 == 0 ? 50 : unsigned(late(rng));
        clock.AddPair(unitAt(host - delay), host);
    }
    EXPECT_EQ(clock.GetBucketCount(), CKVX_HdwKvxUnitClock::MaxBuckets);
    EXPECT_NEAR(clock.GetRate(), 1.0 + ppm, 5e-6);
    // Unit times of the last minute and a minute ahead map to within 0.3 ms of when the unit clock read them.
    for (uint64_t host : {host0 + 100000000, host0 + 119000000, host0 + 180000000}) {
        uint64_t mapped = 0;
        ASSERT_TRUE(clock.ToHost(unitAt(host), mapped));
        EXPECT_NEAR(double(mapped), double(host), 300.0) << host - host0;
    }
}

TEST(UnitClock, AUnitClockThatJumpsRestartsTheFit)
{
    CKVX_HdwKvxUnitClock clock;
    for (uint64_t host = 0; host < 20000000; host += 10000)
        clock.AddPair(500000000 + host - 100, host);
    EXPECT_GT(clock.GetBucketCount(), 10u);
    // The unit was reset: its clock starts again at 0.
    clock.AddPair(1000, 20010000);
    EXPECT_EQ(clock.GetBucketCount(), 1u);
    uint64_t mapped = 0;
    ASSERT_TRUE(clock.ToHost(2000, mapped));
    EXPECT_EQ(mapped, 20011000u);
}

} // namespace
