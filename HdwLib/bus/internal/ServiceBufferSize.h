#pragma once
// GetParameters / SetParameters of the buffer services whose parameter
// object carries only BufferSize: the base service's check first, then the
// copy under the device lock.

#include <HdwLib/bus/internal/ServiceParameters.h>

#include <cstdint>

namespace hdw::bus {

template <typename P>
unsigned GetBufferSizeParameter(CKVX_HdwService& service, const uint32_t& bufferSize, P* params)
{
    return CopyParametersOut(service, params, [&](P& p) { p.BufferSize = bufferSize; });
}

template <typename P>
unsigned SetBufferSizeParameter(CKVX_HdwService& service, uint32_t& bufferSize, P* params)
{
    return CopyParametersIn(service, params, [&](const P& p) { bufferSize = p.BufferSize; });
}

} // namespace hdw::bus
