#include <HdwLib/units/KvxUartPort.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/KvxUartServices.h>
#include <HdwLib/units/internal/KvxPortOpen.h>

CKVX_HdwKvxUartPort::CKVX_HdwKvxUartPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwUartPort(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxUartPort::~CKVX_HdwKvxUartPort() = default;

unsigned CKVX_HdwKvxUartPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwUartPort>(*this, params, [](const auto&) { return true; });
}

unsigned CKVX_HdwKvxUartPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwUartPort>(*this, params);
}

unsigned CKVX_HdwKvxUartPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwUartPort>(*this);
}

unsigned CKVX_HdwKvxUartPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwUartPort::EnableService(serviceType, service, params))
        return rc;
    // The generic UART port admits by state only: one service of each type.
    if (FindService(serviceType))
        return HDW_ERR_SERVICE_ALREADY_ENABLED;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    case HDW_SERVICE_BYTE_IN_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxUartByteInBufferService(this), service, params);
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxUartByteOutBufferService(this), service, params);
    default: return HDW_ERR_WRONG_STATE;
    }
}

unsigned CKVX_HdwKvxUartPort::AttachConfiguration(bool enable)
{
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this);
    if (!inst || m_Channel >= inst->UartCtrl.size())
        return HDW_ERR_ARGUMENT;
    inst->UartCtrl[m_Channel].Enabled = enable ? 1 : 0;
    return m_Unit->AttachUartConfigCommand(m_DeviceInstance, m_Channel, m_Parameters);
}
