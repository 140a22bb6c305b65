#include <HdwLib/bus/HdwMilStd1553Port.h>
#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwMilStd1553Port::CParameters::~CParameters() = default;

bool CKVX_HdwMilStd1553Port::CParameters::IsValid() const
{
    return (Coupling == CouplingDirect || Coupling == CouplingTransformer) && ResponseTimeoutUs >= 4 &&
        ResponseTimeoutUs <= 255;
}

CKVX_HdwMilStd1553Port::CKVX_HdwMilStd1553Port(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_MILSTD1553;
}

CKVX_HdwMilStd1553Port::~CKVX_HdwMilStd1553Port() = default;

unsigned CKVX_HdwMilStd1553Port::Open(CKVX_HdwPort::CParameters* params)
{
    if (params) {
        const auto* own = dynamic_cast<const CParameters*>(params);
        if (!own || !own->IsValid())
            return HDW_ERR_ARGUMENT;
    }
    return hdw::bus::OpenWithParameters(*this, m_Parameters, params);
}

unsigned CKVX_HdwMilStd1553Port::Close()
{
    return CKVX_HdwPort::Close();
}

unsigned CKVX_HdwMilStd1553Port::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    // The channel runs as bus controller or as remote terminal, not both.
    return hdw::bus::AdmitService(*this, serviceType,
        {HDW_SERVICE_SIGNAL, HDW_SERVICE_MIL1553_BC, HDW_SERVICE_MIL1553_RT}, [](unsigned enabled, unsigned requested) {
            return (enabled == HDW_SERVICE_MIL1553_BC && requested == HDW_SERVICE_MIL1553_RT) ||
                (enabled == HDW_SERVICE_MIL1553_RT && requested == HDW_SERVICE_MIL1553_BC);
        });
}

unsigned CKVX_HdwMilStd1553Port::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}
