#include "TestBusDevice.h"
#include "support/Wait.h"

#include <atomic>
#include <thread>
#include <tuple>

using namespace bustest;

namespace {

class SignalQueue : public ::testing::Test {
protected:
    void StartWith(unsigned bound, uint32_t mask = CKVX_HdwSignalService::CParameters::AllSignals)
    {
        CKVX_HdwSignalService::CParameters p;
        std::tie(p.BufferSize, p.SignalMask) = std::tuple(bound, mask);
        ASSERT_EQ(signals.SetParameters(&p), 0u);
        ASSERT_EQ(signals.Start(), 0u);
    }
    unsigned PostWord(unsigned data, uint64_t time)
    {
        return signals.PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, Word(0, 0, 0, data), time);
    }
    CKVX_HdwSignalService signals{nullptr};
};

} // namespace

TEST_F(SignalQueue, FullQueueDropsTheOldestAndCountsIt)
{
    StartWith(4);
    for (unsigned i = 0; i < 10; ++i)
        ASSERT_EQ(PostWord(i, i), 0u);
    uint64_t dropped = 0;
    EXPECT_EQ(signals.GetDroppedCount(dropped, false), 0u);
    EXPECT_EQ(dropped, 6u);
    CKVX_HdwSignalService::CSignal s[10];
    unsigned n = 0;
    ASSERT_EQ(signals.ReadSignals(s, 10, n), 0u);
    ASSERT_EQ(n, 4u);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(s[i].Arinc429.Data, 6 + i);
    EXPECT_EQ(signals.GetDroppedCount(dropped, true), 0u);
    EXPECT_EQ(dropped, 6u);
    signals.GetDroppedCount(dropped, false);
    EXPECT_EQ(dropped, 0u);

    // Uneven posts and partial reads: order holds wherever the oldest sits in the ring.
    unsigned next = 0, expected = 0;
    for (unsigned round = 0; round < 12; ++round) {
        for (unsigned i = 0; i < 1 + round % 3; ++i)
            ASSERT_EQ(PostWord(next++, 0), 0u);
        ASSERT_EQ(signals.ReadSignals(s, 1 + round % 2 * 2, n), 0u); // never more than 4 wait
        for (unsigned i = 0; i < n; ++i)
            EXPECT_EQ(s[i].Arinc429.Data, expected++) << "round " << round;
    }
    ASSERT_EQ(signals.ReadSignals(s, 10, n), 0u);
    for (unsigned i = 0; i < n; ++i)
        EXPECT_EQ(s[i].Arinc429.Data, expected++);
    EXPECT_EQ(expected, next);
    EXPECT_EQ(signals.GetDroppedCount(dropped, false), 0u);
    EXPECT_EQ(dropped, 0u);
}

// Only the transceiver errors are unmasked here.
TEST_F(SignalQueue, MaskedKindsAreIgnoredAndTransceiverErrorFollowsEachChangeIntoErrorPassiveOrBusOff)
{
    using CError = CKVX_HdwSignalService::CCanTranceiverErrorSignal;
    StartWith(20, 1u << (HDW_SIGNAL_CAN_TRANSCEIVER_ERROR - 1));
    EXPECT_EQ(PostWord(1, 1), 0u);
    CKVX_HdwSignalService::CSignal kindless;
    kindless.Kind = 0;
    EXPECT_EQ(signals.Post(kindless), 0u);
    // Fault state and error bytes.
    const uint32_t states[][3] = {
        {3, 0, 0}, {0, 0, 0}, {1, 0x80, 0}, {2, 0xFF, 0x10}, {2, 0xFF, 0x20}, {0, 0, 0}, {2, 1, 2}};
    CKVX_HdwCanPort::CFaultStatus previous;
    for (unsigned i = 0; i < 7; ++i) {
        CKVX_HdwCanPort::CFaultStatus current;
        std::tie(current.Status, current.ErrReg0, current.ErrReg1) =
            std::tuple(states[i][0], states[i][1], states[i][2]);
        ASSERT_EQ(signals.PostCanFaultStatus(previous, current, 10 + i), 0u);
        previous = current;
    }
    // Expected: time, previous state, new state, bus off, error byte 0.
    const uint64_t expected[][5] = {{12, 0, 1, 0, 0x80}, {13, 1, 2, 1, 0xFF}, {16, 0, 2, 1, 1}};
    for (const auto& want : expected) {
        CKVX_HdwSignalService::CSignal s;
        ASSERT_EQ(signals.GetSignal(s), 0u) << want[0];
        ASSERT_TRUE(CError::Is(s)) << want[0];
        const CError e(s);
        EXPECT_EQ(std::tuple(e.TimeStamp, e.GetPreviousFaultState(), e.FaultStatus.Status, e.IsBusOff(),
                      e.FaultStatus.ErrReg0),
            std::tuple(want[0], want[1], want[2], want[3] != 0, want[4]));
    }
    CKVX_HdwSignalService::CSignal none;
    EXPECT_EQ(signals.GetSignal(none), 4u);
    EXPECT_FALSE(CError::Is(none));
    EXPECT_TRUE(CError::Is(CError()));
}

TEST_F(SignalQueue, StopEmptiesStartResetsAndAbortDeliversWhatWaitsThenAnswers15)
{
    EXPECT_EQ(PostWord(1, 1), 29u); // never started
    StartWith(2);
    for (unsigned i = 1; i <= 3; ++i)
        PostWord(i, i);
    ASSERT_EQ(signals.Stop(), 0u);
    CKVX_HdwSignalService::CSignal s;
    EXPECT_EQ(signals.GetSignal(s), 29u);
    EXPECT_EQ(signals.WaitSignal(s, 10000), 29u); // does not wait on a stopped service
    unsigned n = 3;
    EXPECT_EQ(signals.GetSignalsNumber(n), 29u);
    EXPECT_EQ(n, 0u);
    ASSERT_EQ(signals.Start(), 0u);
    EXPECT_EQ(signals.GetSignal(s), 4u);
    uint64_t dropped = 9;
    signals.GetDroppedCount(dropped, false);
    EXPECT_EQ(dropped, 0u);

    PostWord(4, 4);
    signals.Abort();
    EXPECT_EQ(signals.GetStatus(), 2u);
    EXPECT_EQ(signals.GetSignal(s), 0u);
    EXPECT_EQ(signals.GetSignal(s), 15u);
    EXPECT_EQ(signals.WaitSignal(s, 10000), 15u);
    EXPECT_EQ(PostWord(5, 5), 29u);
}

TEST_F(SignalQueue, WaiterWakesWhenAnotherThreadPostsOrTheServiceStops)
{
    StartWith(8);
    std::atomic<int> phase{0};
    unsigned first = 99, second = 99;
    CKVX_HdwSignalService::CSignal got;
    std::thread reader([&] {
        phase = 1;
        first = signals.WaitSignal(got, 10000);
        phase = 2;
        CKVX_HdwSignalService::CSignal s;
        second = signals.WaitSignal(s, 10000);
        phase = 3;
    });
    // A reader slow to start finds the word already queued; either way its waits end.
    EXPECT_TRUE(testsupport::WaitUntil([&] { return phase != 0; }));
    PostWord(42, 7);
    // A Stop before the second wait makes it answer 29 at once, one after wakes it.
    EXPECT_TRUE(testsupport::WaitUntil([&] {
        if (phase == 2)
            signals.Stop();
        return phase == 3;
    }));
    reader.join();
    EXPECT_EQ(std::tuple(first, got.Arinc429.Data, second), std::tuple(0u, 42u, 29u));
}
