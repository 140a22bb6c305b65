#pragma once
// The skeleton of the unit's output services (UART bytes, ARINC 429 words,
// CAN frames, the byte stream over CAN): the application's items wait in the
// service's queue; every tick pushes as many as the unit's transmit FIFO and
// the next frame's free payload take; transmit events confirm that items left
// the FIFO; a status answer corrects the count should a confirmation be lost
// with a damaged frame.
//
// The counters of that state are in KvxOutputCount.h. PushQueued takes the
// device lock once per tick.

#include <HdwLib/framework/HdwService.h>
#include <HdwLib/units/KvxOutputCount.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <cstdint>

namespace hdw::units {

// One tick's push of an output service, under the service's lock: when the
// service runs and has items queued and its port's instance exists, `out`
// pushes (unless the unit is lost) as many as the FIFO room (out.Room(frameDue), 0: wait) and the
// next frame's free payload (out.Fit(room, freeBytes)) allow. `frameDue` is
// true when commands already wait for the next frame. TOut provides:
//   bool Empty() const;
//   unsigned Room(bool frameDue) const;
//   unsigned Fit(unsigned room, unsigned freeBytes);
//   void Push(CKVX_HdwKvxCommandUnit& unit, unsigned device, unsigned channel, unsigned n);
// Push attaches the push command(s), takes what went from the queue and
// counts it in flight.
template <class TOut>
unsigned PushQueued(
    CKVX_HdwService& service, CKVX_HdwKvxCommandUnit* unit, unsigned device, unsigned channel, TOut&& out)
{
    CKVX_HdwServiceLock lock(service);
    if (service.GetStatus() != HDW_SERVICE_RUNNING || out.Empty())
        return 0;
    CKVX_HdwKvxUnitInstance* inst = unit ? unit->GetUnitInstance(device) : nullptr;
    if (!inst || !TakesPushes(inst))
        return 0;
    const unsigned room = out.Room(!inst->CommandList.IsEmpty());
    if (room == 0)
        return 0;
    const unsigned n = out.Fit(room, FreePayload(unit, inst));
    if (n == 0)
        return 0;
    out.Push(*unit, device, channel, n);
    return 0;
}

} // namespace hdw::units
