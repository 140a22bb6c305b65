#include <HdwLib/units/KvxArinc429BufferServices.h>
#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/internal/KvxArinc429Fifo.h>
#include <HdwLib/units/internal/KvxOutputQueue.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxArinc429InBufferService::CKVX_HdwKvxArinc429InBufferService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429InBufferService(port)
{}

CKVX_HdwKvxArinc429InBufferService::~CKVX_HdwKvxArinc429InBufferService() = default;

unsigned CKVX_HdwKvxArinc429InBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429InBufferService::Start())
        return rc;
    // The port opened the channel with this filter; make sure it is on.
    hdw::units::EnableChannelOf<CKVX_HdwKvxArinc429RxPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxArinc429InBufferService::Stop()
{
    return CKVX_HdwArinc429InBufferService::Stop();
}

unsigned CKVX_HdwKvxArinc429InBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() == HDW_SERVICE_RUNNING && hdw::units::IsEvent(event, KvxEventA429Rx)) {
        const auto* rx = static_cast<const CKVX_HdwKvxArinc429RxEvent*>(event);
        AppendReceived(rx->Message, rx->TimeStamp);
    }
    return 0;
}

unsigned CKVX_HdwKvxArinc429InBufferService::Read(
    CKVX_HdwArinc429Message* messages, unsigned int maxCount, unsigned int& readCount)
{
    return ReadMessages(messages, maxCount, readCount);
}

unsigned CKVX_HdwKvxArinc429InBufferService::GetReadMessagesNumber(unsigned int& count)
{
    return CountMessages(count);
}

unsigned CKVX_HdwKvxArinc429InBufferService::EnableRx()
{
    return ReconfigureChannel(true);
}

unsigned CKVX_HdwKvxArinc429InBufferService::DisableRx()
{
    return ReconfigureChannel(false);
}

unsigned CKVX_HdwKvxArinc429InBufferService::ResetRx()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}

unsigned CKVX_HdwKvxArinc429InBufferService::AcceptMessage(
    unsigned char label, unsigned char sdiMask, unsigned char ssmMask)
{
    CKVX_HdwArinc429InBufferService::AcceptMessage(label, sdiMask, ssmMask);
    return ReconfigureFilter();
}

unsigned CKVX_HdwKvxArinc429InBufferService::AcceptAllMessages()
{
    CKVX_HdwArinc429InBufferService::AcceptAllMessages();
    return ReconfigureFilter();
}

unsigned CKVX_HdwKvxArinc429InBufferService::DiscardAllMessages()
{
    CKVX_HdwArinc429InBufferService::DiscardAllMessages();
    return ReconfigureFilter();
}

unsigned char CKVX_HdwKvxArinc429InBufferService::ApplyFilter(CKVX_HdwArinc429Message& message, unsigned short* filter)
{
    // The unit drops labels in hardware; the SDI/SSM part of the filter is
    // applied here.
    return CKVX_HdwArinc429InBufferService::ApplyFilter(message, filter);
}

void CKVX_HdwKvxArinc429InBufferService::GetLabelTable(uint8_t* flags) const
{
    for (unsigned label = 0; label < 256; ++label)
        flags[label] = LabelFilter[label] != 0 ? 1 : 0;
}

unsigned CKVX_HdwKvxArinc429InBufferService::DiscardMessage(unsigned char label)
{
    CKVX_HdwArinc429InBufferService::DiscardMessage(label);
    return ReconfigureFilter();
}

// A filter change reaches the unit's label table and leaves the receiver on
// or off as it was.
unsigned CKVX_HdwKvxArinc429InBufferService::ReconfigureFilter()
{
    auto* port = dynamic_cast<CKVX_HdwKvxArinc429RxPort*>(GetHdwPort());
    if (!port || !port->IsOpen())
        return 0;
    CKVX_HdwServiceLock lock(*this);
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(port);
    const unsigned channel = port->GetChannel();
    const bool on = inst && channel < inst->ArxCtrl.size() && inst->ArxCtrl[channel].Enabled;
    return port->AttachConfiguration(on);
}

unsigned CKVX_HdwKvxArinc429InBufferService::ReconfigureChannel(bool enable)
{
    return hdw::units::ReconfigureChannelOf<CKVX_HdwKvxArinc429RxPort>(*this, enable);
}

// ---- output -------------------------------------------------------------------

namespace {

// The queued words of an ARINC 429 output as the push skeleton sees them:
// one push record (10 bytes) per word, built straight from the queued word.
class CArinc429WordsOut {
public:
    static constexpr unsigned RecordBytes = 10;

    CArinc429WordsOut(CKVX_HdwArinc429MessageList& words, CKVX_HdwKvxOutputCount& count)
        : m_Words(words),
          m_Count(count)
    {}

    bool Empty() const { return m_Words.IsEmpty(); }
    unsigned Room(bool frameDue) const { return hdw::units::Arinc429FifoRoom(m_Count, frameDue); }
    unsigned Fit(unsigned room, unsigned freeBytes) const
    {
        return std::min({room, unsigned(m_Words.GetLength()), freeBytes / RecordBytes});
    }
    void Push(CKVX_HdwKvxCommandUnit& unit, unsigned device, unsigned channel, unsigned n)
    {
        auto& items = m_Words.Items();
        auto it = items.begin();
        unsigned sent = 0;
        for (; sent < n; ++sent, ++it)
            if (unit.AttachAtxPushCommand(device, channel, &*it, 1) != 0)
                break;
        items.erase(items.begin(), it);
        m_Words.ToStart();
        m_Count.Sent(sent);
    }

private:
    CKVX_HdwArinc429MessageList& m_Words;
    CKVX_HdwKvxOutputCount& m_Count;
};

} // namespace

CKVX_HdwKvxArinc429OutBufferService::CKVX_HdwKvxArinc429OutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429OutBufferService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxArinc429TxPort*>(port))
{}

CKVX_HdwKvxArinc429OutBufferService::~CKVX_HdwKvxArinc429OutBufferService() = default;

unsigned CKVX_HdwKvxArinc429OutBufferService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429OutBufferService::Start())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    hdw::units::StartArinc429Fifo(m_UnitPort, m_Count, m_StatusPoll);
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutBufferService::Stop()
{
    return CKVX_HdwArinc429OutBufferService::Stop();
}

unsigned CKVX_HdwKvxArinc429OutBufferService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure))
        Abort();
    else
        hdw::units::TrackArinc429Fifo(event, m_Count, m_StatusPoll);
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutBufferService::HdwTimerHandler(uint64_t ticks)
{
    hdw::units::PollArinc429Fifo(m_UnitPort, m_Count, m_StatusPoll, ticks);
    return SendImmediate();
}

unsigned CKVX_HdwKvxArinc429OutBufferService::Write(
    CKVX_HdwArinc429Message* messages, unsigned int count, unsigned char option)
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
    for (unsigned i = 0; i < count; ++i)
        Messages += messages[i];
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutBufferService::SendImmediate()
{
    if (!m_UnitPort)
        return 0;
    return hdw::units::PushQueued(*this, m_UnitPort->GetUnit(), m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(),
        CArinc429WordsOut(Messages, m_Count));
}

unsigned CKVX_HdwKvxArinc429OutBufferService::GetMessagesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(Messages.GetLength() + m_Count.InFlight);
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    return 0;
}
