#include <HdwLib/bus/HdwArinc429ByteOutBufferService.h>
#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/bus/internal/Arinc429StreamWord.h>
#include <HdwLib/bus/internal/ByteOutput.h>

#include <algorithm>

CKVX_HdwArinc429ByteOutBufferService::CParameters::~CParameters() = default;

CKVX_HdwArinc429ByteOutBufferService::CKVX_HdwArinc429ByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port)
{}

CKVX_HdwArinc429ByteOutBufferService::~CKVX_HdwArinc429ByteOutBufferService() = default;

unsigned CKVX_HdwArinc429ByteOutBufferService::Start()
{
    uint8_t parity = 0;
    if (auto* tx = dynamic_cast<CKVX_HdwArinc429TxPort*>(GetHdwPort())) {
        CKVX_HdwArinc429TxPort::CParameters p;
        tx->GetParameters(&p);
        parity = p.Parity;
    }
    CKVX_HdwServiceLock lock(*this);
    m_Queue.clear();
    m_InFlight.clear();
    m_Sequence = 0;
    m_ParityMode = parity;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwArinc429ByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Queue.clear();
    m_InFlight.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwArinc429ByteOutBufferService::GetParameters(CKVX_HdwByteOutBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return GetParameters(own);
    return CKVX_HdwByteOutBufferService::GetParameters(params);
}

unsigned CKVX_HdwArinc429ByteOutBufferService::SetParameters(CKVX_HdwByteOutBufferService::CParameters* params)
{
    if (auto* own = dynamic_cast<CParameters*>(params))
        return SetParameters(own);
    return CKVX_HdwByteOutBufferService::SetParameters(params);
}

unsigned CKVX_HdwArinc429ByteOutBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetLabelStreamParameters(*this, params, BufferSize, m_Label, m_Sdi);
}

unsigned CKVX_HdwArinc429ByteOutBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetLabelStreamParameters(*this, params, BufferSize, m_Label, m_Sdi);
}

unsigned CKVX_HdwArinc429ByteOutBufferService::Write(unsigned char* bytes, unsigned int count, unsigned int option)
{
    return hdw::bus::QueueBytes(*this, m_Queue, bytes, count, option, BufferSize, m_Unplaced);
}

unsigned CKVX_HdwArinc429ByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Queue.size() + hdw::bus::BytesInFlight(m_InFlight));
    return 0;
}

unsigned CKVX_HdwArinc429ByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Queue.clear();
    return 0;
}

unsigned CKVX_HdwArinc429ByteOutBufferService::BuildWords(CKVX_HdwArinc429Message* words, unsigned maxWords) const
{
    if (!words)
        return 0;
    unsigned n = 0;
    size_t pos = 0;
    uint8_t pair[2];
    while (n < maxWords && pos < m_Queue.size()) {
        const unsigned carried = unsigned(std::min<size_t>(2, m_Queue.size() - pos));
        std::copy_n(m_Queue.begin() + std::ptrdiff_t(pos), carried, pair);
        words[n] = hdw::bus::PackStreamWord(m_Label, m_Sdi, uint8_t(m_Sequence + n), pair, carried, m_ParityMode);
        ++n;
        pos += carried;
    }
    return n;
}

void CKVX_HdwArinc429ByteOutBufferService::CommitWords(unsigned count)
{
    for (unsigned i = 0; i < count && !m_Queue.empty(); ++i) {
        const size_t carried = std::min<size_t>(2, m_Queue.size());
        m_Queue.erase(m_Queue.begin(), m_Queue.begin() + std::ptrdiff_t(carried));
        m_InFlight.push_back(uint8_t(carried));
        m_Sequence = uint8_t((m_Sequence + 1) % hdw::bus::StreamSequenceModulo);
    }
}

void CKVX_HdwArinc429ByteOutBufferService::KeepWordsInFlight(uint64_t count)
{
    if (m_InFlight.size() > count)
        m_InFlight.erase(m_InFlight.begin(), m_InFlight.end() - std::ptrdiff_t(count));
}
