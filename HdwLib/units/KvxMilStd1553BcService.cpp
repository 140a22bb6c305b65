#include <HdwLib/units/KvxMilStd1553BcService.h>
#include <HdwLib/units/internal/KvxMilStd1553Records.h>
#include <HdwLib/units/internal/KvxMilStd1553Service.h>

#include <algorithm>

namespace mil = hdw::units::mil1553;
using Config = CKVX_HdwKvxMilStd1553Config;
using Msg = CKVX_HdwMilStd1553Message;

namespace {

// Time-out of a one-shot list: this much, plus one major frame cycle per
// message while the controller runs (a message may fit the idle time of
// one minor frame only).
constexpr uint64_t OneShotBaseTimeoutMs = 1000;

uint64_t CycleUs(const CKVX_HdwMilStd1553MajorFrame& frame)
{
    uint64_t us = 0;
    for (const CKVX_HdwMilStd1553MinorFrame& f : frame.MinorFrames)
        us += f.PeriodUs;
    return us;
}

} // namespace

CKVX_HdwKvxMilStd1553BcService::CKVX_HdwKvxMilStd1553BcService(CKVX_HdwObject* port) : CKVX_HdwMilStd1553BcService(port)
{}

CKVX_HdwKvxMilStd1553BcService::~CKVX_HdwKvxMilStd1553BcService() = default;

unsigned CKVX_HdwKvxMilStd1553BcService::Start()
{
    if (const unsigned rc = CKVX_HdwMilStd1553BcService::Start())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_OneShotsInFlight.clear();
    m_OneShotsLeft = 0;
    m_RanAtLoss = false;
    return 0;
}

unsigned CKVX_HdwKvxMilStd1553BcService::Stop()
{
    mil::IdleChannel(*this);
    {
        CKVX_HdwServiceLock lock(*this);
        m_OneShotsInFlight.clear();
        m_OneShotsLeft = 0;
    }
    return CKVX_HdwMilStd1553BcService::Stop();
}

unsigned CKVX_HdwKvxMilStd1553BcService::AttachConfig(uint8_t extraFlags, uint8_t count, uint8_t tablePage)
{
    auto* port = mil::PortOf(*this);
    if (!port)
        return HDW_ERR_LINK;
    Config c;
    c.Mode = Config::ModeBc;
    c.Flags = extraFlags;
    if (m_Running && !m_StopPending)
        c.Flags |= Config::FlagRun;
    // Without a built controller (one-shot messages only) both buses serve.
    if (!m_HaveBuilt || m_Built.BusA)
        c.Flags |= Config::FlagBusA;
    if (!m_HaveBuilt || m_Built.BusB)
        c.Flags |= Config::FlagBusB;
    if (m_HaveBuilt && m_Built.Monitor)
        c.Flags |= Config::FlagMonitor;
    c.Count = count;
    c.TablePage = tablePage;
    c.StopAfter = m_CyclesLeft ? m_CyclesLeft : m_HaveBuilt ? m_Built.StopAfter : 0;
    return port->AttachConfiguration(c);
}

unsigned CKVX_HdwKvxMilStd1553BcService::AttachImage(unsigned half, const CKVX_HdwMilStd1553MajorFrame& frame)
{
    auto* port = mil::PortOf(*this);
    if (!port)
        return HDW_ERR_LINK;
    for (const mil::SSramBlock& b : mil::MajorFrameImage(frame, half))
        if (const unsigned rc = port->AttachSramWrite(b.Address, b.Words))
            return rc;
    return 0;
}

unsigned CKVX_HdwKvxMilStd1553BcService::BuildSramMemoryCommands()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveBuilt || m_Running)
        return HDW_ERR_WRONG_STATE;
    return AttachImage(0, m_Built.MajorFrame);
}

unsigned CKVX_HdwKvxMilStd1553BcService::LoadConfiguration()
{
    if (const unsigned rc = BuildSramMemoryCommands())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_Tables[0] = m_Built.MajorFrame;
    m_ActiveHalf = 0;
    m_Loaded = true;
    return AttachConfig(0, 0, mil::TablePage(0));
}

unsigned CKVX_HdwKvxMilStd1553BcService::DestroyConfiguration()
{
    return CKVX_HdwMilStd1553BcService::DestroyConfiguration();
}

unsigned CKVX_HdwKvxMilStd1553BcService::RunBc()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_Loaded)
        return HDW_ERR_WRONG_STATE;
    if (!m_Running || m_StopPending) {
        m_ScheduledSeen = 0; // runs from its first minor frame
        m_CyclesLeft = 0;
    }
    m_Running = true;
    m_StopPending = false;
    return AttachConfig(0, 0, mil::TablePage(m_ActiveHalf));
}

