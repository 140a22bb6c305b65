// Periodic timer on Windows: the multimedia timer (timeSetEvent) at the finest
// resolution the system offers, plus the tick-count, performance-counter and
// waitable-timer helpers.
#include <HdwLib/framework/internal/PlatformTimer.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <windows.h>
#include <mmsystem.h>

namespace {

struct Win32Timer {
    UINT id = 0;
    UINT resolution = 0;
    hdw::platform::TimerFire fire = nullptr;
    void* context = nullptr;
    // Set by TimerStop; a callback that sees it does nothing.
    std::atomic<bool> stopped{false};
    // Callbacks between entry and return; TimerStop waits for 0.
    std::atomic<int> inFlight{0};
    // Thread of the running callback (0 outside), to recognise a stop from inside it.
    std::atomic<DWORD> callbackThread{0};
    // Set when TimerStop ran inside the callback: the callback frees the timer on return.
    std::atomic<bool> releaseOnReturn{false};
};

void CALLBACK TimerTrampoline(UINT, UINT, DWORD_PTR user, DWORD_PTR, DWORD_PTR)
{
    auto* t = reinterpret_cast<Win32Timer*>(user);
    t->inFlight.fetch_add(1);
    if (!t->stopped.load()) {
        t->callbackThread.store(GetCurrentThreadId());
        t->fire(t->context);
        t->callbackThread.store(0);
    }
    const bool release = t->releaseOnReturn.load();
    t->inFlight.fetch_sub(1);
    if (release)
        delete t;
}

} // namespace

void* hdw::platform::TimerStart(unsigned periodMs, TimerFire fire, void* context, unsigned short& resolution)
{
    TIMECAPS caps{};
    UINT res = 1;
    if (timeGetDevCaps(&caps, sizeof(caps)) == MMSYSERR_NOERROR) {
        res = caps.wPeriodMin;
        if (res > caps.wPeriodMax)
            res = caps.wPeriodMax;
    }
    resolution = static_cast<unsigned short>(res);
    if (periodMs == 0 || !fire)
        return nullptr;
    auto* t = new (std::nothrow) Win32Timer;
    if (!t)
        return nullptr;
    t->resolution = res;
    t->fire = fire;
    t->context = context;
    timeBeginPeriod(res);
    t->id = timeSetEvent(periodMs, res, &TimerTrampoline, reinterpret_cast<DWORD_PTR>(t),
        TIME_PERIODIC | TIME_CALLBACK_FUNCTION | TIME_KILL_SYNCHRONOUS);
    if (t->id == 0) {
        timeEndPeriod(res);
        delete t;
        return nullptr;
    }
    return t;
}

void hdw::platform::TimerStop(void* id)
{
    auto* t = static_cast<Win32Timer*>(id);
    if (!t)
        return;
    t->stopped.store(true);
    const bool fromCallback = t->callbackThread.load() == GetCurrentThreadId();
    // TIME_KILL_SYNCHRONOUS: no callback starts after this returns (and one in
    // progress on another thread is waited for).
    timeKillEvent(t->id);
    timeEndPeriod(t->resolution);
    if (fromCallback) {
        // The callback that called us frees the timer when it returns.
        t->releaseOnReturn.store(true);
        return;
    }
    while (t->inFlight.load() != 0)
        ::Sleep(0);
    delete t;
}

uint64_t hdw::platform::MonotonicMs()
{
    return static_cast<uint64_t>(GetTickCount64());
}

uint64_t hdw::platform::MonotonicNs()
{
    static const uint64_t frequency = [] {
        LARGE_INTEGER f{};
        QueryPerformanceFrequency(&f);
        return f.QuadPart > 0 ? static_cast<uint64_t>(f.QuadPart) : uint64_t(1);
    }();
    LARGE_INTEGER c{};
    QueryPerformanceCounter(&c);
    const uint64_t counts = static_cast<uint64_t>(c.QuadPart);
    // Split to keep counts * 1e9 from overflowing after a few weeks of uptime.
    return (counts / frequency) * 1000000000ull + (counts % frequency) * 1000000000ull / frequency;
}

void hdw::platform::SleepUs(uint64_t microseconds)
{
    if (microseconds == 0)
        return;
    HANDLE timer = CreateWaitableTimerA(nullptr, TRUE, nullptr);
    if (!timer)
        return;
    constexpr uint64_t kMaxUs = static_cast<uint64_t>(INT64_MAX) / 10;
    LARGE_INTEGER due{};
    // Negative: relative to now, in 100 ns units.
    due.QuadPart = -static_cast<LONGLONG>((microseconds < kMaxUs ? microseconds : kMaxUs) * 10);
    if (SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE))
        WaitForSingleObject(timer, INFINITE);
    CloseHandle(timer);
}
