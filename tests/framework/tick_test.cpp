// The periodic tick, called directly so that every tick is observed exactly.
#include "TestDevice.h"

#include <future>

using namespace fwtest;

namespace {

class Tick : public RunningDevice {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(RunningDevice::SetUp());
        // The manager's own timer must not interleave with the ticks made here.
        ASSERT_EQ(manager.StopMainTimer(), 0u);
    }
    TestService* OpenWithService(unsigned instance, unsigned index)
    {
        TestService* s = Enable(device.Port(instance, index));
        EXPECT_EQ(device.Port(instance, index)->Open(nullptr), 0u);
        return s;
    }
};

TEST_F(Tick, RunsThreePassesOverOpenInstancesInOrderEachUnderTheInstanceLockAndEventsStopAtARefusal)
{
    TestService* a0 = OpenWithService(0, 0);
    TestService* b0 = OpenWithService(0, 1);
    TestService* a1 = OpenWithService(1, 0);
    a0->LogTicks = b0->LogTicks = a1->LogTicks = device.LogTicks = true;
    device.log.Take();
    unsigned lockedElsewhere = 0;
    device.OnStartHandler = [&](unsigned instance) {
        CKVX_Mutex* m = device.GetDeviceInstance(instance)->GetMutex();
        lockedElsewhere += std::async(std::launch::async, [m] {
            const bool taken = m->TryLock() != 0;
            if (!taken)
                m->Unlock();
            return taken;
        }).get();
    };

    device.HdwTimerHandler(7);
    const std::vector<std::string> expected = {
        "start0", "start1", "port00.svc0.Tick", "port01.svc0.Tick", "port10.svc0.Tick", "end0", "end1"};
    EXPECT_EQ(device.log.Take(), expected);
    EXPECT_EQ(a0->lastTick.load(), 7u);
    EXPECT_EQ(lockedElsewhere, 2u);

    // An untyped event goes to the unit's open ports until one refuses.
    a0->EventResult = 9;
    CKVX_HdwEvent ev;
    device.DeviceLock(0);
    EXPECT_EQ(device.ProcessEventHandlers(0, &ev), 9u);
    device.DeviceUnlock(0);
    EXPECT_EQ(a0->eventCount.load(), 1u);
    EXPECT_EQ(b0->eventCount.load(), 0u);

    ASSERT_EQ(port->Close(), 0u);
    ASSERT_EQ(device.Port(0, 1)->Close(), 0u);
    device.log.Take();
    device.HdwTimerHandler(8);
    EXPECT_EQ(device.log.Take(), (std::vector<std::string>{"start1", "port10.svc0.Tick", "end1"}));
}

