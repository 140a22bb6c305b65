#pragma once
// What the ARINC 429 outputs that own a transmitter's FIFO (the word buffer,
// the byte stream) do alike: count the words in the unit's FIFO from the
// transmit events, correct the count with a periodic status request, and
// top the FIFO up once it is half empty, or whenever a frame goes out anyway.
//
// Lock rule: the caller holds the device lock.

#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/KvxOutputCount.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

namespace hdw::units {

// Words a push may add now, up to 512 in the FIFO: none while it is more than
// half full (fewer, larger frames for the same bus load), unless `frameDue`
// (see TopUpRoom).
inline unsigned Arinc429FifoRoom(const CKVX_HdwKvxOutputCount& count, bool frameDue)
{
    return TopUpRoom(count.InFlight, KvxArinc429TxFifoWords, frameDue);
}

// The output's start: nothing counted, the channel on, and a status
// request for what the FIFO still holds from an earlier user of it.
inline void StartArinc429Fifo(
    CKVX_HdwKvxArinc429TxPort* port, CKVX_HdwKvxOutputCount& count, CKVX_HdwKvxFifoStatusPoll& poll)
{
    count.Reset();
    poll.Reset();
    if (!port)
        return;
    port->AttachConfiguration(true);
    if (port->GetUnit()->AttachStatusRequestCommand(port->GetDeviceId(), port->GetChannel(), StatusAtxFifo) == 0)
        poll.Requested(count.Pushed, poll.LastTick());
}

// The tick's status request, when one is due.
inline void PollArinc429Fifo(
    CKVX_HdwKvxArinc429TxPort* port, CKVX_HdwKvxOutputCount& count, CKVX_HdwKvxFifoStatusPoll& poll, uint64_t ticks)
{
    if (poll.Due(ticks, count.InFlight) && port &&
        port->GetUnit()->AttachStatusRequestCommand(port->GetDeviceId(), port->GetChannel(), StatusAtxFifo) == 0)
        poll.Requested(count.Pushed, ticks);
}

// A lost unit's FIFO is gone with it: the words it held are counted in the
// loss event, and what still waits in the service goes after the reconnect.
// True for that event.
inline bool ForgetLostArinc429Fifo(CKVX_HdwEvent* event, CKVX_HdwKvxOutputCount& count, CKVX_HdwKvxFifoStatusPoll& poll)
{
    if (!IsEvent(event, KvxEventUnitLost))
        return false;
    static_cast<CKVX_HdwKvxUnitLinkEvent*>(event)->LostItems += count.InFlight;
    count.Reset();
    poll.Reset();
    return true;
}

// A transmit event confirms a word; the answer to the status request sets
// the count to the FIFO level then plus what was pushed after it; a lost
// unit empties it. True when the count changed.
inline bool TrackArinc429Fifo(CKVX_HdwEvent* event, CKVX_HdwKvxOutputCount& count, CKVX_HdwKvxFifoStatusPoll& poll)
{
    if (ForgetLostArinc429Fifo(event, count, poll))
        return true;
    if (IsEvent(event, KvxEventA429Tx)) {
        count.Confirm(1);
        return true;
    }
    if (IsEvent(event, KvxEventStatus)) {
        const auto* status = static_cast<const CKVX_HdwKvxStatusEvent*>(event);
        uint64_t mark = 0;
        if (status->Kind == StatusAtxFifo && poll.Answer(mark)) {
            count.Resync(status->StatusWord, mark);
            return true;
        }
    }
    return false;
}

} // namespace hdw::units
