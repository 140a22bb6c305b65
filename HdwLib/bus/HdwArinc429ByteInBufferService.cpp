#include <HdwLib/bus/HdwArinc429ByteInBufferService.h>
#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/internal/Arinc429StreamWord.h>
#include <HdwLib/bus/internal/ByteInput.h>

#include <algorithm>

CKVX_HdwArinc429ByteInBufferService::CParameters::~CParameters() = default;

void CKVX_HdwArinc429ByteInBufferService::CByteBuffer::Append(
    const uint8_t* bytes, unsigned count, uint64_t time, uint32_t bound)
{
    SWord w;
    w.Time = time;
    w.Count = uint8_t(count < 2 ? count : 2);
    if (w.Count == 0)
        return;
    std::copy_n(bytes, w.Count, w.Data);
    m_Words.push_back(w);
    m_Size += w.Count;
    hdw::bus::DropOldestChunks(m_Words, m_Size, bound, m_Dropped);
}

unsigned CKVX_HdwArinc429ByteInBufferService::CByteBuffer::Take(uint8_t* out, uint64_t* times, unsigned maxCount)
{
    return hdw::bus::TakeChunks(m_Words, m_Size, out, times, maxCount);
}

CKVX_HdwArinc429ByteInBufferService::CKVX_HdwArinc429ByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteInBufferService(port)
{}

CKVX_HdwArinc429ByteInBufferService::~CKVX_HdwArinc429ByteInBufferService() = default;

unsigned CKVX_HdwArinc429ByteInBufferService::Start()
{
    uint8_t parity = 0;
    if (auto* rx = dynamic_cast<CKVX_HdwArinc429RxPort*>(GetHdwPort())) {
        CKVX_HdwArinc429RxPort::CParameters p;
        rx->GetParameters(&p);
        parity = p.Parity;
    }
    CKVX_HdwServiceLock lock(*this);
    Bytes.Clear();
    Bytes.ResetDropped();
    m_Dropped = 0;
    m_Lost = m_Repeated = m_Rejected = 0;
    m_Synced = false;
    m_ParityMode = parity;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwArinc429ByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    Bytes.Clear();
    m_Synced = false;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwArinc429ByteInBufferService::GetParameters(CKVX_HdwByteInBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return GetParameters(own);
    return CKVX_HdwByteInBufferService::GetParameters(params);
}

unsigned CKVX_HdwArinc429ByteInBufferService::SetParameters(CKVX_HdwByteInBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return SetParameters(own);
    return CKVX_HdwByteInBufferService::SetParameters(params);
}

unsigned CKVX_HdwArinc429ByteInBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetLabelStreamParameters(*this, params, BufferSize, m_Label, m_Sdi);
}

unsigned CKVX_HdwArinc429ByteInBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetLabelStreamParameters(*this, params, BufferSize, m_Label, m_Sdi);
}

unsigned CKVX_HdwArinc429ByteInBufferService::Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount)
{
    return ReadTimed(bytes, nullptr, maxCount, readCount);
}

unsigned CKVX_HdwArinc429ByteInBufferService::ReadTimed(
    unsigned char* bytes, uint64_t* timeStamps, unsigned int maxCount, unsigned int& readCount)
{
    return hdw::bus::ReadBytes(*this, bytes, maxCount, readCount,
        [&](unsigned char* out, unsigned max) { return Bytes.Take(out, timeStamps, max); });
}

unsigned CKVX_HdwArinc429ByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    return hdw::bus::CountBytes(*this, count, [this] { return Bytes.Size(); });
}

unsigned CKVX_HdwArinc429ByteInBufferService::ResetReadBuffer()
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    Bytes.Clear();
    m_Synced = false;
    return 0;
}

uint64_t CKVX_HdwArinc429ByteInBufferService::GetLostWords()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Lost;
}

uint64_t CKVX_HdwArinc429ByteInBufferService::GetRepeatedWords()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Repeated;
}

uint64_t CKVX_HdwArinc429ByteInBufferService::GetRejectedWords()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Rejected;
}

uint64_t CKVX_HdwArinc429ByteInBufferService::GetDroppedBytes()
{
    CKVX_HdwServiceLock lock(*this);
    return Bytes.Dropped();
}

bool CKVX_HdwArinc429ByteInBufferService::IsStreamWord(const CKVX_HdwArinc429Message& word) const
{
    return word.Label == m_Label && word.Sdi == m_Sdi;
}

bool CKVX_HdwArinc429ByteInBufferService::AppendWord(const CKVX_HdwArinc429Message& word, uint64_t eventTime)
{
    if (!IsStreamWord(word))
        return false;
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return true;
    hdw::bus::SStreamWord content;
    if (!hdw::bus::HasStreamParity(word, m_ParityMode) || !hdw::bus::UnpackStreamWord(word, content)) {
        ++m_Rejected;
        return true;
    }
    const hdw::bus::SSequenceCheck check = hdw::bus::CheckStreamSequence(m_Synced, m_LastSequence, content.Sequence);
    if (check.Repeat) {
        ++m_Repeated;
        return true;
    }
    m_Lost += check.Lost;
    Bytes.Append(content.Bytes, content.Count, eventTime, BufferSize);
    m_Dropped = Bytes.Dropped(); // GetDroppedCount, as on the other byte inputs
    return true;
}
