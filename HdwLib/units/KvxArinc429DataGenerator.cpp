#include <HdwLib/units/KvxArinc429DataGenerator.h>
#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/internal/KvxArinc429Fifo.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>
#include <iterator>

namespace {

// Bytes of one push record.
constexpr unsigned PushRecordBytes = 10;

} // namespace

CKVX_HdwKvxArinc429TxDataGeneratorService::CKVX_HdwKvxArinc429TxDataGeneratorService(CKVX_HdwObject* port)
    : CKVX_HdwDataGeneratorService(port),
      m_UnitPort(dynamic_cast<CKVX_HdwKvxArinc429TxPort*>(port))
{}

CKVX_HdwKvxArinc429TxDataGeneratorService::~CKVX_HdwKvxArinc429TxDataGeneratorService() = default;

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::Start()
{
    if (const unsigned rc = CKVX_HdwDataGeneratorService::Start())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_Count.Reset();
    m_StatusPoll.Reset();
    std::fill(std::begin(m_PushedLabel), std::end(m_PushedLabel), false);
    if (!m_UnitPort)
        return 0;
    CKVX_HdwArinc429TxPort::CParameters p;
    m_UnitPort->GetParameters(&p);
    SetEvenParity(p.Parity == 1);
    m_UnitPort->AttachConfiguration(true);
    // What the FIFO still holds from an earlier user of the channel.
    if (m_UnitPort->GetUnit()->AttachStatusRequestCommand(
            m_UnitPort->GetDeviceId(), m_UnitPort->GetChannel(), hdw::units::StatusAtxFifo) == 0)
        m_StatusPoll.Requested(m_Count.Pushed, m_StatusPoll.LastTick());
    return 0;
}

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::Stop()
{
    return CKVX_HdwDataGeneratorService::Stop();
}

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::Enable()
{
    return CKVX_HdwDataGeneratorService::Enable();
}

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::Disable()
{
    // Words already in the unit's FIFO still go out; the backlog is dropped.
    return CKVX_HdwDataGeneratorService::Disable();
}

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::Reset()
{
    return CKVX_HdwDataGeneratorService::Reset();
}

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
    } else if (hdw::units::ForgetLostArinc429Fifo(event, m_Count, m_StatusPoll)) {
        // The schedule goes on from the host's clock after the reconnect.
    } else if (hdw::units::IsEvent(event, KvxEventA429Tx)) {
        // Words of a label table on the same transmitter are not ours.
        const auto* tx = static_cast<const CKVX_HdwKvxArinc429TxEvent*>(event);
        if (m_PushedLabel[tx->Message.Label])
            m_Count.Confirm(1);
    } else if (hdw::units::IsEvent(event, KvxEventStatus)) {
        const auto* status = static_cast<const CKVX_HdwKvxStatusEvent*>(event);
        uint64_t mark = 0;
        if (status->Kind == hdw::units::StatusAtxFifo && m_StatusPoll.Answer(mark))
            m_Count.Resync(status->StatusWord, mark);
    }
    return 0;
}

unsigned CKVX_HdwKvxArinc429TxDataGeneratorService::HdwTimerHandler(uint64_t ticks)
{
    if (!m_UnitPort)
        return 0;
    CKVX_HdwKvxCommandUnit* unit = m_UnitPort->GetUnit();
    const unsigned device = m_UnitPort->GetDeviceId();
    const unsigned channel = m_UnitPort->GetChannel();
    CKVX_HdwServiceLock lock(*this);
    CKVX_HdwKvxUnitInstance* inst = unit ? unit->GetUnitInstance(device) : nullptr;
    if (GetStatus() != HDW_SERVICE_RUNNING || !inst || !hdw::units::TakesPushes(inst))
        return 0;
    if (m_StatusPoll.Due(ticks, m_Count.InFlight) &&
        unit->AttachStatusRequestCommand(device, channel, hdw::units::StatusAtxFifo) == 0)
        m_StatusPoll.Requested(m_Count.Pushed, ticks);

    Generate(unit->GetUnitTime() * 1000);

    const uint64_t room = KvxArinc429TxFifoWords - std::min<uint64_t>(m_Count.InFlight, KvxArinc429TxFifoWords);
    const unsigned fit = hdw::units::FreePayload(unit, inst) / PushRecordBytes;
    CKVX_HdwArinc429Message words[64];
    unsigned budget = unsigned(std::min<uint64_t>(room, fit));
    while (budget > 0) {
        const unsigned n = TakeWords(words, std::min<unsigned>(budget, 64));
        if (n == 0)
            break;
        for (unsigned i = 0; i < n; ++i) {
            if (unit->AttachAtxPushCommand(device, channel, &words[i], 1) != 0) {
                // Not queued: back to the front of the backlog, in order,
                // for the next tick.
                m_Backlog.insert(m_Backlog.begin(), words + i, words + n);
                return 0;
            }
            m_Count.Sent(1);
            m_PushedLabel[words[i].Label] = true;
        }
        budget -= n;
    }
    return 0;
}

uint64_t CKVX_HdwKvxArinc429TxDataGeneratorService::GetWordsInUnit()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Count.InFlight;
}
