#include <HdwLib/units/KvxCanByteServices.h>
#include <HdwLib/units/KvxCanPort.h>
#include <HdwLib/units/KvxCanServices.h>
#include <HdwLib/units/internal/KvxOutputQueue.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxCanInBufferService::CKVX_HdwKvxCanInBufferService(CKVX_HdwObject* port) : CKVX_HdwCanInBufferService(port) {}

CKVX_HdwKvxCanInBufferService::~CKVX_HdwKvxCanInBufferService() = default;

unsigned CKVX_HdwKvxCanInBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanInBufferService::Start())
        return rc;
    {
        CKVX_HdwServiceLock lock(*this);
        RxFlag = 1;
    }
    hdw::units::EnableChannelOf<CKVX_HdwKvxCanPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxCanInBufferService::Stop()
{
    return CKVX_HdwCanInBufferService::Stop();
}

unsigned CKVX_HdwKvxCanInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (RxFlag && GetStatus() == HDW_SERVICE_RUNNING && hdw::units::IsEvent(event, KvxEventCanRx)) {
        const auto* rx = static_cast<const CKVX_HdwKvxCanRxEvent*>(event);
        AppendReceived(rx->Message, rx->TimeStamp);
    }
    return 0;
}

unsigned CKVX_HdwKvxCanInBufferService::Read(
    CKVX_HdwCanMessage* messages, unsigned int maxCount, unsigned int& readCount)
{
    return ReadMessages(messages, maxCount, readCount);
}

unsigned CKVX_HdwKvxCanInBufferService::EnableRx()
{
    {
        CKVX_HdwServiceLock lock(*this);
        RxFlag = 1;
    }
    hdw::units::EnableChannelOf<CKVX_HdwKvxCanPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxCanInBufferService::DisableRx()
{
    CKVX_HdwServiceLock lock(*this);
    RxFlag = 0;
    return 0;
}

unsigned CKVX_HdwKvxCanInBufferService::ResetRx()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

// ---- output -------------------------------------------------------------------

namespace {

// The queued frames of a CAN output as the push skeleton sees them: one
// push record (17 bytes) per frame, built straight from the queued frame.
class CCanFramesOut {
public:
    static constexpr unsigned RecordBytes = 17;

    CCanFramesOut(CKVX_HdwCanOutBufferService::CMessageBuffer& frames, std::vector<CKVX_HdwCanMessage*>& spare,
        CKVX_HdwKvxOutputCount& count, CKVX_HdwPort* port)
        : m_Frames(frames),
          m_Spare(spare),
          m_Count(count),
          m_Port(port)
    {}

    bool Empty() const { return m_Frames.IsEmpty(); }
    // The FIFO is shared with the channel's byte output.
    unsigned Room(bool frameDue) const
    {
        const uint64_t used = m_Count.InFlight + CKVX_HdwKvxCanByteOutBufferService::FramesInFlightOn(m_Port);
        return TopUpRoom(used, KvxCanTxFifoFrames, frameDue);
    }
    unsigned Fit(unsigned room, unsigned freeBytes) const
    {
        return std::min({room, unsigned(m_Frames.GetLength()), freeBytes / RecordBytes});
    }
    void Push(CKVX_HdwKvxCommandUnit& unit, unsigned device, unsigned channel, unsigned n)
    {
        auto& items = m_Frames.Items();
        auto it = items.begin();
#if defined(__GNUC__)
        // The application's thread wrote these frames, one heap object each:
        // ask for all of them before the first is needed, so that the cache
        // misses overlap instead of following one another.
        for (unsigned i = 0; i < n; ++i)
            __builtin_prefetch(it[i]);
#endif
        unsigned sent = 0;
        for (; sent < n; ++sent, ++it)
            if (unit.AttachCanPushCommand(device, channel, *it, 1) != 0)
                break;
        for (auto d = items.begin(); d != it; ++d) {
            if (m_Spare.size() < kSpareFrames)
                m_Spare.push_back(*d);
            else
                delete *d;
        }
        items.erase(items.begin(), it);
        m_Frames.ToStart();
        m_Count.Sent(sent);
    }

    // Enough for an application that queues a few thousand frames at a time
    // (some 200 KB at most); more go back to the heap.
    static constexpr size_t kSpareFrames = 4096;

private:
    CKVX_HdwCanOutBufferService::CMessageBuffer& m_Frames;
    std::vector<CKVX_HdwCanMessage*>& m_Spare;
    CKVX_HdwKvxOutputCount& m_Count;
    CKVX_HdwPort* m_Port;
};

} // namespace

CKVX_HdwKvxCanOutBufferService::CKVX_HdwKvxCanOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanOutBufferService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxCanPort*>(port))
{}

