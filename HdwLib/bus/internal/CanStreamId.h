#pragma once
// The identifier of a byte stream carried in CAN frames, as both byte
// services over CAN check and match it.

#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/internal/ServiceParameters.h>

#include <cstdint>

namespace hdw::bus {

// An 11-bit identifier for a standard frame, 29-bit for an extended one.
inline bool IsValidStreamId(uint32_t identifier, uint8_t extended)
{
    if (extended > 1)
        return false;
    return identifier <= (extended ? 0x1FFFFFFFu : 0x7FFu);
}

// A data frame of the stream's identifier and format.
inline bool IsStreamFrame(const CKVX_HdwCanMessage& frame, uint32_t identifier, uint8_t extended)
{
    return frame.Rtr == 0 && (frame.Extended ? 1 : 0) == extended && frame.Identifier == identifier;
}

// Get/SetParameters of a byte service over CAN: the base service's check,
// then the whole parameter set copied under the device lock. Set also
// refuses an identifier that does not fit its format.
template <typename P, typename S>
unsigned GetStreamParameters(S& service, P* params, uint32_t bufferSize, uint32_t identifier, uint8_t extended)
{
    return CopyParametersOut(service, params, [&](P& p) {
        p.BufferSize = bufferSize;
        p.Identifier = identifier;
        p.Extended = extended;
    });
}

template <typename P, typename S>
unsigned SetStreamParameters(S& service, P* params, uint32_t& bufferSize, uint32_t& identifier, uint8_t& extended)
{
    if (const unsigned rc = service.CKVX_HdwService::SetParameters(params))
        return rc;
    if (!params || !IsValidStreamId(params->Identifier, params->Extended))
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    bufferSize = params->BufferSize;
    identifier = params->Identifier;
    extended = params->Extended;
    return 0;
}

} // namespace hdw::bus
