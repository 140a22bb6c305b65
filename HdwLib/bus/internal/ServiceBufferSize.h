#pragma once
// GetParameters / SetParameters of the buffer services whose parameter
// object carries only BufferSize: the base service's check first, then the
// copy under the device lock.

#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

namespace hdw::bus {

template <typename P>
unsigned GetBufferSizeParameter(CKVX_HdwService& service, const uint32_t& bufferSize, P* params)
{
    if (const unsigned rc = service.CKVX_HdwService::GetParameters(params))
        return rc;
    if (!params)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    params->BufferSize = bufferSize;
    return 0;
}

template <typename P>
unsigned SetBufferSizeParameter(CKVX_HdwService& service, uint32_t& bufferSize, P* params)
{
    if (const unsigned rc = service.CKVX_HdwService::SetParameters(params))
        return rc;
    if (!params)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    bufferSize = params->BufferSize;
    return 0;
}

} // namespace hdw::bus
