#include <HdwLib/bus/HdwUartPort.h>

CKVX_HdwUartPort::CParameters::~CParameters() = default;

CKVX_HdwUartPort::CKVX_HdwUartPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_UART;
}

CKVX_HdwUartPort::~CKVX_HdwUartPort() = default;

unsigned CKVX_HdwUartPort::GetParameters(CKVX_HdwPort::CParameters* params)
{
    auto* p = dynamic_cast<CParameters*>(params);
    if (!p)
        return CKVX_HdwPort::GetParameters(params);
    *p = m_Parameters;
    p->PortNum = m_PortNum;
    return 0;
}

unsigned CKVX_HdwUartPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    if (auto* p = dynamic_cast<CParameters*>(params))
        m_Parameters = *p;
    return CKVX_HdwPort::OnOpening(params);
}
