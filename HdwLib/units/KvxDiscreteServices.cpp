#include <HdwLib/units/KvxDiscretePorts.h>
#include <HdwLib/units/KvxDiscreteServices.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

namespace {

// Asks the unit for the state of the service's bank (input or output),
// under the service's lock.
unsigned RequestBank(CKVX_HdwService& service, bool input)
{
    CKVX_HdwPort* port = service.GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    if (!unit)
        return HDW_ERR_LINK;
    const uint8_t bank = uint8_t(1u << hdw::units::ChannelOf(&service));
    CKVX_HdwServiceLock lock(service);
    return unit->AttachDiscreteReadCommand(port->GetDeviceId(), input ? bank : 0, input ? 0 : bank);
}

// The unit's own events to a discrete service; true when `event` was one.
// A critical failure aborts the service. A unit lost and back: its fresh
// session counts events from 0 again, so the old sequence base is forgotten
// at the loss, and the state is asked for again on the return (its answer
// gives the new base).
bool TakeUnitEvent(CKVX_HdwService& service, CKVX_HdwEvent* event, bool& haveSequence, bool input)
{
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure))
        service.Abort();
    else if (hdw::units::IsEvent(event, KvxEventUnitLost))
        haveSequence = false;
    else if (!hdw::units::IsEvent(event, KvxEventUnitBack))
        return false;
    else if (service.GetStatus() == HDW_SERVICE_RUNNING)
        RequestBank(service, input);
    return true;
}

} // namespace

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxDiscreteInService::CKVX_HdwKvxDiscreteInService(CKVX_HdwObject* port) : CKVX_HdwDiscreteInService(port) {}

CKVX_HdwKvxDiscreteInService::~CKVX_HdwKvxDiscreteInService() = default;

unsigned CKVX_HdwKvxDiscreteInService::Start()
{
    if (const unsigned rc = CKVX_HdwDiscreteInService::Start())
        return rc;
    return RequestBank(*this, true);
}

unsigned CKVX_HdwKvxDiscreteInService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (TakeUnitEvent(*this, event, m_HaveSequence, true))
        return 0;
    if (hdw::units::IsEvent(event, KvxEventDiscreteIn)) {
        const auto* e = static_cast<const CKVX_HdwKvxDiscreteInEvent*>(event);
        UpdateState(
            e->State, e->Changed, e->Sequence, e->UnwrappedTime, e->Cause == CKVX_HdwKvxDiscreteInEvent::CauseChange);
    }
    return 0;
}

unsigned CKVX_HdwKvxDiscreteInService::Refresh()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    return RequestBank(*this, true);
}

// ---- output -------------------------------------------------------------------

CKVX_HdwKvxDiscreteOutService::CKVX_HdwKvxDiscreteOutService(CKVX_HdwObject* port) : CKVX_HdwDiscreteOutService(port) {}

CKVX_HdwKvxDiscreteOutService::~CKVX_HdwKvxDiscreteOutService() = default;

unsigned CKVX_HdwKvxDiscreteOutService::Start()
{
    if (const unsigned rc = CKVX_HdwDiscreteOutService::Start())
        return rc;
    return RequestBank(*this, false);
}

unsigned CKVX_HdwKvxDiscreteOutService::ProcessEvent(CKVX_HdwEvent* event)
{
    if (TakeUnitEvent(*this, event, m_HaveSequence, false))
        return 0;
    if (hdw::units::IsEvent(event, KvxEventDiscreteOut)) {
        const auto* e = static_cast<const CKVX_HdwKvxDiscreteOutEvent*>(event);
        UpdateDriven(e->State, e->Changed, e->Sequence, e->UnwrappedTime);
    }
    return 0;
}

// Run state, arguments, then the command and the commanded state under one
// lock; an empty mask sends nothing.
unsigned CKVX_HdwKvxDiscreteOutService::Write(unsigned operation, uint32_t mask, uint32_t value)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (const unsigned rc = CheckMask(mask | value))
        return rc;
    if (mask == 0)
        return 0;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    if (!unit)
        return HDW_ERR_LINK;
    CKVX_HdwServiceLock lock(*this);
    const unsigned rc =
        unit->AttachDiscreteOutWriteCommand(port->GetDeviceId(), hdw::units::ChannelOf(this), operation, mask, value);
    if (rc != 0)
        return rc;
    switch (operation) {
    case CKVX_HdwKvxCommandUnit::DiscreteSet: m_Commanded |= mask; break;
    case CKVX_HdwKvxCommandUnit::DiscreteClear: m_Commanded &= ~mask; break;
    case CKVX_HdwKvxCommandUnit::DiscreteToggle: m_Commanded ^= mask; break;
    default: m_Commanded = (m_Commanded & ~mask) | (value & mask); break;
    }
    return 0;
}

unsigned CKVX_HdwKvxDiscreteOutService::Set(uint32_t mask)
{
    return Write(CKVX_HdwKvxCommandUnit::DiscreteSet, mask, 0);
}

unsigned CKVX_HdwKvxDiscreteOutService::Clear(uint32_t mask)
{
    return Write(CKVX_HdwKvxCommandUnit::DiscreteClear, mask, 0);
}

unsigned CKVX_HdwKvxDiscreteOutService::Toggle(uint32_t mask)
{
    return Write(CKVX_HdwKvxCommandUnit::DiscreteToggle, mask, 0);
}

unsigned CKVX_HdwKvxDiscreteOutService::WriteAll(uint32_t state)
{
    return Write(CKVX_HdwKvxCommandUnit::DiscreteWrite, BankLineMask(), state);
}

unsigned CKVX_HdwKvxDiscreteOutService::Pulse(uint32_t mask, uint32_t lengthUs)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (const unsigned rc = CheckPulse(mask, lengthUs))
        return rc;
    if (mask == 0)
        return 0;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    if (!unit)
        return HDW_ERR_LINK;
    // The lines return by themselves: the commanded state stays.
    CKVX_HdwServiceLock lock(*this);
    return unit->AttachDiscreteOutPulseCommand(port->GetDeviceId(), hdw::units::ChannelOf(this), mask, lengthUs);
}

unsigned CKVX_HdwKvxDiscreteOutService::Refresh()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    return RequestBank(*this, false);
}
