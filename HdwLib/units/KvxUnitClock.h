#pragma once
// The unit's free-running 32-bit microsecond clock, unwrapped into 64 bits
// and mapped onto the host's monotonic clock.
//
// Unwrap: each stamp is placed at the value with its low 32 bits that lies
// nearest to where the unit clock should be by now (the latest unwrapped
// time plus the host time elapsed since it was seen), so a wrap (every
// 71.6 minutes) is crossed without a step, even by a unit that stays silent
// across it, as long as host and unit agree within half a wrap (35 minutes).
//
// Mapping: host = unit + latency, where the latency is a straight line over
// the unit time (its slope is the two clocks' rate difference). Each
// reception gives one pair (latest unit time seen, host time of the read);
// the pairs are grouped into one-second buckets of host time and each
// bucket keeps its lowest-latency pair, the one least delayed by the link
// and the tick. The slope is fitted by least squares over the last 64
// buckets (once they span 10 s of unit time; until then the rate is taken
// as 1) and the line is laid under every kept pair. A pair more than a
// second off the line restarts the fit (the unit clock was reset).
//
// Not thread-safe: the unit core calls it under the instance's device lock.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwKvxUnitClock {
public:
    static constexpr uint64_t WrapUs = uint64_t(1) << 32;
    static constexpr uint64_t BucketUs = 1000000;
    static constexpr unsigned MaxBuckets = 64;
    static constexpr uint64_t MinFitSpanUs = 10000000;
    static constexpr int64_t JumpUs = 1000000;

    // Forgets everything (the next stamp starts the unwrapped time).
    void Reset();

    // The 64-bit time of a stamp taken from the link at host time `hostUs`
    // (monotonic microseconds); advances the latest time. Inline: every
    // record of every frame passes here.
    uint64_t Unwrap(uint32_t stamp, uint64_t hostUs)
    {
        if (!m_Started) {
            m_Started = true;
            m_Latest = stamp;
            m_LatestHost = hostUs;
            return stamp;
        }
        const uint64_t elapsed = hostUs > m_LatestHost ? hostUs - m_LatestHost : 0;
        const uint64_t expected = m_Latest + elapsed;
        uint64_t candidate = (expected & ~(WrapUs - 1)) | stamp;
        if (candidate + WrapUs / 2 < expected)
            candidate += WrapUs;
        else if (candidate > expected + WrapUs / 2 && candidate >= WrapUs)
            candidate -= WrapUs;
        if (candidate > m_Latest) {
            m_Latest = candidate;
            m_LatestHost = hostUs;
        }
        return candidate;
    }
    // The 64-bit time of a stamp seen earlier (a buffered message): the
    // latest value with these low 32 bits not after the latest time (plus
    // one second of slack). Exact for stamps less than 71 minutes old.
    uint64_t UnwrapPast(uint32_t stamp) const;
    // Latest unwrapped time; 0 before the first stamp.
    uint64_t GetLatest() const { return m_Latest; }
    bool HasTime() const { return m_Started; }

    // One (unit time, host read time) pair.
    void AddPair(uint64_t unitUs, uint64_t hostUs);
    // Host monotonic microseconds of unit time `unitUs`; false before the
    // first pair.
    bool ToHost(uint64_t unitUs, uint64_t& hostUs) const;
    // Unit microseconds per host microsecond, as fitted (1 until it is).
    double GetRate() const { return 1.0 / (1.0 + m_Slope); }
    // Pairs' buckets in the fit.
    unsigned GetBucketCount() const { return unsigned(m_Buckets.size()); }

private:
    struct SBucket {
        uint64_t HostStart; // host time of the bucket's first pair
        uint64_t Unit; // its lowest-latency pair
        int64_t Latency;
    };
    void Fit();
    double LatencyAt(uint64_t unitUs) const;

    bool m_Started = false;
    uint64_t m_Latest = 0;
    uint64_t m_LatestHost = 0;
    std::deque<SBucket> m_Buckets;
    // latency(u) = m_Intercept + m_Slope * (u - m_Centre)
    uint64_t m_Centre = 0;
    double m_Intercept = 0;
    double m_Slope = 0;
};
