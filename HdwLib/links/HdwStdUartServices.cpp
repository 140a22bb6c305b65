#include <HdwLib/links/HdwStdUartDevice.h>

#include <algorithm>

namespace {

// 29 stopped, 15 failed, else 0.
unsigned RunState(unsigned status)
{
    if (status == HDW_SERVICE_STOPPED)
        return HDW_ERR_SERVICE_NOT_RUNNING;
    if (status == HDW_SERVICE_FAILED)
        return HDW_ERR_SERVICE;
    return 0;
}

// The open line behind a service's port, or null.
CUart* LineOf(CKVX_HdwService& service)
{
    CKVX_HdwPort* port = service.GetHdwPort();
    auto* device = port ? dynamic_cast<CKVX_HdwStdUartDevice*>(port->GetHdwDevice()) : nullptr;
    auto* inst = device ? device->GetStdInstance(port->GetDeviceId()) : nullptr;
    return inst && port->IsOpen() && inst->Uart.IsOpen() ? &inst->Uart : nullptr;
}

// Most bytes one tick drains from the line.
constexpr unsigned kMaxReadPerTick = 64 * 1024;

} // namespace

// ---- input --------------------------------------------------------------------

CKVX_HdwStdUartDevice::CByteInBufferService::CByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteInBufferService(port)
{
}

CKVX_HdwStdUartDevice::CByteInBufferService::~CByteInBufferService() = default;

unsigned CKVX_HdwStdUartDevice::CByteInBufferService::HdwTimerHandler(uint64_t)
{
    // In the tick, under the device lock.
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return 0;
    CUart* line = LineOf(*this);
    if (!line)
        return 0;
    unsigned char chunk[4096];
    for (unsigned total = 0; total < kMaxReadPerTick;) {
        unsigned n = 0;
        if (line->Read(chunk, sizeof chunk, n) != 0) {
            SetStatus(HDW_SERVICE_FAILED); // hung up
            return 0;
        }
        if (n == 0)
            break;
        m_Bytes.insert(m_Bytes.end(), chunk, chunk + n);
        total += n;
    }
    if (BufferSize != 0 && m_Bytes.size() > BufferSize) {
        const size_t excess = m_Bytes.size() - BufferSize;
        m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + std::ptrdiff_t(excess));
        m_Dropped += excess;
    }
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteInBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Dropped = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteInBufferService::Read(unsigned char* bytes, unsigned int maxCount,
                                                          unsigned int& readCount)
{
    readCount = 0;
    if (const unsigned rc = RunState(GetStatus()))
        return rc;
    if (maxCount == 0)
        return 0;
    if (!bytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    const size_t n = std::min<size_t>(maxCount, m_Bytes.size());
    std::copy_n(m_Bytes.begin(), n, bytes);
    m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + std::ptrdiff_t(n));
    readCount = unsigned(n);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    count = 0;
    if (const unsigned rc = RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Bytes.size());
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteInBufferService::ResetReadBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}

uint64_t CKVX_HdwStdUartDevice::CByteInBufferService::GetDroppedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Dropped;
}

// ---- output -------------------------------------------------------------------

CKVX_HdwStdUartDevice::CByteOutBufferService::CByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port)
{
}

CKVX_HdwStdUartDevice::CByteOutBufferService::~CByteOutBufferService() = default;

unsigned CKVX_HdwStdUartDevice::CByteOutBufferService::HdwTimerHandler(uint64_t)
{
    // In the tick, under the device lock.
    if (GetStatus() != HDW_SERVICE_RUNNING || m_Bytes.empty())
        return 0;
    CUart* line = LineOf(*this);
    if (!line)
        return 0;
    unsigned queued = 0;
    line->GetBytesToBeWritten(queued);
    if (queued >= OutputHighWater)
        return 0;
    unsigned char chunk[OutputHighWater];
    const unsigned n = unsigned(std::min<size_t>(m_Bytes.size(), OutputHighWater - queued));
    std::copy_n(m_Bytes.begin(), n, chunk);
    auto* port = dynamic_cast<CKVX_HdwUartPort*>(GetHdwPort());
    const unsigned timeout = port ? port->GetUartParameters().Timeout : 1000;
    if (line->Write(chunk, n, timeout) != 0) {
        SetStatus(HDW_SERVICE_FAILED); // timed out or hung up: the chunk is lost
        return 0;
    }
    m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + n);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteOutBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteOutBufferService::Write(unsigned char* bytes, unsigned int count,
                                                            unsigned int option)
{
    if (option != 0)
        return HDW_ERR_ARGUMENT;
    if (const unsigned rc = RunState(GetStatus()))
        return rc;
    if (count == 0)
        return 0;
    if (!bytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (BufferSize != 0 && m_Bytes.size() + count > BufferSize)
        return HDW_ERR_ARGUMENT;
    m_Bytes.insert(m_Bytes.end(), bytes, bytes + count);
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    unsigned queued = 0;
    if (CUart* line = LineOf(*this))
        line->GetBytesToBeWritten(queued);
    count = unsigned(m_Bytes.size()) + queued;
    return 0;
}

unsigned CKVX_HdwStdUartDevice::CByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}
