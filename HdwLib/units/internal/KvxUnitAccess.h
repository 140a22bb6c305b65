#pragma once
// What the unit's ports and services share: the way from a port to its unit
// and instance, the frame budget left for this tick, waiting for a command's
// echo, the typed parameter hand-over of EnableService and the switch-on of
// a service's channel.
//
// A unit port finds its unit once, when it is made, and keeps it (GetUnit);
// its services ask the port. The overload of UnitOf for a plain
// CKVX_HdwPort casts the device on every call and is for cold paths only.

#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/framework/HdwEvent.h>
#include <HdwLib/framework/HdwPort.h>
#include <HdwLib/framework/HdwService.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>

namespace hdw::units {

// Kinds of the status request (code 2) and of its answer (event type 5).
enum t_StatusKind : unsigned {
    StatusAtxFifo = 1, // words waiting in an ARINC 429 transmitter's FIFO
    StatusCan = 2, // a CAN channel's controller state (answer of kinds 2 and 3)
    StatusCanTransmit = 3, // a CAN channel's transmit state, answered as kind 2
};

// A unit port's own unit (null when its device is none).
template <class P>
requires requires(P* p)
{
    p->GetUnit();
}
CKVX_HdwKvxCommandUnit* UnitOf(P* port)
{
    return port ? port->GetUnit() : nullptr;
}

// Any port: its device as a unit, or null.
inline CKVX_HdwKvxCommandUnit* UnitOf(CKVX_HdwPort* port)
{
    return port ? dynamic_cast<CKVX_HdwKvxCommandUnit*>(port->GetHdwDevice()) : nullptr;
}

// The protocol state of the port's instance; null without one.
template <class P>
CKVX_HdwKvxUnitInstance* InstanceOf(P* port)
{
    CKVX_HdwKvxCommandUnit* unit = UnitOf(port);
    return unit ? unit->GetUnitInstance(port->GetDeviceId()) : nullptr;
}

// Channel number of a port: its channel id is the number in decimal.
inline unsigned ChannelNumber(const CKVX_String& channelId)
{
    return channelId.ToUnsignedOr(0);
}

inline unsigned ChannelOf(CKVX_HdwService* service)
{
    const CKVX_HdwPort* port = service->GetHdwPort();
    return port ? ChannelNumber(port->GetChannelIdRef()) : 0;
}

// Whether the unit may be given items to transmit (caller holds the device
// lock): not while it is lost. A push queued then would be dropped with the
// queues when the link opens again; the services keep their items meanwhile.
inline bool TakesPushes(const CKVX_HdwKvxUnitInstance* inst)
{
    const unsigned state = inst->Reconnect.Status.State;
    return state == HDW_UNIT_LINK_UP || state == HDW_UNIT_LINK_RESYNC;
}

// Payload bytes that commands attached now can still use in the next frame.
// Caller holds the device lock.
inline unsigned FreePayload(CKVX_HdwKvxCommandUnit* unit, CKVX_HdwKvxUnitInstance* inst)
{
    const unsigned used = inst->GetQueuedPayload();
    const unsigned limit = unit->GetPayloadLimit(inst);
    return used < limit ? limit - used : 0;
}

// Number of the command attached last. Caller holds the device lock.
inline uint16_t LastCommandNumber(CKVX_HdwKvxUnitInstance* inst)
{
    return inst->GetLastAttachedNumber();
}

// Waits, without holding the device lock between looks, until the command
// `number` has been sent and echoed: 0, or HDW_ERR_LINK on time-out or when
// the instance closed meanwhile. Waiting for that one command rather than for
// an empty echo list keeps a busy unit (whose echo list is rarely empty) from
// making the wait fail.
unsigned WaitCommandDone(CKVX_HdwPort* port, uint16_t number, unsigned timeoutMs);

// A lost or returned unit (caller holds the device lock): `kind` with its
// value and aux to every signal service of the instance's open ports, shown
// at once (a lost unit's tick may not reach its end to publish it).
void PostLinkSignal(CKVX_HdwDevice::CDeviceInstance& inst, unsigned kind, uint32_t value, uint32_t aux, uint64_t nowMs);

// EnableService's hand-over of the caller's parameters to a new service:
// null keeps the defaults, another parameter class is a bad argument.
template <class S>
unsigned SetServiceParameters(S* service, CKVX_HdwService::CParameters* params)
{
    if (!params)
        return 0;
    auto* own = dynamic_cast<typename S::CParameters*>(params);
    if (!own)
        return HDW_ERR_ARGUMENT;
    return service->SetParameters(own);
}

// Adds a new service to the port's list, or deletes it when its parameters
// are refused.
template <class S>
unsigned InstallService(CKVX_HdwPort& port, S* service, CKVX_HdwService** out, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = SetServiceParameters(service, params)) {
        delete service;
        return rc;
    }
    port.GetServiceList() += service;
    if (out)
        *out = service;
    return 0;
}

// The port's enabled service of that type as an S; null when there is none
// (or no port).
template <class S>
S* ServiceOn(CKVX_HdwPort* port, unsigned serviceType)
{
    return port ? dynamic_cast<S*>(port->FindService(serviceType)) : nullptr;
}

// When the service's port is a P: re-sends the port's configuration with
// the channel on, under the service's lock (the caller does not hold it).
// False when the port is not a P.
template <class P>
bool EnableChannelOf(CKVX_HdwService& service)
{
    auto* port = dynamic_cast<P*>(service.GetHdwPort());
    if (!port)
        return false;
    CKVX_HdwServiceLock lock(service);
    port->AttachConfiguration(true);
    return true;
}

// When the service's port is a P and open: re-sends its configuration with
// the channel on or off, under the service's lock; 0 when there is nothing
// to send.
template <class P>
unsigned ReconfigureChannelOf(CKVX_HdwService& service, bool enable)
{
    auto* port = dynamic_cast<P*>(service.GetHdwPort());
    if (!port || !port->IsOpen())
        return 0;
    CKVX_HdwServiceLock lock(service);
    return port->AttachConfiguration(enable);
}

// Run state answer of a service's data calls: HDW_ERR_SERVICE_NOT_RUNNING
// stopped, HDW_ERR_SERVICE failed, else 0.
using hdw::bus::RunState;

inline bool IsEvent(const CKVX_HdwEvent* event, unsigned type)
{
    return event && event->GetEventCode() == type;
}

} // namespace hdw::units
