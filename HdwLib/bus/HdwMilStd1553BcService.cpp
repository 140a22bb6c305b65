#include <HdwLib/bus/HdwMilStd1553BcService.h>
#include <HdwLib/bus/HdwMilStd1553Port.h>
#include <HdwLib/bus/internal/Mil1553Transfers.h>

#include <algorithm>

CKVX_HdwMilStd1553BcService::CKVX_HdwMilStd1553BcService(CKVX_HdwObject* port)
    : CKVX_HdwMilStd1553Service(port, HDW_SERVICE_MIL1553_BC)
{}

CKVX_HdwMilStd1553BcService::~CKVX_HdwMilStd1553BcService() = default;

unsigned CKVX_HdwMilStd1553BcService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    // The unit's SRAM is not trusted after a close: load again.
    m_Loaded = m_StopPending = m_ChangePending = m_HaveNextFrame = false;
    m_OneShotQueue.clear();
    m_DataUpdates.clear();
    ResetTransfers();
    return 0;
}

unsigned CKVX_HdwMilStd1553BcService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_Loaded = m_Running = m_StopPending = m_ChangePending = m_HaveNextFrame = false;
    m_OneShotQueue.clear();
    m_DataUpdates.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwMilStd1553BcService::ResponseTimeoutUs()
{
    auto* port = dynamic_cast<CKVX_HdwMilStd1553Port*>(GetHdwPort());
    return port ? port->GetMilStd1553Parameters().ResponseTimeoutUs
                : CKVX_HdwMilStd1553Port::CParameters().ResponseTimeoutUs;
}

unsigned CKVX_HdwMilStd1553BcService::BuildConfiguration(const CKVX_HdwMilStd1553BusController& bc)
{
    if (bc.Check(ResponseTimeoutUs()) != 0)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (m_Running)
        return HDW_ERR_WRONG_STATE;
    m_Built = bc;
    m_HaveBuilt = true;
    return 0;
}

unsigned CKVX_HdwMilStd1553BcService::BuildSramMemoryCommands()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwMilStd1553BcService::LoadConfiguration()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwMilStd1553BcService::DestroyConfiguration()
{
    CKVX_HdwServiceLock lock(*this);
    if (m_Running)
        return HDW_ERR_WRONG_STATE;
    m_Built = CKVX_HdwMilStd1553BusController();
    m_HaveBuilt = false;
    m_Loaded = false;
    m_DataUpdates.clear();
    return 0;
}

unsigned CKVX_HdwMilStd1553BcService::RunBc()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwMilStd1553BcService::StopBc()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwMilStd1553BcService::ChangeMajorFrame(const CKVX_HdwMilStd1553MajorFrame& frame)
{
    if (frame.Check(ResponseTimeoutUs()) != 0)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    for (const CKVX_HdwMilStd1553Message& m : frame.Messages)
        if (m_Built.CheckBuses(m) != 0)
            return HDW_ERR_ARGUMENT;
    if (!m_Running || m_StopPending || m_ChangePending || m_HaveNextFrame)
        return HDW_ERR_WRONG_STATE;
    m_NextFrame = frame;
    m_HaveNextFrame = true;
    return 0;
}

unsigned CKVX_HdwMilStd1553BcService::SendOneShot(const CKVX_HdwMilStd1553Message& message)
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (message.Check() != 0)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    // Without a built controller both buses are there.
    if (m_HaveBuilt && m_Built.CheckBuses(message) != 0)
        return HDW_ERR_ARGUMENT;
    if (m_Running && !m_StopPending) {
        // Longer than the longest minor frame: no idle time is ever enough.
        uint32_t longest = 0;
        for (const CKVX_HdwMilStd1553MinorFrame& f : m_Tables[m_ActiveHalf].MinorFrames)
            longest = std::max(longest, f.PeriodUs);
        if (message.GetBusTimeUs(ResponseTimeoutUs()) > longest)
            return HDW_ERR_ARGUMENT;
    }
    m_OneShotQueue.push_back(message);
    return 0;
}

unsigned CKVX_HdwMilStd1553BcService::UpdateData(unsigned index, const std::vector<uint16_t>& words)
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_Loaded)
        return HDW_ERR_WRONG_STATE;
    CKVX_HdwMilStd1553MajorFrame& frame = m_Tables[m_ActiveHalf];
    if (index >= frame.Messages.size() || words.empty() || words.size() != frame.Messages[index].GetSentWordCount())
        return HDW_ERR_ARGUMENT;
    frame.Messages[index].Data = words;
    m_DataUpdates.push_back({m_ActiveHalf, index, words});
    return 0;
}
