#include <HdwLib/bus/HdwMilStd1553SingleRtService.h>
#include <HdwLib/bus/internal/Mil1553Transfers.h>

#include <algorithm>

namespace {

using Msg = CKVX_HdwMilStd1553Message;

// Flags under which a terminal stores no received words.
constexpr uint16_t NotStored =
    Msg::FlagNoResponse | Msg::FlagBadWordCount | Msg::FlagParityError | Msg::FlagMessageError;

bool IsDataSubaddress(unsigned subaddress)
{
    return subaddress >= 1 && subaddress <= 30;
}

} // namespace

CKVX_HdwMilStd1553SingleRtService::CKVX_HdwMilStd1553SingleRtService(CKVX_HdwObject* port)
    : CKVX_HdwMilStd1553Service(port, HDW_SERVICE_MIL1553_RT)
{}

CKVX_HdwMilStd1553SingleRtService::~CKVX_HdwMilStd1553SingleRtService() = default;

unsigned CKVX_HdwMilStd1553SingleRtService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    // The unit's SRAM is not trusted after a close: build again.
    m_HaveBuffers = m_HaveTables = m_StatusChanged = false;
    m_TransmitUpdates.clear();
    for (bool& h : m_HaveReceived)
        h = false;
    ResetTransfers();
    return 0;
}

unsigned CKVX_HdwMilStd1553SingleRtService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    m_HaveBuffers = m_HaveTables = m_Running = m_StatusChanged = false;
    m_TransmitUpdates.clear();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwMilStd1553SingleRtService::KeepTerminal(const CKVX_HdwMilStd1553RemoteTerminal& rt, bool& built)
{
    if (rt.Check() != 0)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (m_Running)
        return HDW_ERR_WRONG_STATE;
    m_Terminal = rt;
    built = true;
    return 0;
}

unsigned CKVX_HdwMilStd1553SingleRtService::BuildBufferInit(const CKVX_HdwMilStd1553RemoteTerminal& rt)
{
    return KeepTerminal(rt, m_HaveBuffers);
}

unsigned CKVX_HdwMilStd1553SingleRtService::BuildSubaddressConfiguration(const CKVX_HdwMilStd1553RemoteTerminal& rt)
{
    return KeepTerminal(rt, m_HaveTables);
}

unsigned CKVX_HdwMilStd1553SingleRtService::DestroyConfiguration()
{
    CKVX_HdwServiceLock lock(*this);
    if (m_Running)
        return HDW_ERR_WRONG_STATE;
    m_HaveBuffers = m_HaveTables = false;
    m_TransmitUpdates.clear();
    return 0;
}

unsigned CKVX_HdwMilStd1553SingleRtService::RunRt()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwMilStd1553SingleRtService::StopRt()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwMilStd1553SingleRtService::UpdateTransmitData(unsigned subaddress, const std::vector<uint16_t>& words)
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (!IsDataSubaddress(subaddress) || words.empty() || words.size() > Msg::MaxDataWords)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    auto& data = m_Terminal.Transmit[subaddress].Data;
    if (data.size() < words.size())
        data.resize(words.size());
    std::copy(words.begin(), words.end(), data.begin());
    m_TransmitUpdates.push_back({subaddress, words});
    return 0;
}

unsigned CKVX_HdwMilStd1553SingleRtService::SetStatusBits(uint8_t bits)
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (bits > 0x1F)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    m_Terminal.StatusBits = bits;
    m_StatusChanged = true;
    return 0;
}

unsigned CKVX_HdwMilStd1553SingleRtService::ReadSubaddress(unsigned subaddress, CKVX_HdwMilStd1553Message& message)
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (!IsDataSubaddress(subaddress))
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (!m_HaveReceived[subaddress])
        return HDW_ERR_NOTHING_TO_READ;
    message = m_LastReceived[subaddress];
    return 0;
}

void CKVX_HdwMilStd1553SingleRtService::AppendAccess(
    CKVX_HdwMilStd1553Message&& m, bool monitor, unsigned receiveSubaddress)
{
    if (!monitor && IsDataSubaddress(receiveSubaddress) && !(m.Flags & NotStored)) {
        m_LastReceived[receiveSubaddress] = m;
        m_HaveReceived[receiveSubaddress] = true;
    }
    AppendTransfer(std::move(m), monitor);
}
