#include <HdwLib/bus/HdwI2cMasterService.h>
#include <HdwLib/bus/internal/TransferQueue.h>

struct CKVX_HdwI2cMasterService::SQueue : hdw::bus::CTransferQueue<CKVX_HdwI2cTransfer> {};

CKVX_HdwI2cMasterService::CParameters::~CParameters() = default;

CKVX_HdwI2cMasterService::CKVX_HdwI2cMasterService(CKVX_HdwObject* port)
    : CKVX_HdwService(port),
      m_Transfers(std::make_unique<SQueue>())
{
    m_ServiceType = HDW_SERVICE_I2C_MASTER;
}

CKVX_HdwI2cMasterService::~CKVX_HdwI2cMasterService() = default;

unsigned CKVX_HdwI2cMasterService::Start()
{
    hdw::bus::ResetTransfers(*this, *m_Transfers);
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwI2cMasterService::Stop()
{
    SetStatus(HDW_SERVICE_STOPPED);
    hdw::bus::ResetTransfers(*this, *m_Transfers);
    return 0;
}

unsigned CKVX_HdwI2cMasterService::GetParameters(CParameters* params)
{
    return hdw::bus::GetTransferParameters(*this, *m_Transfers, params);
}

unsigned CKVX_HdwI2cMasterService::SetParameters(CParameters* params)
{
    return hdw::bus::SetTransferParameters(*this, *m_Transfers, params);
}

unsigned CKVX_HdwI2cMasterService::Submit(CKVX_HdwI2cTransfer&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwI2cMasterService::ReadResult(CKVX_HdwI2cTransfer& t)
{
    return hdw::bus::ReadOldestTransfer(*this, *m_Transfers, t);
}

unsigned CKVX_HdwI2cMasterService::Transfer(CKVX_HdwI2cTransfer& t, unsigned waitMs)
{
    return hdw::bus::RunTransfer(*this, *m_Transfers, t, waitMs);
}

unsigned CKVX_HdwI2cMasterService::GetPendingCount(unsigned& count)
{
    return hdw::bus::CountTransfers(*this, *m_Transfers, count, false);
}

unsigned CKVX_HdwI2cMasterService::GetResultCount(unsigned& count)
{
    return hdw::bus::CountTransfers(*this, *m_Transfers, count, true);
}

unsigned CKVX_HdwI2cMasterService::ResetResults()
{
    return hdw::bus::DropFinishedTransfers(*this, *m_Transfers);
}

unsigned CKVX_HdwI2cMasterService::Enqueue(const CKVX_HdwI2cTransfer& t)
{
    return m_Transfers->Enqueue(t);
}

void CKVX_HdwI2cMasterService::FailPending()
{
    m_Transfers->FailAll(HDW_ERR_SERVICE);
    SetStatus(HDW_SERVICE_FAILED);
}

void CKVX_HdwI2cMasterService::FailSent(unsigned result)
{
    m_Transfers->FailSent(result);
}

bool CKVX_HdwI2cMasterService::Complete(uint32_t wireTag, unsigned result, uint32_t acked, bool nackOnAddress,
    uint8_t fault, const uint8_t* data, unsigned count, uint64_t time)
{
    if (m_Transfers->Pending.empty() || m_Transfers->Pending.front().WireTag != wireTag)
        return false;
    CKVX_HdwI2cTransfer& t = m_Transfers->Pending.front().Transfer;
    t.ClearResults();
    t.Result = result;
    t.Acked = acked;
    t.NackOnAddress = result == HDW_ERR_NO_ACK && nackOnAddress;
    t.Fault = result == HDW_ERR_BUS_FAULT ? fault : 0;
    if (result == 0 && data)
        t.Read = CKVX_Uint8Vector(data, count);
    t.TimeStamp = time;
    m_Transfers->FinishOldest();
    return true;
}

CKVX_HdwI2cTransfer* CKVX_HdwI2cMasterService::PeekUnsent(uint32_t& wireTag)
{
    auto* p = m_Transfers->FirstUnsent();
    if (p)
        wireTag = p->WireTag;
    return p ? &p->Transfer : nullptr;
}

void CKVX_HdwI2cMasterService::MarkSent(uint64_t nowMs)
{
    if (auto* p = m_Transfers->FirstUnsent()) {
        p->Sent = true;
        p->SentAtMs = nowMs;
    }
}

unsigned CKVX_HdwI2cMasterService::GetInFlightCount()
{
    return m_Transfers->InFlight();
}

const CKVX_HdwI2cTransfer* CKVX_HdwI2cMasterService::PeekOldestSent(uint64_t& sentAtMs)
{
    auto* p = m_Transfers->OldestSent();
    if (p)
        sentAtMs = p->SentAtMs;
    return p ? &p->Transfer : nullptr;
}

bool CKVX_HdwI2cMasterService::PumpTransfers(uint64_t nowMs, unsigned maxOnUnit,
    const std::function<bool(const CKVX_HdwI2cTransfer&, uint64_t)>& overdue,
    const std::function<bool(uint32_t, const CKVX_HdwI2cTransfer&)>& attach)
{
    return hdw::bus::PumpTransfers(*m_Transfers, nowMs, maxOnUnit, overdue, attach);
}
