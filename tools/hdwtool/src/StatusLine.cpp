#include "StatusLine.h"

#include "Terminal.h"

#include <cmath>

namespace hdwtool {

namespace {

std::string Counted(uint64_t n, const char* one, const char* many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string LinkText(const LinkLosses& link)
{
    return Counted(link.BadFrames, "bad frame", "bad frames") + ", " +
        Counted(link.LostEchoes, "lost echo", "lost echoes");
}

} // namespace

std::string FormatStatus(
    double elapsedSeconds, const std::vector<PortStatus>& ports, unsigned width, const LinkLosses& link)
{
    char buf[160];
    std::snprintf(buf, sizeof buf, "%.1f s", elapsedSeconds);
    std::string line = buf;
    for (const auto& p : ports) {
        std::snprintf(buf, sizeof buf, "  %s %llu (%.0f/s)", p.Name.c_str(), static_cast<unsigned long long>(p.Count),
            std::round(p.Rate));
        line += buf;
        if (p.Dropped)
            line += " dropped " + std::to_string(p.Dropped);
    }
    if (link.BadFrames || link.LostEchoes)
        line += "  link: " + LinkText(link);
    if (width > 0 && line.size() >= width)
        line.resize(width - 1);
    return line;
}

std::string FormatLosses(const std::vector<PortStatus>& ports, const LinkLosses& link)
{
    std::string text = "dropped";
    for (size_t i = 0; i < ports.size(); ++i)
        text += (i ? ", " : " ") + ports[i].Name + " " + std::to_string(ports[i].Dropped);
    return text + "; link: " + LinkText(link);
}

void RateMeter::Sample(double nowSeconds, uint64_t count)
{
    m_Samples.emplace_back(nowSeconds, count);
    while (m_Samples.size() > 2 && nowSeconds - m_Samples[1].first >= 2.0)
        m_Samples.pop_front();
}

double RateMeter::Rate() const
{
    if (m_Samples.size() < 2)
        return 0;
    const auto& a = m_Samples.front();
    const auto& b = m_Samples.back();
    return b.first > a.first ? double(b.second - a.second) / (b.first - a.first) : 0;
}

StatusLine::StatusLine(bool enabled, std::FILE* out, std::vector<std::string> portNames)
    : m_Enabled(enabled),
      m_Out(out),
      m_Meters(portNames.size())
{
    for (auto& n : portNames)
        m_Ports.push_back(PortStatus{std::move(n), 0, 0});
}

void StatusLine::Draw(double nowSeconds, bool force)
{
    for (size_t i = 0; i < m_Ports.size(); ++i) {
        m_Meters[i].Sample(nowSeconds, m_Ports[i].Count);
        m_Ports[i].Rate = m_Meters[i].Rate();
    }
    if (!m_Enabled || (!force && m_LastDraw >= 0 && nowSeconds - m_LastDraw < 0.2))
        return;
    m_LastDraw = nowSeconds;
    std::fprintf(m_Out, "\r\033[K%s", FormatStatus(nowSeconds, m_Ports, TerminalWidth(), m_Link).c_str());
    std::fflush(m_Out);
    m_Shown = true;
}

void StatusLine::Clear()
{
    if (m_Enabled && m_Shown) {
        std::fputs("\r\033[K", m_Out);
        m_Shown = false;
        m_LastDraw = -1;
    }
}

} // namespace hdwtool
