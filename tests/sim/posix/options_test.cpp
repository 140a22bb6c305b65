// The emulator's options: where the unit clock starts, the simulated MIL-STD-1553 terminals and their faults.

#include <hdwsim/Emulator.h>
#include <hdwsim/MilStd1553Options.h>

#include <gtest/gtest.h>

#include <ctime>

namespace {

uint32_t MonotonicUs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint32_t(uint64_t(t.tv_sec) * 1000000u + uint64_t(t.tv_nsec) / 1000u);
}

// A load test in another process compares the unit's time stamps with its own CLOCK_MONOTONIC.
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

TEST(Mil1553Options, TerminalsAndFaultsAreReadOrRefusedWhole)
{
    std::vector<unsigned> terminals;
    ASSERT_TRUE(hdwsim::ParseMilStd1553Terminals("5,7,30", terminals));
    EXPECT_EQ(terminals, (std::vector<unsigned>{5, 7, 30}));
    for (const char* bad : {"", "31", "5,", ",5", "5;7", "x", "-1"}) {
        std::vector<unsigned> none;
        EXPECT_FALSE(hdwsim::ParseMilStd1553Terminals(bad, none)) << bad;
        EXPECT_TRUE(none.empty()) << bad;
    }

    hdwsim::MilStd1553FaultOption f;
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("5:AB:parity:3", f));
    EXPECT_EQ(f.Address, 5u);
    EXPECT_EQ(f.Buses, (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(f.Fault, hdwsim::MilStd1553Fault::ParityError);
    EXPECT_EQ(f.Transfers, 3u);
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("30:B:noresponse", f));
    EXPECT_EQ(f.Buses, (std::vector<unsigned>{1}));
    EXPECT_EQ(f.Fault, hdwsim::MilStd1553Fault::NoResponse);
    EXPECT_EQ(f.Transfers, 0u) << "until cleared";
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("0:A:wordcount", f));
    EXPECT_EQ(f.Fault, hdwsim::MilStd1553Fault::BadWordCount);
    for (const char* bad :
        {"31:A:parity", "5:C:parity", "5:A:noise", "5:A", "5:A:parity:0", "5:A:parity:2:1", ":A:parity"})
        EXPECT_FALSE(hdwsim::ParseMilStd1553Fault(bad, f)) << bad;
}

} // namespace
