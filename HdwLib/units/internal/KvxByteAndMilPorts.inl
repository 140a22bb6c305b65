// Byte-stream services over CAN and the MIL-STD-1553 port of the
// command-protocol units. Included once, by KvxPortsServices.inl.

namespace hdw::units {

// The signal of one MIL-STD-1553 event (see KvxByteAndMilPorts.h).
template <class E>
void Mil1553SignalValues(const E& e, uint32_t& value, uint32_t& aux)
{
    value = 0;
    aux = 0;
    if (e.Kind == 1) {
        value = uint32_t(e.TransferId) | uint32_t(e.StatusWord1) << 16;
        aux = e.TransferFlags;
    } else if (e.Kind == 2) {
        value = uint32_t(e.TerminalAddress & 0x1F) << 11 | uint32_t(e.Transmit & 1) << 10 |
                uint32_t(e.Subaddress & 0x1F) << 5 | uint32_t(e.WordCount & 0x1F);
        aux = uint32_t(e.Field1 & 7) | uint32_t(e.Flag & 1) << 3 | uint32_t(e.Field2 & 0x1F) << 8;
    }
    aux |= uint32_t(e.Kind) << 24;
}

} // namespace hdw::units

// ---- byte input over CAN ------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanByteInBufferService::CCanByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanByteInBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanByteInBufferService::~CCanByteInBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteInBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanByteInBufferService::Start())
        return rc;
    hdw::units::EnableChannelOf<CCanPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteInBufferService::Stop()
{
    return CKVX_HdwCanByteInBufferService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, EventCanRx)) {
        const auto* rx = static_cast<const CCanRxEvent*>(event);
        AppendFrame(hdw::units::CanOf(*rx), rx->TimeStamp);
    }
    return 0;
}

// ---- byte output over CAN -----------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::CCanByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanByteOutBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::~CCanByteOutBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanByteOutBufferService::Start())
        return rc;
    hdw::units::EnableChannelOf<CCanPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::Stop()
{
    return CKVX_HdwCanByteOutBufferService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, EventCanTx)) {
        const auto* tx = static_cast<const CCanTxEvent*>(event);
        ConfirmFrame(hdw::units::CanOf(*tx));
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::HdwTimerHandler(uint64_t)
{
    return SendImmediate();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::SendImmediate()
{
    constexpr unsigned kRecord = 17; // one push record per frame
    CKVX_HdwServiceLock lock(*this);
    if (GetStatus() != HDW_SERVICE_RUNNING || m_Queue.empty())
        return 0;
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    auto* inst = hdw::units::InstanceOf<B>(port);
    if (!inst)
        return 0;
    auto* frames = hdw::units::ServiceOn<CCanOutBufferService>(port, HDW_SERVICE_CAN_OUT_BUFFER);
    const uint64_t used = GetFramesInFlight() + (frames ? frames->GetInFlightCount() : 0);
    if (used >= KvxCanTxFifoFrames)
        return 0;
    unsigned n = unsigned(KvxCanTxFifoFrames - used);
    n = std::min(n, hdw::units::FreePayload<B>(unit, inst) / kRecord);
    if (m_Batch.size() < KvxCanTxFifoFrames)
        m_Batch.resize(KvxCanTxFifoFrames);
    n = BuildFrames(m_Batch.data(), n);
    if (n == 0)
        return 0;
    if (unit->AttachCanPushCommand(port->GetDeviceId(), hdw::units::ChannelOf(this), m_Batch.data(), n) != 0)
        return 0;
    CommitFrames(n);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::FramesInFlightOn(CKVX_HdwPort* port)
{
    auto* bytes = hdw::units::ServiceOn<CCanByteOutBufferService>(port, HDW_SERVICE_BYTE_OUT_BUFFER);
    return bytes ? bytes->GetFramesInFlight() : 0;
}

template <class B>
bool CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService::IsStreamFrameOn(CKVX_HdwPort* port,
                                                                            const CKVX_HdwCanMessage& frame)
{
    auto* bytes = hdw::units::ServiceOn<CCanByteOutBufferService>(port, HDW_SERVICE_BYTE_OUT_BUFFER);
    return bytes && bytes->IsStreamFrame(frame);
}

// ---- MIL-STD-1553 port --------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::CMilStd1553Port(CKVX_HdwObject* device, unsigned deviceInstance,
                                                              const CKVX_String& channelId)
    : CKVX_HdwMilStd1553Port(device, deviceInstance, channelId), m_Channel(hdw::units::ChannelNumber(channelId))
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::~CMilStd1553Port() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::Open(CKVX_HdwPort::CParameters* params)
{
    // Nothing is sent at opening, so there is no confirmation to wait for.
    return CKVX_HdwMilStd1553Port::Open(params);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::OnOpening(CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwMilStd1553Port::OnOpening(params))
        return rc;
    auto* inst = hdw::units::InstanceOf<B>(this);
    DeviceLock();
    const bool known = inst && m_Channel < inst->MilStd1553Ctrl.size();
    m_Messages = 0;
    DeviceUnlock();
    return known ? 0u : unsigned(HDW_ERR_ARGUMENT);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::Close()
{
    return CKVX_HdwMilStd1553Port::Close();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::EnableService(unsigned serviceType,
                                                                     CKVX_HdwService** service,
                                                                     CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwMilStd1553Port::EnableService(serviceType, service, params))
        return rc;
    if (serviceType == HDW_SERVICE_SIGNAL)
        return hdw::units::InstallService(*this, new CSignalService(this), service, params);
    return HDW_ERR_WRONG_STATE;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::HdwTimerHandler(uint64_t ticks)
{
    // No periodic work of its own until the bus services exist.
    return CKVX_HdwMilStd1553Port::HdwTimerHandler(ticks);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventMilStd1553)) {
        ++m_Messages;
        const auto* e = static_cast<const CMilStd1553Event*>(event);
        if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(this)) {
            uint32_t value = 0, aux = 0;
            hdw::units::Mil1553SignalValues(*e, value, aux);
            signals->PostValue(HDW_SIGNAL_MIL1553_MESSAGE, value, aux, e->TimeStamp);
        }
    }
    return CKVX_HdwMilStd1553Port::ProcessEvent(event);
}

template <class B>
uint64_t CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port::GetMessageCount()
{
    DeviceLock();
    const uint64_t n = m_Messages;
    DeviceUnlock();
    return n;
}
