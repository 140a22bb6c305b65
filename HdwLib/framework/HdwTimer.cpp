#include <HdwLib/framework/HdwTimer.h>
#include <HdwLib/framework/internal/PlatformTimer.h>

CKVX_HdwTimer::CKVX_HdwTimer() = default;

CKVX_HdwTimer::CKVX_HdwTimer(const CKVX_HdwTimer& other)
    : CKVX_Object(other),
      m_Period(other.m_Period),
      m_TickCount(other.m_TickCount.load()),
      m_Callback(other.m_Callback),
      m_Context(other.m_Context),
      m_Resolution(other.m_Resolution)
{}

CKVX_HdwTimer& CKVX_HdwTimer::operator=(const CKVX_HdwTimer& other)
{
    if (this != &other) {
        Stop();
        m_Period = other.m_Period;
        m_TickCount.store(other.m_TickCount.load());
        m_Callback = other.m_Callback;
        m_Context = other.m_Context;
        m_Resolution = other.m_Resolution;
    }
    return *this;
}

CKVX_HdwTimer::~CKVX_HdwTimer()
{
    Stop();
}

unsigned CKVX_HdwTimer::Start(unsigned periodMs, t_Callback callback, void* context)
{
    // A running timer is replaced rather than leaked.
    Stop();
    m_Period = periodMs;
    m_Callback = callback;
    m_Context = context;
    m_StopRequested.store(false, std::memory_order_release);
    unsigned short resolution = 0;
    void* id = hdw::platform::TimerStart(periodMs, &CKVX_HdwTimer::Fire, this, resolution);
    m_Resolution = resolution;
    m_TimerId.store(id, std::memory_order_release);
    if (id && m_StopRequested.load(std::memory_order_acquire))
        Stop(); // a callback stopped the timer before the id was stored
    return id ? 0u : 1u;
}

unsigned CKVX_HdwTimer::Stop()
{
    m_StopRequested.store(true, std::memory_order_release);
    void* id = m_TimerId.exchange(nullptr, std::memory_order_acq_rel);
    if (id)
        hdw::platform::TimerStop(id);
    return 0;
}

void CKVX_HdwTimer::Fire(void* timer)
{
    HdwTimerProc(0, 0, reinterpret_cast<uintptr_t>(timer), 0, 0);
}

void CKVX_HdwTimer::HdwTimerProc(unsigned int, unsigned int, uintptr_t user, uintptr_t, uintptr_t)
{
    auto* self = reinterpret_cast<CKVX_HdwTimer*>(user);
    if (!self || self->m_StopRequested.load(std::memory_order_acquire))
        return;
    // Counted before the call: a callback that stops the timer lets its owner
    // destroy it, so nothing here touches the timer once the callback returns.
    const uint64_t ticks = self->m_TickCount.load(std::memory_order_relaxed);
    self->m_TickCount.store(ticks + 1, std::memory_order_relaxed);
    const t_Callback callback = self->m_Callback;
    if (callback)
        callback(ticks, self->m_Context);
}

uint64_t CKVX_HdwTimer::GetTickCount()
{
    return hdw::platform::MonotonicMs();
}

uint64_t CKVX_HdwTimer::GetElapsedTicks(uint64_t since)
{
    const uint64_t now = GetTickCount();
    if (now >= since)
        return now - since;
    return (0xFFFFFFFFull - since) + now;
}

void CKVX_HdwTimer::UsSleep(uint64_t microseconds)
{
    hdw::platform::SleepUs(microseconds);
}

void CKVX_HdwTimer::MsSleep(uint64_t milliseconds)
{
    UsSleep(milliseconds * 1000);
}

void CKVX_HdwTimer::Sleep(uint64_t seconds)
{
    UsSleep(seconds * 1000000);
}
