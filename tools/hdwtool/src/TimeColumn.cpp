#include "TimeColumn.h"

namespace hdwtool {

bool ParseTimeMode(const std::string& text, TimeMode& mode, std::string& error)
{
    if (text == "relative")
        mode = TimeMode::Relative;
    else if (text == "absolute")
        mode = TimeMode::Absolute;
    else if (text == "delta")
        mode = TimeMode::Delta;
    else {
        error = "time \"" + text + "\" is not relative, absolute or delta";
        return false;
    }
    return true;
}

uint64_t TimeColumn::Shown(uint64_t hostUs)
{
    switch (m_Mode) {
    case TimeMode::Absolute: return uint64_t(int64_t(hostUs) + m_WallOffset);
    case TimeMode::Delta: {
        const uint64_t d = m_HavePrevious && hostUs > m_Previous ? hostUs - m_Previous : 0;
        m_HavePrevious = true;
        m_Previous = hostUs;
        return d;
    }
    case TimeMode::Relative: break;
    }
    return hostUs > m_Start ? hostUs - m_Start : 0;
}

} // namespace hdwtool
