// Ports of the command-protocol units. Included once, by
// KvxPortsServices.inl.

namespace hdw::units {

// The rest of a port's Open once the generic open has run: wait for the
// configuration to be echoed (never with the device lock held), and undo
// the open when the unit does not confirm it. A failed open leaves no link
// open that no port uses.
template <class B, class P>
unsigned FinishOpen(P& port, unsigned openResult, unsigned timeoutMs)
{
    // The configuration and what the services' Start attached: the last
    // command attached covers them all, as echoes come back in order.
    port.DeviceLock();
    auto* inst = InstanceOf<B>(&port);
    const uint16_t configNumber = inst ? LastCommandNumber<B>(inst) : 0;
    port.DeviceUnlock();
    // A refused open leaves the unit's link as it is (open, when the generic
    // open got that far), like a service that fails to start: closing it here
    // would race the unit's echo of the closing session against a quick
    // re-open. The manager's Stop closes it.
    if (openResult != 0)
        return openResult;
    if (WaitCommandDone<B>(&port, configNumber, timeoutMs ? timeoutMs : 1000) != 0) {
        port.Close();
        return HDW_ERR_LINK;
    }
    return 0;
}

inline unsigned OpenTimeout(const CKVX_HdwPort::CParameters* params)
{
    return params ? params->Timeout : 1000;
}

// Open of a unit's port over the generic port G: `params` must be null or
// G's parameter class with values `usable` accepts (else a bad argument);
// then the generic open and FinishOpen.
template <class B, class G, class P, class F>
unsigned OpenChannel(P& port, CKVX_HdwPort::CParameters* params, F&& usable)
{
    if (params) {
        const auto* own = dynamic_cast<const typename G::CParameters*>(params);
        if (!own || !usable(*own))
            return HDW_ERR_ARGUMENT;
    }
    const unsigned rc = port.G::Open(params);
    return FinishOpen<B>(port, rc, OpenTimeout(params));
}

// OnOpening of a port whose channel is set up by one configuration command:
// the generic port's checks (of its base class G), then the configuration
// with the channel on, attached under the device lock.
template <class G, class P>
unsigned AttachOnOpening(P& port, CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = port.G::OnOpening(params))
        return rc;
    port.DeviceLock();
    const unsigned rc = port.AttachConfiguration(true);
    port.DeviceUnlock();
    return rc;
}

// Close of such a port: the channel off on the unit, then the generic close.
template <class G, class P>
unsigned CloseChannel(P& port)
{
    if (!port.IsOpen())
        return 0;
    port.DeviceLock();
    port.AttachConfiguration(false);
    port.DeviceUnlock();
    return port.G::Close();
}

} // namespace hdw::units

// ---- UART ---------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CUartPort::CUartPort(CKVX_HdwObject* device, unsigned deviceInstance,
                                                  const CKVX_String& channelId)
    : CKVX_HdwUartPort(device, deviceInstance, channelId), m_Channel(hdw::units::ChannelNumber(channelId))
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CUartPort::~CUartPort() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<B, CKVX_HdwUartPort>(*this, params, [](const auto&) { return true; });
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwUartPort>(*this, params);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartPort::AttachConfiguration(bool enable)
{
    auto* unit = hdw::units::UnitOf<B>(this);
    auto* inst = hdw::units::InstanceOf<B>(this);
    if (!inst || m_Channel >= inst->UartCtrl.size())
        return HDW_ERR_ARGUMENT;
    inst->UartCtrl[m_Channel].Enabled = enable ? 1 : 0;
    return unit->AttachUartConfigCommand(m_DeviceInstance, m_Channel, m_Parameters);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwUartPort>(*this);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartPort::EnableService(unsigned serviceType, CKVX_HdwService** service,
                                                               CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwUartPort::EnableService(serviceType, service, params))
        return rc;
    // The generic UART port admits by state only: one service of each type.
    if (FindService(serviceType))
        return HDW_ERR_SERVICE_ALREADY_ENABLED;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CSignalService(this), service, params);
    case HDW_SERVICE_BYTE_IN_BUFFER:
        return hdw::units::InstallService(*this, new CUartByteInBufferService(this), service, params);
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CUartByteOutBufferService(this), service, params);
    default:
        return HDW_ERR_WRONG_STATE;
    }
}

