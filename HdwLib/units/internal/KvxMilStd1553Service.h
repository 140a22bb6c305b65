#pragma once
// What the bus controller and remote terminal services on a unit's
// MIL-STD-1553 channel share: the way to their port, whether the unit takes
// their commands now, the channel put to idle at Stop and the front of
// ProcessEvent.

#include <HdwLib/units/KvxMilStd1553Port.h>
#include <HdwLib/units/KvxUnitLink.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

namespace hdw::units::mil1553 {

inline CKVX_HdwKvxMilStd1553Port* PortOf(CKVX_HdwService& service)
{
    return dynamic_cast<CKVX_HdwKvxMilStd1553Port*>(service.GetHdwPort());
}

// Whether the unit's link is up (caller holds the device lock). Not while
// the unit is lost, nor while its fresh session starts: what a service
// attached then would go before the tables it writes again on the return.
inline bool LinkUp(CKVX_HdwKvxMilStd1553Port* port)
{
    const CKVX_HdwKvxUnitInstance* inst = port ? InstanceOf(port) : nullptr;
    return inst && inst->Reconnect.Status.State == HDW_UNIT_LINK_UP;
}

// Stop of either service: the channel goes idle when its port is open.
inline void IdleChannel(CKVX_HdwService& service)
{
    if (CKVX_HdwKvxMilStd1553Port* port = PortOf(service); port && port->IsOpen()) {
        CKVX_HdwServiceLock lock(service);
        port->AttachConfiguration(CKVX_HdwKvxMilStd1553Config());
    }
}

// Why ProcessEvent was called (under the device lock): a critical failure
// aborts the service (None); a running service gets the unit's link events
// and its channel's MIL-STD-1553 events.
enum class EEvent { None, Mil1553, Lost, Back };

inline EEvent EventFor(CKVX_HdwService& service, CKVX_HdwEvent* event)
{
    if (IsEvent(event, KvxEventCriticalFailure)) {
        service.Abort();
        return EEvent::None;
    }
    if (service.GetStatus() != HDW_SERVICE_RUNNING)
        return EEvent::None;
    if (IsEvent(event, KvxEventMilStd1553))
        return EEvent::Mil1553;
    if (IsEvent(event, KvxEventUnitLost))
        return EEvent::Lost;
    return IsEvent(event, KvxEventUnitBack) ? EEvent::Back : EEvent::None;
}

} // namespace hdw::units::mil1553
