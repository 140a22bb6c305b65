#include <HdwLib/units/KvxSpiMasterService.h>
#include <HdwLib/units/KvxSpiPort.h>
#include <HdwLib/units/internal/KvxPortOpen.h>

CKVX_HdwKvxSpiPort::CKVX_HdwKvxSpiPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwSpiPort(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxSpiPort::~CKVX_HdwKvxSpiPort() = default;

uint16_t CKVX_HdwKvxSpiPort::ClockDivider(uint32_t hz)
{
    return uint16_t((BaseClockHz + hz - 1) / hz - 1);
}

unsigned CKVX_HdwKvxSpiPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwSpiPort>(*this, params, [](const auto& p) {
        return p.Check() == 0 && p.ClockHz >= MinClockHz && p.ClockHz <= BaseClockHz && p.ChipSelect < ChipSelects;
    });
}

unsigned CKVX_HdwKvxSpiPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwSpiPort>(*this, params);
}

unsigned CKVX_HdwKvxSpiPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwSpiPort>(*this);
}

unsigned CKVX_HdwKvxSpiPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwSpiPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::units::InstallService(*this, new CKVX_HdwKvxSpiMasterService(this), service, params);
}

unsigned CKVX_HdwKvxSpiPort::AttachConfiguration(bool enable)
{
    if (!m_Unit)
        return HDW_ERR_LINK;
    const uint16_t divider = ClockDivider(m_Parameters.ClockHz);
    if (enable)
        m_ActualClockHz = BaseClockHz / (uint32_t(divider) + 1);
    return m_Unit->AttachSpiConfigCommand(m_DeviceInstance, m_Channel, m_Parameters, divider, enable);
}
