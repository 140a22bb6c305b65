#pragma once
// What a MIL-STD-1553 terminal answers to one command, and the terminals
// that answer without a channel of the unit behind them.

#include "Mil1553Words.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace hdwsim::mil {

struct Reply {
    bool Responds = false;
    uint16_t Status = 0;
    std::vector<uint16_t> Data; // the words after the status word
    unsigned ResponseUs = DefaultResponseUs;
    bool Report = false; // the access is reported (kind-2 event)
};

// Terminals given on the command line: each stores the words received per
// subaddress and transmits the last words received on that subaddress
// (zeros before). Every subaddress and mode code is legal.
class SimTerminals {
public:
    void SetAddresses(const std::vector<unsigned>& addresses);
    bool Has(unsigned address) const { return m_Terminals.count(address) != 0; }
    // Back to power-up: stored words zero.
    void Reset();
    // `c` addressed to one of them, or broadcast (stored by all, no answer).
    Reply Answer(Command c, const std::vector<uint16_t>& received);

private:
    struct Terminal {
        std::array<std::array<uint16_t, 32>, 32> Words{};
        uint16_t LastCommand = 0;
    };
    Reply AnswerOne(unsigned address, Terminal& t, Command c, const std::vector<uint16_t>& received);
    std::map<unsigned, Terminal> m_Terminals;
};

} // namespace hdwsim::mil
