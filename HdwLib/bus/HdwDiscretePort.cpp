#include <HdwLib/bus/HdwDiscretePort.h>
#include <HdwLib/bus/internal/DiscreteLines.h>

CKVX_HdwDiscretePort::CKVX_HdwDiscretePort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId, unsigned lineCount)
    : CKVX_HdwPort(device, deviceInstance, channelId),
      m_LineCount(hdw::bus::BankWidth(lineCount))
{}

CKVX_HdwDiscretePort::~CKVX_HdwDiscretePort() = default;

uint32_t CKVX_HdwDiscretePort::GetLineMask() const
{
    return hdw::bus::LineMaskOf(m_LineCount);
}
