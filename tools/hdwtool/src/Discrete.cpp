#include "Discrete.h"

#include "Values.h"

#include <cstdio>

namespace hdwtool {

namespace {

struct OpName {
    DiscreteOp Op;
    const char* Name;
};

constexpr OpName kOps[] = {{DiscreteOp::Set, "set"}, {DiscreteOp::Clear, "clear"}, {DiscreteOp::Toggle, "toggle"},
    {DiscreteOp::Write, "write"}, {DiscreteOp::Pulse, "pulse"}};

bool ParseBits(const std::string& text, uint32_t& bits)
{
    uint64_t v = 0;
    if (!ParseNumber(text, v) || v > 0xFFFFFFFFu)
        return false;
    bits = uint32_t(v);
    return true;
}

std::string HexWord(uint32_t v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%02X", unsigned(v));
    return buf;
}

} // namespace

bool ParseDiscrete(const std::string& text, DiscreteValue& value, std::string& error)
{
    const size_t eq = text.find('=');
    const std::string name = text.substr(0, eq);
    const std::string arg = eq == std::string::npos ? std::string() : text.substr(eq + 1);
    DiscreteValue v;
    bool known = false;
    for (const auto& o : kOps)
        if (name == o.Name) {
            v.Op = o.Op;
            known = true;
        }
    bool ok = known && !arg.empty();
    if (ok && v.Op == DiscreteOp::Pulse) {
        const size_t slash = arg.find('/');
        uint32_t length = 0;
        ok = slash != std::string::npos && ParseBits(arg.substr(0, slash), v.Bits) &&
            ParseBits(arg.substr(slash + 1), length);
        v.LengthUs = length;
    } else if (ok) {
        ok = ParseBits(arg, v.Bits);
    }
    if (!ok) {
        error = "\"" + text +
            "\" is not a discrete output value (set=MASK, clear=MASK, toggle=MASK, write=STATE, "
            "pulse=MASK/MICROSECONDS)";
        return false;
    }
    value = v;
    return true;
}

std::string DiscreteText(const DiscreteValue& value)
{
    std::string name;
    for (const auto& o : kOps)
        if (o.Op == value.Op)
            name = o.Name;
    std::string text = name + "=" + HexWord(value.Bits);
    if (value.Op == DiscreteOp::Pulse)
        text += "/" + std::to_string(value.LengthUs);
    return text;
}

const Columns& DiscreteColumns()
{
    static const Columns c{{"TIME", "PORT", "STATE", "CHANGED", "LINES"}, {-12, 10, 8, 8, 0}};
    return c;
}

Fields DiscreteFields(uint64_t timeUs, const std::string& port, uint32_t state, uint32_t changed)
{
    // Line 7 first, as the bits of STATE read.
    std::string lines;
    for (int n = 7; n >= 0; --n)
        lines += (state >> n) & 1u ? '1' : '0';
    return {FormatTime(timeUs), port, HexWord(state), HexWord(changed), lines};
}

} // namespace hdwtool