// ---- ARINC 429 transmitter ----------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::CArinc429TxPort(CKVX_HdwObject* device, unsigned deviceInstance,
                                                              const CKVX_String& channelId)
    : CKVX_HdwArinc429TxPort(device, deviceInstance, channelId), m_Channel(hdw::units::ChannelNumber(channelId))
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::~CArinc429TxPort() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<B, CKVX_HdwArinc429TxPort>(*this, params, [](const auto& p) {
        unsigned char high = 0;
        unsigned short hi = 0, lo = 0;
        return p.WordIntergap != 0 && ExtractArinc429TxBaudRateParameters(p.BaudRate, high, hi, lo) == 0;
    });
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwArinc429TxPort>(*this, params);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::AttachConfiguration(bool enable)
{
    auto* unit = hdw::units::UnitOf<B>(this);
    auto* inst = hdw::units::InstanceOf<B>(this);
    if (!inst || m_Channel >= inst->AtxCtrl.size())
        return HDW_ERR_ARGUMENT;
    inst->AtxCtrl[m_Channel].Enabled = enable ? 1 : 0;
    return unit->AttachAtxConfigCommand(m_DeviceInstance, m_Channel, m_Parameters);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwArinc429TxPort>(*this);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort::EnableService(unsigned serviceType,
                                                                     CKVX_HdwService** service,
                                                                     CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwArinc429TxPort::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CSignalService(this), service, params);
    case HDW_SERVICE_ARINC429_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CArinc429OutBufferService(this), service, params);
    case HDW_SERVICE_ARINC429_LABEL_OUT:
        if (!(hdw::units::UnitOf<B>(this)->GetUnitProfile().Commands & CmdAtxCtxCtrl))
            return HDW_ERR_WRONG_STATE;
        return hdw::units::InstallService(*this, new CArinc429OutLbloService(this), service, params);
    default:
        // Byte output and the data generator come later.
        return HDW_ERR_WRONG_STATE;
    }
}

// ---- ARINC 429 receiver -------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::CArinc429RxPort(CKVX_HdwObject* device, unsigned deviceInstance,
                                                              const CKVX_String& channelId)
    : CKVX_HdwArinc429RxPort(device, deviceInstance, channelId), m_Channel(hdw::units::ChannelNumber(channelId))
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::~CArinc429RxPort() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<B, CKVX_HdwArinc429RxPort>(*this, params, [](const auto& p) {
        return p.BaudRate == p.LowSpeed || p.BaudRate == p.HighSpeed;
    });
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwArinc429RxPort>(*this, params);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::AttachConfiguration(bool enable)
{
    auto* unit = hdw::units::UnitOf<B>(this);
    auto* inst = hdw::units::InstanceOf<B>(this);
    if (!inst || m_Channel >= inst->ArxCtrl.size())
        return HDW_ERR_ARGUMENT;
    CArinc429RxCtrlStatus& ctrl = inst->ArxCtrl[m_Channel];
    ctrl.Enabled = enable ? 1 : 0;
    // The input service's filter, or every label when no service filters.
    auto* in = hdw::units::ServiceOn<CArinc429InBufferService>(this, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* lblo = hdw::units::ServiceOn<CKVX_HdwArinc429InLbloService>(this, HDW_SERVICE_ARINC429_LABEL_IN);
    ctrl.HasFilter = in != nullptr || lblo != nullptr;
    if (in)
        in->GetLabelTable(ctrl.LabelFlags);
    else if (lblo)
        lblo->GetLabelTable(ctrl.LabelFlags);
    else
        std::fill(std::begin(ctrl.LabelFlags), std::end(ctrl.LabelFlags), uint8_t(1));
    return unit->AttachArxConfigCommand(m_DeviceInstance, m_Channel, m_Parameters, enable, ctrl.LabelFlags);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwArinc429RxPort>(*this);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort::EnableService(unsigned serviceType,
                                                                     CKVX_HdwService** service,
                                                                     CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwArinc429RxPort::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CSignalService(this), service, params);
    case HDW_SERVICE_ARINC429_IN_BUFFER:
        return hdw::units::InstallService(*this, new CArinc429InBufferService(this), service, params);
    case HDW_SERVICE_ARINC429_LABEL_IN:
        if (!hdw::units::UnitOf<B>(this)->GetUnitProfile().Arinc429LabelInput)
            return HDW_ERR_WRONG_STATE;
        return hdw::units::InstallService(*this, new CArinc429InLbloService(this), service, params);
    default:
        // Byte input comes later.
        return HDW_ERR_WRONG_STATE;
    }
}