CKVX_HdwKvxCanOutBufferService::~CKVX_HdwKvxCanOutBufferService()
{
    for (CKVX_HdwCanMessage* m : m_Spare)
        delete m;
}

unsigned CKVX_HdwKvxCanOutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanOutBufferService::Start())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    // The push count runs on: status requests still outstanding carry marks of it.
    m_Count.InFlight = 0;
    if (m_UnitPort) {
        m_UnitPort->AttachConfiguration(true);
        // The transmit state: what the FIFO still holds from before.
        m_UnitPort->AttachStatusRequest(hdw::units::StatusCanTransmit);
    }
    return 0;
}

unsigned CKVX_HdwKvxCanOutBufferService::Stop()
{
    return CKVX_HdwCanOutBufferService::Stop();
}

unsigned CKVX_HdwKvxCanOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, KvxEventCanTx)) {
        // The byte stream's frames are settled by the byte output.
        const auto* tx = static_cast<const CKVX_HdwKvxCanTxEvent*>(event);
        if (m_Count.InFlight > 0 && !CKVX_HdwKvxCanByteOutBufferService::IsStreamFrameOn(GetHdwPort(), tx->Message))
            m_Count.Confirm(1);
    } else if (hdw::units::IsEvent(event, KvxEventUnitLost)) {
        static_cast<CKVX_HdwKvxUnitLinkEvent*>(event)->LostItems += m_Count.InFlight;
        m_Count.Reset();
    } else if (hdw::units::IsEvent(event, KvxEventStatus)) {
        const auto* status = static_cast<const CKVX_HdwKvxStatusEvent*>(event);
        uint64_t mark = 0;
        if (m_UnitPort && status->Kind == hdw::units::StatusCan && m_UnitPort->TakeStatusMark(mark)) {
            TxStatus = status->StatusWord;
            m_Count.Resync((TxStatus >> 8) & 0xFF, mark);
            // The FIFO also holds the byte stream's frames.
            const uint64_t stream = CKVX_HdwKvxCanByteOutBufferService::FramesInFlightOn(m_UnitPort);
            m_Count.InFlight = m_Count.InFlight > stream ? m_Count.InFlight - stream : 0;
        }
    }
    return 0;
}

unsigned CKVX_HdwKvxCanOutBufferService::HdwTimerHandler(uint64_t ticks)
{
    m_LastTick = ticks;
    return SendImmediate();
}

unsigned CKVX_HdwKvxCanOutBufferService::Write(CKVX_HdwCanMessage* messages, unsigned int count, unsigned char option)
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
    if (BufferSize != 0 && uint64_t(Messages.GetLength()) + count > BufferSize) {
        m_Unplaced += count;
        return HDW_ERR_ARGUMENT;
    }
    for (unsigned i = 0; i < count; ++i) {
        if (m_Spare.empty()) {
            Messages += new CKVX_HdwCanMessage(messages[i]);
        } else {
            CKVX_HdwCanMessage* m = m_Spare.back();
            m_Spare.pop_back();
            *m = messages[i];
            Messages += m;
        }
    }
    return 0;
}

unsigned CKVX_HdwKvxCanOutBufferService::SendImmediate()
{
    if (!m_UnitPort)
        return 0;
    return hdw::units::PushQueued(*this, m_UnitPort->GetUnit(), m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(),
        CCanFramesOut(Messages, m_Spare, m_Count, m_UnitPort));
}

unsigned CKVX_HdwKvxCanOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

unsigned CKVX_HdwKvxCanOutBufferService::GetMessagesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(Messages.GetLength() + m_Count.InFlight);
    return 0;
}
