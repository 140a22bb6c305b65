#pragma once
// MIL-STD-1553 words and the unit's table layout: command word fields, the
// transfer flags of the events, the BC descriptor's control bits, and the
// timing rule shared by the bus model and the one-shot fit estimate.

#include <cstdint>

namespace hdwsim::mil {

constexpr unsigned SramWordsPerChannel = 0x8000;
constexpr unsigned Broadcast = 31;

// Unit time of one word on the bus (20 bit times at 1 Mbit/s).
constexpr uint64_t WordNs = 20'000;
constexpr uint64_t NsPerUs = 1'000;
constexpr unsigned DefaultResponseUs = 8;

// Relative word addresses inside a channel's SRAM.
constexpr unsigned OneShotDescriptors = 32;
constexpr unsigned Descriptors = 512;
constexpr unsigned DescriptorWords = 8;
constexpr unsigned SubaddressTable = 0x0000;
constexpr unsigned ModeCodeTable = 0x0100;

// Transfer flags (kind 1, and the trailer of kind 2).
enum : uint16_t {
    FlagNoResponse = 1u << 0,
    FlagBadWordCount = 1u << 1,
    FlagParity = 1u << 2,
    FlagWrongAddress = 1u << 3,
    FlagMessageError = 1u << 4,
    FlagBusy = 1u << 5,
    FlagServiceRequest = 1u << 6,
    FlagBusB = 1u << 7,
    FlagRetried = 1u << 8,
    FlagRtToRt = 1u << 9,
    FlagModeCode = 1u << 10,
    FlagBroadcast = 1u << 11,
    // Failures that a retry answers.
    FlagsFailed = FlagNoResponse | FlagBadWordCount | FlagParity | FlagWrongAddress,
};

// Status word bits.
enum : uint16_t {
    StatusMessageError = 1u << 10,
    StatusServiceRequest = 1u << 8,
    StatusBroadcastReceived = 1u << 4,
    StatusBusy = 1u << 3,
    StatusSubsystem = 1u << 2,
    StatusBusControl = 1u << 1,
    StatusTerminalFlag = 1u << 0,
};

// BC descriptor word 0.
enum : uint16_t {
    CtrlBusB = 1u << 0,
    CtrlRetry = 1u << 1,
    CtrlRetryOtherBus = 1u << 2,
    CtrlRtToRt = 1u << 3,
};

struct Command {
    uint16_t Word = 0;

    unsigned Address() const { return Word >> 11; }
    bool Transmit() const { return (Word >> 10) & 1; }
    unsigned Subaddress() const { return (Word >> 5) & 31; }
    unsigned CountField() const { return Word & 31; }
    bool ModeCode() const { return Subaddress() == 0 || Subaddress() == 31; }
    bool IsBroadcast() const { return Address() == Broadcast; }
    // Data words the transfer carries: a mode code 16..31 one, 0..15 none.
    unsigned DataWords() const
    {
        if (ModeCode())
            return CountField() >= 16 ? 1 : 0;
        return CountField() == 0 ? 32 : CountField();
    }
};

// The timing rule of the fit check: 20 µs a word, a response time-out per
// expected answer; the gap and a retry are added by the caller.
inline uint64_t EstimateNs(uint16_t control, uint16_t cmd1, unsigned timeoutUs)
{
    const Command c{cmd1};
    const uint64_t n = c.DataWords();
    const uint64_t response = uint64_t(timeoutUs) * NsPerUs;
    const bool answered = !c.IsBroadcast();
    if (control & CtrlRtToRt)
        return (2 + 1 + n) * WordNs + response + (answered ? response + WordNs : 0);
    const uint64_t status = answered ? response + WordNs : 0;
    return (1 + n) * WordNs + status;
}

} // namespace hdwsim::mil