TEST_F(Tick, AFailingStartHandlerPortOrEndHandlerAbortsOnlyItsUnit)
{
    TestService* a0 = OpenWithService(0, 0);
    TestService* b0 = OpenWithService(0, 1);
    TestService* a1 = OpenWithService(1, 0);
    device.FailStartInstance = 1;
    device.HdwTimerHandler(0);
    EXPECT_EQ(a0->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    EXPECT_EQ(a1->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(a1->tickCount.load(), 1u) << "a failed start pass does not skip the port pass";

    device.FailStartInstance = ~0u;
    ASSERT_EQ(device.Port(1, 0)->Close(), 0u);
    ASSERT_EQ(device.Port(1, 0)->Open(nullptr), 0u); // a1 runs again
    a0->TickResult = 4;
    device.HdwTimerHandler(1);
    EXPECT_EQ(a0->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(b0->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(b0->tickCount.load(), 1u) << "the failing unit's later ports are not ticked";
    EXPECT_EQ(a1->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    EXPECT_EQ(a1->tickCount.load(), 2u) << "other units still get their tick";
    EXPECT_TRUE(port->IsOpen()) << "aborting leaves the ports open";

    device.FailEndInstance = 1;
    device.HdwTimerHandler(2);
    EXPECT_EQ(a1->GetStatus(), unsigned(HDW_SERVICE_FAILED));
}

TEST_F(Tick, TheMainTimerDrivesOpenPortsWhileApplicationThreadsOpenAndClose)
{
    ASSERT_EQ(manager.StartMainTimer(1), 0u);
    TestService* s = OpenWithService(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return s->tickCount.load() >= 5; }));
    const uint64_t seen = s->lastTick.load();
    ASSERT_TRUE(WaitUntil([&] { return s->lastTick.load() > seen; }));
    EXPECT_GE(manager.GetTickCounter(), 5u);

    TestPort* p1 = device.Port(1, 1);
    ASSERT_EQ(port->Close(), 0u);
    Enable(p1);
    std::atomic<bool> stop{false};
    std::thread events([&] {
        CKVX_HdwEvent ev;
        ev.SetChannelId("1");
        while (!stop.load()) {
            device.DeviceLock(1);
            device.ProcessEventHandlers(1, HDW_PORT_CAN, &ev);
            device.DeviceUnlock(1);
            std::this_thread::yield();
        }
    });
    bool ok = true; // no ASSERT while the event thread runs: it must be joined
    for (int i = 0; i < 200 && ok; ++i)
        ok = port->Open(nullptr) == 0 && p1->Open(nullptr) == 0 && port->Close() == 0 && p1->Close() == 0;
    stop = true;
    events.join();
    EXPECT_TRUE(ok);
    EXPECT_FALSE(device.GetDeviceInstance(0)->IsOpen());
    EXPECT_FALSE(device.GetDeviceInstance(1)->IsOpen());
}

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
};

TEST(Timer, TicksCountFromZeroAcrossRestartsAndAReplacingStartLeavesOneTimer)
{
    Recorder r;
    CKVX_HdwTimer t;
    EXPECT_EQ(t.Stop(), 0u) << "stopping a stopped timer";
    EXPECT_EQ(t.Start(0, &Recorder::Callback, &r), 1u) << "zero period";
    EXPECT_FALSE(t.IsRunning());
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(t.Start(1, &Recorder::Callback, &r), 0u);
    ASSERT_EQ(t.Start(1, &Recorder::Callback, &r), 0u); // replaces the running one
    EXPECT_TRUE(t.IsRunning());
    ASSERT_TRUE(WaitUntil([&] { return r.count.load() >= 40; }));
    EXPECT_EQ(t.Stop(), 0u);
    const uint64_t afterFirst = r.count.load();
    // Stop returns only after the last callback.
    EXPECT_EQ(t.GetTickCounter(), afterFirst);
    // One timer fires no more often than its period (half as often again allows for early wake-ups); a replaced timer
    // still firing beside it would double the rate.
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    EXPECT_LE(afterFirst, uint64_t(ms.count()) * 3 / 2 + 3) << "callbacks in " << ms.count() << " ms of a 1 ms timer";

    ASSERT_EQ(t.Start(2, &Recorder::Callback, &r), 0u);
    ASSERT_TRUE(WaitUntil([&] { return r.count.load() >= afterFirst + 3; }));
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
    for (int round = 0; round < 20; ++round) {
        SelfStopper s;
        s.stopAt = round % 2 + 1;
        ASSERT_EQ(s.timer.Start(1, &SelfStopper::Callback, &s), 0u);
        ASSERT_TRUE(WaitUntil([&] { return s.calls.load() >= s.stopAt && !s.timer.IsRunning(); }));
        // No further callback arrives once Stop has returned inside the callback: ten ticks of another 1 ms timer
        // are the clock that shows it, however late a loaded machine runs the timer threads.
        Recorder clock;
        CKVX_HdwTimer other;
        ASSERT_EQ(other.Start(1, &Recorder::Callback, &clock), 0u);
        ASSERT_TRUE(WaitUntil([&] { return clock.count.load() >= 10; }));
        other.Stop();
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
