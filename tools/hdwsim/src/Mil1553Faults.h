#pragma once
// Injected faults per terminal address and bus, each for the next k
// attempts addressed to that terminal on that bus, or until cleared.

#include <hdwsim/MilStd1553Fault.h>

#include "Mil1553Terminal.h"

#include <array>

namespace hdwsim::mil {

class FaultTable {
public:
    // `transfers` 0: until cleared. False for an address above 30 or a bus above 1.
    bool Set(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers);
    // The fault for one attempt addressed to `address` on `bus`, counted.
    MilStd1553Fault Take(unsigned address, unsigned bus);

private:
    struct Entry {
        MilStd1553Fault Fault = MilStd1553Fault::None;
        unsigned Left = 0; // attempts still to be disturbed (0 with a fault: no limit)
    };
    std::array<std::array<Entry, 2>, Broadcast> m_Entries{};
};

// Puts `fault` on what a terminal sends in answer to `c`; `statusParity`
// is set when its status word arrives broken.
void Disturb(MilStd1553Fault fault, Command c, Reply& reply, bool& statusParity);

} // namespace hdwsim::mil
