// UART byte services of the command-protocol units. Included once, by
// KvxPortsServices.inl.

// ---- input --------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::CUartByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteInBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::~CUartByteInBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::Start()
{
    {
        CKVX_HdwServiceLock lock(*this);
        m_Bytes.clear();
        m_Dropped = 0;
        SetStatus(HDW_SERVICE_RUNNING);
    }
    hdw::units::EnableChannelOf<CUartPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() != HDW_SERVICE_RUNNING || !hdw::units::IsEvent(event, EventUartRx))
        return 0;
    const auto* rx = static_cast<const CUartRxEvent*>(event);
    const uint8_t* data = hdw::units::UartBytes(*rx);
    const unsigned count = hdw::units::UartByteCount(*rx);
    m_Bytes.insert(m_Bytes.end(), data, data + count);
    if (BufferSize != 0 && m_Bytes.size() > BufferSize) {
        const size_t excess = m_Bytes.size() - BufferSize;
        m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + std::ptrdiff_t(excess));
        m_Dropped += excess;
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::Read(unsigned char* bytes, unsigned int maxCount,
                                                                     unsigned int& readCount)
{
    readCount = 0;
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (maxCount == 0)
        return 0;
    if (!bytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    const size_t n = std::min<size_t>(maxCount, m_Bytes.size());
    std::copy_n(m_Bytes.begin(), n, bytes);
    m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + std::ptrdiff_t(n));
    readCount = unsigned(n);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    count = 0;
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Bytes.size());
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::ResetReadBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}

template <class B>
uint64_t CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService::GetDroppedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Dropped;
}

// ---- output -------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::CUartByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::~CUartByteOutBufferService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::Start()
{
    {
        CKVX_HdwServiceLock lock(*this);
        m_Bytes.clear();
        m_InFlight = 0;
        SetStatus(HDW_SERVICE_RUNNING);
    }
    hdw::units::EnableChannelOf<CUartPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_InFlight = 0;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (hdw::units::IsEvent(event, EventUartTx)) {
        const unsigned sent = hdw::units::UartSentCount(*static_cast<const CUartTxEvent*>(event));
        m_InFlight -= std::min<uint64_t>(m_InFlight, sent);
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::HdwTimerHandler(uint64_t)
{
    return SendImmediate();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::Write(unsigned char* bytes, unsigned int count,
                                                                       unsigned int option)
{
    if (option != 0)
        return HDW_ERR_ARGUMENT;
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (count == 0)
        return 0;
    if (!bytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (BufferSize != 0 && m_Bytes.size() + count > BufferSize)
        return HDW_ERR_ARGUMENT;
    m_Bytes.insert(m_Bytes.end(), bytes, bytes + count);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Bytes.size() + m_InFlight);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService::SendImmediate()
{
    // One transmit record carries up to 240 bytes in 9 + n record bytes.
    constexpr unsigned kChunk = 240, kOverhead = 9;
    CKVX_HdwServiceLock lock(*this);
    if (GetStatus() != HDW_SERVICE_RUNNING || m_Bytes.empty())
        return 0;
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    auto* inst = hdw::units::InstanceOf<B>(port);
    if (!inst)
        return 0;
    const unsigned budget = hdw::units::FreePayload<B>(unit, inst);
    const unsigned records = budget / (kChunk + kOverhead);
    unsigned n = unsigned(std::min<size_t>(m_Bytes.size(), size_t(records) * kChunk));
    if (n == 0 && budget > kOverhead)
        n = unsigned(std::min<size_t>(m_Bytes.size(), budget - kOverhead));
    if (n == 0)
        return 0;
    uint8_t chunk[kChunk * 17];
    n = std::min<unsigned>(n, sizeof chunk);
    std::copy_n(m_Bytes.begin(), n, chunk);
    if (unit->AttachUartTxPushCommand(port->GetDeviceId(), hdw::units::ChannelOf(this), chunk, n) != 0)
        return 0;
    m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + n);
    m_InFlight += n;
    return 0;
}
