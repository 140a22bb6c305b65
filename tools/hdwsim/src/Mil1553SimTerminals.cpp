#include "Mil1553Terminal.h"

#include <algorithm>

namespace hdwsim::mil {

void SimTerminals::SetAddresses(const std::vector<unsigned>& addresses)
{
    m_Terminals.clear();
    for (unsigned a : addresses)
        if (a < Broadcast)
            m_Terminals[a] = Terminal{};
}

void SimTerminals::Reset()
{
    for (auto& [address, t] : m_Terminals)
        t = Terminal{};
}

Reply SimTerminals::Answer(Command c, const std::vector<uint16_t>& received)
{
    if (c.IsBroadcast()) {
        for (auto& [address, t] : m_Terminals)
            AnswerOne(address, t, c, received);
        return {};
    }
    const auto it = m_Terminals.find(c.Address());
    return it == m_Terminals.end() ? Reply{} : AnswerOne(it->first, it->second, c, received);
}

Reply SimTerminals::AnswerOne(unsigned address, Terminal& t, Command c, const std::vector<uint16_t>& received)
{
    // A receive command whose data words do not add up is not answered.
    if (!c.Transmit() && received.size() != c.DataWords())
        return {};
    Reply r;
    r.Responds = !c.IsBroadcast();
    r.Status = static_cast<uint16_t>(address << 11);
    if (c.ModeCode()) {
        // Transmit last command (18) answers the previous one; other
        // transmit mode codes with a data word send 0.
        if (c.Transmit() && c.DataWords() == 1)
            r.Data.push_back(c.CountField() == 18 ? t.LastCommand : 0);
        if (c.CountField() != 18)
            t.LastCommand = c.Word;
        return r;
    }
    auto& words = t.Words[c.Subaddress()];
    if (c.Transmit())
        r.Data.assign(words.begin(), words.begin() + c.DataWords());
    else
        std::copy(received.begin(), received.end(), words.begin());
    t.LastCommand = c.Word;
    return r;
}

} // namespace hdwsim::mil
