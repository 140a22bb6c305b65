#include <HdwLib/bus/HdwDiscreteInPort.h>
#include <HdwLib/bus/internal/DiscreteLines.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwDiscreteInPort::CParameters::~CParameters() = default;

CKVX_HdwDiscreteInPort::CKVX_HdwDiscreteInPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId, unsigned lineCount)
    : CKVX_HdwDiscretePort(device, deviceInstance, channelId, lineCount)
{
    m_PortType = HDW_PORT_DISCRETE_IN;
}

CKVX_HdwDiscreteInPort::~CKVX_HdwDiscreteInPort() = default;

unsigned CKVX_HdwDiscreteInPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::bus::OpenDiscrete(*this, m_Parameters, params);
}

unsigned CKVX_HdwDiscreteInPort::Close()
{
    return CKVX_HdwPort::Close();
}

unsigned CKVX_HdwDiscreteInPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::bus::AdmitService(*this, serviceType, {HDW_SERVICE_SIGNAL, HDW_SERVICE_DISCRETE_IN}, nullptr);
}

unsigned CKVX_HdwDiscreteInPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}

unsigned CKVX_HdwDiscreteInPort::CheckParameters(const CParameters& params) const
{
    // ChangeMask may name lines beyond the bank: they are ignored.
    if (params.DebounceUs > MaxDebounceUs || params.DebounceUs % 10 != 0)
        return HDW_ERR_ARGUMENT;
    return hdw::bus::WithinBank(params.InvertMask, GetLineMask()) ? 0u : unsigned(HDW_ERR_ARGUMENT);
}
