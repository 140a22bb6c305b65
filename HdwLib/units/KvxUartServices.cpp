#include <HdwLib/units/KvxUartPort.h>
#include <HdwLib/units/KvxUartServices.h>
#include <HdwLib/bus/internal/ByteInput.h>
#include <HdwLib/bus/internal/ByteOutput.h>
#include <HdwLib/units/internal/KvxOutputQueue.h>

#include <algorithm>
#include <limits>

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxUartByteInBufferService::CKVX_HdwKvxUartByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteInBufferService(port)
{}

CKVX_HdwKvxUartByteInBufferService::~CKVX_HdwKvxUartByteInBufferService() = default;

unsigned CKVX_HdwKvxUartByteInBufferService::Start()
{
    {
        CKVX_HdwServiceLock lock(*this);
        m_Bytes.clear();
        m_Dropped = 0;
        SetStatus(HDW_SERVICE_RUNNING);
    }
    hdw::units::EnableChannelOf<CKVX_HdwKvxUartPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxUartByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwKvxUartByteInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() != HDW_SERVICE_RUNNING || !hdw::units::IsEvent(event, KvxEventUartRx))
        return 0;
    const auto* rx = static_cast<const CKVX_HdwKvxUartRxEvent*>(event);
    hdw::bus::AppendBytes(m_Bytes, rx->Data.data(), rx->Data.size(), BufferSize, m_Dropped);
    return 0;
}

unsigned CKVX_HdwKvxUartByteInBufferService::Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount)
{
    return hdw::bus::ReadBytes(*this, m_Bytes, bytes, maxCount, readCount);
}

unsigned CKVX_HdwKvxUartByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    return hdw::bus::CountBytes(*this, count, [this] { return m_Bytes.size(); });
}

unsigned CKVX_HdwKvxUartByteInBufferService::ResetReadBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}

// ---- output -------------------------------------------------------------------

namespace {

// The queued bytes of a UART output as the push skeleton sees them. One
// transmit record carries up to 240 bytes in 9 + n record bytes; one push
// takes at most 17 records' worth.
class CUartBytesOut {
public:
    static constexpr unsigned Chunk = 240, Overhead = 9, MaxPush = Chunk * 17;

    CUartBytesOut(std::deque<uint8_t>& bytes, CKVX_HdwKvxOutputCount& count) : m_Bytes(bytes), m_Count(count) {}

    bool Empty() const { return m_Bytes.empty(); }
    // The unit reports no FIFO level for a UART: only the frame limits.
    unsigned Room(bool) const { return std::numeric_limits<unsigned>::max(); }
    unsigned Fit(unsigned, unsigned freeBytes) const
    {
        const unsigned records = freeBytes / (Chunk + Overhead);
        unsigned n = unsigned(std::min<size_t>(m_Bytes.size(), size_t(records) * Chunk));
        if (n == 0 && freeBytes > Overhead)
            n = unsigned(std::min<size_t>(m_Bytes.size(), freeBytes - Overhead));
        return std::min(n, MaxPush);
    }
    void Push(CKVX_HdwKvxCommandUnit& unit, unsigned device, unsigned channel, unsigned n)
    {
        uint8_t chunk[MaxPush];
        std::copy_n(m_Bytes.begin(), n, chunk);
        if (unit.AttachUartTxPushCommand(device, channel, chunk, n) != 0)
            return;
        m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + n);
        m_Count.Sent(n);
    }

private:
    std::deque<uint8_t>& m_Bytes;
    CKVX_HdwKvxOutputCount& m_Count;
};

} // namespace

CKVX_HdwKvxUartByteOutBufferService::CKVX_HdwKvxUartByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxUartPort*>(port))
{}

CKVX_HdwKvxUartByteOutBufferService::~CKVX_HdwKvxUartByteOutBufferService() = default;

unsigned CKVX_HdwKvxUartByteOutBufferService::Start()
{
    {
        CKVX_HdwServiceLock lock(*this);
        m_Bytes.clear();
        m_Count.Reset();
        m_Unplaced = 0;
        SetStatus(HDW_SERVICE_RUNNING);
    }
    hdw::units::EnableChannelOf<CKVX_HdwKvxUartPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxUartByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Count.Reset();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwKvxUartByteOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (hdw::units::IsEvent(event, KvxEventUartTx))
        m_Count.Confirm(static_cast<const CKVX_HdwKvxUartTxEvent*>(event)->Count);
    if (hdw::units::IsEvent(event, KvxEventUnitLost)) {
        static_cast<CKVX_HdwKvxUnitLinkEvent*>(event)->LostItems += m_Count.InFlight;
        m_Count.Reset();
    }
    return 0;
}

unsigned CKVX_HdwKvxUartByteOutBufferService::HdwTimerHandler(uint64_t)
{
    return SendImmediate();
}

unsigned CKVX_HdwKvxUartByteOutBufferService::Write(unsigned char* bytes, unsigned int count, unsigned int option)
{
    return hdw::bus::QueueBytes(*this, m_Bytes, bytes, count, option, BufferSize, m_Unplaced);
}

unsigned CKVX_HdwKvxUartByteOutBufferService::SendImmediate()
{
    if (!m_UnitPort)
        return 0;
    return hdw::units::PushQueued(*this, m_UnitPort->GetUnit(), m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(),
        CUartBytesOut(m_Bytes, m_Count));
}

unsigned CKVX_HdwKvxUartByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Bytes.size() + m_Count.InFlight);
    return 0;
}

unsigned CKVX_HdwKvxUartByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}