unsigned CKVX_HdwKvxMilStd1553BcService::StopBc()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_Running || m_StopPending)
        return 0;
    m_StopPending = true;
    return AttachConfig(0, 0, mil::TablePage(m_ActiveHalf));
}

unsigned CKVX_HdwKvxMilStd1553BcService::ChangeMajorFrame(const CKVX_HdwMilStd1553MajorFrame& frame)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (const unsigned rc = CKVX_HdwMilStd1553BcService::ChangeMajorFrame(frame))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveNextFrame)
        return HDW_ERR_WRONG_STATE; // stopped meanwhile
    m_HaveNextFrame = false;
    const unsigned other = 1 - m_ActiveHalf;
    if (const unsigned rc = AttachImage(other, m_NextFrame))
        return rc;
    m_Tables[other] = std::move(m_NextFrame);
    m_ChangePending = true;
    return AttachConfig(Config::FlagSwitchTable, 0, mil::TablePage(other));
}

unsigned CKVX_HdwKvxMilStd1553BcService::HdwTimerHandler(uint64_t ticks)
{
    // The tick holds the device lock.
    auto* port = mil::PortOf(*this);
    if (GetStatus() != HDW_SERVICE_RUNNING || !mil::LinkUp(port))
        return 0;
    while (!m_DataUpdates.empty()) {
        const SDataUpdate& u = m_DataUpdates.front();
        // One record: the unit never sends half old, half new words.
        port->AttachSramWrite(mil::BufferAddress(mil::FirstDescriptor(u.Half) + u.Index), u.Words);
        m_DataUpdates.pop_front();
    }
    const uint64_t now = port->GetUnit()->GetUnitTime();
    ExpireOneShots(now);
    SendOneShots(now);
    return CKVX_HdwMilStd1553BcService::HdwTimerHandler(ticks);
}

void CKVX_HdwKvxMilStd1553BcService::SendOneShots(uint64_t nowMs)
{
    auto* port = mil::PortOf(*this);
    if (!port || m_OneShotsLeft != 0 || m_OneShotQueue.empty())
        return;
    mil::SramImage image;
    m_OneShotsInFlight.clear();
    while (!m_OneShotQueue.empty() && m_OneShotsInFlight.size() < mil::OneShotSlots) {
        Msg m = std::move(m_OneShotQueue.front());
        m_OneShotQueue.pop_front();
        m.TransferId = uint16_t(mil::OneShotId | (m_OneShotNumber++ & mil::OneShotNumberMask));
        mil::AddMessage(image, unsigned(m_OneShotsInFlight.size()), m, m.TransferId);
        m_OneShotsInFlight.push_back(std::move(m));
    }
    mil::Compact(image);
    for (const mil::SSramBlock& b : image)
        port->AttachSramWrite(b.Address, b.Words);
    m_OneShotsLeft = unsigned(m_OneShotsInFlight.size());
    const uint64_t cycleMs = m_Running ? (CycleUs(m_Tables[m_ActiveHalf]) + 999) / 1000 : 0;
    m_OneShotsDueMs = nowMs + OneShotBaseTimeoutMs + m_OneShotsLeft * cycleMs;
    AttachConfig(Config::FlagStartOneShots, uint8_t(m_OneShotsLeft), mil::TablePage(m_ActiveHalf));
}

void CKVX_HdwKvxMilStd1553BcService::ExpireOneShots(uint64_t nowMs)
{
    if (m_OneShotsLeft == 0 || nowMs < m_OneShotsDueMs)
        return;
    // The unit runs its list in slot order: the messages not run are the
    // last ones. The next list replaces this one in the unit.
    for (size_t i = m_OneShotsInFlight.size() - m_OneShotsLeft; i < m_OneShotsInFlight.size(); ++i) {
        Msg m = m_OneShotsInFlight[i];
        m.Flags = Msg::FlagNotSent;
        AppendTransfer(std::move(m), false);
    }
    m_OneShotsInFlight.clear();
    m_OneShotsLeft = 0;
}

