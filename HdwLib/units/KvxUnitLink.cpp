// Reconnect of a lost unit: taking the loss over in the tick, the link's
// reopening with back-off, the fresh session and the channels' configuration
// sent again.
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxUnitLink.h>
#include <HdwLib/units/KvxUnitPorts.h>
#include <HdwLib/units/internal/KvxReconnectAttempt.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/framework/HdwManager.h>

#include <algorithm>
#include <mutex>

CKVX_HdwKvxUnitLinkStatus::~CKVX_HdwKvxUnitLinkStatus() = default;
CKVX_HdwKvxReconnectState::CKVX_HdwKvxReconnectState() : Attempt(std::make_unique<hdw::units::CReconnectAttempt>()) {}
CKVX_HdwKvxReconnectState::~CKVX_HdwKvxReconnectState() = default;
CKVX_HdwKvxUnitLinkEvent::~CKVX_HdwKvxUnitLinkEvent() = default;

bool CKVX_HdwKvxCommandUnit::IsReconnectEnabled() const
{
    const CKVX_HdwManager* manager = const_cast<CKVX_HdwKvxCommandUnit*>(this)->GetUnitDevice().GetManager();
    return manager && manager->IsReconnectEnabled();
}

unsigned CKVX_HdwKvxCommandUnit::GetUnitLinkStatus(unsigned instance, CKVX_HdwKvxUnitLinkStatus& status)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwDevice& device = GetUnitDevice();
    device.DeviceLock(instance);
    status = inst->Reconnect.Status;
    device.DeviceUnlock(instance);
    return 0;
}

bool CKVX_HdwKvxCommandUnit::TakeOverLoss(unsigned instance, CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs)
{
    CKVX_HdwDevice::CDeviceInstance& base = inst->GetDeviceInstanceBase();
    if (!IsReconnectEnabled() || base.GetPortList().GetLength() == 0)
        return false;
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    // Nothing queued or awaited goes out again: a command may have taken
    // effect before the link went, and sending it twice would repeat it.
    rs.Status.FailedCommands += inst->CommandList.GetLength() + inst->EchoList.GetLength();
    inst->ResetQueues();
    inst->ResetRxState();
    // The tick leaves the unit alone until its link is open again.
    base.SetOpen(false);
    if (rs.Status.State == HDW_UNIT_LINK_UP) {
        ++rs.Status.Outages;
        rs.LostAtMs = nowMs;
        rs.BackoffMs = KvxReconnectFirstMs;
        rs.Status.State = HDW_UNIT_LINK_LOST;
        CKVX_HdwKvxUnitLinkEvent lost(KvxEventUnitLost);
        GetUnitDevice().ProcessEventHandlers(instance, &lost);
        rs.Status.LostItems += lost.LostItems;
        hdw::units::PostLinkSignal(
            inst->GetDeviceInstanceBase(), HDW_SIGNAL_UNIT_LOST, rs.Status.Outages, uint32_t(lost.LostItems), nowMs);
        rs.NextAttemptMs = nowMs + rs.BackoffMs;
    } else {
        // A session start that the unit did not answer: the next attempt later.
        ScheduleNextAttempt(inst, nowMs, true);
    }
    return true;
}

void CKVX_HdwKvxCommandUnit::ScheduleNextAttempt(CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs, bool backOff)
{
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    ++rs.Status.FailedAttempts;
    rs.Status.State = HDW_UNIT_LINK_LOST;
    inst->GetDeviceInstanceBase().SetOpen(false);
    if (backOff)
        rs.BackoffMs = std::min(rs.BackoffMs * 2, KvxReconnectMaxMs);
    rs.NextAttemptMs = nowMs + rs.BackoffMs;
}

unsigned CKVX_HdwKvxCommandUnit::UnitLinkVerify(unsigned)
{
    return 0;
}

