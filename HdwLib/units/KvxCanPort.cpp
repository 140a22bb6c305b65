#include <HdwLib/units/KvxCanByteServices.h>
#include <HdwLib/units/KvxCanPort.h>
#include <HdwLib/units/KvxUnitLink.h>
#include <HdwLib/units/KvxCanServices.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/KvxOutputCount.h>
#include <HdwLib/units/internal/KvxPortOpen.h>

namespace {

// Payload bytes of one status request record.
constexpr unsigned StatusRequestBytes = 7;

} // namespace

CKVX_HdwKvxCanPort::CKVX_HdwKvxCanPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwCanPort(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxCanPort::~CKVX_HdwKvxCanPort() = default;

unsigned CKVX_HdwKvxCanPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwCanPort>(*this, params, [](const auto& p) {
        unsigned char prescaler = 0, seg1 = 0, seg2 = 0;
        return CKVX_HdwKvxCommandUnit::ExtractCanTimingParameters(p.BitRate, p.SamplePoint, prescaler, seg1, seg2) == 0;
    });
}

unsigned CKVX_HdwKvxCanPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwCanPort::OnOpening(params))
        return rc;
    DeviceLock();
    m_StatusMarks.clear();
    m_HaveCurrentMark = false;
    m_FaultStatus = CFaultStatus();
    unsigned rc = AttachConfiguration(true);
    if (rc == 0)
        rc = AttachStatusRequest(hdw::units::StatusCan);
    DeviceUnlock();
    return rc;
}

unsigned CKVX_HdwKvxCanPort::Close()
{
    if (!IsOpen())
        return 0;
    DeviceLock();
    AttachConfiguration(false);
    m_StatusMarks.clear();
    DeviceUnlock();
    return CKVX_HdwCanPort::Close();
}

unsigned CKVX_HdwKvxCanPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwCanPort::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    case HDW_SERVICE_CAN_IN_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxCanInBufferService(this), service, params);
    case HDW_SERVICE_CAN_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxCanOutBufferService(this), service, params);
    case HDW_SERVICE_BYTE_IN_BUFFER:
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        // Byte streams over CAN: only on the units that carry them.
        if (!m_Unit || !m_Unit->GetUnitProfile().CanByteServices)
            return HDW_ERR_WRONG_STATE;
        if (serviceType == HDW_SERVICE_BYTE_IN_BUFFER)
            return hdw::units::InstallService(*this, new CKVX_HdwKvxCanByteInBufferService(this), service, params);
        return hdw::units::InstallService(*this, new CKVX_HdwKvxCanByteOutBufferService(this), service, params);
    default: return HDW_ERR_WRONG_STATE;
    }
}

unsigned CKVX_HdwKvxCanPort::HdwTimerHandler(uint64_t ticks)
{
    // The tick holds the device lock.
    m_LastTick = ticks;
    for (SStatusMark& m : m_StatusMarks)
        if (m.Tick == 0)
            m.Tick = ticks; // attached before the port's first tick
    // An answer that reached no port (one that came before the port was
    // attached to the tick, say) would hold the polling back for good: a
    // request unanswered for four poll periods is taken as lost.
    while (!m_StatusMarks.empty() && ticks - m_StatusMarks.front().Tick > 4 * KvxFifoStatusPollTicks)
        m_StatusMarks.pop_front();
    if (ticks - m_LastPollTick >= KvxFifoStatusPollTicks && m_StatusMarks.empty()) {
        m_LastPollTick = ticks;
        if (hdw::units::FreePayload(m_Unit, hdw::units::InstanceOf(this)) >= StatusRequestBytes)
            AttachStatusRequest(hdw::units::StatusCan);
    }
    return CKVX_HdwCanPort::HdwTimerHandler(ticks);
}

unsigned CKVX_HdwKvxCanPort::ProcessEvent(CKVX_HdwEvent* event)
{
    m_HaveCurrentMark = false;
    // Requests outstanding when the unit was lost are never answered.
    if (hdw::units::IsEvent(event, KvxEventUnitLost))
        m_StatusMarks.clear();
    if (hdw::units::IsEvent(event, KvxEventStatus)) {
        const auto* status = static_cast<const CKVX_HdwKvxStatusEvent*>(event);
        if (status->Kind == hdw::units::StatusCan) {
            // Each kind-2 event answers the oldest outstanding request.
            if (!m_StatusMarks.empty()) {
                m_CurrentMark = m_StatusMarks.front().Mark;
                m_StatusMarks.pop_front();
                m_HaveCurrentMark = true;
            }
            const uint32_t word = status->StatusWord;
            CFaultStatus fault;
            fault.Status = word & 0xFF;
            fault.ErrReg0 = uint8_t(word >> 16);
            fault.ErrReg1 = uint8_t(word >> 24);
            UpdateFaultStatus(fault, status->TimeStamp);
        }
    }
    const unsigned rc = CKVX_HdwCanPort::ProcessEvent(event);
    m_HaveCurrentMark = false;
    return rc;
}

unsigned CKVX_HdwKvxCanPort::AttachConfiguration(bool enable)
{
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this);
    if (!inst || m_Channel >= inst->CanCtrl.size())
        return HDW_ERR_ARGUMENT;
    CKVX_HdwKvxCanCtrlStatus& ctrl = inst->CanCtrl[m_Channel];
    unsigned char prescaler = 0, seg1 = 0, seg2 = 0;
    if (CKVX_HdwKvxCommandUnit::ExtractCanTimingParameters(
            m_Parameters.BitRate, m_Parameters.SamplePoint, prescaler, seg1, seg2) != 0)
        return HDW_ERR_ARGUMENT;
    ctrl.Enabled = enable ? 1 : 0;
    ctrl.ModeFlagA = m_Parameters.ModeFlagA;
    ctrl.ModeFlagB = m_Parameters.ModeFlagB;
    ctrl.PrescalerIndex = prescaler;
    ctrl.Segment1 = seg1;
    ctrl.Segment2 = seg2;
    return m_Unit->AttachCanConfigCommand(m_DeviceInstance, m_Channel);
}

unsigned CKVX_HdwKvxCanPort::AttachStatusRequest(unsigned kind)
{
    if (!m_Unit)
        return HDW_ERR_LINK;
    if (const unsigned rc = m_Unit->AttachStatusRequestCommand(m_DeviceInstance, m_Channel, kind))
        return rc;
    auto* out = hdw::units::ServiceOn<CKVX_HdwKvxCanOutBufferService>(this, HDW_SERVICE_CAN_OUT_BUFFER);
    m_StatusMarks.push_back({out ? out->GetPushedCount() : 0, m_LastTick});
    return 0;
}

bool CKVX_HdwKvxCanPort::TakeStatusMark(uint64_t& mark)
{
    mark = m_CurrentMark;
    return m_HaveCurrentMark;
}
