#include <HdwLib/units/KvxMilStd1553RtService.h>
#include <HdwLib/units/internal/KvxMilStd1553Records.h>
#include <HdwLib/units/internal/KvxMilStd1553Service.h>

namespace mil = hdw::units::mil1553;
using Config = CKVX_HdwKvxMilStd1553Config;

CKVX_HdwKvxMilStd1553RtService::CKVX_HdwKvxMilStd1553RtService(CKVX_HdwObject* port)
    : CKVX_HdwMilStd1553SingleRtService(port)
{}

CKVX_HdwKvxMilStd1553RtService::~CKVX_HdwKvxMilStd1553RtService() = default;

unsigned CKVX_HdwKvxMilStd1553RtService::Stop()
{
    mil::IdleChannel(*this);
    return CKVX_HdwMilStd1553SingleRtService::Stop();
}

unsigned CKVX_HdwKvxMilStd1553RtService::AttachConfig(bool run)
{
    auto* port = mil::PortOf(*this);
    if (!port)
        return HDW_ERR_LINK;
    const bool terminal = m_Terminal.TerminalAddress != CKVX_HdwMilStd1553RemoteTerminal::NoTerminal;
    Config c;
    c.Mode = terminal ? Config::ModeRt : Config::ModeIdle;
    c.Flags = uint8_t((run ? Config::FlagRun : 0) | (m_Terminal.BusA ? Config::FlagBusA : 0) |
        (m_Terminal.BusB ? Config::FlagBusB : 0) | (m_Terminal.Monitor ? Config::FlagMonitor : 0));
    c.Count = terminal ? m_Terminal.TerminalAddress : 0;
    c.RtStatus = m_Terminal.StatusBits;
    c.ResponseTime = m_Terminal.ResponseTimeUs;
    return port->AttachConfiguration(c);
}

unsigned CKVX_HdwKvxMilStd1553RtService::BuildBufferInit(const CKVX_HdwMilStd1553RemoteTerminal& rt)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (const unsigned rc = CKVX_HdwMilStd1553SingleRtService::BuildBufferInit(rt))
        return rc;
    auto* port = mil::PortOf(*this);
    CKVX_HdwServiceLock lock(*this);
    return port ? port->AttachSramWrite(mil::BufferBase, mil::RtBuffers(rt)) : unsigned(HDW_ERR_LINK);
}

unsigned CKVX_HdwKvxMilStd1553RtService::BuildSubaddressConfiguration(const CKVX_HdwMilStd1553RemoteTerminal& rt)
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    if (const unsigned rc = CKVX_HdwMilStd1553SingleRtService::BuildSubaddressConfiguration(rt))
        return rc;
    auto* port = mil::PortOf(*this);
    CKVX_HdwServiceLock lock(*this);
    return port ? port->AttachSramWrite(0, mil::RtTables(rt)) : unsigned(HDW_ERR_LINK);
}

unsigned CKVX_HdwKvxMilStd1553RtService::RunRt()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveBuffers || !m_HaveTables)
        return HDW_ERR_WRONG_STATE;
    m_Running = true;
    m_StatusChanged = false;
    return AttachConfig(true);
}

unsigned CKVX_HdwKvxMilStd1553RtService::StopRt()
{
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_Running)
        return 0;
    m_Running = false;
    return AttachConfig(false);
}

unsigned CKVX_HdwKvxMilStd1553RtService::HdwTimerHandler(uint64_t ticks)
{
    // The tick holds the device lock.
    auto* port = mil::PortOf(*this);
    if (GetStatus() != HDW_SERVICE_RUNNING || !mil::LinkUp(port))
        return 0;
    while (!m_TransmitUpdates.empty()) {
        const STransmitUpdate& u = m_TransmitUpdates.front();
        // One record (at most 32 words): applied between two transfers.
        port->AttachSramWrite(mil::RtTransmitBufferBase + 32 * u.Subaddress, u.Words);
        m_TransmitUpdates.pop_front();
    }
    if (m_StatusChanged && m_Running) {
        m_StatusChanged = false;
        AttachConfig(true);
    }
    return CKVX_HdwMilStd1553SingleRtService::HdwTimerHandler(ticks);
}

void CKVX_HdwKvxMilStd1553RtService::Restore()
{
    auto* port = mil::PortOf(*this);
    if (!port)
        return;
    // The terminal's copy holds every update and the status bits: the
    // queued ones are in it.
    m_TransmitUpdates.clear();
    m_StatusChanged = false;
    if (m_HaveTables)
        port->AttachSramWrite(0, mil::RtTables(m_Terminal));
    if (m_HaveBuffers)
        port->AttachSramWrite(mil::BufferBase, mil::RtBuffers(m_Terminal));
    if (m_Running)
        AttachConfig(true);
}

unsigned CKVX_HdwKvxMilStd1553RtService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    switch (mil::EventFor(*this, event)) {
    case mil::EEvent::Back: Restore(); return 0;
    case mil::EEvent::Mil1553: break;
    default: return 0; // a loss takes nothing the terminal holds
    }
    const auto* e = static_cast<const CKVX_HdwKvxMilStd1553Event*>(event);
    if (e->Kind != mil::KindAccess)
        return 0;
    const bool monitor = (e->Field1 & mil::AccessMonitor) != 0;
    // The record's own fields say what the terminal did (an RT-to-RT
    // transfer names the other terminal in one of its command words).
    const unsigned received = !monitor && !e->Transmit && !e->Flag ? e->Subaddress : 0;
    CKVX_HdwMilStd1553Message m;
    mil::MessageFromAccess(*e, m);
    AppendAccess(std::move(m), monitor, received);
    return 0;
}