void CKVX_HdwKvxCommandUnit::ReconnectLostUnits()
{
    // Without the switch no unit is ever lost: the tick pays nothing.
    if (!IsReconnectEnabled())
        return;
    CKVX_HdwDevice& device = GetUnitDevice();
    const unsigned count = device.GetInstanceCount();
    for (unsigned i = 0; i < count; ++i) {
        CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(i);
        if (!inst)
            continue;
        CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
        // An application opening or closing the unit has the gate: its turn.
        std::unique_lock gate(rs.Attempt->Gate(), std::try_to_lock);
        if (!gate)
            continue;
        if (rs.Attempt->IsRunning()) {
            if (const std::optional<unsigned> rc = rs.Attempt->Collect())
                FinishAttempt(i, inst, *rc);
            continue;
        }
        device.DeviceLock(i);
        // With every port closed there is nothing to bring back; the close
        // of the last one has ended the outage (EndOutage).
        const bool due = rs.Status.State == HDW_UNIT_LINK_LOST && GetUnitTime() >= rs.NextAttemptMs &&
            inst->GetDeviceInstanceBase().GetPortList().GetLength() > 0;
        if (due)
            rs.Status.State = HDW_UNIT_LINK_OPENING;
        device.DeviceUnlock(i);
        if (due)
            rs.Attempt->Start([this, i, inst] { return AttemptLink(i, inst); });
    }
}

void CKVX_HdwKvxCommandUnit::CancelReconnectAttempts()
{
    CKVX_HdwDevice& device = GetUnitDevice();
    for (unsigned i = 0; i < device.GetInstanceCount(); ++i)
        if (CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(i)) {
            std::lock_guard gate(inst->Reconnect.Attempt->Gate());
            inst->Reconnect.Attempt->Cancel();
        }
}

unsigned CKVX_HdwKvxCommandUnit::AttemptLink(unsigned instance, CKVX_HdwKvxUnitInstance* inst)
{
    // The old link first (a serial device that vanished, a session the unit
    // forgot), then the same path or address again. While the state says
    // OPENING the tick neither reads nor writes the link and the unit takes
    // no command, even once the link's open flag is set.
    UnitLinkAbandon(inst);
    if (UnitLinkOpen(instance) != 0)
        return HDW_ERR_LINK;
    if (UnitLinkVerify(instance) != 0) {
        // Another unit answers there: not this one's to take over.
        UnitLinkAbandon(inst);
        return HDW_ERR_LINK;
    }
    return 0;
}

void CKVX_HdwKvxCommandUnit::FinishAttempt(unsigned instance, CKVX_HdwKvxUnitInstance* inst, unsigned rc)
{
    CKVX_HdwDevice& device = GetUnitDevice();
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    device.DeviceLock(instance);
    const uint64_t now = GetUnitTime();
    if (rc != 0) {
        ScheduleNextAttempt(inst, now, true);
    } else {
        inst->ResetRxState();
        inst->ResetQueues();
        inst->BeginSession();
        inst->GetDeviceInstanceBase().SetOpen(true);
        rs.Status.State = HDW_UNIT_LINK_RESYNC;
        rs.SinceMs = now;
        if (SendSessionStart(inst) != 0)
            TakeOverLoss(instance, inst, now);
    }
    const bool failedAgain = rc == 0 && rs.Status.State == HDW_UNIT_LINK_LOST;
    device.DeviceUnlock(instance);
    if (failedAgain)
        UnitLinkAbandon(inst);
}

void CKVX_HdwKvxCommandUnit::CancelAttempt(unsigned instance, CKVX_HdwKvxUnitInstance* inst)
{
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    if (!rs.Attempt->IsRunning())
        return;
    rs.Attempt->Cancel();
    CKVX_HdwDevice& device = GetUnitDevice();
    device.DeviceLock(instance);
    rs.Status.State = HDW_UNIT_LINK_LOST;
    inst->GetDeviceInstanceBase().SetOpen(false);
    device.DeviceUnlock(instance);
    // A link the attempt opened is not taken: the caller opens its own or ends the outage.
    UnitLinkAbandon(inst);
}

void CKVX_HdwKvxCommandUnit::EndOutage(unsigned instance, CKVX_HdwKvxUnitInstance* inst)
{
    CKVX_HdwDevice& device = GetUnitDevice();
    device.DeviceLock(instance);
    const bool lost = inst->Reconnect.Status.State != HDW_UNIT_LINK_UP &&
        inst->GetDeviceInstanceBase().GetPortList().GetLength() == 0;
    if (lost) {
        inst->Reconnect.Status.State = HDW_UNIT_LINK_UP;
        inst->ResetQueues();
        inst->GetDeviceInstanceBase().SetOpen(false);
    }
    device.DeviceUnlock(instance);
    // The link that went away is still held: let it go with the last port.
    if (lost)
        UnitLinkAbandon(inst);
}

