// A lost Sorrel with the manager's reconnect on: the loss found in the tick
// (every open port silent for the link time-out), the session opened again
// on an attempt thread with back-off, every open port opened and configured
// again, and the byte services going on.
#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/units/HdwKvxSorrelDevice.h>
#include <HdwLib/units/internal/KvxReconnectAttempt.h>
#include <HdwLib/units/internal/KvxSorrelChannel.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>
#include <mutex>

namespace sorrel = hdw::units::sorrel;

namespace {

uint64_t NowMs()
{
    return sorrel::NowUs() / 1000;
}

template <class F>
void ForOpenUarts(CKVX_HdwDevice::CDeviceInstance& inst, F f)
{
    for (CKVX_HdwPort* port : inst.GetPortList())
        if (auto* uart = dynamic_cast<CKVX_HdwKvxSorrelUartPort*>(port))
            f(*uart);
}

CKVX_HdwKvxSorrelByteOutBufferService* OutputOf(CKVX_HdwKvxSorrelUartPort& port)
{
    return dynamic_cast<CKVX_HdwKvxSorrelByteOutBufferService*>(port.FindService(HDW_SERVICE_BYTE_OUT_BUFFER));
}

} // namespace

bool CKVX_HdwKvxSorrelDevice::ReconnectEnabled()
{
    const CKVX_HdwManager* manager = GetManager();
    return manager && manager->IsReconnectEnabled();
}

unsigned CKVX_HdwKvxSorrelDevice::GetUnitLinkStatus(unsigned instance, CKVX_HdwKvxUnitLinkStatus& status)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
    if (!inst)
        return HDW_ERR_ARGUMENT;
    DeviceLock(instance);
    status = inst->Reconnect.Status;
    DeviceUnlock(instance);
    return 0;
}

bool CKVX_HdwKvxSorrelDevice::IsUnitLost(unsigned instance)
{
    // Called by the port's tick handler, device lock held.
    auto* inst = dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
    return inst && inst->Reconnect.Status.State != HDW_UNIT_LINK_UP;
}

void CKVX_HdwKvxSorrelDevice::HoldAttempt(unsigned instance)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
    if (!inst)
        return;
    std::lock_guard gate(inst->Reconnect.Attempt->Gate());
    inst->Reconnect.Attempt->Cancel();
    DeviceLock(instance);
    if (inst->Reconnect.Status.State == HDW_UNIT_LINK_OPENING)
        inst->Reconnect.Status.State = HDW_UNIT_LINK_LOST;
    DeviceUnlock(instance);
}

void CKVX_HdwKvxSorrelDevice::EndOutage(unsigned instance)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
    if (!inst)
        return;
    DeviceLock(instance);
    if (inst->GetPortList().GetLength() == 0)
        inst->Reconnect.Status.State = HDW_UNIT_LINK_UP;
    DeviceUnlock(instance);
}

unsigned CKVX_HdwKvxSorrelDevice::ReviveForOpen(unsigned instance)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
    if (!inst)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwKvxReconnectState& rs = inst->Reconnect;
    // The gate keeps the tick away until the attempt below is collected.
    std::lock_guard gate(rs.Attempt->Gate());
    rs.Attempt->Cancel();
    std::vector<CUartPort*> ports;
    DeviceLock(instance);
    const bool lost = rs.Status.State != HDW_UNIT_LINK_UP;
    if (lost) {
        rs.Status.State = HDW_UNIT_LINK_OPENING;
        ForOpenUarts(*inst, [&](CUartPort& port) { ports.push_back(&port); });
    }
    DeviceUnlock(instance);
    if (!lost)
        return 0;
    const unsigned rc = AttemptLink(*inst, ports);
    DeviceLock(instance);
    FinishAttempt(*inst, rc, NowMs());
    DeviceUnlock(instance);
    return rc == 0 ? HDW_OK : HDW_ERR_LINK;
}

