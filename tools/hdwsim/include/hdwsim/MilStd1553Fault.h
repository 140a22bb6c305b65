#pragma once
// Faults the emulated MIL-STD-1553 bus puts on a terminal's answers, per
// terminal address and bus (UnitEngine::SetMilStd1553Fault).

namespace hdwsim {

enum class MilStd1553Fault : unsigned {
    None = 0, // clears the fault
    NoResponse = 1, // the terminal does not answer: the controller times out
    BadWordCount = 2, // one data word fewer when it transmits, one word too many after its status otherwise
    ParityError = 3, // its status word arrives with a parity error
};

} // namespace hdwsim
