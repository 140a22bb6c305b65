#include <HdwLib/bus/HdwArinc429OutBufferService.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

CKVX_HdwArinc429OutBufferService::CParameters::~CParameters() = default;

CKVX_HdwArinc429OutBufferService::CKVX_HdwArinc429OutBufferService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_ARINC429_OUT_BUFFER;
}

CKVX_HdwArinc429OutBufferService::~CKVX_HdwArinc429OutBufferService() = default;

unsigned CKVX_HdwArinc429OutBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    m_Unplaced = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwArinc429OutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwArinc429OutBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwArinc429OutBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwArinc429OutBufferService::Write(CKVX_HdwArinc429Message*, unsigned int, unsigned char)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwArinc429OutBufferService::ResetWriteBuffer()
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwArinc429OutBufferService::GetMessagesToBeWritten(unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

uint64_t CKVX_HdwArinc429OutBufferService::GetUnplacedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Unplaced;
}
