#pragma once
// One attempt of a bus controller's message on the bus: the command words go
// out, the terminals answer (through Responders), injected faults disturb
// the answers, and the time the bus is taken follows from the words sent,
// the terminals' response times and, where nobody answers, the controller's
// response time-out.

#include "Mil1553Faults.h"
#include "Mil1553Terminal.h"

#include <cstdint>
#include <vector>

namespace hdwsim::mil {

// Whoever sits behind a terminal address: the unit's channels or simulated
// terminals. A broadcast reaches all and is answered by none.
class Responders {
public:
    virtual ~Responders() = default;
    virtual Reply Answer(Command c, unsigned bus, const std::vector<uint16_t>& received) = 0;
};

struct Attempt {
    uint64_t StartNs = 0;
    uint64_t EndNs = 0; // after the last word or the last time-out
    unsigned Bus = 0;
    uint16_t Command1 = 0;
    uint16_t Command2 = 0; // RT-to-RT: the transmit command
    std::vector<uint16_t> Data; // sent by the controller, or received whole from the transmitting terminal
    uint16_t Status1 = 0;
    uint16_t Status2 = 0;
    uint16_t Flags = 0;

    bool Failed() const { return (Flags & FlagsFailed) != 0; }
};

struct AttemptSpec {
    bool RtToRt = false;
    uint16_t Command1 = 0;
    uint16_t Command2 = 0;
    unsigned Bus = 0;
    std::vector<uint16_t> BcData; // the words the controller sends
    unsigned TimeoutUs = 14;
};

Attempt RunAttempt(Responders& responders, FaultTable& faults, const AttemptSpec& spec, uint64_t startNs);

} // namespace hdwsim::mil
