#include "CandumpLog.h"

#include "Values.h"

#include <cstdio>
#include <sstream>
#include <vector>

namespace hdwtool {

namespace {

bool AllDigits(const std::string& s)
{
    if (s.empty())
        return false;
    for (char c : s)
        if (c < '0' || c > '9')
            return false;
    return true;
}

// "(SECONDS.MICRO)": up to 6 decimals, padded on the right when fewer.
bool ParseStamp(const std::string& text, uint64_t& us)
{
    if (text.size() < 3 || text.front() != '(' || text.back() != ')')
        return false;
    const std::string inner = text.substr(1, text.size() - 2);
    const size_t dot = inner.find('.');
    const std::string whole = inner.substr(0, dot);
    std::string fraction = dot == std::string::npos ? "0" : inner.substr(dot + 1);
    if (!AllDigits(whole) || !AllDigits(fraction) || whole.size() > 12 || fraction.size() > 6)
        return false;
    fraction.append(6 - fraction.size(), '0');
    us = std::stoull(whole) * 1000000 + std::stoull(fraction);
    return true;
}

} // namespace

std::string CandumpInterface(const std::string& portName)
{
    std::string s;
    for (char c : portName)
        if (c != ':')
            s += c;
    return s;
}

std::string FormatCandumpLine(uint64_t wallUs, const std::string& interfaceName, const CKVX_HdwCanMessage& frame)
{
    char stamp[48];
    std::snprintf(stamp, sizeof stamp, "(%010llu.%06u) ", static_cast<unsigned long long>(wallUs / 1000000),
        unsigned(wallUs % 1000000));
    return stamp + interfaceName + " " + FormatCanFrame(frame);
}

bool ParseCandumpLine(const std::string& line, CandumpRecord& record, std::string& error)
{
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;)
        words.push_back(w);
    if (words.size() == 4 && (words[3] == "R" || words[3] == "T" || words[3] == "r" || words[3] == "t"))
        words.pop_back();
    if (words.size() != 3) {
        error = "not \"(SECONDS.MICROSECONDS) INTERFACE ID#DATA\"";
        return false;
    }
    CandumpRecord r;
    if (!ParseStamp(words[0], r.TimeUs)) {
        error = "time stamp \"" + words[0] + "\" is not (SECONDS.MICROSECONDS)";
        return false;
    }
    r.Interface = words[1];
    const std::string& frame = words[2];
    const size_t hash = frame.find('#');
    // An error frame: 8 hex digits with CAN_ERR_FLAG (0x20000000) set.
    if (hash == 8) {
        uint64_t id = 0;
        if (ParseNumber("0x" + frame.substr(0, 8), id) && (id & 0x20000000) && !(id & 0x80000000)) {
            r.ErrorFrame = true;
            record = r;
            return true;
        }
    }
    if (frame.find('.') != std::string::npos) {
        error = "frame \"" + frame + "\" has a separator between its data bytes";
        return false;
    }
    if (!ParseCanFrame(frame, r.Frame, error))
        return false;
    record = r;
    return true;
}

} // namespace hdwtool
