#include <HdwLib/units/KvxI2cMasterService.h>
#include <HdwLib/units/KvxI2cPort.h>
#include <HdwLib/units/internal/KvxTransferPump.h>

namespace {

constexpr unsigned kRecordOverhead = 13; // header and fixed fields of a transfer record

} // namespace

CKVX_HdwKvxI2cMasterService::CKVX_HdwKvxI2cMasterService(CKVX_HdwObject* port)
    : CKVX_HdwI2cMasterService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxI2cPort*>(port))
{}

CKVX_HdwKvxI2cMasterService::~CKVX_HdwKvxI2cMasterService() = default;

unsigned CKVX_HdwKvxI2cMasterService::Submit(CKVX_HdwI2cTransfer& t)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (t.Check() != 0 || t.Write.GetLength() > MaxBytes || t.ReadLength > MaxBytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    return Enqueue(t);
}

unsigned CKVX_HdwKvxI2cMasterService::HdwTimerHandler(uint64_t)
{
    // The tick holds the device lock.
    CKVX_HdwKvxCommandUnit* unit = nullptr;
    CKVX_HdwKvxUnitInstance* inst = hdw::units::PumpTarget(*this, m_UnitPort, unit);
    if (!inst)
        return 0;
    const uint64_t now = unit->GetUnitTime();
    const uint64_t busTimeoutMs = m_UnitPort->GetI2cParameters().BusTimeoutMs;
    const bool overdue = PumpTransfers(
        now, UnitQueue,
        [&](const CKVX_HdwI2cTransfer& t, uint64_t sentAt) {
            return hdw::units::TransferOverdue(now, sentAt, (t.Write.GetLength() + t.ReadLength + 3) * busTimeoutMs);
        },
        [&](uint32_t tag, const CKVX_HdwI2cTransfer& t) {
            return hdw::units::RecordFits(unit, inst, kRecordOverhead + t.Write.GetLength()) &&
                unit->AttachI2cTransferCommand(m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(), tag, t) == 0;
        });
    if (overdue)
        FailPending();
    return 0;
}

unsigned CKVX_HdwKvxI2cMasterService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventUnitLost)) {
        // The restarted unit forgets what it held; the rest go after the return.
        if (GetStatus() == HDW_SERVICE_RUNNING)
            FailSent(HDW_ERR_LINK);
        return 0;
    }
    if (GetStatus() != HDW_SERVICE_RUNNING || !hdw::units::IsEvent(event, KvxEventI2cResult))
        return 0;
    const auto* r = static_cast<const CKVX_HdwKvxI2cResultEvent*>(event);
    unsigned result = 0;
    uint8_t fault = 0;
    switch (r->Status) {
    case 0: break;
    case 1:
    case 2: result = HDW_ERR_NO_ACK; break;
    case 3:
        result = HDW_ERR_BUS_FAULT;
        fault = CKVX_HdwI2cTransfer::FaultTimeout;
        break;
    case 4: result = HDW_ERR_ARGUMENT; break;
    case 5:
        result = HDW_ERR_BUS_FAULT;
        fault = CKVX_HdwI2cTransfer::FaultArbitration;
        break;
    default: return HDW_ERR_MALFORMED_EVENT;
    }
    const bool done = Complete(r->WireTag, result, r->Acked, r->Status == 1, fault, r->Data.data(),
        unsigned(r->Data.size()), r->GetUnwrappedTime());
    return done ? 0u : unsigned(HDW_ERR_MALFORMED_EVENT);
}
