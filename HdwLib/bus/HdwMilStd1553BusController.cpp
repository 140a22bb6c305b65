#include <HdwLib/bus/HdwMilStd1553BusController.h>
#include <HdwLib/framework/HdwObject.h>

CKVX_HdwMilStd1553BusController::~CKVX_HdwMilStd1553BusController() = default;

unsigned CKVX_HdwMilStd1553BusController::CheckBuses(const CKVX_HdwMilStd1553Message& message) const
{
    const bool onB = message.Bus == 1;
    if ((onB && !BusB) || (!onB && !BusA))
        return HDW_ERR_ARGUMENT;
    if (message.Retry == CKVX_HdwMilStd1553Message::RetryOtherBus && !(BusA && BusB))
        return HDW_ERR_ARGUMENT;
    return 0;
}

unsigned CKVX_HdwMilStd1553BusController::Check(unsigned responseTimeoutUs) const
{
    if (BusA > 1 || BusB > 1 || Monitor > 1 || !(BusA || BusB))
        return HDW_ERR_ARGUMENT;
    if (const unsigned rc = MajorFrame.Check(responseTimeoutUs))
        return rc;
    for (const CKVX_HdwMilStd1553Message& m : MajorFrame.Messages)
        if (const unsigned rc = CheckBuses(m))
            return rc;
    return 0;
}
