#include <HdwLib/bus/HdwDiscreteOutPort.h>
#include <HdwLib/bus/internal/DiscreteLines.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwDiscreteOutPort::CParameters::~CParameters() = default;

CKVX_HdwDiscreteOutPort::CKVX_HdwDiscreteOutPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId, unsigned lineCount)
    : CKVX_HdwDiscretePort(device, deviceInstance, channelId, lineCount)
{
    m_PortType = HDW_PORT_DISCRETE_OUT;
}

CKVX_HdwDiscreteOutPort::~CKVX_HdwDiscreteOutPort() = default;

unsigned CKVX_HdwDiscreteOutPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::bus::OpenDiscrete(*this, m_Parameters, params);
}

unsigned CKVX_HdwDiscreteOutPort::Close()
{
    return CKVX_HdwPort::Close();
}

unsigned CKVX_HdwDiscreteOutPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::bus::AdmitService(*this, serviceType, {HDW_SERVICE_SIGNAL, HDW_SERVICE_DISCRETE_OUT}, nullptr);
}

unsigned CKVX_HdwDiscreteOutPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}

unsigned CKVX_HdwDiscreteOutPort::CheckParameters(const CParameters& params) const
{
    const uint32_t lines = GetLineMask();
    const bool ok = hdw::bus::WithinBank(params.InitialState, lines) && hdw::bus::WithinBank(params.InvertMask, lines);
    return ok ? 0u : unsigned(HDW_ERR_ARGUMENT);
}
