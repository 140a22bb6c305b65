#pragma once
// The admission rule shared by the bus ports' EnableService: a type the port
// does not take, or one that clashes with an enabled service, is refused
// with 10; a second service of an enabled type with 26.

#include <HdwLib/framework/HdwPort.h>

#include <initializer_list>

namespace hdw::bus {

// True when an enabled service of type `enabled` refuses a new one of type `requested`.
using ServiceConflict = bool (*)(unsigned enabled, unsigned requested);

inline unsigned AdmitService(
    CKVX_HdwPort& port, unsigned requested, std::initializer_list<unsigned> admitted, ServiceConflict conflict)
{
    bool known = false;
    for (unsigned t : admitted)
        known = known || t == requested;
    if (!known)
        return HDW_ERR_WRONG_STATE;
    for (CKVX_HdwService* s : port.GetServiceList())
        if (s->GetServiceType() == requested)
            return HDW_ERR_SERVICE_ALREADY_ENABLED;
    if (conflict) {
        for (CKVX_HdwService* s : port.GetServiceList())
            if (conflict(s->GetServiceType(), requested))
                return HDW_ERR_WRONG_STATE;
    }
    return 0;
}

} // namespace hdw::bus
