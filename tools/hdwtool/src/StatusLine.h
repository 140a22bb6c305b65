#pragma once
// The live status line of monitor and demo: per-port counts and rates,
// redrawn in place ("\r", erase to the end of the line) at most five times
// a second. It is drawn only on a terminal; piped output gets plain lines.

#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace hdwtool {

struct PortStatus {
    std::string Name;
    uint64_t Count = 0;
    double Rate = 0; // items per second over the last second or two
};

// "12.3 s  a429rx:0 1520 (150/s)  can:1 230 (20/s)", cut to `width` columns.
std::string FormatStatus(double elapsedSeconds, const std::vector<PortStatus>& ports, unsigned width);

// Rate of a growing count, over a sliding window of about two seconds.
class RateMeter {
public:
    void Sample(double nowSeconds, uint64_t count);
    double Rate() const;

private:
    std::deque<std::pair<double, uint64_t>> m_Samples;
};

class StatusLine {
public:
    StatusLine(bool enabled, std::FILE* out, std::vector<std::string> portNames);
    void Add(size_t port, uint64_t items) { m_Ports[port].Count += items; }
    uint64_t Count(size_t port) const { return m_Ports[port].Count; }
    // Redraws when due (or at once with `force`).
    void Draw(double nowSeconds, bool force = false);
    // Erases the line before other output is printed; the next Draw puts it back.
    void Clear();
    bool Enabled() const { return m_Enabled; }

private:
    bool m_Enabled;
    std::FILE* m_Out;
    std::vector<PortStatus> m_Ports;
    std::vector<RateMeter> m_Meters;
    double m_LastDraw = -1;
    bool m_Shown = false;
};

} // namespace hdwtool
