// A reader already asleep in WaitSignal is woken by a post and by Stop. The
// portable test cannot tell whether the reader was asleep before the post;
// here the kernel's view of the thread says so.
#include <HdwLib/bus/HdwSignalService.h>

#include "support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace {

// The state letter of a thread of this process ('R' running, 'S' asleep ...).
char ThreadState(long tid)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(stat, line);
    // The command name in parentheses may hold spaces; the state follows it.
    const auto close = line.rfind(')');
    return close != std::string::npos && close + 2 < line.size() ? line[close + 2] : '?';
}

} // namespace

TEST(SignalWait, ASleepingReaderWakesForAPostAndForStop)
{
    CKVX_HdwSignalService signals{nullptr};
    ASSERT_EQ(signals.Start(), 0u);
    std::atomic<long> tid{0};
    std::atomic<int> phase{0};
    unsigned first = 99, second = 99;
    CKVX_HdwSignalService::CSignal got{};
    std::thread reader([&] {
        tid = long(syscall(SYS_gettid));
        phase = 1;
        first = signals.WaitSignal(got, 60000);
        phase = 2;
        CKVX_HdwSignalService::CSignal s;
        second = signals.WaitSignal(s, 60000);
        phase = 3;
    });
    const auto asleepIn = [&](int p) {
        return testsupport::WaitUntil([&] { return phase == p && ThreadState(tid) == 'S'; });
    };

    EXPECT_TRUE(asleepIn(1));
    CKVX_HdwArinc429Message m;
    m.Data = 42;
    EXPECT_EQ(signals.PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, m, 7), 0u);
    EXPECT_TRUE(asleepIn(2)); // woke, took the word, and waits again
    EXPECT_EQ(signals.Stop(), 0u);
    EXPECT_TRUE(testsupport::WaitUntil([&] { return phase == 3; }));
    reader.join();
    EXPECT_EQ(std::tuple(first, got.Arinc429.Data, got.TimeStamp, second), std::tuple(0u, 42u, uint64_t(7), 29u));
}