bool CKVX_HdwKvxCommandUnit::HoldLostUnit(unsigned instance, CKVX_HdwKvxUnitInstance* inst)
{
    CKVX_HdwDevice& device = GetUnitDevice();
    device.DeviceLock(instance);
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    const bool lost = rs.Status.State == HDW_UNIT_LINK_LOST;
    if (lost)
        rs.NextAttemptMs = UINT64_MAX;
    device.DeviceUnlock(instance);
    return lost;
}

unsigned CKVX_HdwKvxCommandUnit::OpenLostUnit(unsigned instance, CKVX_HdwKvxUnitInstance* inst)
{
    UnitLinkAbandon(inst);
    unsigned rc = UnitLinkOpen(instance) != 0 ? unsigned(HDW_ERR_LINK) : 0u;
    if (rc == 0)
        rc = UnitLinkVerify(instance) != 0 ? unsigned(HDW_ERR_LINK) : OpenSession(instance);
    CKVX_HdwDevice& device = GetUnitDevice();
    device.DeviceLock(instance);
    const uint64_t now = GetUnitTime();
    if (rc == 0)
        RestoreUnit(instance, inst, now);
    else
        ScheduleNextAttempt(inst, now, false);
    device.DeviceUnlock(instance);
    if (rc != 0)
        UnitLinkAbandon(inst);
    return rc;
}

unsigned CKVX_HdwKvxCommandUnit::ResyncTick(unsigned instance, CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs)
{
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    const unsigned rc = ProcessReception(instance);
    if (rc == 0 && inst->IsSessionConfirmed()) {
        RestoreUnit(instance, inst, nowMs);
        return 0;
    }
    // A damaged frame is not the end of the attempt; a failed link or a
    // session start left unanswered for the echo time-out is.
    if ((rc != 0 && rs.ReadFailed) || nowMs - rs.SinceMs >= GetEchoTimeout())
        TakeOverLoss(instance, inst, nowMs);
    return 0;
}

void CKVX_HdwKvxCommandUnit::RestoreUnit(unsigned instance, CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs)
{
    // The channels' configuration goes before anything the services queued
    // while the session was starting: a word pushed to a channel the unit
    // has not yet enabled again would wait there or be lost.
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    rs.Status.State = HDW_UNIT_LINK_UP;
    CCommandList queued = std::move(inst->CommandList);
    inst->CommandList.DeleteAll();
    for (CKVX_HdwPort* port : inst->GetDeviceInstanceBase().GetPortList()) {
        if (auto* tx = dynamic_cast<CKVX_HdwKvxArinc429TxPort*>(port))
            tx->AttachConfiguration(true);
        else if (auto* rx = dynamic_cast<CKVX_HdwKvxArinc429RxPort*>(port))
            rx->AttachConfiguration(true);
        else if (auto* can = dynamic_cast<CKVX_HdwKvxCanPort*>(port))
            can->AttachConfiguration(true);
        else if (auto* uart = dynamic_cast<CKVX_HdwKvxUartPort*>(port))
            uart->AttachConfiguration(true);
        else if (auto* din = dynamic_cast<CKVX_HdwKvxDiscreteInPort*>(port))
            din->AttachConfiguration(true);
        else if (auto* dout = dynamic_cast<CKVX_HdwKvxDiscreteOutPort*>(port))
            dout->AttachRestoredConfiguration();
        else if (auto* i2c = dynamic_cast<CKVX_HdwKvxI2cPort*>(port))
            i2c->AttachConfiguration(true);
        else if (auto* spi = dynamic_cast<CKVX_HdwKvxSpiPort*>(port))
            spi->AttachConfiguration(true);
    }
    for (const CCommand& c : queued)
        inst->CommandList += c;

    ++rs.Status.Returns;
    rs.BackoffMs = 0;
    CKVX_HdwKvxUnitLinkEvent back(KvxEventUnitBack);
    GetUnitDevice().ProcessEventHandlers(instance, &back);
    const uint64_t away = nowMs - rs.LostAtMs;
    hdw::units::PostLinkSignal(inst->GetDeviceInstanceBase(), HDW_SIGNAL_UNIT_BACK, rs.Status.Returns,
        uint32_t(std::min<uint64_t>(away, UINT32_MAX)), nowMs);
}
