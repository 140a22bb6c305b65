#include <HdwLib/units/KvxArinc429ByteServices.h>
#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/internal/KvxArinc429Fifo.h>
#include <HdwLib/units/internal/KvxOutputQueue.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxArinc429ByteInBufferService::CKVX_HdwKvxArinc429ByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429ByteInBufferService(port)
{}

CKVX_HdwKvxArinc429ByteInBufferService::~CKVX_HdwKvxArinc429ByteInBufferService() = default;

unsigned CKVX_HdwKvxArinc429ByteInBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429ByteInBufferService::Start())
        return rc;
    // The port opened the channel with the stream's label; make sure it is on.
    hdw::units::EnableChannelOf<CKVX_HdwKvxArinc429RxPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxArinc429ByteInBufferService::Stop()
{
    return CKVX_HdwArinc429ByteInBufferService::Stop();
}

unsigned CKVX_HdwKvxArinc429ByteInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure))
        Abort();
    else if (hdw::units::IsEvent(event, KvxEventA429Rx)) {
        const auto* rx = static_cast<const CKVX_HdwKvxArinc429RxEvent*>(event);
        AppendWord(rx->Message, rx->TimeStamp);
    }
    return 0;
}

// ---- output -------------------------------------------------------------------

namespace {

// The queued bytes of a stream over ARINC 429 as the push skeleton sees
// them: words built into the service's batch, one push record (10 bytes)
// each; the generic class keeps the bytes and the words in flight.
class CArinc429StreamOut {
public:
    static constexpr unsigned RecordBytes = 10;

    CArinc429StreamOut(CKVX_HdwArinc429ByteOutBufferService& stream, const std::deque<uint8_t>& queue,
        std::vector<CKVX_HdwArinc429Message>& batch, CKVX_HdwKvxOutputCount& count)
        : m_Stream(stream),
          m_Queue(queue),
          m_Batch(batch),
          m_Count(count)
    {}

    bool Empty() const { return m_Queue.empty(); }
    unsigned Room(bool frameDue) const { return hdw::units::Arinc429FifoRoom(m_Count, frameDue); }
    unsigned Fit(unsigned room, unsigned freeBytes)
    {
        const unsigned n = std::min(room, freeBytes / RecordBytes);
        if (m_Batch.size() < n)
            m_Batch.resize(n);
        return m_Stream.BuildWords(m_Batch.data(), n);
    }
    void Push(CKVX_HdwKvxCommandUnit& unit, unsigned device, unsigned channel, unsigned n)
    {
        unsigned sent = 0;
        while (sent < n && unit.AttachAtxPushCommand(device, channel, &m_Batch[sent], 1) == 0)
            ++sent;
        m_Stream.CommitWords(sent);
        m_Count.Sent(sent);
    }

private:
    CKVX_HdwArinc429ByteOutBufferService& m_Stream;
    const std::deque<uint8_t>& m_Queue;
    std::vector<CKVX_HdwArinc429Message>& m_Batch;
    CKVX_HdwKvxOutputCount& m_Count;
};

} // namespace

CKVX_HdwKvxArinc429ByteOutBufferService::CKVX_HdwKvxArinc429ByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429ByteOutBufferService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxArinc429TxPort*>(port))
{}

CKVX_HdwKvxArinc429ByteOutBufferService::~CKVX_HdwKvxArinc429ByteOutBufferService() = default;

unsigned CKVX_HdwKvxArinc429ByteOutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429ByteOutBufferService::Start())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    hdw::units::StartArinc429Fifo(m_UnitPort, m_Count, m_StatusPoll);
    return 0;
}

unsigned CKVX_HdwKvxArinc429ByteOutBufferService::Stop()
{
    return CKVX_HdwArinc429ByteOutBufferService::Stop();
}

unsigned CKVX_HdwKvxArinc429ByteOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock. The words in flight follow
    // the FIFO count: a confirmation settles the oldest, a status answer
    // settles those the unit no longer holds.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure))
        Abort();
    else if (hdw::units::TrackArinc429Fifo(event, m_Count, m_StatusPoll))
        KeepWordsInFlight(m_Count.InFlight);
    return 0;
}

unsigned CKVX_HdwKvxArinc429ByteOutBufferService::HdwTimerHandler(uint64_t ticks)
{
    hdw::units::PollArinc429Fifo(m_UnitPort, m_Count, m_StatusPoll, ticks);
    return SendImmediate();
}

unsigned CKVX_HdwKvxArinc429ByteOutBufferService::SendImmediate()
{
    if (!m_UnitPort)
        return 0;
    return hdw::units::PushQueued(*this, m_UnitPort->GetUnit(), m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(),
        CArinc429StreamOut(*this, m_Queue, m_Batch, m_Count));
}
