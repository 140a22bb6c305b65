#include <HdwLib/bus/HdwDiscreteInPort.h>
#include <HdwLib/bus/HdwDiscreteInService.h>
#include <HdwLib/bus/internal/DiscreteLines.h>
#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

#include <algorithm>

CKVX_HdwDiscreteInService::CParameters::~CParameters() = default;
CKVX_HdwDiscreteInService::CChange::~CChange() = default;

CKVX_HdwDiscreteInService::CKVX_HdwDiscreteInService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_DISCRETE_IN;
}

CKVX_HdwDiscreteInService::~CKVX_HdwDiscreteInService() = default;

unsigned CKVX_HdwDiscreteInService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    m_Changes.clear();
    m_HaveState = false;
    m_HaveSequence = false;
    m_Lost = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwDiscreteInService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Changes.clear();
    m_HaveState = false;
    m_HaveSequence = false;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwDiscreteInService::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, m_BufferSize, params);
}

unsigned CKVX_HdwDiscreteInService::SetParameters(CParameters* params)
{
    if (params && (params->BufferSize == 0 || params->BufferSize > MaxBufferSize))
        return HDW_ERR_ARGUMENT;
    return hdw::bus::SetBufferSizeParameter(*this, m_BufferSize, params);
}

unsigned CKVX_HdwDiscreteInService::Refresh()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwDiscreteInService::GetState(uint32_t& state, uint64_t& timeStamp)
{
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveState)
        return HDW_ERR_NOTHING_TO_READ;
    state = m_State;
    timeStamp = m_StateTime;
    return 0;
}

unsigned CKVX_HdwDiscreteInService::GetInput(unsigned line, bool& level)
{
    if (line >= 32 || (BankLineMask() & (1u << line)) == 0)
        return HDW_ERR_ARGUMENT;
    uint32_t state = 0;
    uint64_t time = 0;
    if (const unsigned rc = GetState(state, time))
        return rc;
    level = (state >> line) & 1u;
    return 0;
}

unsigned CKVX_HdwDiscreteInService::Read(CChange* changes, unsigned max, unsigned& count)
{
    count = 0;
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (!changes && max != 0)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (m_Changes.empty())
        return HDW_ERR_NOTHING_TO_READ;
    const unsigned n = unsigned(std::min<size_t>(max, m_Changes.size()));
    std::copy_n(m_Changes.begin(), n, changes);
    m_Changes.erase(m_Changes.begin(), m_Changes.begin() + n);
    count = n;
    return 0;
}

unsigned CKVX_HdwDiscreteInService::GetChangeCount(unsigned& count)
{
    count = 0;
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    count = unsigned(m_Changes.size());
    return 0;
}

unsigned CKVX_HdwDiscreteInService::ResetChanges()
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_Changes.clear();
    return 0;
}

unsigned CKVX_HdwDiscreteInService::GetLostCount(uint64_t& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = m_Lost;
    return 0;
}

void CKVX_HdwDiscreteInService::UpdateState(
    uint32_t state, uint32_t changed, uint16_t sequence, uint64_t time, bool isChange)
{
    m_State = state;
    m_StateTime = time;
    m_HaveState = true;
    if (!isChange) {
        // A read answer carries the count of the last change: the base.
        m_Sequence = sequence;
        m_HaveSequence = true;
        return;
    }
    const uint32_t lost = hdw::bus::TakeSequenceGap(m_HaveSequence, m_Sequence, sequence);
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return;
    m_Lost += lost;
    if (m_Changes.size() >= std::max<uint32_t>(m_BufferSize, 1)) {
        m_Changes.pop_front();
        ++m_Lost;
    }
    CChange c;
    c.State = state;
    c.Changed = changed;
    c.TimeStamp = time;
    c.Lost = lost;
    m_Changes.push_back(c);
}

uint32_t CKVX_HdwDiscreteInService::BankLineMask() const
{
    const auto* port = dynamic_cast<const CKVX_HdwDiscreteInPort*>(GetHdwPort());
    return port ? port->GetLineMask() : 0xFFFFFFFFu;
}
