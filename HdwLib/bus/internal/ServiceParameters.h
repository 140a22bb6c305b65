#pragma once
// GetParameters / SetParameters of a service whose parameter object holds
// plain fields: the base service's check first (SetParameters refuses while
// the port is open), 2 for no object, then the copy under the device lock.

#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwService.h>

namespace hdw::bus {

// `copy(*params)` fills the caller's object from the service.
template <typename P, typename F>
unsigned CopyParametersOut(CKVX_HdwService& service, P* params, F&& copy)
{
    if (const unsigned rc = service.CKVX_HdwService::GetParameters(params))
        return rc;
    if (!params)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    copy(*params);
    return 0;
}

// `copy(*params)` stores the caller's values in the service.
template <typename P, typename F>
unsigned CopyParametersIn(CKVX_HdwService& service, P* params, F&& copy)
{
    if (const unsigned rc = service.CKVX_HdwService::SetParameters(params))
        return rc;
    if (!params)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    copy(*params);
    return 0;
}

} // namespace hdw::bus
