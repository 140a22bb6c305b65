#include <HdwLib/units/KvxDiscretePorts.h>
#include <HdwLib/units/KvxDiscreteServices.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/internal/KvxPortOpen.h>

namespace {

unsigned LinesOf(CKVX_HdwObject* device)
{
    const auto* unit = dynamic_cast<CKVX_HdwKvxCommandUnit*>(device);
    return unit ? unit->GetUnitProfile().LinesPerBank : 32u;
}

} // namespace

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxDiscreteInPort::CKVX_HdwKvxDiscreteInPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwDiscreteInPort(device, deviceInstance, channelId, LinesOf(device)),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxDiscreteInPort::~CKVX_HdwKvxDiscreteInPort() = default;

unsigned CKVX_HdwKvxDiscreteInPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwDiscreteInPort>(
        *this, params, [this](const auto& p) { return CheckParameters(p) == 0; });
}

unsigned CKVX_HdwKvxDiscreteInPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwDiscreteInPort>(*this, params);
}

unsigned CKVX_HdwKvxDiscreteInPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwDiscreteInPort>(*this);
}

unsigned CKVX_HdwKvxDiscreteInPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwDiscreteInPort::EnableService(serviceType, service, params))
        return rc;
    if (serviceType == HDW_SERVICE_SIGNAL)
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    return hdw::units::InstallService(*this, new CKVX_HdwKvxDiscreteInService(this), service, params);
}

unsigned CKVX_HdwKvxDiscreteInPort::AttachConfiguration(bool enable)
{
    if (!m_Unit)
        return HDW_ERR_LINK;
    return m_Unit->AttachDiscreteInConfigCommand(m_DeviceInstance, m_Channel, m_Parameters, enable);
}

// ---- output -------------------------------------------------------------------

CKVX_HdwKvxDiscreteOutPort::CKVX_HdwKvxDiscreteOutPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwDiscreteOutPort(device, deviceInstance, channelId, LinesOf(device)),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxDiscreteOutPort::~CKVX_HdwKvxDiscreteOutPort() = default;

unsigned CKVX_HdwKvxDiscreteOutPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwDiscreteOutPort>(
        *this, params, [this](const auto& p) { return CheckParameters(p) == 0; });
}

unsigned CKVX_HdwKvxDiscreteOutPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwDiscreteOutPort>(*this, params);
}

unsigned CKVX_HdwKvxDiscreteOutPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwDiscreteOutPort>(*this);
}

unsigned CKVX_HdwKvxDiscreteOutPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwDiscreteOutPort::EnableService(serviceType, service, params))
        return rc;
    if (serviceType == HDW_SERVICE_SIGNAL)
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    return hdw::units::InstallService(*this, new CKVX_HdwKvxDiscreteOutService(this), service, params);
}

unsigned CKVX_HdwKvxDiscreteOutPort::AttachConfiguration(bool enable)
{
    if (!m_Unit)
        return HDW_ERR_LINK;
    return m_Unit->AttachDiscreteOutConfigCommand(m_DeviceInstance, m_Channel, m_Parameters, enable);
}

unsigned CKVX_HdwKvxDiscreteOutPort::AttachRestoredConfiguration()
{
    if (!m_Unit)
        return HDW_ERR_LINK;
    // The bank comes back driving what the application last wrote, not
    // InitialState: a unit that restarts must not undo the test's outputs.
    CKVX_HdwDiscreteOutPort::CParameters p = m_Parameters;
    if (auto* out = dynamic_cast<CKVX_HdwDiscreteOutService*>(FindService(HDW_SERVICE_DISCRETE_OUT)))
        if (out->GetStatus() == HDW_SERVICE_RUNNING)
            out->GetCommanded(p.InitialState);
    return m_Unit->AttachDiscreteOutConfigCommand(m_DeviceInstance, m_Channel, p, true);
}
