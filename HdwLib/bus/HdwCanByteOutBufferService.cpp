#include <HdwLib/bus/HdwCanByteOutBufferService.h>
#include <HdwLib/bus/internal/ByteOutput.h>
#include <HdwLib/bus/internal/CanStreamId.h>
#include <HdwLib/bus/internal/MessageQueue.h>

#include <algorithm>

CKVX_HdwCanByteOutBufferService::CParameters::~CParameters() = default;

CKVX_HdwCanByteOutBufferService::CKVX_HdwCanByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port)
{}

CKVX_HdwCanByteOutBufferService::~CKVX_HdwCanByteOutBufferService() = default;

unsigned CKVX_HdwCanByteOutBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Queue.clear();
    m_InFlight.clear();
    m_Unplaced = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwCanByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Queue.clear();
    m_InFlight.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwCanByteOutBufferService::GetParameters(CKVX_HdwByteOutBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return GetParameters(own);
    return CKVX_HdwByteOutBufferService::GetParameters(params);
}

unsigned CKVX_HdwCanByteOutBufferService::SetParameters(CKVX_HdwByteOutBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return SetParameters(own);
    return CKVX_HdwByteOutBufferService::SetParameters(params);
}

unsigned CKVX_HdwCanByteOutBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetStreamParameters(*this, params, BufferSize, Identifier, Extended);
}

unsigned CKVX_HdwCanByteOutBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetStreamParameters(*this, params, BufferSize, Identifier, Extended);
}

unsigned CKVX_HdwCanByteOutBufferService::Write(unsigned char* bytes, unsigned int count, unsigned int option)
{
    return hdw::bus::QueueBytes(*this, m_Queue, bytes, count, option, BufferSize, m_Unplaced);
}

unsigned CKVX_HdwCanByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Queue.size() + hdw::bus::BytesInFlight(m_InFlight));
    return 0;
}

unsigned CKVX_HdwCanByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Queue.clear();
    return 0;
}

unsigned CKVX_HdwCanByteOutBufferService::BuildFrames(CKVX_HdwCanMessage* frames, unsigned maxFrames) const
{
    if (!frames)
        return 0;
    unsigned n = 0;
    size_t pos = 0;
    while (n < maxFrames && pos < m_Queue.size()) {
        CKVX_HdwCanMessage& f = frames[n++];
        f = CKVX_HdwCanMessage();
        f.Extended = Extended;
        f.Identifier = Identifier;
        f.Dlc = uint8_t(std::min<size_t>(8, m_Queue.size() - pos));
        std::copy_n(m_Queue.begin() + std::ptrdiff_t(pos), f.Dlc, f.Data);
        pos += f.Dlc;
    }
    return n;
}

void CKVX_HdwCanByteOutBufferService::CommitFrames(unsigned count)
{
    for (unsigned i = 0; i < count && !m_Queue.empty(); ++i) {
        const size_t carried = std::min<size_t>(8, m_Queue.size());
        m_Queue.erase(m_Queue.begin(), m_Queue.begin() + std::ptrdiff_t(carried));
        m_InFlight.push_back(uint8_t(carried));
    }
}

bool CKVX_HdwCanByteOutBufferService::ConfirmFrame(const CKVX_HdwCanMessage& frame)
{
    if (!IsStreamFrame(frame))
        return false;
    if (!m_InFlight.empty())
        m_InFlight.pop_front();
    return true;
}

bool CKVX_HdwCanByteOutBufferService::IsStreamFrame(const CKVX_HdwCanMessage& frame) const
{
    return hdw::bus::IsStreamFrame(frame, Identifier, Extended);
}

uint64_t CKVX_HdwCanByteOutBufferService::ForgetFramesInFlight()
{
    const uint64_t bytes = hdw::bus::BytesInFlight(m_InFlight);
    m_InFlight.clear();
    return bytes;
}