void CKVX_HdwKvxSorrelDevice::WatchLink(CDeviceInstance& inst)
{
    CKVX_HdwKvxReconnectState& rs = inst.Reconnect;
    const uint64_t now = NowMs();
    if (rs.Status.State == HDW_UNIT_LINK_UP) {
        // Lost when every open port heard nothing for the link time-out.
        const auto timeout = std::chrono::milliseconds(GetLinkTimeout() ? GetLinkTimeout() : 1000u);
        const auto since = sorrel::Clock::now();
        bool any = false, silent = true;
        ForOpenUarts(inst, [&](CUartPort& port) {
            hdw::units::CSorrelChannel* ch = port.GetSorrelChannel();
            std::lock_guard<std::mutex> lock(ch->Mutex);
            any = true;
            silent = silent && since - ch->LastHeard >= timeout;
        });
        if (any && silent)
            TakeOverLoss(inst, now);
        return;
    }
    // An application opening or closing a port has the gate: its turn.
    std::unique_lock gate(rs.Attempt->Gate(), std::try_to_lock);
    if (!gate)
        return;
    if (rs.Attempt->IsRunning()) {
        if (const std::optional<unsigned> rc = rs.Attempt->Collect())
            FinishAttempt(inst, *rc, now);
        return;
    }
    if (rs.Status.State != HDW_UNIT_LINK_LOST || now < rs.NextAttemptMs || inst.GetPortList().GetLength() == 0)
        return;
    std::vector<CUartPort*> ports;
    ForOpenUarts(inst, [&](CUartPort& port) { ports.push_back(&port); });
    rs.Status.State = HDW_UNIT_LINK_OPENING;
    rs.Attempt->Start([this, &inst, ports] { return AttemptLink(inst, ports); });
}

void CKVX_HdwKvxSorrelDevice::TakeOverLoss(CDeviceInstance& inst, uint64_t nowMs)
{
    CKVX_HdwKvxReconnectState& rs = inst.Reconnect;
    // The unit's buffers are gone with its session: what was sent to it and
    // not acknowledged may never reach the line, and is counted.
    uint64_t lost = 0;
    ForOpenUarts(inst, [&](CUartPort& port) {
        if (CUartByteOutBufferService* out = OutputOf(port))
            lost += out->ForgetInFlight();
    });
    ++rs.Status.Outages;
    rs.Status.LostItems += lost;
    hdw::units::PostLinkSignal(inst, HDW_SIGNAL_UNIT_LOST, uint32_t(rs.Status.Outages), uint32_t(lost), nowMs);
    rs.LostAtMs = nowMs;
    rs.BackoffMs = KvxReconnectFirstMs;
    rs.NextAttemptMs = nowMs + rs.BackoffMs;
    rs.Status.State = HDW_UNIT_LINK_LOST;
}

void CKVX_HdwKvxSorrelDevice::FinishAttempt(CDeviceInstance& inst, unsigned rc, uint64_t nowMs)
{
    CKVX_HdwKvxReconnectState& rs = inst.Reconnect;
    if (rc != 0) {
        ++rs.Status.FailedAttempts;
        rs.Status.State = HDW_UNIT_LINK_LOST;
        rs.BackoffMs = std::min(rs.BackoffMs * 2, KvxReconnectMaxMs);
        rs.NextAttemptMs = nowMs + rs.BackoffMs;
        return;
    }
    // The ports are open on the unit again, numbering from 0 both ways.
    ForOpenUarts(inst, [&](CUartPort& port) {
        if (CUartByteOutBufferService* out = OutputOf(port))
            out->Resume();
    });
    rs.Status.State = HDW_UNIT_LINK_UP;
    ++rs.Status.Returns;
    rs.BackoffMs = 0;
    const uint64_t away = nowMs - rs.LostAtMs;
    hdw::units::PostLinkSignal(
        inst, HDW_SIGNAL_UNIT_BACK, uint32_t(rs.Status.Returns), uint32_t(std::min<uint64_t>(away, UINT32_MAX)), nowMs);
}

unsigned CKVX_HdwKvxSorrelDevice::AttemptLink(CDeviceInstance& inst, const std::vector<CUartPort*>& ports)
{
    // The session the unit forgot goes first; then the same address again,
    // where the same unit must answer.
    inst.EthDisconnect();
    CKVX_HdwHoeLink::CDetectInfo info;
    if (inst.EthDetect(info) != 0 || info.DeviceKind != DeviceCode ||
        (!info.SerialNumber.IsEmpty() && info.SerialNumber != inst.SerialNumber))
        return HDW_ERR_LINK;
    if (inst.CreateEthernetLink(GetManager(), GetLinkTimeout()) != 0)
        return HDW_ERR_LINK;
    for (CUartPort* port : ports) {
        hdw::units::CSorrelChannel* ch = port->GetSorrelChannel();
        {
            std::lock_guard<std::mutex> lock(ch->Mutex);
            ch->Open = false; // set again by the reply
            ch->TxNext = 0;
            ch->RxBytes.clear();
            ch->LastHeard = sorrel::Clock::now();
        }
        uint8_t line[sorrel::LineSettingsSize];
        sorrel::EncodeLine(port->GetUartParameters(), line);
        std::vector<uint8_t> reply;
        if (sorrel::ReplyStatus(port->Request(CodeOpenPort, line, sizeof line, reply), reply) != 0 ||
            sorrel::ReplyStatus(port->Request(CodeCfgPort, line, sizeof line, reply), reply) != 0) {
            inst.EthDisconnect();
            return HDW_ERR_LINK;
        }
    }
    return 0;
}
