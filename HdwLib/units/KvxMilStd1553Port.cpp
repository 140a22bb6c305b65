#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/units/KvxMilStd1553BcService.h>
#include <HdwLib/units/KvxMilStd1553Port.h>
#include <HdwLib/units/internal/KvxMilStd1553Records.h>
#include <HdwLib/units/KvxMilStd1553RtService.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/internal/KvxPortOpen.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

namespace {

// The signal of one MIL-STD-1553 event (see KvxMilStd1553Port.h).
void Mil1553SignalValues(const CKVX_HdwKvxMilStd1553Event& e, uint32_t& value, uint32_t& aux)
{
    value = 0;
    aux = 0;
    if (e.Kind == 1 || e.Kind == 2) {
        value = uint32_t(e.Kind == 1 ? e.TransferId : e.CommandWord1) | uint32_t(e.StatusWord1) << 16;
        aux = e.TransferFlags;
    }
    aux |= uint32_t(e.Kind) << 24;
}

} // namespace

CKVX_HdwKvxMilStd1553Port::CKVX_HdwKvxMilStd1553Port(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwMilStd1553Port(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxMilStd1553Port::~CKVX_HdwKvxMilStd1553Port() = default;

unsigned CKVX_HdwKvxMilStd1553Port::Open(CKVX_HdwPort::CParameters* params)
{
    // Nothing is sent at opening, so there is no confirmation to wait for.
    hdw::units::COpeningPort opening(*this);
    return CKVX_HdwMilStd1553Port::Open(params);
}

unsigned CKVX_HdwKvxMilStd1553Port::OnOpening(CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwMilStd1553Port::OnOpening(params))
        return rc;
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this);
    DeviceLock();
    const bool known = inst && m_Channel < inst->MilStd1553Ctrl.size();
    m_Messages = 0;
    DeviceUnlock();
    return known ? 0u : unsigned(HDW_ERR_ARGUMENT);
}

unsigned CKVX_HdwKvxMilStd1553Port::Close()
{
    return CKVX_HdwMilStd1553Port::Close();
}

unsigned CKVX_HdwKvxMilStd1553Port::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwMilStd1553Port::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    case HDW_SERVICE_MIL1553_BC:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxMilStd1553BcService(this), service, params);
    case HDW_SERVICE_MIL1553_RT:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxMilStd1553RtService(this), service, params);
    default: return HDW_ERR_WRONG_STATE;
    }
}

unsigned CKVX_HdwKvxMilStd1553Port::HdwTimerHandler(uint64_t ticks)
{
    // The services do the channel's periodic work.
    return CKVX_HdwMilStd1553Port::HdwTimerHandler(ticks);
}

unsigned CKVX_HdwKvxMilStd1553Port::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventMilStd1553)) {
        ++m_Messages;
        const auto* e = static_cast<const CKVX_HdwKvxMilStd1553Event*>(event);
        if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(this)) {
            uint32_t value = 0, aux = 0;
            Mil1553SignalValues(*e, value, aux);
            signals->PostValue(HDW_SIGNAL_MIL1553_MESSAGE, value, aux, e->TimeStamp);
        }
    }
    return CKVX_HdwMilStd1553Port::ProcessEvent(event);
}

uint64_t CKVX_HdwKvxMilStd1553Port::GetMessageCount()
{
    DeviceLock();
    const uint64_t n = m_Messages;
    DeviceUnlock();
    return n;
}

namespace {

// While the unit is lost or its fresh session starts, nothing goes to the
// channel: a command attached then would be dropped, or would reach the
// unit before the tables its services write again on the return.
bool TakesCommands(const CKVX_HdwKvxUnitInstance* inst)
{
    return inst->Reconnect.Status.State == HDW_UNIT_LINK_UP;
}

} // namespace

unsigned CKVX_HdwKvxMilStd1553Port::AttachConfiguration(const CKVX_HdwKvxMilStd1553Config& config)
{
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this);
    if (!inst || !m_Unit || m_Channel >= inst->MilStd1553Ctrl.size())
        return HDW_ERR_ARGUMENT;
    if (!TakesCommands(inst))
        return 0;
    CKVX_HdwKvxMilStd1553Config& c = inst->MilStd1553Ctrl[m_Channel];
    c = config;
    c.Flags &= uint8_t(~CKVX_HdwKvxMilStd1553Config::FlagTransformer);
    if (m_Parameters.Coupling == CParameters::CouplingTransformer)
        c.Flags |= CKVX_HdwKvxMilStd1553Config::FlagTransformer;
    c.ResponseTimeout = uint8_t(m_Parameters.ResponseTimeoutUs);
    const unsigned rc = m_Unit->Attach1553ConfigCommand(m_DeviceInstance, m_Channel);
    // A configuration sent again later repeats no trigger.
    c.Flags &= uint8_t(~CKVX_HdwKvxMilStd1553Config::Triggers);
    return rc;
}

unsigned CKVX_HdwKvxMilStd1553Port::AttachSramWrite(uint32_t address, const std::vector<uint16_t>& words)
{
    if (!m_Unit)
        return HDW_ERR_ARGUMENT;
    if (const CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this); inst && !TakesCommands(inst))
        return 0;
    return m_Unit->AttachSramWriteCommand(m_DeviceInstance, m_Channel,
        m_Channel * hdw::units::mil1553::ChannelWords + address, words.data(), unsigned(words.size()));
}
