#pragma once
// Waiting on the caller's thread for the timer thread or for a unit.

#include <HdwLib/framework/HdwTimer.h>

#include <cstdint>

namespace hdw::units {

// Waits on the caller's thread until `done` (called without any lock held)
// answers true or `timeoutMs` has passed: the one place the unit code sleeps.
template <class F>
inline bool WaitUntil(unsigned timeoutMs, F&& done)
{
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    for (;;) {
        if (done())
            return true;
        if (CKVX_HdwTimer::GetElapsedTicks(start) >= timeoutMs)
            return done();
        CKVX_HdwTimer::MsSleep(1);
    }
}
} // namespace hdw::units