// ---- CAN ----------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanPort::CCanPort(CKVX_HdwObject* device, unsigned deviceInstance,
                                                const CKVX_String& channelId)
    : CKVX_HdwCanPort(device, deviceInstance, channelId), m_Channel(hdw::units::ChannelNumber(channelId))
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanPort::~CCanPort() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<B, CKVX_HdwCanPort>(*this, params, [](const auto& p) {
        unsigned char prescaler = 0, seg1 = 0, seg2 = 0;
        return ExtractCanTimingParameters(p.BitRate, p.SamplePoint, prescaler, seg1, seg2) == 0;
    });
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwCanPort::OnOpening(params))
        return rc;
    DeviceLock();
    m_StatusMarks.clear();
    m_HaveCurrentMark = false;
    m_FaultStatus = CFaultStatus();
    unsigned rc = AttachConfiguration(true);
    if (rc == 0)
        rc = AttachStatusRequest(2);
    DeviceUnlock();
    return rc;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::AttachConfiguration(bool enable)
{
    auto* unit = hdw::units::UnitOf<B>(this);
    auto* inst = hdw::units::InstanceOf<B>(this);
    if (!inst || m_Channel >= inst->CanCtrl.size())
        return HDW_ERR_ARGUMENT;
    CCanCtrlStatus& ctrl = inst->CanCtrl[m_Channel];
    unsigned char prescaler = 0, seg1 = 0, seg2 = 0;
    if (ExtractCanTimingParameters(m_Parameters.BitRate, m_Parameters.SamplePoint, prescaler, seg1, seg2) != 0)
        return HDW_ERR_ARGUMENT;
    ctrl.Enabled = enable ? 1 : 0;
    ctrl.ModeFlagA = m_Parameters.ModeFlagA;
    ctrl.ModeFlagB = m_Parameters.ModeFlagB;
    ctrl.PrescalerIndex = prescaler;
    ctrl.Segment1 = seg1;
    ctrl.Segment2 = seg2;
    return unit->AttachCanConfigCommand(m_DeviceInstance, m_Channel);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::AttachStatusRequest(unsigned kind)
{
    auto* unit = hdw::units::UnitOf<B>(this);
    if (!unit)
        return HDW_ERR_LINK;
    if (const unsigned rc = unit->AttachStatusRequestCommand(m_DeviceInstance, m_Channel, kind))
        return rc;
    auto* out = hdw::units::ServiceOn<CCanOutBufferService>(this, HDW_SERVICE_CAN_OUT_BUFFER);
    m_StatusMarks.push_back(out ? out->GetPushedCount() : 0);
    return 0;
}

template <class B>
bool CKVX_HdwKvxCommandDevice<B>::CCanPort::TakeStatusMark(uint64_t& mark)
{
    mark = m_CurrentMark;
    return m_HaveCurrentMark;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::Close()
{
    if (!IsOpen())
        return 0;
    DeviceLock();
    AttachConfiguration(false);
    m_StatusMarks.clear();
    DeviceUnlock();
    return CKVX_HdwCanPort::Close();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::EnableService(unsigned serviceType, CKVX_HdwService** service,
                                                              CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwCanPort::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CSignalService(this), service, params);
    case HDW_SERVICE_CAN_IN_BUFFER:
        return hdw::units::InstallService(*this, new CCanInBufferService(this), service, params);
    case HDW_SERVICE_CAN_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CCanOutBufferService(this), service, params);
    case HDW_SERVICE_BYTE_IN_BUFFER:
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        // Byte streams over CAN: only on the units that carry them.
        if (!hdw::units::UnitOf<B>(this) || !hdw::units::UnitOf<B>(this)->GetUnitProfile().CanByteServices)
            return HDW_ERR_WRONG_STATE;
        if (serviceType == HDW_SERVICE_BYTE_IN_BUFFER)
            return hdw::units::InstallService(*this, new CCanByteInBufferService(this), service, params);
        return hdw::units::InstallService(*this, new CCanByteOutBufferService(this), service, params);
    default:
        return HDW_ERR_WRONG_STATE;
    }
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::HdwTimerHandler(uint64_t ticks)
{
    // The tick holds the device lock.
    if (ticks - m_LastPollTick >= KvxFifoStatusPollTicks && m_StatusMarks.empty()) {
        m_LastPollTick = ticks;
        if (hdw::units::FreePayload<B>(hdw::units::UnitOf<B>(this), hdw::units::InstanceOf<B>(this)) >= 7)
            AttachStatusRequest(2);
    }
    return CKVX_HdwCanPort::HdwTimerHandler(ticks);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanPort::ProcessEvent(CKVX_HdwEvent* event)
{
    m_HaveCurrentMark = false;
    if (hdw::units::IsEvent(event, EventStatus)) {
        const auto* status = static_cast<const CStatusEvent*>(event);
        if (hdw::units::StatusKind(*status) == 2) {
            // Each kind-2 event answers the oldest outstanding request.
            if (!m_StatusMarks.empty()) {
                m_CurrentMark = m_StatusMarks.front();
                m_StatusMarks.pop_front();
                m_HaveCurrentMark = true;
            }
            const uint32_t word = hdw::units::StatusWord(*status);
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
