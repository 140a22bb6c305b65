// The emulator's unit clock: where it starts.

#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <ctime>

namespace {

uint32_t MonotonicUs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint32_t(uint64_t(t.tv_sec) * 1000000u + uint64_t(t.tv_nsec) / 1000u);
}

// With the option the unit clock is CLOCK_MONOTONIC (a load test in another
// process compares time stamps with its own); without it it starts at ClockStartUs.
TEST(EmulatorClock, MonotonicOptionMakesTheUnitClockTheSystemMonotonicClockElseItStartsAtClockStartUs)
{
    hdwsim::Emulator::Options o;
    o.ClockStartUs = 0x7FFF0000u;
    hdwsim::Emulator fromStart(hdwsim::HaldenModel(), o);
    ASSERT_TRUE(fromStart.Start());
    EXPECT_LT(fromStart.ClockUs() - o.ClockStartUs, 10'000'000u); // the emulator was made less than 10 s ago

    o.MonotonicClock = true; // overrides ClockStartUs
    hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
    ASSERT_TRUE(sim.Start());
    for (int i = 0; i < 100; ++i) {
        const uint32_t before = MonotonicUs();
        const uint32_t unit = sim.ClockUs();
        const uint32_t after = MonotonicUs();
        // Wrap-safe: unit lies in [before - 1, after + 1] (whole microseconds on both sides).
        ASSERT_LE(uint32_t(unit - before + 1), uint32_t(after - before + 2)) << "try " << i;
    }
}

} // namespace
