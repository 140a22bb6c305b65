#include <HdwLib/bus/HdwI2cPort.h>
#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwI2cPort::CParameters::~CParameters() = default;

unsigned CKVX_HdwI2cPort::CParameters::Check() const
{
    const bool speed = BusSpeed == 100000 || BusSpeed == 400000 || BusSpeed == 1000000;
    if (!speed || BusTimeoutMs < 1 || BusTimeoutMs > 1000)
        return HDW_ERR_ARGUMENT;
    return 0;
}

CKVX_HdwI2cPort::CKVX_HdwI2cPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_I2C;
}

CKVX_HdwI2cPort::~CKVX_HdwI2cPort() = default;

unsigned CKVX_HdwI2cPort::Open(CKVX_HdwPort::CParameters* params)
{
    if (params) {
        const auto* own = dynamic_cast<const CParameters*>(params);
        if (!own || own->Check() != 0)
            return HDW_ERR_ARGUMENT;
    }
    const CParameters previous = m_Parameters;
    const unsigned rc = hdw::bus::OpenWithParameters(*this, m_Parameters, params);
    if (rc != 0)
        m_Parameters = previous;
    return rc;
}

unsigned CKVX_HdwI2cPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::bus::AdmitService(*this, serviceType, {HDW_SERVICE_I2C_MASTER}, nullptr);
}

unsigned CKVX_HdwI2cPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}
