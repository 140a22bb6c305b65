#include <HdwLib/bus/HdwMilStd1553Service.h>
#include <HdwLib/bus/internal/Mil1553Transfers.h>
#include <HdwLib/bus/internal/ServiceBufferSize.h>

CKVX_HdwMilStd1553Service::CParameters::~CParameters() = default;

CKVX_HdwMilStd1553Service::CKVX_HdwMilStd1553Service(CKVX_HdwObject* port, unsigned serviceType) : CKVX_HdwService(port)
{
    m_ServiceType = serviceType;
}

CKVX_HdwMilStd1553Service::~CKVX_HdwMilStd1553Service() = default;

unsigned CKVX_HdwMilStd1553Service::GetParameters(CParameters* params)
{
    return hdw::bus::GetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwMilStd1553Service::SetParameters(CParameters* params)
{
    return hdw::bus::SetBufferSizeParameter(*this, BufferSize, params);
}

unsigned CKVX_HdwMilStd1553Service::Read(CKVX_HdwMilStd1553Buffer& buffer, unsigned maxCount, unsigned& readCount)
{
    return hdw::bus::ReadTransfers(*this, m_Transfers, buffer, maxCount, readCount);
}

unsigned CKVX_HdwMilStd1553Service::ReadMonitor(
    CKVX_HdwMilStd1553Buffer& buffer, unsigned maxCount, unsigned& readCount)
{
    return hdw::bus::ReadTransfers(*this, m_Monitor, buffer, maxCount, readCount);
}

uint64_t CKVX_HdwMilStd1553Service::GetLostCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Lost;
}

bool CKVX_HdwMilStd1553Service::IsRunning()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Running;
}

void CKVX_HdwMilStd1553Service::ResetTransfers()
{
    m_Running = false;
    m_Transfers.clear();
    m_Monitor.clear();
    m_Lost = 0;
    SetStatus(HDW_SERVICE_RUNNING);
}

void CKVX_HdwMilStd1553Service::AppendTransfer(CKVX_HdwMilStd1553Message&& message, bool monitor)
{
    if (message.Flags & CKVX_HdwMilStd1553Message::FlagUnitDropped)
        ++m_Lost;
    hdw::bus::AppendTransfer(monitor ? m_Monitor : m_Transfers, std::move(message), BufferSize, m_Lost);
}
