#pragma once
// The hdwsim options that set up the MIL-STD-1553 bus, parsed here so that
// the program and its tests read them the same way:
//   --mil1553-rt TA,TA...          simulated terminals (0..30)
//   --mil1553-fault TA:BUS:KIND[:N] BUS A, B or AB; KIND noresponse,
//                                   wordcount or parity; N attempts (default: no limit)

#include <hdwsim/MilStd1553Fault.h>

#include <string>
#include <vector>

namespace hdwsim {

// Appends the addresses of "5,7,12"; false for anything else.
bool ParseMilStd1553Terminals(const std::string& text, std::vector<unsigned>& addresses);

struct MilStd1553FaultOption {
    unsigned Address = 0;
    std::vector<unsigned> Buses; // 0 A, 1 B
    MilStd1553Fault Fault = MilStd1553Fault::None;
    unsigned Transfers = 0; // 0: until cleared
};
bool ParseMilStd1553Fault(const std::string& text, MilStd1553FaultOption& option);

} // namespace hdwsim
