#include <HdwLib/bus/HdwArinc429InBufferService.h>
#include <HdwLib/bus/internal/MessageQueue.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

#include <algorithm>

CKVX_HdwArinc429InBufferService::CParameters::~CParameters() = default;

CKVX_HdwArinc429InBufferService::CKVX_HdwArinc429InBufferService(CKVX_HdwObject* port)
    : CKVX_HdwService(port),
      LabelFilter(new unsigned short[256])
{
    m_ServiceType = HDW_SERVICE_ARINC429_IN_BUFFER;
    std::fill_n(LabelFilter, 256, static_cast<unsigned short>(0xFFFF));
}

CKVX_HdwArinc429InBufferService::~CKVX_HdwArinc429InBufferService()
{
    delete[] LabelFilter;
}

unsigned CKVX_HdwArinc429InBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    m_Dropped = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwArinc429InBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned char CKVX_HdwArinc429InBufferService::ApplyFilter(CKVX_HdwArinc429Message& message, unsigned short* filter)
{
    const unsigned bit = static_cast<unsigned>(message.Sdi) + 4u * message.Ssm;
    if (!filter || bit > 15)
        return 0;
    return (filter[message.Label] >> bit) & 1u;
}

unsigned CKVX_HdwArinc429InBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwArinc429InBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwArinc429InBufferService::GetReadMessagesNumber(unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwArinc429InBufferService::Read(CKVX_HdwArinc429Message*, unsigned int, unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwArinc429InBufferService::AcceptAllMessages()
{
    CKVX_HdwServiceLock lock(*this);
    std::fill_n(LabelFilter, 256, static_cast<unsigned short>(0xFFFF));
    return 0;
}

unsigned CKVX_HdwArinc429InBufferService::DiscardAllMessages()
{
    CKVX_HdwServiceLock lock(*this);
    std::fill_n(LabelFilter, 256, static_cast<unsigned short>(0));
    return 0;
}

unsigned short CKVX_HdwArinc429InBufferService::MakeFilterMask(unsigned char sdiMask, unsigned char ssmMask)
{
    unsigned mask = 0;
    for (unsigned b = 0; b < 16; ++b)
        if (((sdiMask >> (b & 3u)) & 1u) && ((ssmMask >> (b >> 2)) & 1u))
            mask |= 1u << b;
    return static_cast<unsigned short>(mask);
}

unsigned CKVX_HdwArinc429InBufferService::AcceptMessage(
    unsigned char label, unsigned char sdiMask, unsigned char ssmMask)
{
    const unsigned short mask = MakeFilterMask(sdiMask, ssmMask);
    CKVX_HdwServiceLock lock(*this);
    LabelFilter[label] = mask;
    return 0;
}

unsigned CKVX_HdwArinc429InBufferService::DiscardMessage(unsigned char label)
{
    CKVX_HdwServiceLock lock(*this);
    LabelFilter[label] = 0;
    return 0;
}

unsigned CKVX_HdwArinc429InBufferService::EnableRx()
{
    return 0;
}
unsigned CKVX_HdwArinc429InBufferService::DisableRx()
{
    return 0;
}
unsigned CKVX_HdwArinc429InBufferService::ResetRx()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned short CKVX_HdwArinc429InBufferService::GetLabelFilter(unsigned char label)
{
    CKVX_HdwServiceLock lock(*this);
    return LabelFilter[label];
}

uint64_t CKVX_HdwArinc429InBufferService::GetDroppedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Dropped;
}

bool CKVX_HdwArinc429InBufferService::AppendReceived(const CKVX_HdwArinc429Message& message, uint64_t eventTime)
{
    // ApplyFilter only reads the word; its signature is the interface's.
    if (!ApplyFilter(const_cast<CKVX_HdwArinc429Message&>(message), LabelFilter))
        return false;
    hdw::bus::AppendBounded<CKVX_HdwArinc429Message>(Messages, message, BufferSize, m_Dropped);
    Messages.Items().back().TimeStamp = eventTime;
    return true;
}

unsigned CKVX_HdwArinc429InBufferService::ReadMessages(
    CKVX_HdwArinc429Message* messages, unsigned maxCount, unsigned& readCount)
{
    return hdw::bus::ReadFromService<CKVX_HdwArinc429Message>(*this, Messages, messages, maxCount, readCount);
}

unsigned CKVX_HdwArinc429InBufferService::CountMessages(unsigned& count)
{
    return hdw::bus::CountInService<CKVX_HdwArinc429Message>(*this, Messages, count);
}
