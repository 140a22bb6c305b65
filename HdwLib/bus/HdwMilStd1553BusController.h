#pragma once
// What a bus controller runs: its major frame, the buses it may use, whether
// the channel also monitors the bus, and how many major frame cycles it runs
// before stopping by itself.

#include <HdwLib/bus/HdwMilStd1553Frame.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwMilStd1553BusController : public CKVX_Object {
public:
    CKVX_HdwMilStd1553BusController() = default;
    CKVX_HdwMilStd1553BusController(const CKVX_HdwMilStd1553BusController&) = default;
    CKVX_HdwMilStd1553BusController(CKVX_HdwMilStd1553BusController&&) = default;
    CKVX_HdwMilStd1553BusController& operator=(const CKVX_HdwMilStd1553BusController&) = default;
    CKVX_HdwMilStd1553BusController& operator=(CKVX_HdwMilStd1553BusController&&) = default;
    ~CKVX_HdwMilStd1553BusController() override;

    // 0, or 2 for a bad major frame (its Check), no bus enabled, a flag
    // other than 0 or 1, or a message that `CheckBuses` refuses.
    unsigned Check(unsigned responseTimeoutUs) const;
    // 0, or 2 for a message on a bus that is not enabled or a retry on the
    // other bus with only one bus enabled.
    unsigned CheckBuses(const CKVX_HdwMilStd1553Message& message) const;

    CKVX_HdwMilStd1553MajorFrame MajorFrame;
    uint8_t BusA = 1; // 1: bus A enabled
    uint8_t BusB = 1;
    uint8_t Monitor = 0; // 1: the channel also reports every transfer on its bus
    uint8_t StopAfter = 0; // major frame cycles before the controller stops, 0 = until stopped
};
