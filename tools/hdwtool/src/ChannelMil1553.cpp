// A MIL-STD-1553 channel as the tool uses it. Watching takes the remote
// terminal service: with no terminal address it is a passive monitor that
// reports every transfer on the bus with its data and status words (the
// signal service carries only the command word and the flags); with one it
// answers as that terminal and reports its accesses. Sending takes the bus
// controller, each item a one-shot transfer. The two exclude each other on
// one channel, so a channel either watches or controls.
#include "Channel.h"

#include "Session.h"

namespace hdwtool {

void Channel::SetMil1553Terminal(const CKVX_HdwMilStd1553RemoteTerminal& terminal)
{
    m_MilTerminal = terminal;
    m_MilOwnTerminal = true;
}

bool Channel::EnableMil1553(bool transmit, std::string& error)
{
    if (transmit ? m_MilRt != nullptr : m_MilBc != nullptr) {
        error = "cannot both watch and control " + m_Name +
            ": a channel is a bus controller or a monitor; watch the other channel of the bus";
        return false;
    }
    CKVX_HdwService* s = nullptr;
    unsigned rc = 0;
    if (transmit) {
        CKVX_HdwMilStd1553BcService::CParameters p;
        p.BufferSize = 100000;
        rc = m_Port->EnableService(HDW_SERVICE_MIL1553_BC, &s, &p);
        m_MilBc = dynamic_cast<CKVX_HdwMilStd1553BcService*>(s);
    } else {
        CKVX_HdwMilStd1553SingleRtService::CParameters p;
        p.BufferSize = 100000;
        rc = m_Port->EnableService(HDW_SERVICE_MIL1553_RT, &s, &p);
        m_MilRt = dynamic_cast<CKVX_HdwMilStd1553SingleRtService*>(s);
    }
    if (rc != 0 || (!m_MilBc && !m_MilRt)) {
        error = std::string("cannot ") + (transmit ? "control the bus" : "watch the bus") + " on " + m_Name + ": " +
            ResultText(rc ? rc : HDW_ERR_WRONG_STATE);
        return false;
    }
    return true;
}

unsigned Channel::OpenMil1553()
{
    if (const unsigned rc = m_Port->Open(nullptr); rc != 0 || !m_MilRt)
        return rc;
    CKVX_HdwMilStd1553RemoteTerminal t = m_MilTerminal;
    if (!m_MilOwnTerminal) {
        t.TerminalAddress = CKVX_HdwMilStd1553RemoteTerminal::NoTerminal;
        t.Monitor = 1;
    }
    unsigned rc = m_MilRt->BuildBufferInit(t);
    if (rc == 0)
        rc = m_MilRt->BuildSubaddressConfiguration(t);
    if (rc == 0)
        rc = m_MilRt->RunRt();
    if (rc != 0)
        m_Port->Close();
    return rc;
}

unsigned Channel::PollMil1553(std::vector<Item>& items, uint64_t hostUs)
{
    CKVX_HdwMilStd1553Buffer buffer;
    unsigned n = 0, rc = 0;
    if (m_MilBc)
        rc = m_MilBc->Read(buffer, 1000, n);
    else if (m_MilOwnTerminal)
        rc = m_MilRt->Read(buffer, 1000, n);
    else
        rc = m_MilRt->ReadMonitor(buffer, 1000, n);
    if (m_MilBc)
        m_MilDone += n;
    for (unsigned i = 0; i < buffer.Count(); ++i) {
        Item it;
        it.PortType = HDW_PORT_MILSTD1553;
        it.TimeUs = StampToHost(buffer.At(i).TimeStamp, hostUs);
        it.Transfer = std::move(buffer.At(i));
        items.push_back(std::move(it));
    }
    return rc;
}

} // namespace hdwtool
