#include <HdwLib/units/KvxCanByteServices.h>
#include <HdwLib/units/KvxCanPort.h>
#include <HdwLib/units/KvxCanServices.h>
#include <HdwLib/units/internal/KvxOutputQueue.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxCanByteInBufferService::CKVX_HdwKvxCanByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanByteInBufferService(port)
{}

CKVX_HdwKvxCanByteInBufferService::~CKVX_HdwKvxCanByteInBufferService() = default;

unsigned CKVX_HdwKvxCanByteInBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanByteInBufferService::Start())
        return rc;
    hdw::units::EnableChannelOf<CKVX_HdwKvxCanPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxCanByteInBufferService::Stop()
{
    return CKVX_HdwCanByteInBufferService::Stop();
}

unsigned CKVX_HdwKvxCanByteInBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, KvxEventCanRx)) {
        const auto* rx = static_cast<const CKVX_HdwKvxCanRxEvent*>(event);
        AppendFrame(rx->Message, rx->TimeStamp);
    }
    return 0;
}

// ---- output -------------------------------------------------------------------

namespace {

// The queued bytes of a stream over CAN as the push skeleton sees them:
// frames built into the service's batch, all of one push in one command of
// 17 bytes per frame; the generic class keeps the bytes and the frames in
// flight.
class CCanStreamOut {
public:
    static constexpr unsigned RecordBytes = 17;

    CCanStreamOut(CKVX_HdwCanByteOutBufferService& stream, const std::deque<uint8_t>& queue,
        std::vector<CKVX_HdwCanMessage>& batch, CKVX_HdwPort* port)
        : m_Stream(stream),
          m_Queue(queue),
          m_Batch(batch),
          m_Port(port)
    {}

    bool Empty() const { return m_Queue.empty(); }
    // The FIFO is shared with the channel's frame output; a stream fills
    // whatever room it has, frame due or not.
    unsigned Room(bool) const
    {
        auto* frames = hdw::units::ServiceOn<CKVX_HdwKvxCanOutBufferService>(m_Port, HDW_SERVICE_CAN_OUT_BUFFER);
        const uint64_t used = m_Stream.GetFramesInFlight() + (frames ? frames->GetInFlightCount() : 0);
        return TopUpRoom(used, KvxCanTxFifoFrames, true);
    }
    unsigned Fit(unsigned room, unsigned freeBytes)
    {
        const unsigned n = std::min(room, freeBytes / RecordBytes);
        if (m_Batch.size() < KvxCanTxFifoFrames)
            m_Batch.resize(KvxCanTxFifoFrames);
        return m_Stream.BuildFrames(m_Batch.data(), n);
    }
    void Push(CKVX_HdwKvxCommandUnit& unit, unsigned device, unsigned channel, unsigned n)
    {
        if (unit.AttachCanPushCommand(device, channel, m_Batch.data(), n) != 0)
            return;
        m_Stream.CommitFrames(n);
    }

private:
    CKVX_HdwCanByteOutBufferService& m_Stream;
    const std::deque<uint8_t>& m_Queue;
    std::vector<CKVX_HdwCanMessage>& m_Batch;
    CKVX_HdwPort* m_Port;
};

} // namespace

CKVX_HdwKvxCanByteOutBufferService::CKVX_HdwKvxCanByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwCanByteOutBufferService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxCanPort*>(port))
{}

CKVX_HdwKvxCanByteOutBufferService::~CKVX_HdwKvxCanByteOutBufferService() = default;

unsigned CKVX_HdwKvxCanByteOutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwCanByteOutBufferService::Start())
        return rc;
    hdw::units::EnableChannelOf<CKVX_HdwKvxCanPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxCanByteOutBufferService::Stop()
{
    return CKVX_HdwCanByteOutBufferService::Stop();
}

unsigned CKVX_HdwKvxCanByteOutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
    } else if (hdw::units::IsEvent(event, KvxEventCanTx)) {
        const auto* tx = static_cast<const CKVX_HdwKvxCanTxEvent*>(event);
        ConfirmFrame(tx->Message);
    } else if (hdw::units::IsEvent(event, KvxEventUnitLost)) {
        // The unit's FIFO went with it: its frames of the stream count as lost bytes.
        static_cast<CKVX_HdwKvxUnitLinkEvent*>(event)->LostItems += ForgetFramesInFlight();
    }
    return 0;
}

unsigned CKVX_HdwKvxCanByteOutBufferService::HdwTimerHandler(uint64_t)
{
    return SendImmediate();
}

unsigned CKVX_HdwKvxCanByteOutBufferService::SendImmediate()
{
    if (!m_UnitPort)
        return 0;
    return hdw::units::PushQueued(*this, m_UnitPort->GetUnit(), m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(),
        CCanStreamOut(*this, m_Queue, m_Batch, m_UnitPort));
}

unsigned CKVX_HdwKvxCanByteOutBufferService::FramesInFlightOn(CKVX_HdwPort* port)
{
    auto* bytes = hdw::units::ServiceOn<CKVX_HdwKvxCanByteOutBufferService>(port, HDW_SERVICE_BYTE_OUT_BUFFER);
    return bytes ? bytes->GetFramesInFlight() : 0;
}

bool CKVX_HdwKvxCanByteOutBufferService::IsStreamFrameOn(CKVX_HdwPort* port, const CKVX_HdwCanMessage& frame)
{
    auto* bytes = hdw::units::ServiceOn<CKVX_HdwKvxCanByteOutBufferService>(port, HDW_SERVICE_BYTE_OUT_BUFFER);
    return bytes && bytes->IsStreamFrame(frame);
}
