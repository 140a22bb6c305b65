#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/units/internal/KvxPortOpen.h>
#include <HdwLib/units/internal/KvxReconnectAttempt.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <HdwLib/units/internal/KvxWait.h>

namespace hdw::units {

unsigned WaitCommandDone(CKVX_HdwPort* port, uint16_t number, unsigned timeoutMs)
{
    CKVX_HdwKvxUnitInstance* inst = InstanceOf(port);
    if (!inst)
        return HDW_ERR_LINK;
    bool open = false;
    const bool done = WaitUntil(timeoutMs, [&] {
        port->DeviceLock();
        const bool pending = inst->IsCommandPending(number);
        open = inst->GetDeviceInstanceBase().IsOpen();
        port->DeviceUnlock();
        return !pending;
    });
    return done && open ? 0u : unsigned(HDW_ERR_LINK);
}

COpeningPort::COpeningPort(CKVX_HdwPort& port)
{
    if (CKVX_HdwKvxUnitInstance* inst = InstanceOf(&port)) {
        m_Count = &inst->Reconnect.Attempt->PortsOpening();
        m_Count->fetch_add(1);
    }
}

COpeningPort::~COpeningPort()
{
    if (m_Count)
        m_Count->fetch_sub(1);
}

unsigned FinishOpen(CKVX_HdwPort& port, unsigned openResult, unsigned timeoutMs)
{
    // The configuration and what the services' Start attached: the last
    // command attached covers them all, as echoes come back in order.
    port.DeviceLock();
    CKVX_HdwKvxUnitInstance* inst = InstanceOf(&port);
    const uint16_t configNumber = inst ? LastCommandNumber(inst) : 0;
    port.DeviceUnlock();
    // A refused open leaves the unit's link as it is (open, when the generic
    // open got that far), like a service that fails to start: closing it here
    // would race the unit's echo of the closing session against a quick
    // re-open. The manager's Stop closes it.
    if (openResult != 0)
        return openResult;
    if (WaitCommandDone(&port, configNumber, timeoutMs ? timeoutMs : 1000) != 0) {
        port.Close();
        return HDW_ERR_LINK;
    }
    return 0;
}

void PostLinkSignal(CKVX_HdwDevice::CDeviceInstance& inst, unsigned kind, uint32_t value, uint32_t aux, uint64_t nowMs)
{
    for (CKVX_HdwPort* port : inst.GetPortList())
        if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(port)) {
            signals->PostValue(kind, value, aux, nowMs);
            signals->PublishReadiness();
        }
}

} // namespace hdw::units
