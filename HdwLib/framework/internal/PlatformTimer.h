#pragma once
// Platform half of CKVX_HdwTimer (posix/PlatformTimer.cpp,
// win32/PlatformTimer.cpp).
//
// Both implementations call `fire(context)` periodically on a thread of
// their own until TimerStop, with no drift (absolute deadlines on Linux, the
// multimedia timer on Windows). TimerStop returns once no call of `fire` is in
// progress, unless it is called from within `fire`, where it only stops
// further calls. The clock and sleep helpers are thread-safe and stateless.

#include <cstdint>

namespace hdw::platform {

using TimerFire = void (*)(void* context);

// Starts a periodic timer. Returns an opaque id, or null when the system
// refuses. `resolution` receives the timer resolution in milliseconds.
void* TimerStart(unsigned periodMs, TimerFire fire, void* context, unsigned short& resolution);
void TimerStop(void* id);

// Monotonic milliseconds since system start.
uint64_t MonotonicMs();
// Monotonic nanoseconds (arbitrary origin), for measurements.
uint64_t MonotonicNs();
// Blocks the calling thread; 0 returns at once.
void SleepUs(uint64_t microseconds);

} // namespace hdw::platform
