#include <HdwLib/bus/HdwSpiMasterService.h>
#include <HdwLib/bus/internal/TransferQueue.h>

struct CKVX_HdwSpiMasterService::SQueue : hdw::bus::CTransferQueue<CKVX_HdwSpiTransfer> {};

CKVX_HdwSpiMasterService::CParameters::~CParameters() = default;

CKVX_HdwSpiMasterService::CKVX_HdwSpiMasterService(CKVX_HdwObject* port)
    : CKVX_HdwService(port),
      m_Transfers(std::make_unique<SQueue>())
{
    m_ServiceType = HDW_SERVICE_SPI_MASTER;
}

CKVX_HdwSpiMasterService::~CKVX_HdwSpiMasterService() = default;

unsigned CKVX_HdwSpiMasterService::Start()
{
    hdw::bus::ResetTransfers(*this, *m_Transfers);
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwSpiMasterService::Stop()
{
    SetStatus(HDW_SERVICE_STOPPED);
    hdw::bus::ResetTransfers(*this, *m_Transfers);
    return 0;
}

unsigned CKVX_HdwSpiMasterService::GetParameters(CParameters* params)
{
    return hdw::bus::GetTransferParameters(*this, *m_Transfers, params);
}

unsigned CKVX_HdwSpiMasterService::SetParameters(CParameters* params)
{
    return hdw::bus::SetTransferParameters(*this, *m_Transfers, params);
}

unsigned CKVX_HdwSpiMasterService::Submit(CKVX_HdwSpiTransfer&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwSpiMasterService::ReadResult(CKVX_HdwSpiTransfer& t)
{
    return hdw::bus::ReadOldestTransfer(*this, *m_Transfers, t);
}

unsigned CKVX_HdwSpiMasterService::Transfer(CKVX_HdwSpiTransfer& t, unsigned waitMs)
{
    return hdw::bus::RunTransfer(*this, *m_Transfers, t, waitMs);
}

unsigned CKVX_HdwSpiMasterService::GetPendingCount(unsigned& count)
{
    return hdw::bus::CountTransfers(*this, *m_Transfers, count, false);
}

unsigned CKVX_HdwSpiMasterService::GetResultCount(unsigned& count)
{
    return hdw::bus::CountTransfers(*this, *m_Transfers, count, true);
}

unsigned CKVX_HdwSpiMasterService::ResetResults()
{
    return hdw::bus::DropFinishedTransfers(*this, *m_Transfers);
}

unsigned CKVX_HdwSpiMasterService::Enqueue(const CKVX_HdwSpiTransfer& t)
{
    return m_Transfers->Enqueue(t);
}

void CKVX_HdwSpiMasterService::FailPending()
{
    m_Transfers->FailAll(HDW_ERR_SERVICE);
    SetStatus(HDW_SERVICE_FAILED);
}

void CKVX_HdwSpiMasterService::FailSent(unsigned result)
{
    m_Transfers->FailSent(result);
}

bool CKVX_HdwSpiMasterService::Complete(
    uint32_t wireTag, unsigned result, const uint8_t* data, unsigned count, uint64_t time)
{
    if (m_Transfers->Pending.empty() || m_Transfers->Pending.front().WireTag != wireTag)
        return false;
    CKVX_HdwSpiTransfer& t = m_Transfers->Pending.front().Transfer;
    t.Result = result;
    t.In.DeleteAll();
    if (result == 0 && data)
        t.In = CKVX_Uint8Vector(data, count);
    t.TimeStamp = time;
    m_Transfers->FinishOldest();
    return true;
}

CKVX_HdwSpiTransfer* CKVX_HdwSpiMasterService::PeekUnsent(uint32_t& wireTag)
{
    auto* p = m_Transfers->FirstUnsent();
    if (p)
        wireTag = p->WireTag;
    return p ? &p->Transfer : nullptr;
}

void CKVX_HdwSpiMasterService::MarkSent(uint64_t nowMs)
{
    if (auto* p = m_Transfers->FirstUnsent()) {
        p->Sent = true;
        p->SentAtMs = nowMs;
    }
}

unsigned CKVX_HdwSpiMasterService::GetInFlightCount()
{
    return m_Transfers->InFlight();
}

const CKVX_HdwSpiTransfer* CKVX_HdwSpiMasterService::PeekOldestSent(uint64_t& sentAtMs)
{
    auto* p = m_Transfers->OldestSent();
    if (p)
        sentAtMs = p->SentAtMs;
    return p ? &p->Transfer : nullptr;
}

bool CKVX_HdwSpiMasterService::PumpTransfers(uint64_t nowMs, unsigned maxOnUnit,
    const std::function<bool(const CKVX_HdwSpiTransfer&, uint64_t)>& overdue,
    const std::function<bool(uint32_t, const CKVX_HdwSpiTransfer&)>& attach)
{
    return hdw::bus::PumpTransfers(*m_Transfers, nowMs, maxOnUnit, overdue, attach);
}
