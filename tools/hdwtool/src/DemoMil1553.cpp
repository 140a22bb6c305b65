#include "DemoMil1553.h"

#include "Mil1553Text.h"
#include "Session.h"

namespace hdwtool {

namespace {

using Msg = CKVX_HdwMilStd1553Message;

Msg Transfer(bool transmit, uint8_t subaddress, std::vector<uint16_t> words, unsigned count)
{
    Msg m;
    m.TerminalAddress = DemoMil1553::Terminal;
    m.Transmit = transmit ? 1 : 0;
    m.Subaddress = subaddress;
    m.WordCount = uint8_t(count & 0x1F);
    m.Data = std::move(words);
    return m;
}

std::vector<uint16_t> Pattern(unsigned count, uint16_t base)
{
    std::vector<uint16_t> w(count);
    for (unsigned i = 0; i < count; ++i)
        w[i] = uint16_t(base + i * 0x111);
    return w;
}

} // namespace

bool DemoMil1553::Start(Channel& bc, Channel& rt, std::string& error)
{
    m_Bc = &bc;
    m_Rt = &rt;
    // Terminal 5: attitude on subaddress 2 (4 words), health on 4 (16 words).
    m_Terminal.TerminalAddress = Terminal;
    m_Terminal.Transmit[2].Data = Pattern(4, 0x1000);
    m_Terminal.Transmit[4].Data = Pattern(16, 0x4000);
    // The controller sends commands on subaddress 1 (3 words), a table on 3 (8 words).
    m_ReceiveWords[1] = Pattern(3, 0xA000);
    m_ReceiveWords[3] = Pattern(8, 0xC000);
    CKVX_HdwMilStd1553BusController c;
    c.MajorFrame.Messages = {Transfer(false, 1, m_ReceiveWords[1], 3), Transfer(true, 2, {}, 4),
        Transfer(false, 3, m_ReceiveWords[3], 8), Transfer(true, 4, {}, 16)};
    for (unsigned i = 0; i < 5; ++i) {
        CKVX_HdwMilStd1553MinorFrame f;
        f.PeriodUs = 20000;
        f.Messages = i == 0 ? std::vector<uint16_t>{0, 1, 2, 3} : std::vector<uint16_t>{0, 1};
        c.MajorFrame.MinorFrames.push_back(f);
    }
    rt.SetMil1553Terminal(m_Terminal);
    PortOptions none;
    if (!rt.EnableReceive(none, error) || !bc.EnableTransmit(error) || !rt.Open(none, error) || !bc.Open(none, error))
        return false;
    CKVX_HdwMilStd1553BcService* s = bc.Mil1553Controller();
    unsigned rc = s->BuildConfiguration(c);
    if (rc == 0)
        rc = s->LoadConfiguration();
    if (rc == 0)
        rc = s->RunBc();
    if (rc != 0)
        error = "cannot run the schedule on " + bc.Name() + ": " + ResultText(rc);
    return rc == 0;
}

bool DemoMil1553::Poll(std::vector<Item>& shown, std::string& error)
{
    m_Items.clear();
    if (!m_Bc->Poll(m_Items, error))
        return false;
    for (const auto& it : m_Items) {
        const Msg& m = it.Transfer;
        ++m_Sent;
        shown.push_back(it);
        if (Mil1553Failed(m))
            continue;
        ++m_Completed;
        if (!m.Transmit)
            ++m_ReceivesCompleted;
        else if (m.Data != m_Terminal.Transmit[m.Subaddress & 0x1F].Data)
            ++m_Altered;
    }
    m_Items.clear();
    if (!m_Rt->Poll(m_Items, error))
        return false;
    for (const auto& it : m_Items) {
        ++m_AtTerminal;
        if (it.Transfer.Data != m_ReceiveWords[it.Transfer.Subaddress & 0x1F])
            ++m_Altered;
    }
    return true;
}

void DemoMil1553::Stop()
{
    if (m_Bc)
        m_Bc->Mil1553Controller()->StopBc();
}

bool DemoMil1553::Drained()
{
    return !m_Bc->Mil1553Controller()->IsRunning() && m_AtTerminal >= m_ReceivesCompleted;
}

uint64_t DemoMil1553::Received() const
{
    const uint64_t missing = m_ReceivesCompleted > m_AtTerminal ? m_ReceivesCompleted - m_AtTerminal : 0;
    return m_Completed - missing;
}

uint64_t DemoMil1553::Dropped() const
{
    return m_Bc->Dropped() + m_Rt->Dropped();
}

} // namespace hdwtool
