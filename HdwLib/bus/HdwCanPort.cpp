#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwCanPort::CParameters::~CParameters() = default;
CKVX_HdwCanPort::CFaultStatus::~CFaultStatus() = default;

CKVX_HdwCanPort::CKVX_HdwCanPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_CAN;
}

CKVX_HdwCanPort::~CKVX_HdwCanPort() = default;

unsigned CKVX_HdwCanPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::bus::OpenWithParameters(*this, m_Parameters, params);
}

unsigned CKVX_HdwCanPort::Close()
{
    return CKVX_HdwPort::Close();
}

unsigned CKVX_HdwCanPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    // Frame and byte services may run together: no exclusion.
    return hdw::bus::AdmitService(*this, serviceType,
        {HDW_SERVICE_SIGNAL, HDW_SERVICE_BYTE_IN_BUFFER, HDW_SERVICE_BYTE_OUT_BUFFER, HDW_SERVICE_CAN_OUT_BUFFER,
            HDW_SERVICE_CAN_IN_BUFFER},
        nullptr);
}

unsigned CKVX_HdwCanPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}

unsigned CKVX_HdwCanPort::GetFaultStatus(CFaultStatus* status)
{
    if (!status)
        return HDW_ERR_ARGUMENT;
    DeviceLock();
    *status = m_FaultStatus;
    DeviceUnlock();
    return 0;
}

bool CKVX_HdwCanPort::UpdateFaultStatus(const CFaultStatus& status, uint64_t eventTime)
{
    if (status == m_FaultStatus)
        return false;
    const CFaultStatus previous = m_FaultStatus;
    m_FaultStatus = status;
    if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(this))
        signals->PostCanFaultStatus(previous, status, eventTime);
    return true;
}
