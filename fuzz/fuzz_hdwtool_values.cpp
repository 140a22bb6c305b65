// libFuzzer target: hdwtool's parsers of typed values. The first byte picks
// the parser, the rest is the text. Whatever parses must lie within its
// field widths and, written back out (as hdwtool prints it where it does,
// else in another accepted syntax), parse to the same value.
#include "Format.h"
#include "Values.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cctype>
#include <string>
#include <vector>

using namespace hdwtool;

namespace {

void Require(bool ok)
{
    if (!ok)
        std::abort();
}

std::string Printf(const char* format, unsigned long long v)
{
    char buf[80];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

// Enough digits to read back the same double.
std::string Shortest(double v)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

uint32_t Packed(const CKVX_HdwArinc429Message& w)
{
    return w.GetToUint32();
}

void Number(const std::string& text, unsigned radix)
{
    uint64_t v = 0;
    if (!ParseNumber(text, v, radix))
        return;
    for (const char* f : {"0x%llX", "0x%llx", "0o%llo", "0d%llu"}) {
        uint64_t back = ~v;
        Require(ParseNumber(Printf(f, v), back, radix) && back == v);
    }
    uint64_t back = ~v;
    Require(ParseNumber(Printf(radix == 8 ? "%llo" : radix == 16 ? "%llX" : "%llu", v), back, radix) && back == v);
}

void Arinc429(const std::string& text)
{
    CKVX_HdwArinc429Message w;
    std::string error;
    if (!ParseArinc429(text, w, error)) {
        Require(!error.empty());
        return;
    }
    Require(w.Sdi <= 3 && w.Ssm <= 3 && w.Data <= 0x7FFFF && w.Parity <= 1);
    // Without a parity field the word has odd parity.
    std::string lower = text;
    for (char& c : lower)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    if (lower.find('=') != std::string::npos && lower.find("parity") == std::string::npos &&
        lower.find("p=") == std::string::npos)
        Require(__builtin_popcount(Packed(w)) % 2 == 1);
    const uint32_t word = Packed(w);
    CKVX_HdwArinc429Message back;
    // The WORD column of the monitor's line, and the fields with the parity bit.
    const Fields line = Arinc429Fields(0, "a429rx:0", w);
    Require(line.size() == Arinc429Columns().Header.size());
    Require(ParseArinc429(line.back(), back, error) && Packed(back) == word);
    const std::string fields = "label=0o" + Printf("%llo", w.Label) + ",sdi=" + Printf("%llu", w.Sdi) + ",data=0x" +
        Printf("%llX", w.Data) + ",ssm=" + Printf("%llu", w.Ssm) + ",parity=" + Printf("%llu", w.Parity);
    back = CKVX_HdwArinc429Message();
    Require(ParseArinc429(fields, back, error) && Packed(back) == word);
    // The label and data columns read back as the tool's own syntax.
    uint64_t label = 0, data = 0;
    Require(ParseNumber(line[2], label, 8) && label == w.Label);
    Require(ParseNumber("0x" + line[4], data) && data == w.Data);
}

void Can(const std::string& text)
{
    CKVX_HdwCanMessage f;
    std::string error;
    if (!ParseCanFrame(text, f, error)) {
        Require(!error.empty());
        return;
    }
    Require(f.Dlc <= 8 && f.Identifier <= (f.Extended ? 0x1FFFFFFFu : 0x7FFu));
    const std::string out = FormatCanFrame(f);
    const Fields line = CanFields(0, "can:0", f);
    Require(line.back() == out);
    CKVX_HdwCanMessage back;
    Require(ParseCanFrame(out, back, error));
    Require(back.Identifier == f.Identifier && back.Extended == f.Extended && back.Rtr == f.Rtr && back.Dlc == f.Dlc);
    for (unsigned i = 0; !f.Rtr && i < f.Dlc; ++i)
        Require(back.Data[i] == f.Data[i]);
}

void Uart(const std::string& text)
{
    std::vector<uint8_t> bytes;
    std::string error;
    if (!ParseUartBytes(text, bytes, error)) {
        Require(!error.empty());
        return;
    }
    Require(!bytes.empty());
    std::string hex = "hex:", escaped = "text:";
    for (uint8_t b : bytes) {
        hex += Printf("%02llX.", b);
        escaped += Printf("\\x%02llx", b);
    }
    for (const std::string& again : {hex, escaped}) {
        std::vector<uint8_t> back;
        Require(ParseUartBytes(again, back, error) && back == bytes);
    }
}

void Accept(const std::string& text)
{
    LabelAccept a;
    std::string error;
    if (!ParseLabelAccept(text, a, error))
        return;
    Require(a.Sdi >= -1 && a.Sdi <= 3 && a.Ssm >= -1 && a.Ssm <= 3 && a.Mask() != 0);
    std::string out = FormatLabel(a.Label);
    if (a.Sdi >= 0 || a.Ssm >= 0)
        out += ":" + (a.Sdi >= 0 ? std::to_string(a.Sdi) : std::string());
    if (a.Ssm >= 0)
        out += ":" + std::to_string(a.Ssm);
    if (a.Sdi < 0)
        return; // "any SDI" with an SSM has no spelling
    LabelAccept back;
    Require(ParseLabelAccept(out, back, error) && back.Label == a.Label && back.Sdi == a.Sdi && back.Ssm == a.Ssm &&
        back.Mask() == a.Mask());
}

void Rates(const std::string& text)
{
    std::string error;
    uint32_t rate = 0;
    if (ParseBitRate(text, rate, error)) {
        uint32_t back = 0;
        Require(rate > 0 && ParseBitRate(std::to_string(rate), back, error) && back == rate);
    }
    double v = -1;
    if (ParseSamplePoint(text, v, error)) {
        double back = -1;
        Require(v > 0 && v < 1 && ParseSamplePoint(Shortest(v), back, error) && back == v);
    }
    v = -1;
    if (ParseSeconds(text, v, error)) {
        Require(std::isfinite(v) && v >= 0 && v <= 1e7);
        double back = -1;
        Require(ParseSeconds(Shortest(v), back, error) && back == v);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 8) {
    case 0: Number(text, 10); break;
    case 1: Number(text, 8); break;
    case 2: Number(text, 16); break;
    case 3: Arinc429(text); break;
    case 4: Can(text); break;
    case 5: Uart(text); break;
    case 6: Accept(text); break;
    default: Rates(text); break;
    }
    return 0;
}
