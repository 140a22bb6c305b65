#pragma once
// Reconnect of a command-protocol unit whose link went away (a USB cable
// pulled, a unit power-cycled, an Ethernet unit restarted). With the
// manager's Reconnect parameter on, a unit whose link fails keeps its open
// ports, their services and parameters; the tick retries the link with
// back-off and, once the unit answers a fresh session, sends every open
// channel's configuration again and goes on. docs/reconnect.md has the rules.
//
// Lock rule: the state lives in the unit's instance and changes under its
// device lock; GetUnitLinkStatus takes that lock.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/framework/HdwEvent.h>

#include <cstdint>
#include <memory>

namespace hdw::units {
class CReconnectAttempt;
}

// Where a unit's link stands (CKVX_HdwKvxUnitLinkStatus::State).
enum t_HdwKvxUnitLinkState : unsigned {
    HDW_UNIT_LINK_UP = 0, // answering (or never opened)
    HDW_UNIT_LINK_LOST = 1, // link closed, the next attempt waits for its back-off
    HDW_UNIT_LINK_RESYNC = 2, // link open again, the fresh session not yet echoed
    HDW_UNIT_LINK_OPENING = 3, // lost, an attempt to open the link is running
};

// Back-off between two attempts to open a lost unit's link, milliseconds:
// the first after ReconnectFirstMs, then doubling up to ReconnectMaxMs.
inline constexpr unsigned KvxReconnectFirstMs = 100;
inline constexpr unsigned KvxReconnectMaxMs = 2000;
// With reconnect on, a unit that has had nothing to echo for this long is
// sent an empty status request, so that a silent loss is noticed too.
inline constexpr unsigned KvxReconnectProbeIdleMs = 250;

// Counts of one unit since its device was created.
class HDWLIB_EXPORT CKVX_HdwKvxUnitLinkStatus : public CKVX_Object {
public:
    CKVX_HdwKvxUnitLinkStatus() = default;
    CKVX_HdwKvxUnitLinkStatus(const CKVX_HdwKvxUnitLinkStatus&) = default;
    CKVX_HdwKvxUnitLinkStatus& operator=(const CKVX_HdwKvxUnitLinkStatus&) = default;
    ~CKVX_HdwKvxUnitLinkStatus() override;

    unsigned State = HDW_UNIT_LINK_UP; // t_HdwKvxUnitLinkState
    uint32_t Outages = 0; // times the unit was lost
    uint32_t Returns = 0; // times it came back
    uint32_t FailedAttempts = 0; // link opens or session starts that failed while lost
    // Commands queued or awaiting their echo when the unit was lost; they
    // are never sent again.
    uint64_t FailedCommands = 0;
    // Words, frames or bytes the output services had pushed to the unit and
    // not seen confirmed when it was lost: they may not have reached the bus.
    uint64_t LostItems = 0;
};

// Event codes of the unit's link, offered to the open ports' services
// (never on the wire: the unit's event types stop at 31).
inline constexpr unsigned KvxEventUnitLost = 32;
inline constexpr unsigned KvxEventUnitBack = 33;

// The unit was lost or is back. An output service that receives the lost
// event adds its unconfirmed items to LostItems and forgets them.
class HDWLIB_EXPORT CKVX_HdwKvxUnitLinkEvent : public CKVX_HdwEvent {
public:
    explicit CKVX_HdwKvxUnitLinkEvent(unsigned code) { m_EventCode = code; }
    ~CKVX_HdwKvxUnitLinkEvent() override;
    uint64_t LostItems = 0;
};

// The reconnect state an instance keeps beside its counts.
class HDWLIB_EXPORT CKVX_HdwKvxReconnectState {
public:
    CKVX_HdwKvxReconnectState();
    CKVX_HdwKvxReconnectState(const CKVX_HdwKvxReconnectState&) = delete;
    CKVX_HdwKvxReconnectState& operator=(const CKVX_HdwKvxReconnectState&) = delete;
    ~CKVX_HdwKvxReconnectState();

    CKVX_HdwKvxUnitLinkStatus Status;
    uint64_t NextAttemptMs = 0; // unit time of the next link open
    unsigned BackoffMs = 0; // 0: the next loss starts at KvxReconnectFirstMs
    uint64_t SinceMs = 0; // unit time of the loss, or of the resync's start
    uint64_t LostAtMs = 0; // unit time the current outage began
    bool ReadFailed = false; // the last reception failed on the link itself
    // The link open of the current attempt, off the tick's thread.
    std::unique_ptr<hdw::units::CReconnectAttempt> Attempt;
};
