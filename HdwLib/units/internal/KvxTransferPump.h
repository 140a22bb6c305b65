#pragma once
// The tick of the unit's master services (I2C, SPI): whether the unit can
// be given transfers now, and the host time-out of the oldest one sent.

#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <cstdint>

namespace hdw::units {

// Margin of the host time-out beyond the transfer's own time on the bus.
inline constexpr uint64_t TransferTimeoutMarginMs = 500;

// The unit and instance of a master port when transfers may go out now
// (running service, unit not lost); null otherwise. Caller holds the lock.
template <class P>
CKVX_HdwKvxUnitInstance* PumpTarget(CKVX_HdwService& service, P* port, CKVX_HdwKvxCommandUnit*& unit)
{
    unit = port ? port->GetUnit() : nullptr;
    if (!unit || service.GetStatus() != HDW_SERVICE_RUNNING)
        return nullptr;
    CKVX_HdwKvxUnitInstance* inst = InstanceOf(port);
    return inst && TakesPushes(inst) ? inst : nullptr;
}

// True when a record of `recordBytes` (header included) fits the next frame.
inline bool RecordFits(CKVX_HdwKvxCommandUnit* unit, CKVX_HdwKvxUnitInstance* inst, unsigned recordBytes)
{
    return FreePayload(unit, inst) >= recordBytes;
}

inline bool TransferOverdue(uint64_t nowMs, uint64_t sentAtMs, uint64_t busMs)
{
    return nowMs > sentAtMs && nowMs - sentAtMs > busMs + TransferTimeoutMarginMs;
}

} // namespace hdw::units
