// Periodic timer on Linux: one thread per timer that waits for absolute
// deadlines on CLOCK_MONOTONIC (tick n is due at start + n * period), with the
// thread's timer slack lowered so that wake-ups are not coalesced late, and
// at a low real-time priority where the process is allowed one (as the
// multimedia timer's thread is time-critical on Windows): on a busy machine
// other work then waits for the tick rather than the tick for it. It is one
// above the lowest, so that an application's own real-time threads at the
// lowest do not hold up the tick. Without the privilege the thread keeps
// the normal policy.
//
// The thread sleeps in a futex wait on its stop word with the tick's absolute
// deadline: one system call per tick, and TimerStop wakes it at once. (A
// condition variable costs a second call per tick, to wake its mutex.)
#include <HdwLib/framework/internal/PlatformTimer.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kNsPerSec = 1000000000;
// When the thread falls this many periods behind (a stopped debugger, a
// suspended machine), it resynchronises instead of firing a burst.
constexpr int64_t kMaxCatchUpPeriods = 20;

int64_t NowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * kNsPerSec + ts.tv_nsec;
}

timespec ToTimespec(int64_t ns)
{
    timespec ts{};
    ts.tv_sec = static_cast<time_t>(ns / kNsPerSec);
    ts.tv_nsec = static_cast<long>(ns % kNsPerSec);
    return ts;
}

struct PosixTimer {
    pthread_t thread{};
    // 0 while running, 1 once stopped; the thread waits on it.
    std::atomic<int> stop{0};
    // Set by a TimerStop from within `fire`: the thread frees the timer.
    std::atomic<bool> detached{false};
    int64_t periodNs = 0;
    hdw::platform::TimerFire fire = nullptr;
    void* context = nullptr;
};

static_assert(sizeof(std::atomic<int>) == sizeof(int), "the futex word is a plain int");

// Sleeps until the absolute CLOCK_MONOTONIC time `due` or until stopped.
void WaitUntil(PosixTimer* t, int64_t due)
{
    const timespec ts = ToTimespec(due);
    while (t->stop.load(std::memory_order_acquire) == 0 && NowNs() < due) {
        // FUTEX_WAIT_BITSET takes an absolute time on CLOCK_MONOTONIC.
        syscall(SYS_futex, reinterpret_cast<int*>(&t->stop), FUTEX_WAIT_BITSET_PRIVATE, 0, &ts, nullptr,
            FUTEX_BITSET_MATCH_ANY);
    }
}

void* TimerThread(void* arg)
{
    auto* t = static_cast<PosixTimer*>(arg);
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    sched_param priority{};
    priority.sched_priority = sched_get_priority_min(SCHED_FIFO) + 1;
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
    pthread_setname_np(pthread_self(), "hdw-timer");

    const int64_t start = NowNs();
    int64_t n = 1;
    for (;;) {
        WaitUntil(t, start + n * t->periodNs);
        if (t->stop.load(std::memory_order_acquire) != 0)
            break;
        t->fire(t->context);
        const int64_t now = NowNs();
        ++n;
        if (now - (start + n * t->periodNs) > kMaxCatchUpPeriods * t->periodNs)
            n = (now - start) / t->periodNs + 1;
    }
    if (t->detached.load(std::memory_order_acquire))
        delete t;
    return nullptr;
}

} // namespace

void* hdw::platform::TimerStart(unsigned periodMs, TimerFire fire, void* context, unsigned short& resolution)
{
    resolution = 1;
    if (periodMs == 0 || !fire)
        return nullptr;
    auto* t = new (std::nothrow) PosixTimer;
    if (!t)
        return nullptr;
    t->periodNs = int64_t(periodMs) * kNsPerMs;
    t->fire = fire;
    t->context = context;
    if (pthread_create(&t->thread, nullptr, &TimerThread, t) != 0) {
        delete t;
        return nullptr;
    }
    return t;
}

void hdw::platform::TimerStop(void* id)
{
    auto* t = static_cast<PosixTimer*>(id);
    if (!t)
        return;
    if (pthread_equal(pthread_self(), t->thread) != 0) {
        // Called from `fire`: the thread sees the stop word when the
        // callback returns, and frees itself.
        t->detached.store(true, std::memory_order_release);
        t->stop.store(1, std::memory_order_release);
        pthread_detach(t->thread);
        return;
    }
    t->stop.store(1, std::memory_order_release);
    syscall(SYS_futex, reinterpret_cast<int*>(&t->stop), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    pthread_join(t->thread, nullptr);
    delete t;
}

uint64_t hdw::platform::MonotonicMs()
{
    return static_cast<uint64_t>(NowNs() / kNsPerMs);
}

uint64_t hdw::platform::MonotonicNs()
{
    return static_cast<uint64_t>(NowNs());
}

void hdw::platform::SleepUs(uint64_t microseconds)
{
    if (microseconds == 0)
        return;
    timespec ts{};
    ts.tv_sec = static_cast<time_t>(microseconds / 1000000);
    ts.tv_nsec = static_cast<long>((microseconds % 1000000) * 1000);
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &ts, &ts) == EINTR) {}
}
