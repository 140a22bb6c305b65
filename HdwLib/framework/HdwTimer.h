#pragma once
// The library's one source of periodic time, and the sleep and millisecond
// clock helpers that every wait and time-out uses.
//
// Start runs `callback(ticks, context)` every `periodMs` milliseconds on one
// dedicated thread. `ticks` counts the callbacks made since construction
// (0 for the first); Stop and a new Start continue the count. Deadlines are
// absolute (tick n is due at start + n * period), so the timer does not
// drift. Stop returns only when no callback is running any more, except when
// called from within the callback itself.

#include <HdwLib/core/KvxMutex.h>
#include <HdwLib/core/KvxObject.h>

#include <atomic>
#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwTimer : public CKVX_Object {
public:
    using t_Callback = void (*)(uint64_t ticks, void* context);

    CKVX_HdwTimer();
    // Copies period, callback, context, resolution and count; never a running timer.
    CKVX_HdwTimer(const CKVX_HdwTimer& other);
    CKVX_HdwTimer& operator=(const CKVX_HdwTimer& other);
    ~CKVX_HdwTimer() override;

    // 0 on success, 1 when the operating system refuses the timer.
    unsigned Start(unsigned periodMs, t_Callback callback, void* context);
    // Always 0.
    unsigned Stop();

    bool IsRunning() const { return m_TimerId.load(std::memory_order_acquire) != nullptr; }
    unsigned GetPeriod() const { return m_Period; }
    unsigned short GetResolution() const { return m_Resolution; }
    uint64_t GetTickCounter() const { return m_TickCount.load(std::memory_order_relaxed); }
    CKVX_Mutex& GetMutex() { return m_Mutex; }

    // Milliseconds since system start (monotonic).
    static uint64_t GetTickCount();
    // Milliseconds from `since` to now. A `since` in the future is corrected
    // as a 32-bit counter wrap: (0xFFFFFFFF - since) + now.
    static uint64_t GetElapsedTicks(uint64_t since);
    static void UsSleep(uint64_t microseconds);
    static void MsSleep(uint64_t milliseconds);
    static void Sleep(uint64_t seconds);

protected:
    // One tick: counts it, then calls the callback with the count before it.
    // `user` is the timer object; the other arguments are unused.
    static void HdwTimerProc(unsigned int id, unsigned int msg, uintptr_t user, uintptr_t dw1, uintptr_t dw2);

private:
    static void Fire(void* timer);

    CKVX_Mutex m_Mutex;
    unsigned m_Period = 50;
    std::atomic<void*> m_TimerId{nullptr};
    // Set by Stop, cleared by Start: a Stop from the first callback, which can
    // run before Start has published the id, is honoured by Start itself.
    std::atomic<bool> m_StopRequested{false};
    std::atomic<uint64_t> m_TickCount{0};
    t_Callback m_Callback = nullptr;
    void* m_Context = nullptr;
    unsigned short m_Resolution = 0;
};
