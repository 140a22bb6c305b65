#include "Mil1553Faults.h"

namespace hdwsim::mil {

bool FaultTable::Set(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers)
{
    if (address >= Broadcast || bus > 1 || static_cast<unsigned>(fault) > 3)
        return false;
    m_Entries[address][bus] = Entry{fault, fault == MilStd1553Fault::None ? 0 : transfers};
    return true;
}

MilStd1553Fault FaultTable::Take(unsigned address, unsigned bus)
{
    if (address >= Broadcast || bus > 1)
        return MilStd1553Fault::None;
    Entry& e = m_Entries[address][bus];
    const MilStd1553Fault f = e.Fault;
    if (f != MilStd1553Fault::None && e.Left > 0 && --e.Left == 0)
        e.Fault = MilStd1553Fault::None;
    return f;
}

void Disturb(MilStd1553Fault fault, Command c, Reply& reply, bool& statusParity)
{
    switch (fault) {
    case MilStd1553Fault::None: break;
    case MilStd1553Fault::NoResponse: reply.Responds = false; break;
    case MilStd1553Fault::BadWordCount:
        // A transmitting terminal stops one word short; otherwise a word too
        // many follows the status word.
        if (c.Transmit() && !reply.Data.empty())
            reply.Data.pop_back();
        else
            reply.Data.push_back(0);
        break;
    case MilStd1553Fault::ParityError: statusParity = true; break;
    }
}

} // namespace hdwsim::mil
