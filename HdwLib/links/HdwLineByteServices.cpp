#include <HdwLib/bus/internal/ByteInput.h>
#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/framework/HdwPort.h>
#include <HdwLib/framework/internal/PlatformTimer.h>
#include <HdwLib/links/HdwByteLine.h>
#include <HdwLib/links/HdwLineByteServices.h>
#include <HdwLib/links/internal/LineByteServices.h>

#include <algorithm>

namespace {

using hdw::bus::RunState;

// The open line behind a service's port, or null.
CKVX_HdwByteLine* LineOf(CKVX_HdwService& service)
{
    CKVX_HdwPort* port = service.GetHdwPort();
    auto* line = dynamic_cast<CKVX_HdwByteLine*>(port);
    return line && port->IsOpen() && line->LineIsOpen() ? line : nullptr;
}

template <class S>
unsigned Install(CKVX_HdwPort& port, S* service, CKVX_HdwService** out, CKVX_HdwService::CParameters* params)
{
    unsigned rc = 0;
    if (params) {
        auto* own = dynamic_cast<typename S::CParameters*>(params);
        rc = own ? service->SetParameters(own) : unsigned(HDW_ERR_ARGUMENT);
    }
    if (rc != 0) {
        delete service;
        return rc;
    }
    port.GetServiceList() += service;
    if (out)
        *out = service;
    return 0;
}

} // namespace

// ---- input --------------------------------------------------------------------

CKVX_HdwLineByteInBufferService::CKVX_HdwLineByteInBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteInBufferService(port)
{}

CKVX_HdwLineByteInBufferService::~CKVX_HdwLineByteInBufferService() = default;

unsigned CKVX_HdwLineByteInBufferService::HdwTimerHandler(uint64_t)
{
    // In the tick, under the device lock.
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return 0;
    CKVX_HdwByteLine* line = LineOf(*this);
    if (!line)
        return 0;
    unsigned char chunk[4096];
    for (unsigned total = 0; total < MaxReadPerTick;) {
        unsigned n = 0;
        if (line->LineRead(chunk, sizeof chunk, n) != 0) {
            SetStatus(HDW_SERVICE_FAILED); // hung up
            return 0;
        }
        if (n == 0)
            break;
        hdw::bus::AppendBytes(m_Bytes, chunk, n, BufferSize, m_Dropped);
        total += n;
    }
    return 0;
}

unsigned CKVX_HdwLineByteInBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Dropped = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwLineByteInBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwLineByteInBufferService::Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount)
{
    return hdw::bus::ReadBytes(*this, m_Bytes, bytes, maxCount, readCount);
}

unsigned CKVX_HdwLineByteInBufferService::GetReadBufferBytes(unsigned int& count)
{
    return hdw::bus::CountBytes(*this, count, [this] { return m_Bytes.size(); });
}

unsigned CKVX_HdwLineByteInBufferService::ResetReadBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}

// ---- output -------------------------------------------------------------------

CKVX_HdwLineByteOutBufferService::CKVX_HdwLineByteOutBufferService(CKVX_HdwObject* port)
    : CKVX_HdwByteOutBufferService(port)
{}

CKVX_HdwLineByteOutBufferService::~CKVX_HdwLineByteOutBufferService() = default;

unsigned CKVX_HdwLineByteOutBufferService::HdwTimerHandler(uint64_t)
{
    // In the tick, under the device lock.
    if (GetStatus() != HDW_SERVICE_RUNNING || m_Bytes.empty())
        return 0;
    CKVX_HdwByteLine* line = LineOf(*this);
    if (!line)
        return 0;
    unsigned char chunk[MaxWritePerTick];
    const unsigned n = unsigned(std::min<size_t>({m_Bytes.size(), sizeof chunk, line->LineWriteRoom()}));
    if (n == 0)
        return 0;
    std::copy_n(m_Bytes.begin(), n, chunk);
    // The line takes what it can now; the tick never waits for room, so that
    // the application's calls on this device are not held while it is full.
    unsigned written = 0;
    const unsigned rc = line->LineWrite(chunk, n, written);
    written = std::min(written, n);
    m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + written);
    const uint64_t now = hdw::platform::MonotonicMs();
    if (written > 0)
        m_Stalled = false;
    else if (!m_Stalled) {
        m_Stalled = true;
        m_StallStartMs = now;
    }
    if (rc != 0 || (m_Stalled && now - m_StallStartMs >= line->LineWriteTimeout())) {
        SetStatus(HDW_SERVICE_FAILED); // what the line did not take is lost, and counted
        m_Unplaced += n - written;
        m_Stalled = false;
    }
    return 0;
}

unsigned CKVX_HdwLineByteOutBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    m_Unplaced = 0;
    m_Stalled = false;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwLineByteOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwLineByteOutBufferService::Write(unsigned char* bytes, unsigned int count, unsigned int option)
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
    if (BufferSize != 0 && m_Bytes.size() + count > BufferSize) {
        m_Unplaced += count;
        return HDW_ERR_ARGUMENT;
    }
    m_Bytes.insert(m_Bytes.end(), bytes, bytes + count);
    return 0;
}

unsigned CKVX_HdwLineByteOutBufferService::GetBytesToBeWritten(unsigned int& count)
{
    CKVX_HdwServiceLock lock(*this);
    CKVX_HdwByteLine* line = LineOf(*this);
    count = unsigned(m_Bytes.size()) + (line ? line->LineQueued() : 0u);
    return 0;
}

unsigned CKVX_HdwLineByteOutBufferService::ResetWriteBuffer()
{
    CKVX_HdwServiceLock lock(*this);
    m_Bytes.clear();
    return 0;
}

// ---- admission ----------------------------------------------------------------

unsigned hdw::links::EnableLineByteService(
    CKVX_HdwPort& port, unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (serviceType != HDW_SERVICE_BYTE_IN_BUFFER && serviceType != HDW_SERVICE_BYTE_OUT_BUFFER)
        return HDW_ERR_WRONG_STATE;
    if (port.FindService(serviceType))
        return HDW_ERR_SERVICE_ALREADY_ENABLED;
    if (serviceType == HDW_SERVICE_BYTE_IN_BUFFER)
        return Install(port, new CKVX_HdwLineByteInBufferService(&port), service, params);
    return Install(port, new CKVX_HdwLineByteOutBufferService(&port), service, params);
}

CKVX_HdwByteLine::~CKVX_HdwByteLine() = default;
