#pragma once
// A bus controller's schedule. A minor frame is an ordered list of messages
// sent back to back once per period; a major frame is the list of its
// messages and the minor frames that name them by index, run one after the
// other and then again from the first.

#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwMilStd1553MinorFrame : public CKVX_Object {
public:
    static constexpr uint32_t MinPeriodUs = 100;
    static constexpr uint32_t MaxPeriodUs = 655350;

    CKVX_HdwMilStd1553MinorFrame() = default;
    CKVX_HdwMilStd1553MinorFrame(const CKVX_HdwMilStd1553MinorFrame&) = default;
    CKVX_HdwMilStd1553MinorFrame(CKVX_HdwMilStd1553MinorFrame&&) = default;
    CKVX_HdwMilStd1553MinorFrame& operator=(const CKVX_HdwMilStd1553MinorFrame&) = default;
    CKVX_HdwMilStd1553MinorFrame& operator=(CKVX_HdwMilStd1553MinorFrame&&) = default;
    ~CKVX_HdwMilStd1553MinorFrame() override;

    uint32_t PeriodUs = 10000; // 100..655,350, a multiple of 10
    std::vector<uint16_t> Messages; // indexes into the major frame's messages, in sending order
};

class HDWLIB_EXPORT CKVX_HdwMilStd1553MajorFrame : public CKVX_Object {
public:
    static constexpr unsigned MaxMessages = 240;
    static constexpr unsigned MaxMinorFrames = 64;
    // Words of the unit's major frame table.
    static constexpr unsigned MaxTableWords = 2048;

    CKVX_HdwMilStd1553MajorFrame() = default;
    CKVX_HdwMilStd1553MajorFrame(const CKVX_HdwMilStd1553MajorFrame&) = default;
    CKVX_HdwMilStd1553MajorFrame(CKVX_HdwMilStd1553MajorFrame&&) = default;
    CKVX_HdwMilStd1553MajorFrame& operator=(const CKVX_HdwMilStd1553MajorFrame&) = default;
    CKVX_HdwMilStd1553MajorFrame& operator=(CKVX_HdwMilStd1553MajorFrame&&) = default;
    ~CKVX_HdwMilStd1553MajorFrame() override;

    // 0, or 2 for more than 240 messages, a message that fails its Check,
    // no minor frame or more than 64, a period out of range or not a
    // multiple of 10, an index past the messages, a table over 2048 words,
    // or a minor frame whose messages need more bus time
    // (GetMinorFrameTimeUs) than its period.
    unsigned Check(unsigned responseTimeoutUs) const;
    // Bus time of minor frame `minor`'s messages by the timing rule; 0 for a
    // bad index.
    unsigned GetMinorFrameTimeUs(unsigned minor, unsigned responseTimeoutUs) const;
    // Words of the unit's table: the minor-frame count, then per minor frame
    // its period, its message count and its indexes.
    unsigned GetTableWords() const;

    std::vector<CKVX_HdwMilStd1553Message> Messages;
    std::vector<CKVX_HdwMilStd1553MinorFrame> MinorFrames;
};
