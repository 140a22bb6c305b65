// CAN buffer services of the command-protocol units. Included once, by
// KvxPortsServices.inl.

// ---- input --------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::CCanInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanInBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::~CCanInBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanInBufferService::Start())
        return rc;
    {
        CKVX_HdwServiceLock lock(*this);
        RxFlag = 1;
    }
    hdw::units::EnableChannelOf<CCanPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::Stop()
{
    return CKVX_HdwCanInBufferService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (RxFlag && GetStatus() == HDW_SERVICE_RUNNING && hdw::units::IsEvent(event, EventCanRx)) {
        const auto* rx = static_cast<const CCanRxEvent*>(event);
        AppendReceived(hdw::units::CanOf(*rx), rx->TimeStamp);
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::Read(CKVX_HdwCanMessage* messages, unsigned int maxCount,
                                                                unsigned int& readCount)
{
    return ReadMessages(messages, maxCount, readCount);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::EnableRx()
{
    {
        CKVX_HdwServiceLock lock(*this);
        RxFlag = 1;
    }
    hdw::units::EnableChannelOf<CCanPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::DisableRx()
{
    CKVX_HdwServiceLock lock(*this);
    RxFlag = 0;
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanInBufferService::ResetRx()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

// ---- output -------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::CCanOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanOutBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::~CCanOutBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanOutBufferService::Start())
        return rc;
    auto* port = dynamic_cast<CCanPort*>(GetHdwPort());
    CKVX_HdwServiceLock lock(*this);
    m_InFlight = 0;
    if (port) {
        port->AttachConfiguration(true);
        // The transmit state: what the FIFO still holds from before.
        port->AttachStatusRequest(3);
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::Stop()
{
    return CKVX_HdwCanOutBufferService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, EventCanTx)) {
        // The byte stream's frames are settled by the byte output.
        const auto* tx = static_cast<const CCanTxEvent*>(event);
        if (m_InFlight > 0 && !CCanByteOutBufferService::IsStreamFrameOn(GetHdwPort(), hdw::units::CanOf(*tx)))
            --m_InFlight;
    } else if (hdw::units::IsEvent(event, EventStatus)) {
        auto* port = dynamic_cast<CCanPort*>(GetHdwPort());
        const auto* status = static_cast<const CStatusEvent*>(event);
        uint64_t mark = 0;
        if (port && hdw::units::StatusKind(*status) == 2 && port->TakeStatusMark(mark)) {
            TxStatus = hdw::units::StatusWord(*status);
            m_InFlight = ((TxStatus >> 8) & 0xFF) + (m_Pushed >= mark ? m_Pushed - mark : 0);
            // The FIFO also holds the byte stream's frames.
            const uint64_t stream = CCanByteOutBufferService::FramesInFlightOn(port);
            m_InFlight = m_InFlight > stream ? m_InFlight - stream : 0;
        }
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::HdwTimerHandler(uint64_t ticks)
{
    m_LastTick = ticks;
    return SendImmediate();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::Write(CKVX_HdwCanMessage* messages, unsigned int count,
                                                                  unsigned char option)
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
        Messages += new CKVX_HdwCanMessage(messages[i]);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::GetMessagesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(Messages.GetLength() + m_InFlight);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService::SendImmediate()
{
    constexpr unsigned kRecord = 17; // one push record per frame
    CKVX_HdwServiceLock lock(*this);
    if (GetStatus() != HDW_SERVICE_RUNNING || Messages.IsEmpty())
        return 0;
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    auto* inst = hdw::units::InstanceOf<B>(port);
    // The FIFO is shared with the channel's byte output.
    const uint64_t used = m_InFlight + CCanByteOutBufferService::FramesInFlightOn(port);
    // Top the FIFO up once it is half empty (see the ARINC 429 output).
    if (!inst || used > KvxCanTxFifoFrames / 2)
        return 0;
    unsigned n = unsigned(std::min<uint64_t>(KvxCanTxFifoFrames - used, Messages.GetLength()));
    n = std::min(n, hdw::units::FreePayload<B>(unit, inst) / kRecord);
    if (n == 0)
        return 0;
    auto& items = Messages.Items();
    auto it = items.begin();
#if defined(__GNUC__)
    // The application's thread wrote these frames, one heap object each:
    // ask for all of them before the first is needed, so that the cache
    // misses overlap instead of following one another.
    for (unsigned i = 0; i < n; ++i)
        __builtin_prefetch(it[i]);
#endif
    // One record per frame, built straight from the queued frame; what was
    // attached leaves the queue.
    const unsigned device = port->GetDeviceId();
    const unsigned channel = hdw::units::ChannelOf(this);
    unsigned sent = 0;
    for (; sent < n; ++sent, ++it)
        if (unit->AttachCanPushCommand(device, channel, *it, 1) != 0)
            break;
    for (auto d = items.begin(); d != it; ++d)
        delete *d;
    items.erase(items.begin(), it);
    Messages.ToStart();
    m_InFlight += sent;
    m_Pushed += sent;
    return 0;
}
