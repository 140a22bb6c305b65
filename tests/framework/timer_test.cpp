// The timer: tick numbering across Stop/Start, stopping from inside the
// callback, and the millisecond helpers with their 32-bit wrap rule.
#include "TestDevice.h"

#include <gtest/gtest.h>

using namespace fwtest;

namespace {

// Counts the callbacks and every tick number that is not the next one.
struct Recorder {
    std::atomic<uint64_t> count{0};
    std::atomic<unsigned> outOfOrder{0};
    std::atomic<void*> context{nullptr};
    static void Callback(uint64_t tick, void* ctx)
    {
        auto* self = static_cast<Recorder*>(ctx);
        if (tick != self->count.load())
            ++self->outOfOrder;
        self->context = ctx;
        ++self->count;
    }
    uint64_t Count() const { return count.load(); }
};

TEST(Timer, TicksCountFromZeroAcrossRestartsAndAReplacingStartLeavesOneTimer)
{
    Recorder r;
    CKVX_HdwTimer t;
    EXPECT_EQ(t.Stop(), 0u) << "stopping a stopped timer";
    EXPECT_EQ(t.Start(0, &Recorder::Callback, &r), 1u) << "zero period";
    EXPECT_FALSE(t.IsRunning());
    ASSERT_EQ(t.Start(1, &Recorder::Callback, &r), 0u);
    ASSERT_EQ(t.Start(1, &Recorder::Callback, &r), 0u); // replaces the running one
    EXPECT_TRUE(t.IsRunning());
    ASSERT_TRUE(WaitUntil([&] { return r.Count() >= 3; }));
    EXPECT_EQ(t.Stop(), 0u);
    const uint64_t afterFirst = r.Count();
    // Stop returns only after the last callback, and no replaced timer still fires.
    EXPECT_EQ(t.GetTickCounter(), afterFirst);

    ASSERT_EQ(t.Start(2, &Recorder::Callback, &r), 0u);
    ASSERT_TRUE(WaitUntil([&] { return r.Count() >= afterFirst + 3; }));
    t.Stop();
    EXPECT_EQ(r.outOfOrder.load(), 0u) << "tick numbers must run 0, 1, 2 ... without gaps";
    EXPECT_EQ(r.context.load(), &r);
}

// Stops its own timer from inside the callback of the given call.
struct SelfStopper {
    CKVX_HdwTimer timer;
    int stopAt = 1;
    std::atomic<int> calls{0};
    static void Callback(uint64_t, void* ctx)
    {
        auto* self = static_cast<SelfStopper*>(ctx);
        if (++self->calls == self->stopAt)
            self->timer.Stop();
    }
};

TEST(Timer, CanBeStoppedFromItsOwnCallbackAndStartedAgain)
{
    // The first tick may come before Start has returned; its Stop must hold.
    for (int round = 0; round < 20; ++round) {
        SelfStopper s;
        s.stopAt = round % 2 + 1;
        ASSERT_EQ(s.timer.Start(1, &SelfStopper::Callback, &s), 0u);
        ASSERT_TRUE(WaitUntil([&] { return s.calls.load() >= s.stopAt && !s.timer.IsRunning(); }));
        // No further callback arrives once Stop has returned inside the callback.
        CKVX_HdwTimer::MsSleep(5);
        EXPECT_EQ(s.calls.load(), s.stopAt) << "round " << round;
        if (round == 0) {
            s.stopAt = 0;
            ASSERT_EQ(s.timer.Start(1, &SelfStopper::Callback, &s), 0u);
            ASSERT_TRUE(WaitUntil([&] { return s.calls.load() > 1; }));
            s.timer.Stop();
        }
    }
}

TEST(TimerHelpers, SleepsElapsedTicksAndTheThirtyTwoBitWrapRule)
{
    CKVX_HdwTimer::UsSleep(0);
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    CKVX_HdwTimer::MsSleep(5);
    const uint64_t elapsed = CKVX_HdwTimer::GetElapsedTicks(start);
    EXPECT_GE(elapsed, 5u);
    EXPECT_LT(elapsed, 10000u);
    CKVX_HdwTimer::UsSleep(3000);
    EXPECT_GE(CKVX_HdwTimer::GetElapsedTicks(start), elapsed + 2);

    // A start in the future is taken for a wrapped 32-bit counter.
    const uint64_t since = CKVX_HdwTimer::GetTickCount() + 5;
    const uint64_t wrapped = CKVX_HdwTimer::GetElapsedTicks(since);
    EXPECT_GE(wrapped, 4294967290ull);
    EXPECT_LT(wrapped, 4294967290ull + 1000) << "only the milliseconds between the two reads may add";
}

} // namespace
