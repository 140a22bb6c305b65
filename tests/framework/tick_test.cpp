// The periodic tick, called directly (as the manager's timer does) so that
// every tick is observed exactly; one test checks the timer really drives it.
#include "TestDevice.h"

#include <gtest/gtest.h>

#include <future>

using namespace fwtest;

namespace {

class Tick : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        ASSERT_EQ(manager.Enumerate(), 0u);
        ASSERT_EQ(manager.Run(), 0u);
        // The manager's own timer must not interleave with the ticks made here
        // (nor call the test's hooks while they are replaced).
        ASSERT_EQ(manager.StopMainTimer(), 0u);
    }
    void TearDown() override { manager.Stop(); }

    TestService* OpenWithService(unsigned instance, unsigned index)
    {
        TestPort* p = device.Port(instance, index);
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(p->EnableService(HDW_SERVICE_SIGNAL, &s, nullptr), 0u);
        EXPECT_EQ(p->Open(nullptr), 0u);
        return static_cast<TestService*>(s);
    }

    // Two units with two ports each.
    TestDevice device{60, 2, {{HDW_PORT_CAN, "0"}, {HDW_PORT_CAN, "1"}}};
    CKVX_HdwManager manager;
};

TEST_F(Tick, RunsThreePassesOverOpenInstancesInOrderEachUnderTheInstanceLockAndEventsStopAtARefusal)
{
    TestService* a0 = OpenWithService(0, 0);
    TestService* b0 = OpenWithService(0, 1);
    TestService* a1 = OpenWithService(1, 0);
    a0->LogTicks = b0->LogTicks = a1->LogTicks = true;
    device.LogTicks = true;
    device.log.Take();
    unsigned lockedElsewhere = 0;
    device.OnStartHandler = [&](unsigned instance) {
        CKVX_Mutex* m = device.GetDeviceInstance(instance)->GetMutex();
        // Another thread must find the unit's mutex taken.
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

    // An untyped event goes to the unit's open ports until one refuses. Typed
    // events: units/events_test (UnitFrameEvents, CriticalFailureReaches...).
    a0->EventResult = 9;
    CKVX_HdwEvent ev;
    device.DeviceLock(0);
    EXPECT_EQ(device.ProcessEventHandlers(0, &ev), 9u);
    device.DeviceUnlock(0);
    EXPECT_EQ(a0->eventCount.load(), 1u);
    EXPECT_EQ(b0->eventCount.load(), 0u);

    // A unit with no open port is skipped.
    ASSERT_EQ(device.Port(0, 0)->Close(), 0u);
    ASSERT_EQ(device.Port(0, 1)->Close(), 0u);
    device.log.Take();
    device.HdwTimerHandler(8);
    EXPECT_EQ(device.log.Take(), (std::vector<std::string>{"start1", "port10.svc0.Tick", "end1"}));
}

TEST_F(Tick, FailingPortAbortsOnlyItsUnitAndEndsThatUnitsPortPass)
{
    TestService* a0 = OpenWithService(0, 0);
    TestService* b0 = OpenWithService(0, 1);
    TestService* a1 = OpenWithService(1, 0);
    a0->TickResult = 4;

    device.HdwTimerHandler(1);
    EXPECT_EQ(a0->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(b0->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(b0->tickCount.load(), 0u) << "the failing unit's later ports are not ticked";
    EXPECT_EQ(a1->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    EXPECT_EQ(a1->tickCount.load(), 1u) << "other units still get their tick";
    EXPECT_TRUE(device.Port(0, 0)->IsOpen()) << "aborting leaves the ports open";
}

TEST_F(Tick, FailingStartOrEndHandlerAbortsThatUnit)
{
    TestService* a0 = OpenWithService(0, 0);
    TestService* a1 = OpenWithService(1, 0);
    device.FailStartInstance = 1;
    device.HdwTimerHandler(0);
    EXPECT_EQ(a0->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    EXPECT_EQ(a1->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(a1->tickCount.load(), 1u) << "a failed start pass does not skip the port pass";

    device.FailStartInstance = ~0u;
    device.FailEndInstance = 0;
    device.HdwTimerHandler(1);
    EXPECT_EQ(a0->GetStatus(), unsigned(HDW_SERVICE_FAILED));
}

TEST_F(Tick, TheMainTimerDrivesOpenPortsWhileApplicationThreadsOpenAndClose)
{
    ASSERT_EQ(manager.StartMainTimer(1), 0u);
    TestService* s = OpenWithService(0, 0);
    ASSERT_TRUE(WaitUntil([&] { return s->tickCount.load() >= 5; }));
    const uint64_t seen = s->lastTick.load();
    ASSERT_TRUE(WaitUntil([&] { return s->lastTick.load() > seen; }));
    EXPECT_GE(manager.GetTickCounter(), 5u);

    // Exercises the instance locks with the real timer thread (run under TSan).
    TestPort* p0 = device.Port(0, 0);
    TestPort* p1 = device.Port(1, 1);
    ASSERT_EQ(p0->Close(), 0u);
    CKVX_HdwService* other = nullptr;
    ASSERT_EQ(p1->EnableService(HDW_SERVICE_SIGNAL, &other, nullptr), 0u);
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
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(p0->Open(nullptr), 0u);
        ASSERT_EQ(p1->Open(nullptr), 0u);
        ASSERT_EQ(p0->Close(), 0u);
        ASSERT_EQ(p1->Close(), 0u);
    }
    stop = true;
    events.join();
    EXPECT_FALSE(device.GetDeviceInstance(0)->IsOpen());
    EXPECT_FALSE(device.GetDeviceInstance(1)->IsOpen());
}

} // namespace
