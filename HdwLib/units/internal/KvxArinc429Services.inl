// ARINC 429 buffer services of the command-protocol units. Included once,
// by KvxPortsServices.inl.

// ---- input --------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::CArinc429InBufferService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429InBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::~CArinc429InBufferService() = default;

template <class B>
void CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::GetLabelTable(uint8_t* flags) const
{
    for (unsigned label = 0; label < 256; ++label)
        flags[label] = LabelFilter[label] != 0 ? 1 : 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::ReconfigureChannel(bool enable)
{
    return hdw::units::ReconfigureChannelOf<CArinc429RxPort>(*this, enable);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429InBufferService::Start())
        return rc;
    // The port opened the channel with this filter; make sure it is on.
    hdw::units::EnableChannelOf<CArinc429RxPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::Stop()
{
    return CKVX_HdwArinc429InBufferService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() == HDW_SERVICE_RUNNING && hdw::units::IsEvent(event, EventA429Rx)) {
        const auto* rx = static_cast<const CArinc429RxEvent*>(event);
        AppendReceived(hdw::units::Arinc429Of(*rx), rx->TimeStamp);
    }
    return 0;
}

template <class B>
unsigned char CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::ApplyFilter(CKVX_HdwArinc429Message& message,
                                                                                  unsigned short* filter)
{
    // The unit drops labels in hardware; the SDI/SSM part of the filter is
    // applied here.
    return CKVX_HdwArinc429InBufferService::ApplyFilter(message, filter);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::GetReadMessagesNumber(unsigned int& count)
{
    return CountMessages(count);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::Read(CKVX_HdwArinc429Message* messages,
                                                                     unsigned int maxCount, unsigned int& readCount)
{
    return ReadMessages(messages, maxCount, readCount);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::AcceptAllMessages()
{
    CKVX_HdwArinc429InBufferService::AcceptAllMessages();
    return ReconfigureChannel(true);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::DiscardAllMessages()
{
    CKVX_HdwArinc429InBufferService::DiscardAllMessages();
    return ReconfigureChannel(true);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::AcceptMessage(unsigned char label,
                                                                              unsigned char sdiMask,
                                                                              unsigned char ssmMask)
{
    CKVX_HdwArinc429InBufferService::AcceptMessage(label, sdiMask, ssmMask);
    return ReconfigureChannel(true);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::EnableRx()
{
    return ReconfigureChannel(true);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::DisableRx()
{
    return ReconfigureChannel(false);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService::ResetRx()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

// ---- output -------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::CArinc429OutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429OutBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::~CArinc429OutBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429OutBufferService::Start())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_InFlight = 0;
    m_Pushed = 0;
    m_StatusPending = false;
    auto* port = dynamic_cast<CArinc429TxPort*>(GetHdwPort());
    if (!port)
        return 0;
    port->AttachConfiguration(true);
    // What the FIFO still holds from an earlier user of the channel.
    auto* unit = hdw::units::UnitOf<B>(port);
    if (unit->AttachStatusRequestCommand(port->GetDeviceId(), port->GetChannel(), 1) == 0) {
        m_StatusPending = true;
        m_StatusMark = m_Pushed;
        m_StatusTick = m_LastTick;
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::Stop()
{
    return CKVX_HdwArinc429OutBufferService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, EventA429Tx)) {
        if (m_InFlight > 0)
            --m_InFlight;
    } else if (hdw::units::IsEvent(event, EventStatus)) {
        const auto* status = static_cast<const CStatusEvent*>(event);
        if (m_StatusPending && hdw::units::StatusKind(*status) == 1) {
            // The FIFO level when the unit took the request, plus what was
            // pushed after it.
            m_InFlight = hdw::units::StatusWord(*status) + (m_Pushed - m_StatusMark);
            m_StatusPending = false;
        }
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::HdwTimerHandler(uint64_t ticks)
{
    m_LastTick = ticks;
    if (m_StatusTick == 0)
        m_StatusTick = ticks; // the first poll waits a full period
    if (m_StatusPending && ticks - m_StatusTick > 4 * KvxFifoStatusPollTicks)
        m_StatusPending = false; // the answer was lost
    if (!m_StatusPending && m_InFlight > 0 && ticks - m_StatusTick >= KvxFifoStatusPollTicks) {
        auto* port = GetHdwPort();
        if (hdw::units::UnitOf<B>(port)->AttachStatusRequestCommand(port->GetDeviceId(),
                                                                     hdw::units::ChannelOf(this), 1) == 0) {
            m_StatusPending = true;
            m_StatusMark = m_Pushed;
            m_StatusTick = ticks;
        }
    }
    return SendImmediate();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::Write(CKVX_HdwArinc429Message* messages,
                                                                       unsigned int count, unsigned char option)
{
    if (option != 0)
        return HDW_ERR_ARGUMENT;
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (count == 0)
        return 0;
    if (!messages)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (BufferSize != 0 && uint64_t(Messages.GetLength()) + count > BufferSize)
        return HDW_ERR_ARGUMENT;
    for (unsigned i = 0; i < count; ++i)
        Messages += messages[i];
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::GetMessagesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(Messages.GetLength() + m_InFlight);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService::SendImmediate()
{
    constexpr unsigned kRecord = 10; // one push record per word
    CKVX_HdwServiceLock lock(*this);
    if (GetStatus() != HDW_SERVICE_RUNNING || Messages.IsEmpty())
        return 0;
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    auto* inst = hdw::units::InstanceOf<B>(port);
    // Top the FIFO up once it is half empty rather than by a few words every
    // tick: fewer, larger frames for the same bus load.
    if (!inst || m_InFlight > KvxArinc429TxFifoWords / 2)
        return 0;
    unsigned n = unsigned(std::min<uint64_t>(KvxArinc429TxFifoWords - m_InFlight, Messages.GetLength()));
    n = std::min(n, hdw::units::FreePayload<B>(unit, inst) / kRecord);
    // One record per word, built straight from the queued word; what was
    // attached leaves the queue.
    const unsigned device = port->GetDeviceId();
    const unsigned channel = hdw::units::ChannelOf(this);
    auto& items = Messages.Items();
    auto it = items.begin();
    unsigned sent = 0;
    for (; sent < n; ++sent, ++it)
        if (unit->AttachAtxPushCommand(device, channel, &*it, 1) != 0)
            break;
    items.erase(items.begin(), it);
    Messages.ToStart();
    m_InFlight += sent;
    m_Pushed += sent;
    return 0;
}
