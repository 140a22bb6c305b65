#pragma once
// Parameter handling shared by the generic bus ports: Open installs the
// caller's parameters before the base open; the parameters are read back by
// copy; a copied port is a closed port of the same channel.

#include <HdwLib/framework/HdwPort.h>

namespace hdw::bus {

// `params` must be null (keep the current ones) or a P; another class is a bad argument.
template <typename P>
unsigned OpenWithParameters(CKVX_HdwPort& port, P& stored, CKVX_HdwPort::CParameters* params)
{
    if (params) {
        const auto* own = dynamic_cast<const P*>(params);
        if (!own)
            return HDW_ERR_ARGUMENT;
        stored = *own;
    }
    return port.CKVX_HdwPort::Open(params);
}

template <typename P>
unsigned CopyParametersOut(const P& stored, P* out)
{
    if (!out)
        return HDW_ERR_ARGUMENT;
    *out = stored;
    return 0;
}

// The rate changes in place only while the port is open.
template <typename P>
unsigned StoreBaudRate(const CKVX_HdwPort& port, P& stored, unsigned rate)
{
    if (!port.IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    stored.BaudRate = rate;
    return 0;
}

} // namespace hdw::bus
