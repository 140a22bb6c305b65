// The data generator's value patterns: checks of a label definition and the
// word of one transmission. Pure computation, no state.
#include <HdwLib/bus/HdwDataGeneratorService.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using Gen = CKVX_HdwDataGeneratorService;

bool Finite(double v)
{
    return std::isfinite(v);
}

bool PositiveFinite(double v)
{
    return Finite(v) && v > 0.0;
}

// Largest magnitude of a BCD value of `digits` digits, in steps: the first
// digit has three bits (0..7), the others four.
int64_t BcdLargest(unsigned digits)
{
    int64_t p = 1;
    for (unsigned i = 1; i < digits; ++i)
        p *= 10;
    return 8 * p - 1;
}

// Position in the cycle, 0 <= f < 1. The small bias keeps a time that lands
// on a cycle boundary from falling just short of it by rounding.
double CycleFraction(double seconds, double period)
{
    const double q = seconds / period + 1e-9;
    return q - std::floor(q);
}

double WaveValue(const Gen::CLabelDef& d, double seconds)
{
    const double f = CycleFraction(seconds, d.Period);
    const double span = d.High - d.Low;
    switch (d.Wave) {
    case Gen::WaveTriangle: return f < 0.5 ? d.Low + span * 2.0 * f : d.High - span * (2.0 * f - 1.0);
    case Gen::WaveRamp: return d.Low + span * f;
    default: return d.Low + span / 2.0 + span / 2.0 * std::sin(2.0 * std::numbers::pi * f);
    }
}

bool WaveValid(const Gen::CLabelDef& d)
{
    return d.Wave <= Gen::WaveRamp && PositiveFinite(d.Period) && Finite(d.Low) && Finite(d.High) && d.Low <= d.High;
}

bool BnrValid(const Gen::CLabelDef& d)
{
    if (!WaveValid(d) || d.BnrBits() == 0)
        return false;
    // The wave's limits must lie in -Range .. Range - Resolution (half a
    // step of slack for values given in decimal).
    const double slack = d.Resolution / 2.0;
    return d.Low >= -d.Range - slack && d.High <= d.Range - d.Resolution + slack;
}

bool BcdValid(const Gen::CLabelDef& d)
{
    if (!WaveValid(d) || !PositiveFinite(d.Resolution) || d.Digits < 1 || d.Digits > Gen::MaxBcdDigits)
        return false;
    const double largest = std::max(std::fabs(d.Low), std::fabs(d.High)) / d.Resolution;
    return std::llround(largest) <= BcdLargest(d.Digits);
}

bool RawLimitsValid(const Gen::CLabelDef& d)
{
    return d.Min <= d.Max && d.Max <= Gen::DataMask;
}

} // namespace

CKVX_HdwDataGeneratorService::CLabelDef::~CLabelDef() = default;

unsigned CKVX_HdwDataGeneratorService::CLabelDef::BnrBits() const
{
    if (!PositiveFinite(Range) || !PositiveFinite(Resolution))
        return 0;
    const double q = Range / Resolution;
    const double n = std::round(std::log2(q));
    if (n < 1.0 || n > double(MaxBnrBits) || std::fabs(q - std::ldexp(1.0, int(n))) > 1e-9 * q)
        return 0;
    return unsigned(n);
}

bool CKVX_HdwDataGeneratorService::CLabelDef::IsValid() const
{
    if (Sdi > 3 || Ssm > 3 || !PositiveFinite(Rate) || Rate > MaxRate)
        return false;
    switch (Pattern) {
    case PatternConstant: return Data <= DataMask;
    case PatternCounter: return RawLimitsValid(*this) && Step >= 1 && Step <= Max - Min + 1;
    case PatternBnr: return BnrValid(*this);
    case PatternBcd: return BcdValid(*this);
    case PatternDiscrete: return Data <= DataMask && Mask <= DataMask && PositiveFinite(Period);
    case PatternRandom: return RawLimitsValid(*this);
    default: return false;
    }
}

uint32_t CKVX_HdwDataGeneratorService::EncodeBnr(double value, double resolution, unsigned bits)
{
    const int64_t top = int64_t(1) << bits;
    const int64_t raw = std::clamp<int64_t>(std::llround(value / resolution), -top, top - 1);
    const uint32_t field = uint32_t(raw) & uint32_t((top << 1) - 1);
    return (field << (MaxBnrBits - bits)) & DataMask;
}

uint32_t CKVX_HdwDataGeneratorService::EncodeBcd(double value, double resolution, unsigned digits)
{
    int64_t m = std::min<int64_t>(std::llround(std::fabs(value) / resolution), BcdLargest(digits));
    uint32_t field = 0;
    // Digit p (0 = the first, three bits) sits at bit 16 - 4p.
    for (unsigned p = digits; p-- > 0;) {
        field |= uint32_t(m % 10) << (16 - 4 * p);
        m /= 10;
    }
    return field;
}

uint32_t CKVX_HdwDataGeneratorService::RandomValue(
    uint32_t seed, unsigned char label, uint64_t index, uint32_t min, uint32_t max)
{
    // One step of the splitmix64 sequence whose state is the seed and the
    // label, taken at position index + 1.
    constexpr uint64_t golden = 0x9E3779B97F4A7C15ull;
    uint64_t z = ((uint64_t(seed) << 8) | label) * golden + (index + 1) * golden;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return min + uint32_t(z % (uint64_t(max) - min + 1));
}

CKVX_HdwArinc429Message CKVX_HdwDataGeneratorService::ComputeWord(
    const CLabelDef& def, uint64_t index, double seconds, bool evenParity)
{
    CKVX_HdwArinc429Message m;
    m.Label = def.Label;
    m.Sdi = def.Sdi;
    m.Ssm = def.Ssm;
    switch (def.Pattern) {
    case PatternCounter: {
        const uint64_t span = uint64_t(def.Max) - def.Min + 1;
        m.Data = def.Min + uint32_t((index % span) * def.Step % span);
        break;
    }
    case PatternBnr: m.Data = EncodeBnr(WaveValue(def, seconds), def.Resolution, def.BnrBits()); break;
    case PatternBcd: {
        const double v = WaveValue(def, seconds);
        m.Data = EncodeBcd(v, def.Resolution, def.Digits);
        if (v < 0.0 && m.Data != 0)
            m.Ssm = 3; // minus
        break;
    }
    case PatternDiscrete: {
        const double q = seconds / def.Period + 1e-9;
        m.Data = (uint64_t(std::floor(q)) & 1) ? def.Data ^ def.Mask : def.Data;
        break;
    }
    case PatternRandom: m.Data = RandomValue(def.Seed, def.Label, index, def.Min, def.Max); break;
    default: m.Data = def.Data; break;
    }
    m.Data &= DataMask;
    m.SetParity(evenParity ? 1 : 0);
    return m;
}
