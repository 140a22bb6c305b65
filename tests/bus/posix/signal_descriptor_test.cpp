// The signal service's descriptor in a poll loop (Linux).
#include <HdwLib/bus/HdwSignalService.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <thread>

namespace {

bool Readable(int fd, int timeoutMs)
{
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) == 1 && (p.revents & POLLIN);
}

} // namespace

TEST(SignalDescriptor, ReadableExactlyWhileSomethingWaits)
{
    CKVX_HdwSignalService signals(nullptr);
    const int fd = signals.GetFileDescriptor();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(signals.GetWaitHandle(), nullptr);
    ASSERT_EQ(signals.Start(), 0u);
    EXPECT_FALSE(Readable(fd, 0));

    CKVX_HdwArinc429Message m;
    signals.PostArinc429(HDW_SIGNAL_ARINC429_SENT, m, 1);
    signals.PostArinc429(HDW_SIGNAL_ARINC429_SENT, m, 2);
    EXPECT_TRUE(Readable(fd, 0));
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(signals.GetSignal(s), 0u);
    EXPECT_TRUE(Readable(fd, 0)); // one still waits
    ASSERT_EQ(signals.GetSignal(s), 0u);
    EXPECT_FALSE(Readable(fd, 0));

    signals.PostArinc429(HDW_SIGNAL_ARINC429_SENT, m, 3);
    EXPECT_TRUE(Readable(fd, 0));
    signals.Stop();
    EXPECT_FALSE(Readable(fd, 0));
    ASSERT_EQ(signals.Start(), 0u);
    signals.Abort(); // a failure makes it readable
    EXPECT_TRUE(Readable(fd, 0));
}

TEST(SignalDescriptor, PollWakesWhenAnotherThreadPosts)
{
    CKVX_HdwSignalService signals(nullptr);
    ASSERT_EQ(signals.Start(), 0u);
    std::thread poster([&] {
        CKVX_HdwCanMessage frame;
        frame.Identifier = 5;
        signals.PostCan(HDW_SIGNAL_CAN_RECEIVED, frame, 9);
    });
    EXPECT_TRUE(Readable(signals.GetFileDescriptor(), 10000));
    poster.join();
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(signals.GetSignal(s), 0u);
    EXPECT_EQ(s.Can.Identifier, 5u);
}
