#include "Values.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace hdwtool {

namespace {

std::string Lower(std::string s)
{
    for (char& c : s)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

int DigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return 99;
}

bool ParseDigits(const std::string& digits, unsigned radix, uint64_t& value)
{
    if (digits.empty() || digits.size() > 64)
        return false;
    uint64_t v = 0;
    for (char c : digits) {
        const int d = DigitValue(c);
        if (d >= int(radix))
            return false;
        if (v > (UINT64_MAX - uint64_t(d)) / radix)
            return false;
        v = v * radix + uint64_t(d);
    }
    value = v;
    return true;
}

bool IsHexDigit(char c)
{
    return DigitValue(c) < 16;
}

} // namespace

bool SplitFields(const std::string& text, std::vector<std::pair<std::string, std::string>>& fields, std::string& error)
{
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(',', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string item = text.substr(start, end - start);
        const size_t eq = item.find('=');
        if (eq == std::string::npos || eq == 0) {
            error = "\"" + item + "\" is not a field=value pair";
            return false;
        }
        fields.emplace_back(Lower(item.substr(0, eq)), item.substr(eq + 1));
        start = end + 1;
    }
    return true;
}

bool ParseNumber(const std::string& text, uint64_t& value, unsigned plainRadix)
{
    const std::string t = Lower(text);
    if (t.size() > 2 && t[0] == '0') {
        switch (t[1]) {
        case 'x': return ParseDigits(t.substr(2), 16, value);
        case 'o': return ParseDigits(t.substr(2), 8, value);
        case 'b': return ParseDigits(t.substr(2), 2, value);
        case 'd': return ParseDigits(t.substr(2), 10, value);
        default: break;
        }
    }
    return ParseDigits(t, plainRadix, value);
}

bool ParseArinc429(const std::string& text, CKVX_HdwArinc429Message& word, std::string& error)
{
    if (text.find('=') == std::string::npos) {
        std::string hex = Lower(text);
        if (hex.rfind("0x", 0) == 0)
            hex = hex.substr(2);
        uint64_t v = 0;
        if (hex.size() > 8 || !ParseDigits(hex, 16, v)) {
            error = "\"" + text + "\" is neither a 32-bit hex word nor label=..,sdi=..,data=..,ssm=..";
            return false;
        }
        CKVX_HdwArinc429Message m;
        m.SetFromUint32(uint32_t(v));
        word = m;
        return true;
    }
    std::vector<std::pair<std::string, std::string>> fields;
    if (!SplitFields(text, fields, error))
        return false;
    CKVX_HdwArinc429Message m;
    bool haveLabel = false;
    int parity = -1; // -1: odd parity computed
    for (const auto& [key, val] : fields) {
        uint64_t v = 0;
        if (key == "parity" || key == "p") {
            const std::string pv = Lower(val);
            if (pv == "odd")
                parity = -1;
            else if (pv == "even")
                parity = -2;
            else if (pv == "0" || pv == "1")
                parity = pv == "1" ? 1 : 0;
            else {
                error = "parity \"" + val + "\" is not odd, even, 0 or 1";
                return false;
            }
            continue;
        }
        const bool isLabel = key == "label" || key == "l";
        if (!ParseNumber(val, v, isLabel ? 8 : 10)) {
            error = key + " \"" + val + "\" is not a number";
            return false;
        }
        if (isLabel) {
            if (v > 0xFF) {
                error = "label " + val + " is out of range (0 to 0o377)";
                return false;
            }
            m.Label = uint8_t(v);
            haveLabel = true;
        } else if (key == "sdi") {
            if (v > 3) {
                error = "sdi " + val + " is out of range (0 to 3)";
                return false;
            }
            m.Sdi = uint8_t(v);
        } else if (key == "ssm") {
            if (v > 3) {
                error = "ssm " + val + " is out of range (0 to 3)";
                return false;
            }
            m.Ssm = uint8_t(v);
        } else if (key == "data") {
            if (v > 0x7FFFF) {
                error = "data " + val + " does not fit the 19-bit data field (0 to 0x7FFFF)";
                return false;
            }
            m.Data = uint32_t(v);
        } else {
            error = "unknown ARINC 429 field \"" + key + "\" (label, sdi, data, ssm, parity)";
            return false;
        }
    }
    if (!haveLabel) {
        error = "an ARINC 429 word needs a label (label=0o203)";
        return false;
    }
    if (parity >= 0)
        m.Parity = uint8_t(parity);
    else
        m.SetParity(parity == -2 ? 1 : 0);
    word = m;
    return true;
}

