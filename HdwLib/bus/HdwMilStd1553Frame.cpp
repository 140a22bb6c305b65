#include <HdwLib/bus/HdwMilStd1553Frame.h>
#include <HdwLib/framework/HdwObject.h>

CKVX_HdwMilStd1553MinorFrame::~CKVX_HdwMilStd1553MinorFrame() = default;
CKVX_HdwMilStd1553MajorFrame::~CKVX_HdwMilStd1553MajorFrame() = default;

unsigned CKVX_HdwMilStd1553MajorFrame::GetMinorFrameTimeUs(unsigned minor, unsigned responseTimeoutUs) const
{
    if (minor >= MinorFrames.size())
        return 0;
    unsigned t = 0;
    for (uint16_t i : MinorFrames[minor].Messages)
        if (i < Messages.size())
            t += Messages[i].GetBusTimeUs(responseTimeoutUs);
    return t;
}

unsigned CKVX_HdwMilStd1553MajorFrame::GetTableWords() const
{
    unsigned words = 1;
    for (const CKVX_HdwMilStd1553MinorFrame& m : MinorFrames)
        words += 2 + unsigned(m.Messages.size());
    return words;
}

unsigned CKVX_HdwMilStd1553MajorFrame::Check(unsigned responseTimeoutUs) const
{
    if (Messages.size() > MaxMessages || MinorFrames.empty() || MinorFrames.size() > MaxMinorFrames)
        return HDW_ERR_ARGUMENT;
    for (const CKVX_HdwMilStd1553Message& m : Messages)
        if (m.Check() != 0)
            return HDW_ERR_ARGUMENT;
    if (GetTableWords() > MaxTableWords)
        return HDW_ERR_ARGUMENT;
    for (unsigned j = 0; j < MinorFrames.size(); ++j) {
        const CKVX_HdwMilStd1553MinorFrame& minor = MinorFrames[j];
        if (minor.PeriodUs < CKVX_HdwMilStd1553MinorFrame::MinPeriodUs ||
            minor.PeriodUs > CKVX_HdwMilStd1553MinorFrame::MaxPeriodUs || minor.PeriodUs % 10 != 0)
            return HDW_ERR_ARGUMENT;
        for (uint16_t i : minor.Messages)
            if (i >= Messages.size())
                return HDW_ERR_ARGUMENT;
        if (GetMinorFrameTimeUs(j, responseTimeoutUs) > minor.PeriodUs)
            return HDW_ERR_ARGUMENT;
    }
    return 0;
}
