#include <HdwLib/units/KvxSpiMasterService.h>
#include <HdwLib/units/KvxSpiPort.h>
#include <HdwLib/units/internal/KvxTransferPump.h>

namespace {

constexpr unsigned kRecordOverhead = 11; // header and fixed fields of a transfer record

} // namespace

CKVX_HdwKvxSpiMasterService::CKVX_HdwKvxSpiMasterService(CKVX_HdwObject* port)
    : CKVX_HdwSpiMasterService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxSpiPort*>(port))
{}

CKVX_HdwKvxSpiMasterService::~CKVX_HdwKvxSpiMasterService() = default;

unsigned CKVX_HdwKvxSpiMasterService::Submit(CKVX_HdwSpiTransfer& t)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    const unsigned wordBits = m_UnitPort ? m_UnitPort->GetSpiParameters().WordBits : 8;
    const bool chipSelect =
        t.ChipSelect < CKVX_HdwKvxSpiPort::ChipSelects || t.ChipSelect == CKVX_HdwSpiTransfer::PortChipSelect;
    if (t.Check(wordBits) != 0 || t.Out.GetLength() > MaxBytes || !chipSelect)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    return Enqueue(t);
}

unsigned CKVX_HdwKvxSpiMasterService::HdwTimerHandler(uint64_t)
{
    // The tick holds the device lock.
    CKVX_HdwKvxCommandUnit* unit = nullptr;
    CKVX_HdwKvxUnitInstance* inst = hdw::units::PumpTarget(*this, m_UnitPort, unit);
    if (!inst)
        return 0;
    const uint64_t now = unit->GetUnitTime();
    const uint64_t hz = m_UnitPort->GetRunningClockHz() ? m_UnitPort->GetRunningClockHz() : 1000;
    const uint8_t portSelect = m_UnitPort->GetSpiParameters().ChipSelect;
    const bool overdue = PumpTransfers(
        now, UnitQueue,
        [&](const CKVX_HdwSpiTransfer& t, uint64_t sentAt) {
            return hdw::units::TransferOverdue(now, sentAt, uint64_t(t.Out.GetLength()) * 8 * 1000 / hz + 1);
        },
        [&](uint32_t tag, const CKVX_HdwSpiTransfer& t) {
            const uint8_t select = t.ChipSelect == CKVX_HdwSpiTransfer::PortChipSelect ? portSelect : t.ChipSelect;
            return hdw::units::RecordFits(unit, inst, kRecordOverhead + t.Out.GetLength()) &&
                unit->AttachSpiTransferCommand(m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(), tag, select, t) ==
                0;
        });
    if (overdue)
        FailPending();
    return 0;
}

unsigned CKVX_HdwKvxSpiMasterService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventUnitLost)) {
        // The restarted unit forgets what it held; the rest go after the return.
        if (GetStatus() == HDW_SERVICE_RUNNING)
            FailSent(HDW_ERR_LINK);
        return 0;
    }
    if (GetStatus() != HDW_SERVICE_RUNNING || !hdw::units::IsEvent(event, KvxEventSpiResult))
        return 0;
    const auto* r = static_cast<const CKVX_HdwKvxSpiResultEvent*>(event);
    uint64_t sentAt = 0;
    const CKVX_HdwSpiTransfer* oldest = PeekOldestSent(sentAt);
    bool done = false;
    if (r->Status == 0 && oldest && r->Data.size() == oldest->Out.GetLength())
        done = Complete(r->WireTag, 0, r->Data.data(), unsigned(r->Data.size()), r->GetUnwrappedTime());
    else if (r->Status == 4)
        done = Complete(r->WireTag, HDW_ERR_ARGUMENT, nullptr, 0, r->GetUnwrappedTime());
    return done ? 0u : unsigned(HDW_ERR_MALFORMED_EVENT);
}