bool ParseCanFrame(const std::string& text, CKVX_HdwCanMessage& frame, std::string& error)
{
    const size_t hash = text.find('#');
    if (hash == std::string::npos) {
        error = "\"" + text + "\" is not a CAN frame (ID#DATA, e.g. 123#DEADBEEF or 1F334455#R)";
        return false;
    }
    const std::string id = text.substr(0, hash);
    std::string rest = text.substr(hash + 1);
    if (!rest.empty() && rest[0] == '#') {
        error = "CAN FD frames (ID##...) are not supported";
        return false;
    }
    CKVX_HdwCanMessage m;
    uint64_t v = 0;
    if (id.size() == 3 && ParseDigits(id, 16, v)) {
        if (v > 0x7FF) {
            error = "standard identifier " + id + " is above 7FF";
            return false;
        }
        m.Extended = 0;
    } else if (id.size() == 8 && ParseDigits(id, 16, v)) {
        if (v > 0x1FFFFFFF) {
            error = "extended identifier " + id + " is above 1FFFFFFF";
            return false;
        }
        m.Extended = 1;
    } else {
        error = "CAN identifier \"" + id + "\" must be 3 hex digits (standard) or 8 (extended)";
        return false;
    }
    m.Identifier = uint32_t(v);
    if (!rest.empty() && (rest[0] == 'R' || rest[0] == 'r')) {
        m.Rtr = 1;
        if (rest.size() == 2 && rest[1] >= '0' && rest[1] <= '8')
            m.Dlc = uint8_t(rest[1] - '0');
        else if (rest.size() != 1) {
            error = "remote request \"" + rest + "\" takes at most one length digit (0 to 8)";
            return false;
        }
        frame = m;
        return true;
    }
    unsigned count = 0;
    for (size_t i = 0; i < rest.size();) {
        if (rest[i] == '.') {
            ++i;
            continue;
        }
        if (i + 1 >= rest.size() || !IsHexDigit(rest[i]) || !IsHexDigit(rest[i + 1])) {
            error = "CAN data \"" + rest + "\" must be whole hex bytes";
            return false;
        }
        if (count == 8) {
            error = "CAN data \"" + rest + "\" is longer than 8 bytes";
            return false;
        }
        m.Data[count++] = uint8_t(DigitValue(rest[i]) << 4 | DigitValue(rest[i + 1]));
        i += 2;
    }
    m.Dlc = uint8_t(count);
    frame = m;
    return true;
}

std::string FormatCanFrame(const CKVX_HdwCanMessage& frame)
{
    char buf[48];
    std::snprintf(buf, sizeof buf, frame.Extended ? "%08X#" : "%03X#", unsigned(frame.Identifier));
    std::string s = buf;
    if (frame.Rtr) {
        s += 'R';
        if (frame.Dlc)
            s += char('0' + std::min<unsigned>(frame.Dlc, 8));
        return s;
    }
    for (unsigned i = 0; i < frame.Dlc && i < 8; ++i) {
        std::snprintf(buf, sizeof buf, "%02X", unsigned(frame.Data[i]));
        s += buf;
    }
    return s;
}

bool ParseUartBytes(const std::string& text, std::vector<uint8_t>& bytes, std::string& error)
{
    std::vector<uint8_t> out;
    if (text.rfind("hex:", 0) == 0) {
        const std::string hex = text.substr(4);
        for (size_t i = 0; i < hex.size();) {
            if (hex[i] == '.' || hex[i] == ':' || hex[i] == ' ') {
                ++i;
                continue;
            }
            if (i + 1 >= hex.size() || !IsHexDigit(hex[i]) || !IsHexDigit(hex[i + 1])) {
                error = "\"" + hex + "\" is not a sequence of hex bytes";
                return false;
            }
            out.push_back(uint8_t(DigitValue(hex[i]) << 4 | DigitValue(hex[i + 1])));
            i += 2;
        }
    } else {
        const std::string s = text.rfind("text:", 0) == 0 ? text.substr(5) : text;
        for (size_t i = 0; i < s.size(); ++i) {
            if (s[i] != '\\') {
                out.push_back(uint8_t(s[i]));
                continue;
            }
            if (++i == s.size()) {
                error = "text \"" + s + "\" ends in a lone backslash";
                return false;
            }
            switch (s[i]) {
            case 'n': out.push_back('\n'); break;
            case 'r': out.push_back('\r'); break;
            case 't': out.push_back('\t'); break;
            case '0': out.push_back(0); break;
            case '\\': out.push_back('\\'); break;
            case 'x':
                if (i + 2 < s.size() && IsHexDigit(s[i + 1]) && IsHexDigit(s[i + 2])) {
                    out.push_back(uint8_t(DigitValue(s[i + 1]) << 4 | DigitValue(s[i + 2])));
                    i += 2;
                    break;
                }
                error = "\\x in \"" + s + "\" needs two hex digits";
                return false;
            default: error = std::string("unknown escape \\") + s[i] + " (\\n \\r \\t \\0 \\\\ \\xNN)"; return false;
            }
        }
    }
    if (out.empty()) {
        error = "no bytes to send";
        return false;
    }
    bytes = std::move(out);
    return true;
}

