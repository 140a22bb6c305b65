#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwPort.h>
#include <HdwLib/framework/HdwService.h>

CKVX_HdwService::CParameters::~CParameters() = default;

CKVX_HdwService::CKVX_HdwService(CKVX_HdwObject* port) : m_Port(port) {}

CKVX_HdwService::~CKVX_HdwService() = default;

unsigned CKVX_HdwService::GetParameters(CParameters*)
{
    return 0;
}

unsigned CKVX_HdwService::SetParameters(CParameters*)
{
    // Parameters change only while the port is closed.
    const CKVX_HdwPort* port = GetHdwPort();
    if (port && port->IsOpen())
        return HDW_ERR_WRONG_STATE;
    return 0;
}

unsigned CKVX_HdwService::HdwTimerHandler(uint64_t)
{
    return 0;
}
unsigned CKVX_HdwService::Start()
{
    return 0;
}
unsigned CKVX_HdwService::Stop()
{
    return 0;
}

unsigned CKVX_HdwService::Abort()
{
    SetStatus(HDW_SERVICE_FAILED);
    return 0;
}

unsigned CKVX_HdwService::ProcessEvent(CKVX_HdwEvent*)
{
    return 0;
}

CKVX_HdwPort* CKVX_HdwService::GetHdwPort() const
{
    return static_cast<CKVX_HdwPort*>(m_Port);
}

CKVX_HdwDevice* CKVX_HdwService::GetDevice() const
{
    const CKVX_HdwPort* port = GetHdwPort();
    return port ? port->GetHdwDevice() : nullptr;
}

void CKVX_HdwService::DeviceLock()
{
    if (CKVX_HdwPort* port = GetHdwPort())
        port->DeviceLock();
}

void CKVX_HdwService::DeviceUnlock()
{
    if (CKVX_HdwPort* port = GetHdwPort())
        port->DeviceUnlock();
}
