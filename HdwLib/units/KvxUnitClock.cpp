#include <HdwLib/units/KvxUnitClock.h>

#include <algorithm>
#include <cmath>

void CKVX_HdwKvxUnitClock::Reset()
{
    *this = CKVX_HdwKvxUnitClock();
}

uint64_t CKVX_HdwKvxUnitClock::UnwrapPast(uint32_t stamp) const
{
    const uint64_t limit = m_Latest + BucketUs;
    uint64_t candidate = (limit & ~(WrapUs - 1)) | stamp;
    if (candidate > limit && candidate >= WrapUs)
        candidate -= WrapUs;
    return candidate;
}

void CKVX_HdwKvxUnitClock::AddPair(uint64_t unitUs, uint64_t hostUs)
{
    const int64_t latency = int64_t(hostUs) - int64_t(unitUs);
    if (!m_Buckets.empty() && std::fabs(double(latency) - LatencyAt(unitUs)) > double(JumpUs))
        m_Buckets.clear();
    if (m_Buckets.empty() || hostUs >= m_Buckets.back().HostStart + BucketUs) {
        m_Buckets.push_back({hostUs, unitUs, latency});
        if (m_Buckets.size() > MaxBuckets)
            m_Buckets.pop_front();
    } else if (latency < m_Buckets.back().Latency) {
        m_Buckets.back().Unit = unitUs;
        m_Buckets.back().Latency = latency;
    } else {
        return;
    }
    Fit();
}

void CKVX_HdwKvxUnitClock::Fit()
{
    const double n = double(m_Buckets.size());
    m_Centre = m_Buckets.front().Unit;
    double su = 0, sl = 0;
    for (const auto& b : m_Buckets) {
        su += double(int64_t(b.Unit - m_Centre));
        sl += double(b.Latency);
    }
    const double mu = su / n, ml = sl / n;
    double suu = 0, sul = 0;
    for (const auto& b : m_Buckets) {
        const double du = double(int64_t(b.Unit - m_Centre)) - mu;
        suu += du * du;
        sul += du * (double(b.Latency) - ml);
    }
    const uint64_t span =
        m_Buckets.back().Unit > m_Buckets.front().Unit ? m_Buckets.back().Unit - m_Buckets.front().Unit : 0;
    m_Slope = span >= MinFitSpanUs && suu > 0 ? sul / suu : 0.0;
    // Under every kept pair: the least-delayed reading sets the offset.
    double intercept = 0;
    bool first = true;
    for (const auto& b : m_Buckets) {
        const double v = double(b.Latency) - m_Slope * double(int64_t(b.Unit - m_Centre));
        if (first || v < intercept)
            intercept = v;
        first = false;
    }
    m_Intercept = intercept;
}

double CKVX_HdwKvxUnitClock::LatencyAt(uint64_t unitUs) const
{
    return m_Intercept + m_Slope * double(int64_t(unitUs - m_Centre));
}

bool CKVX_HdwKvxUnitClock::ToHost(uint64_t unitUs, uint64_t& hostUs) const
{
    if (m_Buckets.empty())
        return false;
    const double host = double(unitUs) + LatencyAt(unitUs);
    hostUs = host > 0 ? uint64_t(std::llround(host)) : 0;
    return true;
}
