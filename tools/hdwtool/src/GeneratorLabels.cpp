#include "GeneratorLabels.h"

#include "Values.h"

#include <cstdlib>
#include <vector>

namespace hdwtool {

namespace {

using Gen = CKVX_HdwDataGeneratorService;

bool ParseDecimal(const std::string& key, const std::string& text, double& value, std::string& error)
{
    if (!ParseReal(text, value)) {
        error = key + " \"" + text + "\" is not a number";
        return false;
    }
    return true;
}

bool ParseRaw(const std::string& key, const std::string& text, uint32_t& value, std::string& error)
{
    uint64_t v = 0;
    if (!ParseNumber(text, v) || v > Gen::DataMask) {
        error = key + " \"" + text + "\" is not a number from 0 to 0x7FFFF";
        return false;
    }
    value = uint32_t(v);
    return true;
}

// "MIN:MAX" of the raw data field.
bool ParseLimits(const std::string& key, const std::string& text, Gen::CLabelDef& def, std::string& error)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        error = key + " \"" + text + "\" is not MIN:MAX";
        return false;
    }
    return ParseRaw(key, text.substr(0, colon), def.Min, error) &&
        ParseRaw(key, text.substr(colon + 1), def.Max, error);
}

bool ParseWave(const std::string& key, const std::string& text, Gen::CLabelDef& def, std::string& error)
{
    if (text == "sine")
        def.Wave = Gen::WaveSine;
    else if (text == "triangle")
        def.Wave = Gen::WaveTriangle;
    else if (text == "ramp")
        def.Wave = Gen::WaveRamp;
    else {
        error = key + " \"" + text + "\" is not sine, triangle or ramp";
        return false;
    }
    return true;
}

bool ParseSmall(const std::string& key, const std::string& text, unsigned max, unsigned char& value, std::string& error,
    unsigned radix = 10)
{
    uint64_t v = 0;
    if (!ParseNumber(text, v, radix) || v > max) {
        error = key + " \"" + text + "\" is out of range (0 to " + std::to_string(max) + ")";
        return false;
    }
    value = static_cast<unsigned char>(v);
    return true;
}

// Why the generator would refuse a definition that parsed.
std::string Refusal(const Gen::CLabelDef& d)
{
    if (!(d.Rate > 0) || d.Rate > Gen::MaxRate)
        return "rate must be above 0 and at most 1000 per second";
    switch (d.Pattern) {
    case Gen::PatternCounter:
    case Gen::PatternRandom:
        if (d.Min > d.Max)
            return "the lower limit is above the upper one";
        return "step must be from 1 to the span of the limits";
    case Gen::PatternBnr:
        if (d.BnrBits() == 0)
            return "range / res must be a power of two from 2 to 2^18";
        return "low and high must lie within -range .. range - res, low <= high, period above 0";
    case Gen::PatternBcd: return "low and high must fit the digits (1 to 5) at res, low <= high, period above 0";
    default: return "period must be above 0";
    }
}

} // namespace

bool ParseGeneratorLabel(const std::string& text, Gen::CLabelDef& def, std::string& error)
{
    std::vector<std::pair<std::string, std::string>> fields;
    if (!SplitFields(text, fields, error))
        return false;
    Gen::CLabelDef d;
    bool haveLabel = false, haveRate = false, havePattern = false;
    auto pattern = [&](unsigned char p) {
        if (havePattern) {
            error = "more than one pattern in \"" + text + "\"";
            return false;
        }
        havePattern = true;
        d.Pattern = p;
        return true;
    };
    for (const auto& [key, val] : fields) {
        bool ok = true;
        if (key == "label" || key == "l") {
            ok = ParseSmall(key, val, 0xFF, d.Label, error, 8);
            haveLabel = ok;
        } else if (key == "rate") {
            ok = ParseDecimal(key, val, d.Rate, error);
            haveRate = ok;
        } else if (key == "sdi") {
            ok = ParseSmall(key, val, 3, d.Sdi, error);
        } else if (key == "ssm") {
            ok = ParseSmall(key, val, 3, d.Ssm, error);
        } else if (key == "data") {
            ok = pattern(Gen::PatternConstant) && ParseRaw(key, val, d.Data, error);
        } else if (key == "counter") {
            ok = pattern(Gen::PatternCounter) && ParseLimits(key, val, d, error);
        } else if (key == "random") {
            ok = pattern(Gen::PatternRandom) && ParseLimits(key, val, d, error);
        } else if (key == "bnr" || key == "bcd") {
            ok = pattern(key == "bnr" ? Gen::PatternBnr : Gen::PatternBcd) && ParseWave(key, val, d, error);
        } else if (key == "discrete") {
            ok = pattern(Gen::PatternDiscrete) && ParseRaw(key, val, d.Data, error);
        } else if (key == "toggle") {
            ok = ParseRaw(key, val, d.Mask, error);
        } else if (key == "step" || key == "seed") {
            uint64_t v = 0;
            ok = ParseNumber(val, v) && v <= 0xFFFFFFFFu;
            if (!ok)
                error = key + " \"" + val + "\" is not a 32-bit number";
            (key == "step" ? d.Step : d.Seed) = uint32_t(v);
        } else if (key == "digits") {
            ok = ParseSmall(key, val, 9, d.Digits, error);
        } else if (key == "range" || key == "res" || key == "low" || key == "high" || key == "period") {
            double& target = key == "range" ? d.Range
                : key == "res"              ? d.Resolution
                : key == "low"              ? d.Low
                : key == "high"             ? d.High
                                            : d.Period;
            ok = ParseDecimal(key, val, target, error);
        } else {
            error = "unknown field \"" + key + "\" in \"" + text + "\"";
            ok = false;
        }
        if (!ok)
            return false;
    }
    if (!haveLabel || !haveRate) {
        error = "\"" + text + "\" needs label= and rate=";
        return false;
    }
    if (!d.IsValid()) {
        error = "\"" + text + "\": " + Refusal(d);
        return false;
    }
    def = d;
    return true;
}

} // namespace hdwtool
