#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/bus/internal/ByteInput.h>
#include <HdwLib/bus/internal/ByteOutput.h>
#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/units/KvxSorrelServices.h>
#include <HdwLib/units/KvxSorrelUartPort.h>
#include <HdwLib/units/internal/KvxSorrelChannel.h>

#include <algorithm>

namespace sorrel = hdw::units::sorrel;

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxSorrelByteInBufferService::CKVX_HdwKvxSorrelByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteInBufferService(port),
      m_SorrelPort(dynamic_cast<CKVX_HdwKvxSorrelUartPort*>(port))
{}

CKVX_HdwKvxSorrelByteInBufferService::~CKVX_HdwKvxSorrelByteInBufferService() = default;

unsigned CKVX_HdwKvxSorrelByteInBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Dropped = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwKvxSorrelByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

void CKVX_HdwKvxSorrelByteInBufferService::Append(const uint8_t* bytes, size_t count)
{
    if (GetStatus() == HDW_SERVICE_RUNNING)
        hdw::bus::AppendBytes(m_Bytes, bytes, count, BufferSize, m_Dropped);
}

void CKVX_HdwKvxSorrelByteInBufferService::CountUnitDropped(uint64_t bytes)
{
    CKVX_HdwServiceLock lock(*this);
    m_Dropped += bytes;
}

unsigned CKVX_HdwKvxSorrelByteInBufferService::Read(
    unsigned char* bytes, unsigned int maxCount, unsigned int& readCount)
{
    const unsigned rc = hdw::bus::ReadBytes(*this, m_Bytes, bytes, maxCount, readCount);
    return rc == 0 && maxCount != 0 && readCount == 0 ? static_cast<unsigned>(HDW_ERR_NOTHING_TO_READ) : rc;
}

unsigned CKVX_HdwKvxSorrelByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    return hdw::bus::CountBytes(*this, count, [this] { return m_Bytes.size(); });
}

unsigned CKVX_HdwKvxSorrelByteInBufferService::ResetReadBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    hdw::units::CSorrelChannel* ch = m_SorrelPort ? m_SorrelPort->GetSorrelChannel() : nullptr;
    if (!ch || !m_SorrelPort->IsOpen())
        return 0;
    uint32_t number = 0;
    {
        std::lock_guard<std::mutex> chLock(ch->Mutex);
        ch->RxBytes.clear();
        ch->RxResetPending = true;
        ch->RxResetSent = sorrel::Clock::now();
        number = ch->TxNext;
    }
    // Not waited for: the port sends it again until the reply comes.
    m_SorrelPort->SendPortPacket(CKVX_HdwHoe::CodeRstRx, number, nullptr, 0);
    return 0;
}

// ---- output -------------------------------------------------------------------

CKVX_HdwKvxSorrelByteOutBufferService::CKVX_HdwKvxSorrelByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port),
      m_SorrelPort(dynamic_cast<CKVX_HdwKvxSorrelUartPort*>(port))
{}

CKVX_HdwKvxSorrelByteOutBufferService::~CKVX_HdwKvxSorrelByteOutBufferService() = default;

unsigned CKVX_HdwKvxSorrelByteOutBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    // The port was (re-)opened on the unit just now: numbering from 0, its
    // transmit buffer empty.
    m_Bytes.clear();
    Resume();
    m_Resends = 0;
    m_Unplaced = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

uint64_t CKVX_HdwKvxSorrelByteOutBufferService::ForgetInFlight()
{
    uint64_t bytes = 0;
    for (const CSent& s : m_Unacked)
        bytes += s.Data.size();
    bytes += sorrel::BufferBytes - std::min<uint32_t>(m_UnitFree, sorrel::BufferBytes);
    m_Unacked.clear();
    m_Probe = CSent();
    m_UnitFree = sorrel::BufferBytes;
    return bytes;
}

void CKVX_HdwKvxSorrelByteOutBufferService::Resume()
{
    m_Unacked.clear();
    m_Probe = CSent();
    m_Next = 0;
    m_Credit = sorrel::BufferBytes;
    m_UnitFree = sorrel::BufferBytes;
    m_HaveAck = false;
    m_ResetPending = false;
}

unsigned CKVX_HdwKvxSorrelByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Unacked.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwKvxSorrelByteOutBufferService::Write(unsigned char* bytes, unsigned int count, unsigned int option)
{
    return hdw::bus::QueueBytes(*this, m_Bytes, bytes, count, option, BufferSize, m_Unplaced);
}

unsigned CKVX_HdwKvxSorrelByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    size_t n = m_Bytes.size();
    for (const CSent& s : m_Unacked)
        n += s.Data.size();
    count = unsigned(n);
    return 0;
}

uint64_t CKVX_HdwKvxSorrelByteOutBufferService::GetResendCount() const
{
    // The tick counts resends under the device lock.
    CKVX_HdwServiceLock lock(const_cast<CKVX_HdwKvxSorrelByteOutBufferService&>(*this));
    return m_Resends;
}

unsigned CKVX_HdwKvxSorrelByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Unacked.clear();
    hdw::units::CSorrelChannel* ch = m_SorrelPort ? m_SorrelPort->GetSorrelChannel() : nullptr;
    if (!ch || !m_SorrelPort->IsOpen())
        return 0;
    {
        std::lock_guard<std::mutex> chLock(ch->Mutex);
        ch->Replies[CKVX_HdwHoe::CodeRstTxReply - 0xA0000000u].Got = false;
    }
    m_ResetPending = true;
    m_ResetAt = sorrel::Clock::now();
    m_SorrelPort->SendPortPacket(CKVX_HdwHoe::CodeRstTx, m_Next, nullptr, 0);
    return 0;
}

