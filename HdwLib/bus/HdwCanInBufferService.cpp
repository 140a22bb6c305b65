#include <HdwLib/bus/HdwCanInBufferService.h>
#include <HdwLib/bus/internal/MessageQueue.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

CKVX_HdwCanInBufferService::CMessageBuffer::~CMessageBuffer() = default;
CKVX_HdwCanInBufferService::CParameters::~CParameters() = default;

CKVX_HdwCanInBufferService::CKVX_HdwCanInBufferService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_CAN_IN_BUFFER;
}

CKVX_HdwCanInBufferService::~CKVX_HdwCanInBufferService() = default;

unsigned CKVX_HdwCanInBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    RxFlag = 0;
    m_Dropped = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwCanInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    RxFlag = 0;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwCanInBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwCanInBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwCanInBufferService::GetFaultStatus(CKVX_HdwCanPort::CFaultStatus* status)
{
    auto* port = dynamic_cast<CKVX_HdwCanPort*>(GetPort());
    return port ? port->GetFaultStatus(status) : HDW_ERR_WRONG_STATE;
}

unsigned CKVX_HdwCanInBufferService::GetReadMessagesNumber(unsigned int& count)
{
    return hdw::bus::CountInService<CKVX_HdwCanMessage>(*this, Messages, count);
}

unsigned CKVX_HdwCanInBufferService::Read(CKVX_HdwCanMessage*, unsigned int, unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwCanInBufferService::EnableRx()
{
    return 0;
}
unsigned CKVX_HdwCanInBufferService::DisableRx()
{
    return 0;
}
unsigned CKVX_HdwCanInBufferService::ResetRx()
{
    return HDW_ERR_NOT_SUPPORTED;
}

uint64_t CKVX_HdwCanInBufferService::GetDroppedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Dropped;
}

void CKVX_HdwCanInBufferService::AppendReceived(const CKVX_HdwCanMessage& message, uint64_t eventTime)
{
    hdw::bus::AppendBounded<CKVX_HdwCanMessage>(Messages, message, BufferSize, m_Dropped);
    Messages.Items().back().TimeStamp = eventTime;
}

unsigned CKVX_HdwCanInBufferService::ReadMessages(CKVX_HdwCanMessage* messages, unsigned maxCount, unsigned& readCount)
{
    return hdw::bus::ReadFromService<CKVX_HdwCanMessage>(*this, Messages, messages, maxCount, readCount);
}
