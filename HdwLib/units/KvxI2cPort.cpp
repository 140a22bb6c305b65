#include <HdwLib/units/KvxI2cMasterService.h>
#include <HdwLib/units/KvxI2cPort.h>
#include <HdwLib/units/internal/KvxPortOpen.h>

CKVX_HdwKvxI2cPort::CKVX_HdwKvxI2cPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwI2cPort(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxI2cPort::~CKVX_HdwKvxI2cPort() = default;

unsigned CKVX_HdwKvxI2cPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwI2cPort>(*this, params, [](const auto& p) { return p.Check() == 0; });
}

unsigned CKVX_HdwKvxI2cPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwI2cPort>(*this, params);
}

unsigned CKVX_HdwKvxI2cPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwI2cPort>(*this);
}

unsigned CKVX_HdwKvxI2cPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwI2cPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::units::InstallService(*this, new CKVX_HdwKvxI2cMasterService(this), service, params);
}

unsigned CKVX_HdwKvxI2cPort::AttachConfiguration(bool enable)
{
    if (!m_Unit)
        return HDW_ERR_LINK;
    return m_Unit->AttachI2cConfigCommand(m_DeviceInstance, m_Channel, m_Parameters, enable);
}