void CKVX_HdwKvxSorrelByteOutBufferService::TakeAcknowledgement()
{
    hdw::units::CSorrelChannel* ch = m_SorrelPort->GetSorrelChannel();
    std::lock_guard<std::mutex> lock(ch->Mutex);
    if (m_ResetPending) {
        hdw::units::CSorrelReply& reply = ch->Replies[CKVX_HdwHoe::CodeRstTxReply - 0xA0000000u];
        if (!reply.Got || reply.Payload.size() < 12)
            return;
        // The unit emptied its transmit buffer and expects this number next.
        m_Next = sorrel::GetU32(reply.Payload.data() + 8);
        m_Credit = sorrel::BufferBytes;
        m_UnitFree = sorrel::BufferBytes;
        m_Probe = CSent();
        m_ResetPending = false;
        m_HaveAck = false;
        ch->AckSeen = false;
        ch->TxNext = m_Next;
        return;
    }
    if (!ch->AckSeen)
        return;
    const uint32_t number = ch->AckNumber;
    const uint32_t free = ch->AckFree;
    ch->AckSeen = false;
    if (m_HaveAck && !sorrel::NotBefore(number, m_LastAck))
        return; // older than one already taken
    // An acknowledgement of a number not sent in this numbering (before a reset) is ignored too.
    const uint32_t oldest = m_Unacked.empty() ? m_Next : m_Unacked.front().Number;
    if (!sorrel::NotBefore(number, oldest - 1) || !sorrel::NotBefore(m_Next - 1, number))
        return;
    m_HaveAck = true;
    m_LastAck = number;
    uint64_t acked = 0;
    while (!m_Unacked.empty() && sorrel::NotBefore(number, m_Unacked.front().Number)) {
        acked += m_Unacked.front().Data.size();
        m_Probe = std::move(m_Unacked.front());
        m_Probe.At = sorrel::Clock::now();
        m_Unacked.pop_front();
    }
    // The unit reports when it took bytes into its transmit buffer, not when
    // they left it: the signal says the former.
    if (acked != 0)
        if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(m_SorrelPort))
            signals->PostValue(HDW_SIGNAL_UART_SENT, uint32_t(acked), free, sorrel::NowUs());
    int64_t inFlight = 0;
    for (const CSent& s : m_Unacked)
        inFlight += int64_t(s.Data.size());
    m_Credit = int64_t(free) - inFlight;
    m_UnitFree = free;
}

unsigned CKVX_HdwKvxSorrelByteOutBufferService::SendData(const CSent& packet)
{
    return m_SorrelPort->SendPortPacket(
        CKVX_HdwHoe::CodeDataBuf, packet.Number, packet.Data.data(), unsigned(packet.Data.size()));
}

void CKVX_HdwKvxSorrelByteOutBufferService::SendNew(std::chrono::steady_clock::time_point now)
{
    while (!m_Bytes.empty() && m_Unacked.size() < sorrel::Window && m_Credit > 0) {
        const size_t n = std::min<size_t>({sorrel::MaxData, m_Bytes.size(), size_t(m_Credit)});
        CSent packet;
        packet.Number = m_Next;
        packet.Data.assign(m_Bytes.begin(), m_Bytes.begin() + std::ptrdiff_t(n));
        packet.At = now;
        SendData(packet);
        m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + std::ptrdiff_t(n));
        m_Unacked.push_back(std::move(packet));
        m_Credit -= int64_t(n);
        ++m_Next;
    }
    if (hdw::units::CSorrelChannel* ch = m_SorrelPort->GetSorrelChannel()) {
        std::lock_guard<std::mutex> lock(ch->Mutex);
        ch->TxNext = m_Next;
    }
}

unsigned CKVX_HdwKvxSorrelByteOutBufferService::HdwTimerHandler(uint64_t)
{
    // The tick, under the device lock.
    if (GetStatus() != HDW_SERVICE_RUNNING || !m_SorrelPort || !m_SorrelPort->GetSorrelChannel())
        return 0;
    const auto now = sorrel::Clock::now();
    TakeAcknowledgement();
    if (m_ResetPending) {
        if (now - m_ResetAt >= std::chrono::milliseconds(sorrel::RequestGapMs)) {
            m_ResetAt = now;
            m_SorrelPort->SendPortPacket(CKVX_HdwHoe::CodeRstTx, m_Next, nullptr, 0);
        }
        return 0;
    }
    // Go-back-N: the oldest unacknowledged and every one after it.
    if (!m_Unacked.empty() && now - m_Unacked.front().At >= std::chrono::milliseconds(sorrel::ResendMs)) {
        for (CSent& s : m_Unacked) {
            SendData(s);
            s.At = now;
            ++m_Resends;
        }
    }
    SendNew(now);
    if (!m_Bytes.empty() && m_Unacked.empty() && m_Credit <= 0 && !m_Probe.Data.empty() &&
        now - m_Probe.At >= std::chrono::milliseconds(sorrel::ResendMs)) {
        SendData(m_Probe);
        m_Probe.At = now;
        ++m_Resends;
    }
    return 0;
}
