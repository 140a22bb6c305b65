#include "Mil1553Bc.h"

#include "Mil1553Words.h"

#include <algorithm>

namespace hdwsim::mil {

namespace {
constexpr unsigned MaxMinorFrames = 64;
constexpr unsigned MaxTableWords = 2048;
constexpr uint64_t PeriodUnitNs = 10'000;
constexpr unsigned MinPeriodUnits = 10;

uint64_t GapNs(unsigned gapUs)
{
    return uint64_t(gapUs == 0 ? 4 : gapUs) * NsPerUs;
}
} // namespace

void BcSchedule::Start(unsigned page, unsigned stopAfter, uint64_t nowNs)
{
    m_Running = true;
    m_Stopping = false;
    m_Page = page;
    m_PendingPage = -1;
    m_Minor = 0;
    m_Message = 0;
    m_MinorStartNs = std::max(nowNs, m_ReadyNs);
    m_ReadyNs = m_MinorStartNs;
    m_Cycles = 0;
    m_StopAfter = stopAfter;
}

void BcSchedule::RequestStop(uint64_t nowNs)
{
    if (m_Running && !m_Stopping) {
        m_Stopping = true;
        m_StopAtNs = nowNs;
    }
}

void BcSchedule::StartOneShots(unsigned count, uint64_t nowNs)
{
    m_OneShotCount = std::min(count, OneShotDescriptors);
    m_OneShotNext = 0;
    m_ReadyNs = std::max(m_ReadyNs, nowNs);
}

unsigned BcSchedule::MinorCount(const uint16_t* sram) const
{
    const unsigned base = m_Page * 256;
    return base < SramWordsPerChannel ? sram[base] : 0;
}

bool BcSchedule::MinorAt(const uint16_t* sram, unsigned index, Minor& minor) const
{
    const unsigned base = m_Page * 256;
    const unsigned end = std::min(base + MaxTableWords, SramWordsPerChannel);
    const unsigned count = MinorCount(sram);
    if (count == 0 || count > MaxMinorFrames || index >= count)
        return false;
    unsigned pos = base + 1;
    for (unsigned i = 0; i < index && pos + 1 < end; ++i)
        pos += 2 + sram[pos + 1];
    if (pos + 1 >= end || pos + 2 + sram[pos + 1] > end)
        return false;
    minor.PeriodNs = std::max<unsigned>(sram[pos], MinPeriodUnits) * PeriodUnitNs;
    minor.Count = sram[pos + 1];
    minor.ListAt = pos + 2;
    return true;
}

BcSchedule::Next BcSchedule::Peek(const uint16_t* sram, bool bcMode, unsigned timeoutUs) const
{
    if (m_Stopping)
        return {Step::Stop, std::max(m_StopAtNs, m_LastEndNs)};
    const bool oneShotWaiting = m_OneShotNext < m_OneShotCount;
    if (!m_Running) {
        if (bcMode && oneShotWaiting)
            return {Step::Message, m_ReadyNs, m_OneShotNext, true};
        return {};
    }
    Minor minor;
    if (!MinorAt(sram, m_Minor, minor))
        return {Step::Stop, m_ReadyNs}; // a table that cannot be run stops the controller
    if (m_Message < minor.Count)
        return {Step::Message, m_ReadyNs, sram[minor.ListAt + m_Message] % Descriptors, false};
    const uint64_t dueNs = m_MinorStartNs + minor.PeriodNs;
    if (oneShotWaiting) {
        // Only when it ends before the next minor frame is due, by the timing rule.
        const uint16_t* d = sram + m_OneShotNext * DescriptorWords;
        uint64_t ns = EstimateNs(d[0], d[1], timeoutUs) + GapNs(d[0] >> 8);
        if (d[0] & CtrlRetry)
            ns *= 2;
        if (m_ReadyNs + ns <= dueNs)
            return {Step::Message, m_ReadyNs, m_OneShotNext, true};
    }
    return {Step::Boundary, std::max(dueNs, m_ReadyNs)};
}

void BcSchedule::MessageDone(const Next& step, uint64_t endNs, unsigned gapUs)
{
    m_LastEndNs = endNs;
    m_ReadyNs = endNs + GapNs(gapUs);
    if (step.OneShot)
        ++m_OneShotNext;
    else
        ++m_Message;
}

BcSchedule::Outcome BcSchedule::Boundary(const uint16_t* sram, uint64_t atNs)
{
    Minor minor;
    if (MinorAt(sram, m_Minor, minor))
        m_MinorStartNs += minor.PeriodNs; // the grid does not move after an overrun
    m_ReadyNs = std::max(m_ReadyNs, atNs);
    m_Message = 0;
    if (++m_Minor >= MinorCount(sram)) {
        m_Minor = 0;
        ++m_Cycles;
        if (m_StopAfter != 0 && m_Cycles >= m_StopAfter) {
            m_Running = false;
            return Outcome::Stopped;
        }
    }
    if (m_PendingPage >= 0) {
        m_Page = static_cast<unsigned>(m_PendingPage);
        m_PendingPage = -1;
        m_Minor = 0;
        m_Cycles = 0;
        return Outcome::Switched;
    }
    return Outcome::None;
}

void BcSchedule::Stopped()
{
    m_Running = false;
    m_Stopping = false;
}

} // namespace hdwsim::mil
