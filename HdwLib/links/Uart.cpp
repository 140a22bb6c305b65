// The system-independent part of CUart: construction, copies and settings.
// Open, Close and the I/O operations are in posix/Uart.cpp and win32/Uart.cpp.
#include <HdwLib/links/Uart.h>

#include <cstring>

CUart::CUart() = default;

CUart::CUart(const CUart& other) : CKVX_HdwObject(other)
{
    CopyFrom(other);
}

CUart::CUart(CUart&& other) noexcept : CKVX_HdwObject(other)
{
    CopyFrom(other);
}

CUart& CUart::operator=(const CUart& other)
{
    if (this != &other)
        CopyFrom(other);
    return *this;
}

CUart& CUart::operator=(CUart&& other) noexcept
{
    if (this != &other)
        CopyFrom(other);
    return *this;
}

CUart::~CUart() = default;

void CUart::CopyFrom(const CUart& other)
{
    // Both objects then refer to the same open port; nothing is duplicated.
    m_Handle = other.m_Handle;
    std::memcpy(m_WriteOverlapped, other.m_WriteOverlapped, sizeof m_WriteOverlapped);
    std::memcpy(m_ReadOverlapped, other.m_ReadOverlapped, sizeof m_ReadOverlapped);
    m_WriteEvent = other.m_WriteEvent;
    m_ReadEvent = other.m_ReadEvent;
    m_InputQueueSize = other.m_InputQueueSize;
    m_OutputQueueSize = other.m_OutputQueueSize;
    m_Parameters = other.m_Parameters;
}

void CUart::SetQueueSizes(uint32_t inputSize, uint32_t outputSize)
{
    m_InputQueueSize = inputSize;
    m_OutputQueueSize = outputSize;
}
