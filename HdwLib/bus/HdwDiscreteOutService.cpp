#include <HdwLib/bus/HdwDiscreteOutPort.h>
#include <HdwLib/bus/HdwDiscreteOutService.h>
#include <HdwLib/bus/internal/DiscreteLines.h>

CKVX_HdwDiscreteOutService::CParameters::~CParameters() = default;

CKVX_HdwDiscreteOutService::CKVX_HdwDiscreteOutService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_DISCRETE_OUT;
}

CKVX_HdwDiscreteOutService::~CKVX_HdwDiscreteOutService() = default;

unsigned CKVX_HdwDiscreteOutService::Start()
{
    CKVX_HdwDiscreteOutPort::CParameters portParams;
    auto* port = dynamic_cast<CKVX_HdwDiscreteOutPort*>(GetHdwPort());
    if (port)
        port->GetParameters(&portParams);
    CKVX_HdwServiceLock lock(*this);
    m_Commanded = portParams.InitialState;
    m_HaveDriven = false;
    m_HaveSequence = false;
    m_Lost = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwDiscreteOutService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_HaveDriven = false;
    m_HaveSequence = false;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwDiscreteOutService::GetParameters(CParameters* params)
{
    if (!params)
        return HDW_ERR_ARGUMENT;
    return CKVX_HdwService::GetParameters(params);
}

unsigned CKVX_HdwDiscreteOutService::SetParameters(CParameters* params)
{
    if (const unsigned rc = CKVX_HdwService::SetParameters(params))
        return rc;
    return params ? 0u : unsigned(HDW_ERR_ARGUMENT);
}

unsigned CKVX_HdwDiscreteOutService::Set(uint32_t)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwDiscreteOutService::Clear(uint32_t)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwDiscreteOutService::Toggle(uint32_t)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwDiscreteOutService::WriteAll(uint32_t)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwDiscreteOutService::Pulse(uint32_t, uint32_t)
{
    return HDW_ERR_NOT_SUPPORTED;
}
unsigned CKVX_HdwDiscreteOutService::Refresh()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwDiscreteOutService::GetDriven(uint32_t& state, uint64_t& timeStamp)
{
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveDriven)
        return HDW_ERR_NOTHING_TO_READ;
    state = m_Driven;
    timeStamp = m_DrivenTime;
    return 0;
}

unsigned CKVX_HdwDiscreteOutService::GetCommanded(uint32_t& state)
{
    CKVX_HdwServiceLock lock(*this);
    state = m_Commanded;
    return 0;
}

unsigned CKVX_HdwDiscreteOutService::GetLostCount(uint64_t& count)
{
    CKVX_HdwServiceLock lock(*this);
    count = m_Lost;
    return 0;
}

void CKVX_HdwDiscreteOutService::UpdateDriven(uint32_t state, uint32_t, uint16_t sequence, uint64_t time)
{
    m_Driven = state;
    m_DrivenTime = time;
    m_HaveDriven = true;
    // A read answer repeats the last sequence: no gap.
    const bool repeat = m_HaveSequence && sequence == m_Sequence;
    const uint32_t lost = repeat ? 0u : hdw::bus::TakeSequenceGap(m_HaveSequence, m_Sequence, sequence);
    if (GetStatus() == HDW_SERVICE_RUNNING)
        m_Lost += lost;
}

uint32_t CKVX_HdwDiscreteOutService::BankLineMask() const
{
    const auto* port = dynamic_cast<const CKVX_HdwDiscreteOutPort*>(GetHdwPort());
    return port ? port->GetLineMask() : 0xFFFFFFFFu;
}

unsigned CKVX_HdwDiscreteOutService::CheckMask(uint32_t mask) const
{
    return hdw::bus::WithinBank(mask, BankLineMask()) ? 0u : unsigned(HDW_ERR_ARGUMENT);
}

unsigned CKVX_HdwDiscreteOutService::CheckPulse(uint32_t mask, uint32_t lengthUs) const
{
    if (lengthUs < MinPulseUs || lengthUs > MaxPulseUs)
        return HDW_ERR_ARGUMENT;
    return CheckMask(mask);
}
