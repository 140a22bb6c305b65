#include "UnitClock.h"

namespace hdwtool {

uint64_t UnitClock::Extend(uint32_t stamp, uint64_t hostUs)
{
    if (!m_Started) {
        m_Started = true;
        m_LastUnitUs = stamp;
        m_LastHostUs = hostUs;
        return stamp;
    }
    // Where the unit clock should be now; never earlier than the last stamp,
    // since stamps arrive in order.
    const uint64_t expected = m_LastUnitUs + (hostUs >= m_LastHostUs ? hostUs - m_LastHostUs : 0);
    constexpr uint64_t kWrap = uint64_t(1) << 32;
    // The candidate congruent to `stamp` nearest to `expected`.
    uint64_t candidate = (expected & ~(kWrap - 1)) | stamp;
    if (candidate + kWrap / 2 < expected)
        candidate += kWrap;
    else if (candidate > expected + kWrap / 2 && candidate >= kWrap)
        candidate -= kWrap;
    // Queued words can be older than the host clock suggests, never older than
    // the word before them.
    if (candidate < m_LastUnitUs && m_LastUnitUs - candidate > kWrap / 2)
        candidate += kWrap;
    m_LastUnitUs = candidate > m_LastUnitUs ? candidate : m_LastUnitUs;
    m_LastHostUs = hostUs;
    return candidate;
}

} // namespace hdwtool
