#pragma once
// The answer of a service's data calls to its run state, the same for the
// bus services, the unit drivers' services and the line services.

#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwService.h>

namespace hdw::bus {

// 29 for a stopped service, 15 for a failed one, 0 for a running one.
inline unsigned RunState(unsigned status)
{
    if (status == HDW_SERVICE_STOPPED)
        return HDW_ERR_SERVICE_NOT_RUNNING;
    if (status == HDW_SERVICE_FAILED)
        return HDW_ERR_SERVICE;
    return 0;
}

} // namespace hdw::bus
