#pragma once
// A channel in remote-terminal mode: answers its terminal address from the
// subaddress and mode-code tables in its SRAM, keeps the status word state
// (message error and broadcast received carried to the next answer).

#include "Mil1553Terminal.h"

#include <cstdint>
#include <vector>

namespace hdwsim::mil {

class RtResponder {
public:
    struct Setup {
        unsigned Address = 0;
        uint8_t StatusBits = 0; // RtStatus: busy, service request, subsystem, terminal flag, bus control
        unsigned ResponseUs = DefaultResponseUs;
    };

    // Power-up state, also when the channel starts in RT mode.
    void Reset();
    // `c` is addressed to this terminal or broadcast; `received` holds the
    // data words that followed a receive command. `sram` is the channel's.
    Reply Answer(uint16_t* sram, const Setup& setup, Command c, const std::vector<uint16_t>& received);

private:
    uint16_t StatusWord(const Setup& setup, bool error) const;
    // The status word of an answered command, or for a broadcast the bits
    // it leaves for the next one.
    void Conclude(Reply& r, const Setup& setup, Command c, bool legal);
    Reply ModeCode(uint16_t* sram, const Setup& setup, Command c, const std::vector<uint16_t>& received);

    uint16_t m_LastStatus = 0;
    uint16_t m_LastCommand = 0;
    bool m_PendingError = false;
    bool m_PendingBroadcast = false;
};

} // namespace hdwsim::mil
