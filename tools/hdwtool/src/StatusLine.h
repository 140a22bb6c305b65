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
    uint64_t Dropped = 0; // lost by the port's receive buffer (full)
};

// What the units' links lost (bad frames, lost echoes; see the library's
// unit instance counters).
struct LinkLosses {
    uint64_t BadFrames = 0;
    uint64_t LostEchoes = 0;
};

// "12.3 s  a429rx:0 1520 (150/s)  can:1 230 (20/s) dropped 5  link: 1 bad frame",
// cut to `width` columns. Drops and link losses appear once there are any.
std::string FormatStatus(
    double elapsedSeconds, const std::vector<PortStatus>& ports, unsigned width, const LinkLosses& link = {});
// The summary at the end: "dropped a429rx:0 0, can:1 5; link: 1 bad frame, 0 lost echoes".
std::string FormatLosses(const std::vector<PortStatus>& ports, const LinkLosses& link);

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
    void SetDropped(size_t port, uint64_t dropped) { m_Ports[port].Dropped = dropped; }
    void SetLinkLosses(const LinkLosses& link) { m_Link = link; }
    const std::vector<PortStatus>& Ports() const { return m_Ports; }
    const LinkLosses& Link() const { return m_Link; }
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
    LinkLosses m_Link;
    double m_LastDraw = -1;
    bool m_Shown = false;
};

} // namespace hdwtool