void CKVX_HdwKvxMilStd1553BcService::TransferCompleted(const CKVX_HdwKvxMilStd1553Event& e)
{
    Msg m;
    if (e.TransferId & mil::OneShotId) {
        const auto sent = std::find_if(m_OneShotsInFlight.begin(), m_OneShotsInFlight.end(),
            [&](const Msg& x) { return x.TransferId == e.TransferId; });
        // One of a list given up or lost: already reported or counted.
        if (sent == m_OneShotsInFlight.end() || m_OneShotsLeft == 0)
            return;
        m = *sent;
        --m_OneShotsLeft;
    } else {
        const CKVX_HdwMilStd1553MajorFrame& table = m_Tables[(e.TransferId & mil::TableBId) ? 1 : 0];
        const unsigned index = e.TransferId & mil::IndexMask;
        ++m_ScheduledSeen;
        if (index < table.Messages.size())
            m = table.Messages[index];
    }
    mil::ApplyTransfer(e, m);
    AppendTransfer(std::move(m), false);
}

void CKVX_HdwKvxMilStd1553BcService::UnitLost(CKVX_HdwKvxUnitLinkEvent& event)
{
    event.LostItems += m_OneShotsLeft;
    m_Lost += m_OneShotsLeft;
    m_OneShotsInFlight.clear();
    m_OneShotsLeft = 0;
    m_RanAtLoss = m_Running && !m_StopPending;
}

void CKVX_HdwKvxMilStd1553BcService::Restore()
{
    auto* port = mil::PortOf(*this);
    if (!port)
        return;
    // The scheduled transfers the unit made, or would have made, while it
    // was away: never reported, so counted by the schedule's own rate.
    if (m_RanAtLoss) {
        const CKVX_HdwMilStd1553MajorFrame& f = m_Tables[m_ActiveHalf];
        uint64_t slots = 0;
        for (const CKVX_HdwMilStd1553MinorFrame& minor : f.MinorFrames)
            slots += minor.Messages.size();
        const CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(port);
        const uint64_t awayMs = port->GetUnit()->GetUnitTime() - inst->Reconnect.LostAtMs;
        if (const uint64_t cycle = CycleUs(f)) {
            uint64_t missed = awayMs * 1000 * slots / cycle;
            // A schedule that stops after N cycles had no more to send than
            // what it had left of them, and runs on for the cycles it still
            // has: ended while the unit was away, it does not start again.
            const uint64_t cycles = m_CyclesLeft ? m_CyclesLeft : m_HaveBuilt ? m_Built.StopAfter : 0;
            if (cycles && slots) {
                const uint64_t all = cycles * slots;
                missed = std::min(missed, all - std::min(all, m_ScheduledSeen));
                const uint64_t done = m_ScheduledSeen + missed;
                if (done >= all) {
                    m_Running = false;
                    m_ChangePending = false;
                } else {
                    m_CyclesLeft = uint8_t((all - done + slots - 1) / slots);
                }
            }
            m_Lost += missed;
        }
        m_RanAtLoss = false;
    }
    m_ScheduledSeen = 0; // the run below starts its cycles afresh
    // A fresh unit has stopped, its memory cleared; the tables below carry
    // every data update, so none is sent on its own.
    m_DataUpdates.clear();
    if (m_StopPending)
        m_Running = m_StopPending = false;
    // A change not yet confirmed: the application asked for the new frame,
    // which runs from its first minor frame.
    if (m_ChangePending) {
        m_ActiveHalf = 1 - m_ActiveHalf;
        m_ChangePending = false;
    }
    if (!m_Loaded)
        return;
    AttachImage(m_ActiveHalf, m_Tables[m_ActiveHalf]);
    AttachConfig(0, 0, mil::TablePage(m_ActiveHalf));
}

unsigned CKVX_HdwKvxMilStd1553BcService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    switch (mil::EventFor(*this, event)) {
    case mil::EEvent::Lost: UnitLost(*static_cast<CKVX_HdwKvxUnitLinkEvent*>(event)); return 0;
    case mil::EEvent::Back: Restore(); return 0;
    case mil::EEvent::Mil1553: break;
    default: return 0;
    }
    const auto* e = static_cast<const CKVX_HdwKvxMilStd1553Event*>(event);
    switch (e->Kind) {
    case mil::KindTransfer: TransferCompleted(*e); break;
    case mil::KindAccess:
        if (e->Field1 & mil::AccessMonitor) {
            Msg m;
            mil::MessageFromAccess(*e, m);
            AppendTransfer(std::move(m), true);
        }
        break;
    case mil::KindSwitched:
        if (m_ChangePending) {
            m_ActiveHalf = 1 - m_ActiveHalf;
            m_ChangePending = false;
        }
        break;
    case mil::KindStopped:
        m_Running = false;
        m_StopPending = false;
        m_ChangePending = false;
        break;
    default: break;
    }
    return 0;
}
