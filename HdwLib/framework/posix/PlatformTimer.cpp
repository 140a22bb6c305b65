// Periodic timer on Linux: one thread per timer that waits for absolute
// deadlines on CLOCK_MONOTONIC (tick n is due at start + n * period), with the
// thread's timer slack lowered so that wake-ups are not coalesced late, and
// at a low real-time priority where the process is allowed one (as the
// multimedia timer's thread is time-critical on Windows): on a busy machine
// other work then waits for the tick rather than the tick for it. It is one
// above the lowest, so that an application's own real-time threads at the
// lowest do not hold up the tick. Without the privilege the thread keeps
// the normal policy.
#include <HdwLib/framework/internal/PlatformTimer.h>

#include <cerrno>
#include <ctime>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>

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
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond{};
    bool stop = false;
    bool detached = false;
    int64_t periodNs = 0;
    hdw::platform::TimerFire fire = nullptr;
    void* context = nullptr;

    ~PosixTimer()
    {
        pthread_cond_destroy(&cond);
        pthread_mutex_destroy(&mutex);
    }
};

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
    pthread_mutex_lock(&t->mutex);
    for (;;) {
        int64_t due = start + n * t->periodNs;
        while (!t->stop) {
            const timespec ts = ToTimespec(due);
            const int rc = pthread_cond_timedwait(&t->cond, &t->mutex, &ts);
            if (rc == ETIMEDOUT || NowNs() >= due)
                break;
        }
        if (t->stop)
            break;
        pthread_mutex_unlock(&t->mutex);
        t->fire(t->context);
        const int64_t now = NowNs();
        ++n;
        if (now - (start + n * t->periodNs) > kMaxCatchUpPeriods * t->periodNs)
            n = (now - start) / t->periodNs + 1;
        pthread_mutex_lock(&t->mutex);
    }
    const bool detached = t->detached;
    pthread_mutex_unlock(&t->mutex);
    if (detached)
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
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    const int crc = pthread_cond_init(&t->cond, &attr);
    pthread_condattr_destroy(&attr);
    if (crc != 0) {
        pthread_mutex_destroy(&t->mutex);
        ::operator delete(t);
        return nullptr;
    }
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
    const bool fromTimerThread = pthread_equal(pthread_self(), t->thread) != 0;
    pthread_mutex_lock(&t->mutex);
    t->stop = true;
    t->detached = fromTimerThread;
    pthread_cond_signal(&t->cond);
    pthread_mutex_unlock(&t->mutex);
    if (fromTimerThread) {
        // The thread frees itself once the running callback returns.
        pthread_detach(t->thread);
        return;
    }
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
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &ts, &ts) == EINTR) {
    }
}
