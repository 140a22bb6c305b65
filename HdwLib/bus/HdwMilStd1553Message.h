#pragma once
// One MIL-STD-1553 transfer: what a bus controller should send (command
// fields, data, bus, retry, gap) and what came back (data, status words,
// transfer flags, time stamp). Command and status words are held as on the
// bus, first bit sent in bit 15: terminal address in bits 15..11, transmit in
// bit 10, subaddress (0 and 31: mode code) in bits 9..5, word count (0 = 32)
// or mode code in bits 4..0.
//
// Mode codes 0..15 take no data word, 16..31 take one: the terminal sends it
// for transmit mode codes, the controller for receive mode codes.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwMilStd1553Message : public CKVX_Object {
public:
    // Transfer flags (Flags), as the unit reports them.
    enum t_Flags : uint16_t {
        FlagNoResponse = 1u << 0,
        FlagBadWordCount = 1u << 1,
        FlagParityError = 1u << 2, // parity or Manchester error
        FlagWrongAddress = 1u << 3, // status word from another terminal
        FlagMessageError = 1u << 4, // message error bit in a status word
        FlagBusy = 1u << 5,
        FlagServiceRequest = 1u << 6,
        FlagBusB = 1u << 7, // the last attempt went on bus B
        FlagRetried = 1u << 8,
        FlagRtToRt = 1u << 9,
        FlagModeCode = 1u << 10,
        FlagBroadcast = 1u << 11,
        FlagUnitDropped = 1u << 12, // the unit dropped records of the channel before this one
        // Set by the library, not the unit: a one-shot message whose list did
        // not complete within its time-out; it was not sent.
        FlagNotSent = 1u << 13,
    };
    enum t_Retry : uint8_t { RetryNone = 0, RetrySameBus = 1, RetryOtherBus = 2 };

    static constexpr uint8_t BroadcastAddress = 31;
    static constexpr unsigned MaxDataWords = 32;

    CKVX_HdwMilStd1553Message() = default;
    CKVX_HdwMilStd1553Message(const CKVX_HdwMilStd1553Message&) = default;
    CKVX_HdwMilStd1553Message(CKVX_HdwMilStd1553Message&&) = default;
    CKVX_HdwMilStd1553Message& operator=(const CKVX_HdwMilStd1553Message&) = default;
    CKVX_HdwMilStd1553Message& operator=(CKVX_HdwMilStd1553Message&&) = default;
    ~CKVX_HdwMilStd1553Message() override;

    // Subaddress 0 or 31.
    bool IsModeCode() const { return Subaddress == 0 || Subaddress == 31; }
    // Terminal address 31 (of the receive command for RT-to-RT).
    bool IsBroadcast() const { return TerminalAddress == BroadcastAddress; }
    // Data words the transfer carries on the bus: the word count (0 = 32),
    // or for a mode code 1 from mode code 16 on, else 0.
    unsigned GetDataWordCount() const;
    // Data words the controller sends: BC-to-RT the word count, a receive
    // mode code with data 1, anything else 0.
    unsigned GetSentWordCount() const;

    // The command word (RT-to-RT: the receive command).
    uint16_t GetCommandWord() const;
    // RT-to-RT: the transmit command; else 0.
    uint16_t GetCommandWord2() const;

    // 0, or 2 for a field out of range, a word count field above 31, Data
    // not of the size the controller sends, data given to a mode code that
    // takes none, terminal address 31 where broadcast is not allowed
    // (transmit commands, the transmit side of RT-to-RT, transmit mode codes
    // with data), an RT-to-RT transfer that is not a receive command to a
    // subaddress or has both terminals the same.
    unsigned Check() const;

    // Bus-on-the-wire time in µs by the bus-controller timing rule: 20 µs
    // per command, status and data word, `responseTimeoutUs` per expected
    // response, plus the gap (0 = 4 µs); doubled with a retry.
    unsigned GetBusTimeUs(unsigned responseTimeoutUs) const;

    // Command.
    uint8_t TerminalAddress = 0; // 0..31, 31 = broadcast
    uint8_t Transmit = 0; // 1: the terminal sends (RT-to-BC)
    uint8_t Subaddress = 1; // 0..31; 0 and 31: mode code
    uint8_t WordCount = 0; // command word field 0..31 (0 = 32 words), or the mode code
    // RT-to-RT: the transmit command's terminal and subaddress (same word count).
    uint8_t RtToRt = 0;
    uint8_t TxTerminalAddress = 0;
    uint8_t TxSubaddress = 1;
    // The data words sent (BC-to-RT, receive mode code) or received.
    std::vector<uint16_t> Data;
    // Result.
    uint16_t StatusWord1 = 0;
    uint16_t StatusWord2 = 0; // RT-to-RT: the receiver's
    uint16_t Flags = 0; // t_Flags
    uint64_t TimeStamp = 0; // µs of the unit's clock at the first command word
    uint16_t TransferId = 0;
    // What the controller should do.
    uint8_t Bus = 0; // 0 bus A, 1 bus B
    uint8_t Retry = RetryNone; // t_Retry
    uint8_t GapUs = 0; // gap after the message, µs (0 = 4)
};

// An ordered list of transfers, as the services' reads fill it.
class HDWLIB_EXPORT CKVX_HdwMilStd1553Buffer : public CKVX_Object {
public:
    CKVX_HdwMilStd1553Buffer() = default;
    CKVX_HdwMilStd1553Buffer(const CKVX_HdwMilStd1553Buffer&) = default;
    CKVX_HdwMilStd1553Buffer(CKVX_HdwMilStd1553Buffer&&) = default;
    CKVX_HdwMilStd1553Buffer& operator=(const CKVX_HdwMilStd1553Buffer&) = default;
    CKVX_HdwMilStd1553Buffer& operator=(CKVX_HdwMilStd1553Buffer&&) = default;
    ~CKVX_HdwMilStd1553Buffer() override;

    void Add(const CKVX_HdwMilStd1553Message& message) { m_Messages.push_back(message); }
    void Add(CKVX_HdwMilStd1553Message&& message) { m_Messages.push_back(std::move(message)); }
    unsigned Count() const { return unsigned(m_Messages.size()); }
    // The message at `index` (< Count()).
    const CKVX_HdwMilStd1553Message& At(unsigned index) const { return m_Messages[index]; }
    CKVX_HdwMilStd1553Message& At(unsigned index) { return m_Messages[index]; }
    void Clear() { m_Messages.clear(); }

private:
    std::vector<CKVX_HdwMilStd1553Message> m_Messages;
};
