#include <HdwLib/bus/HdwByteOutBufferService.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

CKVX_HdwByteOutBufferService::CParameters::~CParameters() = default;

CKVX_HdwByteOutBufferService::CKVX_HdwByteOutBufferService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_BYTE_OUT_BUFFER;
}

CKVX_HdwByteOutBufferService::~CKVX_HdwByteOutBufferService() = default;

unsigned CKVX_HdwByteOutBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwByteOutBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwByteOutBufferService::Write(unsigned char*, unsigned int, unsigned int)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwByteOutBufferService::GetBytesToBeWritten(unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwByteOutBufferService::ResetWriteBuffer()
{
    return HDW_ERR_NOT_SUPPORTED;
}

uint64_t CKVX_HdwByteOutBufferService::GetUnplacedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Unplaced;
}