uint16_t LabelAccept::Mask() const
{
    uint16_t mask = 0;
    for (unsigned ssm = 0; ssm < 4; ++ssm)
        for (unsigned sdi = 0; sdi < 4; ++sdi)
            if ((Sdi < 0 || unsigned(Sdi) == sdi) && (Ssm < 0 || unsigned(Ssm) == ssm))
                mask = uint16_t(mask | 1u << (sdi + 4 * ssm));
    return mask;
}

bool ParseLabelAccept(const std::string& text, LabelAccept& accept, std::string& error)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t colon = text.find(':', start);
        parts.push_back(text.substr(start, colon == std::string::npos ? std::string::npos : colon - start));
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    if (parts.size() > 3) {
        error = "\"" + text + "\" is not LABEL[:SDI[:SSM]]";
        return false;
    }
    LabelAccept a;
    uint64_t v = 0;
    if (!ParseNumber(parts[0], v, 8) || v > 0xFF) {
        error = "label \"" + parts[0] + "\" is not an octal label from 0 to 377";
        return false;
    }
    a.Label = uint8_t(v);
    const char* names[] = {"", "SDI", "SSM"};
    for (size_t i = 1; i < parts.size(); ++i) {
        if (!ParseNumber(parts[i], v) || v > 3) {
            error = std::string(names[i]) + " \"" + parts[i] + "\" is not 0 to 3";
            return false;
        }
        (i == 1 ? a.Sdi : a.Ssm) = int(v);
    }
    accept = a;
    return true;
}

bool ParseReal(const std::string& text, double& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size())
        return false;
    value = v;
    return true;
}

bool ParseBitRate(const std::string& text, uint32_t& rate, std::string& error)
{
    const std::string t = Lower(text);
    if (t == "low") {
        rate = 12500;
        return true;
    }
    if (t == "high") {
        rate = 100000;
        return true;
    }
    double scale = 1;
    std::string number = t;
    if (!t.empty() && (t.back() == 'k' || t.back() == 'm')) {
        scale = t.back() == 'k' ? 1e3 : 1e6;
        number = t.substr(0, t.size() - 1);
    }
    double v = 0;
    // At least 1 bit/s once rounded: "3e-8" is within the rounding slack of 0.
    if (!ParseReal(number, v) || !(v * scale >= 0.5) || v * scale > 4e9 ||
        std::fabs(v * scale - std::round(v * scale)) > 1e-6) {
        error = "\"" + text + "\" is not a bit rate (12500, 100k, 1M, low, high)";
        return false;
    }
    rate = uint32_t(std::llround(v * scale));
    return true;
}

bool ParseSamplePoint(const std::string& text, double& point, std::string& error)
{
    std::string number = text;
    double scale = 1;
    if (!number.empty() && number.back() == '%') {
        number.pop_back();
        scale = 0.01;
    }
    double v = 0;
    const bool parsed = ParseReal(number, v);
    v *= scale;
    if (!parsed || !(v > 0 && v < 1)) {
        error = "sample point \"" + text + "\" is not a fraction between 0 and 1 (0.875 or 87.5%)";
        return false;
    }
    point = v;
    return true;
}

bool ParseSeconds(const std::string& text, double& seconds, std::string& error)
{
    std::string number = text;
    double scale = 1;
    if (number.size() > 2 && number.substr(number.size() - 2) == "ms") {
        number.resize(number.size() - 2);
        scale = 0.001;
    } else if (!number.empty() && number.back() == 's') {
        number.pop_back();
    }
    double v = 0;
    const bool parsed = ParseReal(number, v);
    v *= scale;
    if (!parsed || !(v >= 0) || v > 1e7) {
        error = "\"" + text + "\" is not a duration in seconds (5, 0.5, 250ms)";
        return false;
    }
    seconds = v;
    return true;
}

} // namespace hdwtool
