#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

CKVX_HdwByteInBufferService::CParameters::~CParameters() = default;

CKVX_HdwByteInBufferService::CKVX_HdwByteInBufferService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_BYTE_IN_BUFFER;
}

CKVX_HdwByteInBufferService::~CKVX_HdwByteInBufferService() = default;

unsigned CKVX_HdwByteInBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwByteInBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::SetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwByteInBufferService::Read(unsigned char*, unsigned int, unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwByteInBufferService::GetReadBufferBytes(unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwByteInBufferService::ResetReadBuffer()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwByteInBufferService::GetBufferSize()
{
    CKVX_HdwServiceLock lock(*this);
    return BufferSize;
}

uint64_t CKVX_HdwByteInBufferService::GetDroppedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Dropped;
}
