#include "Format.h"

#include "Values.h"

#include <algorithm>
#include <bit>
#include <cstdio>

namespace hdwtool {

const Columns& Arinc429Columns()
{
    static const Columns c{{"TIME", "PORT", "LABEL", "SDI", "DATA", "SSM", "P", "WORD"}, {-12, 10, 5, 3, 5, 3, 2, 8}};
    return c;
}

const Columns& CanColumns()
{
    static const Columns c{{"TIME", "PORT", "ID", "DLC", "DATA", "RTR", "FRAME"}, {-12, 10, 8, 3, 23, 3, 0}};
    return c;
}

const Columns& UartColumns()
{
    static const Columns c{{"TIME", "PORT", "COUNT", "HEX", "TEXT"}, {-12, 10, -5, 24, 0}};
    return c;
}

const Columns& Mil1553Columns()
{
    static const Columns c{{"TIME", "PORT", "BUS", "DIR", "RT", "SA", "WC", "STATUS", "ERRORS", "DATA"},
        {-12, 10, 3, 6, 5, 5, -2, 9, 8, 0}};
    return c;
}

const Columns& ListColumns()
{
    static const Columns c{{"NUM", "TYPE", "PORT", "MODEL", "SERIAL", "CHANNEL", "KEY"}, {-3, 6, 10, 10, 20, 7, 0}};
    return c;
}

namespace {

std::string CsvField(const std::string& f)
{
    if (f.find_first_of(",\"\n") == std::string::npos)
        return f;
    std::string q = "\"";
    for (char c : f) {
        if (c == '"')
            q += '"';
        q += c;
    }
    return q + "\"";
}

std::string Hex(unsigned value, int digits)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%0*X", digits, value);
    return buf;
}

std::string DottedHex(const uint8_t* bytes, size_t count)
{
    if (count == 0)
        return "-";
    std::string s;
    for (size_t i = 0; i < count; ++i) {
        if (i)
            s += '.';
        s += Hex(bytes[i], 2);
    }
    return s;
}

} // namespace

std::string RenderRow(const Fields& fields, const Columns& columns, OutputFormat format)
{
    std::string line;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (format == OutputFormat::Csv) {
            if (i)
                line += ',';
            line += CsvField(fields[i]);
            continue;
        }
        if (i)
            line += "  ";
        const int w = i < columns.Widths.size() ? columns.Widths[i] : 0;
        const bool last = i + 1 == fields.size();
        const size_t width = size_t(w < 0 ? -w : w);
        if (w < 0 && fields[i].size() < width)
            line.append(width - fields[i].size(), ' ');
        line += fields[i];
        if (w > 0 && !last && fields[i].size() < width)
            line.append(width - fields[i].size(), ' ');
    }
    return line;
}

std::string FormatTime(uint64_t microseconds)
{
    char buf[40];
    std::snprintf(buf, sizeof buf, "%llu.%06u", static_cast<unsigned long long>(microseconds / 1000000),
        unsigned(microseconds % 1000000));
    return buf;
}

std::string FormatLabel(uint8_t label)
{
    char buf[8];
    std::snprintf(buf, sizeof buf, "%03o", unsigned(label));
    return buf;
}

bool ParseLabelOrder(const std::string& text, LabelOrder& order, std::string& error)
{
    if (text == "reversed")
        order = LabelOrder::Reversed;
    else if (text == "wire")
        order = LabelOrder::Wire;
    else {
        error = "label order \"" + text + "\" is not reversed or wire";
        return false;
    }
    return true;
}

uint8_t LabelNumber(uint8_t rawLabel, LabelOrder order)
{
    if (order == LabelOrder::Reversed)
        return rawLabel;
    uint8_t n = 0;
    for (int i = 0; i < 8; ++i)
        if (rawLabel & (1u << i))
            n = uint8_t(n | (0x80u >> i));
    return n;
}

bool Arinc429ParityOk(const CKVX_HdwArinc429Message& word, bool even)
{
    CKVX_HdwArinc429Message w = word;
    w.Parity &= 1;
    return (std::popcount(w.GetToUint32()) % 2 == 1) != even;
}

Fields Arinc429Fields(
    uint64_t timeUs, const std::string& port, const CKVX_HdwArinc429Message& word, bool parityError, LabelOrder order)
{
    CKVX_HdwArinc429Message w = word;
    return {FormatTime(timeUs), port, FormatLabel(LabelNumber(word.Label, order)), std::to_string(word.Sdi & 3),
        Hex(word.Data & 0x7FFFF, 5), std::to_string(word.Ssm & 3),
        std::to_string(word.Parity & 1) + (parityError ? "!" : ""), Hex(w.GetToUint32(), 8)};
}

Fields CanFields(uint64_t timeUs, const std::string& port, const CKVX_HdwCanMessage& frame)
{
    const unsigned dlc = frame.Dlc;
    const size_t dataBytes = frame.Rtr ? 0 : std::min<size_t>(dlc, 8);
    return {FormatTime(timeUs), port, Hex(frame.Identifier, frame.Extended ? 8 : 3), std::to_string(dlc),
        DottedHex(frame.Data, dataBytes), frame.Rtr ? "R" : "-", FormatCanFrame(frame)};
}

std::string QuoteText(const std::vector<uint8_t>& bytes)
{
    std::string s = "\"";
    for (uint8_t b : bytes) {
        switch (b) {
        case '\n': s += "\\n"; break;
        case '\r': s += "\\r"; break;
        case '\t': s += "\\t"; break;
        case '\\': s += "\\\\"; break;
        case '"': s += "\\\""; break;
        default:
            if (b >= 0x20 && b < 0x7F)
                s += char(b);
            else
                s += "\\x" + Hex(b, 2);
        }
    }
    return s + "\"";
}

Fields UartFields(uint64_t timeUs, const std::string& port, const std::vector<uint8_t>& bytes)
{
    return {FormatTime(timeUs), port, std::to_string(bytes.size()), DottedHex(bytes.data(), bytes.size()),
        QuoteText(bytes)};
}

} // namespace hdwtool
