#pragma once
// The TIME column of monitor (--time): every item carries a host monotonic
// time in microseconds (the unit's 64-bit unwrapped time mapped onto the
// host clock by the library, or the host time of the read for items the
// unit does not stamp), shown as
//   relative  seconds since the monitor started (the default; never wraps)
//   absolute  wall-clock seconds since 1970 (UTC)
//   delta     seconds since the line before (0 for the first line, and for a
//             line older than the one before: ports are printed in turn)

#include <cstdint>
#include <string>

namespace hdwtool {

enum class TimeMode { Relative, Absolute, Delta };

// "relative", "absolute" or "delta"; false with a reason otherwise.
bool ParseTimeMode(const std::string& text, TimeMode& mode, std::string& error);

class TimeColumn {
public:
    // `startUs`: host monotonic time of the start; `wallMinusHostUs`: the
    // wall clock minus the host monotonic clock.
    TimeColumn(TimeMode mode, uint64_t startUs, int64_t wallMinusHostUs)
        : m_Mode(mode),
          m_Start(startUs),
          m_WallOffset(wallMinusHostUs)
    {}
    // Microseconds to show for an item at host monotonic time `hostUs`.
    uint64_t Shown(uint64_t hostUs);

private:
    TimeMode m_Mode;
    uint64_t m_Start;
    int64_t m_WallOffset;
    bool m_HavePrevious = false;
    uint64_t m_Previous = 0;
};

} // namespace hdwtool
