#include <HdwLib/bus/HdwCanByteInBufferService.h>
#include <HdwLib/bus/internal/ByteInput.h>
#include <HdwLib/bus/internal/CanStreamId.h>
#include <HdwLib/bus/internal/MessageQueue.h>

#include <algorithm>

CKVX_HdwCanByteInBufferService::CParameters::~CParameters() = default;

CKVX_HdwCanByteInBufferService::CKVX_HdwCanByteInBufferService(CKVX_HdwObject* port) : CKVX_HdwByteInBufferService(port)
{}

CKVX_HdwCanByteInBufferService::~CKVX_HdwCanByteInBufferService() = default;

unsigned CKVX_HdwCanByteInBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Chunks.clear();
    m_Bytes = 0;
    m_Dropped = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwCanByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Chunks.clear();
    m_Bytes = 0;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwCanByteInBufferService::GetParameters(CKVX_HdwByteInBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return GetParameters(own);
    return CKVX_HdwByteInBufferService::GetParameters(params);
}

unsigned CKVX_HdwCanByteInBufferService::SetParameters(CKVX_HdwByteInBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return SetParameters(own);
    return CKVX_HdwByteInBufferService::SetParameters(params);
}

unsigned CKVX_HdwCanByteInBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetStreamParameters(*this, params, BufferSize, Identifier, Extended);
}

unsigned CKVX_HdwCanByteInBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetStreamParameters(*this, params, BufferSize, Identifier, Extended);
}

unsigned CKVX_HdwCanByteInBufferService::Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount)
{
    return ReadTimed(bytes, nullptr, maxCount, readCount);
}

unsigned CKVX_HdwCanByteInBufferService::ReadTimed(
    unsigned char* bytes, uint64_t* timeStamps, unsigned int maxCount, unsigned int& readCount)
{
    return hdw::bus::ReadBytes(*this, bytes, maxCount, readCount, [&](unsigned char* out, unsigned max) {
        return hdw::bus::TakeChunks(m_Chunks, m_Bytes, out, timeStamps, max);
    });
}

unsigned CKVX_HdwCanByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    return hdw::bus::CountBytes(*this, count, [this] { return m_Bytes; });
}

unsigned CKVX_HdwCanByteInBufferService::ResetReadBuffer()
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_Chunks.clear();
    m_Bytes = 0;
    return 0;
}

bool CKVX_HdwCanByteInBufferService::IsStreamFrame(const CKVX_HdwCanMessage& frame) const
{
    return hdw::bus::IsStreamFrame(frame, Identifier, Extended);
}

bool CKVX_HdwCanByteInBufferService::AppendFrame(const CKVX_HdwCanMessage& frame, uint64_t eventTime)
{
    if (!IsStreamFrame(frame))
        return false;
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return true;
    SChunk c;
    c.Time = eventTime;
    c.Count = uint8_t(std::min<unsigned>(frame.Dlc, 8));
    if (c.Count == 0)
        return true;
    std::copy_n(frame.Data, c.Count, c.Data);
    m_Chunks.push_back(c);
    m_Bytes += c.Count;
    hdw::bus::DropOldestChunks(m_Chunks, m_Bytes, BufferSize, m_Dropped);
    return true;
}
