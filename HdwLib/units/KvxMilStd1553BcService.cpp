#include <HdwLib/units/KvxMilStd1553BcService.h>
#include <HdwLib/units/KvxMilStd1553Port.h>
#include <HdwLib/units/internal/KvxMilStd1553Records.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <HdwLib/bus/internal/Mil1553Transfers.h>

namespace mil = hdw::units::mil1553;
using Config = CKVX_HdwKvxMilStd1553Config;

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
    return 0;
}

unsigned CKVX_HdwKvxMilStd1553BcService::Stop()
{
    if (auto* port = dynamic_cast<CKVX_HdwKvxMilStd1553Port*>(GetHdwPort()); port && port->IsOpen()) {
        CKVX_HdwServiceLock lock(*this);
        port->AttachConfiguration(Config());
    }
    {
        CKVX_HdwServiceLock lock(*this);
        m_OneShotsInFlight.clear();
        m_OneShotsLeft = 0;
    }
    return CKVX_HdwMilStd1553BcService::Stop();
}

unsigned CKVX_HdwKvxMilStd1553BcService::AttachConfig(uint8_t extraFlags, uint8_t count, uint8_t tablePage)
{
    auto* port = dynamic_cast<CKVX_HdwKvxMilStd1553Port*>(GetHdwPort());
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
    c.StopAfter = m_HaveBuilt ? m_Built.StopAfter : 0;
    return port->AttachConfiguration(c);
}

unsigned CKVX_HdwKvxMilStd1553BcService::AttachImage(unsigned half, const CKVX_HdwMilStd1553MajorFrame& frame)
{
    auto* port = dynamic_cast<CKVX_HdwKvxMilStd1553Port*>(GetHdwPort());
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
    if (const unsigned rc = hdw::units::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveBuilt || m_Running)
        return HDW_ERR_WRONG_STATE;
    if (const unsigned rc = AttachImage(0, m_Built.MajorFrame))
        return rc;
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
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return 0;
    auto* port = dynamic_cast<CKVX_HdwKvxMilStd1553Port*>(GetHdwPort());
    while (port && !m_DataUpdates.empty()) {
        const SDataUpdate& u = m_DataUpdates.front();
        // One record: the unit never sends half old, half new words.
        port->AttachSramWrite(mil::BufferAddress(mil::FirstDescriptor(u.Half) + u.Index), u.Words);
        m_DataUpdates.pop_front();
    }
    SendOneShots();
    return CKVX_HdwMilStd1553BcService::HdwTimerHandler(ticks);
}

void CKVX_HdwKvxMilStd1553BcService::SendOneShots()
{
    auto* port = dynamic_cast<CKVX_HdwKvxMilStd1553Port*>(GetHdwPort());
    if (!port || m_OneShotsLeft != 0 || m_OneShotQueue.empty())
        return;
    mil::SramImage image;
    m_OneShotsInFlight.clear();
    while (!m_OneShotQueue.empty() && m_OneShotsInFlight.size() < mil::OneShotSlots) {
        CKVX_HdwMilStd1553Message m = std::move(m_OneShotQueue.front());
        m_OneShotQueue.pop_front();
        m.TransferId = uint16_t(mil::OneShotId | (m_OneShotNumber++ & mil::OneShotNumberMask));
        mil::AddMessage(image, unsigned(m_OneShotsInFlight.size()), m, m.TransferId);
        m_OneShotsInFlight.push_back(std::move(m));
    }
    mil::Compact(image);
    for (const mil::SSramBlock& b : image)
        port->AttachSramWrite(b.Address, b.Words);
    m_OneShotsLeft = unsigned(m_OneShotsInFlight.size());
    AttachConfig(Config::FlagStartOneShots, uint8_t(m_OneShotsLeft), mil::TablePage(m_ActiveHalf));
}

void CKVX_HdwKvxMilStd1553BcService::TransferCompleted(const CKVX_HdwKvxMilStd1553Event& e)
{
    CKVX_HdwMilStd1553Message m;
    if (e.TransferId & mil::OneShotId) {
        for (const CKVX_HdwMilStd1553Message& sent : m_OneShotsInFlight)
            if (sent.TransferId == e.TransferId) {
                m = sent;
                if (m_OneShotsLeft > 0)
                    --m_OneShotsLeft;
                break;
            }
    } else {
        const CKVX_HdwMilStd1553MajorFrame& table = m_Tables[(e.TransferId & mil::TableBId) ? 1 : 0];
        const unsigned index = e.TransferId & mil::IndexMask;
        if (index < table.Messages.size())
            m = table.Messages[index];
    }
    mil::ApplyTransfer(e, m);
    if (m.Flags & CKVX_HdwMilStd1553Message::FlagUnitDropped)
        ++m_Lost;
    hdw::bus::AppendTransfer(m_Completed, std::move(m), BufferSize, m_Lost);
}

unsigned CKVX_HdwKvxMilStd1553BcService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() != HDW_SERVICE_RUNNING || !hdw::units::IsEvent(event, KvxEventMilStd1553))
        return 0;
    const auto* e = static_cast<const CKVX_HdwKvxMilStd1553Event*>(event);
    switch (e->Kind) {
    case mil::KindTransfer: TransferCompleted(*e); break;
    case mil::KindAccess:
        if (e->Field1 & mil::AccessMonitor) {
            CKVX_HdwMilStd1553Message m;
            mil::MessageFromAccess(*e, m);
            hdw::bus::AppendTransfer(m_Monitor, std::move(m), BufferSize, m_Lost);
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
