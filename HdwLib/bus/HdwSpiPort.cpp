#include <HdwLib/bus/HdwSpiPort.h>
#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwSpiPort::CParameters::~CParameters() = default;

unsigned CKVX_HdwSpiPort::CParameters::Check() const
{
    if (Mode > 3 || WordBits < 4 || WordBits > 16)
        return HDW_ERR_ARGUMENT;
    return 0;
}

CKVX_HdwSpiPort::CKVX_HdwSpiPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_SPI;
}

CKVX_HdwSpiPort::~CKVX_HdwSpiPort() = default;

unsigned CKVX_HdwSpiPort::Open(CKVX_HdwPort::CParameters* params)
{
    if (params) {
        const auto* own = dynamic_cast<const CParameters*>(params);
        if (!own || own->Check() != 0)
            return HDW_ERR_ARGUMENT;
    }
    const CParameters previous = m_Parameters;
    const uint32_t previousClock = m_ActualClockHz;
    if (params)
        m_ActualClockHz = static_cast<const CParameters*>(params)->ClockHz;
    else
        m_ActualClockHz = m_Parameters.ClockHz;
    const unsigned rc = hdw::bus::OpenWithParameters(*this, m_Parameters, params);
    if (rc != 0) {
        m_Parameters = previous;
        m_ActualClockHz = previousClock;
    }
    return rc;
}

unsigned CKVX_HdwSpiPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::bus::AdmitService(*this, serviceType, {HDW_SERVICE_SPI_MASTER}, nullptr);
}

unsigned CKVX_HdwSpiPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}

unsigned CKVX_HdwSpiPort::GetActualClockHz(uint32_t& hz)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    DeviceLock();
    hz = m_ActualClockHz;
    DeviceUnlock();
    return 0;
}
