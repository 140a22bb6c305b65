// The unit clock: 32-bit stamps unwrapped and mapped onto the host's clock; every pair made up here.
#include <HdwLib/units/KvxUnitClock.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

constexpr uint64_t kWrap = uint64_t(1) << 32;

TEST(UnitClock, AUnitSilentAcrossAWrapIsPlacedByTheHostTimeElapsed)
{
    CKVX_HdwKvxUnitClock clock;
    uint64_t host = 1000;
    clock.Unwrap(0x10000000u, host);
    // 80 minutes of silence: the unit clock wrapped once (71.6 min) and a
    // bit; the low bits alone would say 8.4 minutes later.
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
    // A unit time of the last minute and one a minute ahead map to within
    // 0.3 ms of the host time at which the unit clock read it.
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
