#pragma once
// What the unit's ports and services share: the way from a port or service
// to its device and instance, the frame budget left for this tick, waiting
// for a command's echo, the typed parameter hand-over of EnableService and
// the fields of the event objects they take.

#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/units/KvxCommandDevice.h>

#include <cstdint>

namespace hdw::units {

template <class B>
using Unit = CKVX_HdwKvxCommandDevice<B>;

template <class B>
Unit<B>* UnitOf(CKVX_HdwPort* port)
{
    return port ? static_cast<Unit<B>*>(port->GetHdwDevice()) : nullptr;
}

template <class B>
typename Unit<B>::CDeviceInstance* InstanceOf(CKVX_HdwPort* port)
{
    Unit<B>* unit = UnitOf<B>(port);
    return unit ? unit->GetProtocolInstance(port->GetDeviceId()) : nullptr;
}

// A new device instance `inst` with one control record for each channel of
// each kind that the unit's profile gives.
template <class I, class P>
I* WithChannelTables(I* inst, const P& profile)
{
    inst->AtxCtrl.resize(profile.AtxChannels);
    inst->ArxCtrl.resize(profile.ArxChannels);
    inst->CanCtrl.resize(profile.CanChannels);
    inst->UartCtrl.resize(profile.UartChannels);
    inst->MilStd1553Ctrl.resize(profile.MilStd1553Channels);
    return inst;
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

// Payload bytes that commands attached now can still use in the next frame.
// Caller holds the device lock.
template <class B>
unsigned FreePayload(Unit<B>* unit, typename Unit<B>::CDeviceInstance* inst)
{
    unsigned used = 0;
    for (const auto& c : inst->CommandList)
        used += c.Length;
    const unsigned limit = unit->GetPayloadLimit(inst);
    return used < limit ? limit - used : 0;
}

// Number of the command attached last. Caller holds the device lock.
template <class B>
uint16_t LastCommandNumber(typename Unit<B>::CDeviceInstance* inst)
{
    return uint16_t(inst->CommandCounter - 1);
}

// Waits, without holding the device lock between looks, until the command
// `number` has been sent and echoed: 0, or 14 on time-out. Waiting for that
// one command rather than for an empty echo list keeps a busy unit (whose
// echo list is rarely empty) from making the wait fail.
template <class B>
unsigned WaitCommandDone(CKVX_HdwPort* port, uint16_t number, unsigned timeoutMs)
{
    auto* inst = InstanceOf<B>(port);
    if (!inst)
        return HDW_ERR_LINK;
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    for (;;) {
        port->DeviceLock();
        bool pending = false;
        for (const auto& c : inst->CommandList)
            pending = pending || c.Number == number;
        for (const auto& e : inst->EchoList)
            pending = pending || e.Number == number;
        const bool open = inst->IsOpen();
        port->DeviceUnlock();
        if (!pending)
            return open ? 0u : unsigned(HDW_ERR_LINK);
        if (CKVX_HdwTimer::GetElapsedTicks(start) >= timeoutMs)
            return HDW_ERR_LINK;
        CKVX_HdwTimer::MsSleep(1);
    }
}

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

// Run state answer of a service's data calls: 29 stopped, 15 failed, else 0.
using hdw::bus::RunState;

inline bool IsEvent(const CKVX_HdwEvent* event, unsigned type)
{
    return event && event->GetEventCode() == type;
}

// The decoded fields of the event objects, read in one place.
template <class E>
const CKVX_HdwArinc429Message& Arinc429Of(const E& event)
{
    return event.Message;
}
template <class E>
const CKVX_HdwCanMessage& CanOf(const E& event)
{
    return event.Message;
}
template <class E>
unsigned StatusKind(const E& event)
{
    return event.Kind;
}
template <class E>
uint32_t StatusWord(const E& event)
{
    return event.StatusWord;
}
template <class E>
const uint8_t* UartBytes(const E& event)
{
    return event.Data.data();
}
template <class E>
unsigned UartByteCount(const E& event)
{
    return unsigned(event.Data.size());
}
template <class E>
unsigned UartSentCount(const E& event)
{
    return event.Count;
}

} // namespace hdw::units
