#pragma once
// Extends the unit's 32-bit microsecond time stamps, which wrap after about
// 71 minutes, into a 64-bit time that keeps counting. Each stamp is placed at
// the value with its low 32 bits that lies nearest to where the host clock
// says the unit clock should be by now, so a channel that stays silent across
// a wrap still comes out right.

#include <cstdint>

namespace hdwtool {

class UnitClock {
public:
    // `stamp`: the unit's time stamp; `hostUs`: a steady host clock in
    // microseconds, read when the stamp was taken from the library.
    uint64_t Extend(uint32_t stamp, uint64_t hostUs);

private:
    bool m_Started = false;
    uint64_t m_LastUnitUs = 0;
    uint64_t m_LastHostUs = 0;
};

} // namespace hdwtool
