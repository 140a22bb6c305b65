#pragma once
// Event objects of the command-protocol units: one class per event type,
// each decoding its record in ExtractData. The drivers carry them under
// their nested names (CKVX_HdwKvxHaldenDevice::CArinc429RxEvent ...).
//
// `params` points at the record's first parameter (the byte after the type
// byte) and `length` is the record's L (type byte plus parameters), so a
// record has length - 1 parameter bytes. The length rules of some types are
// looser than their layouts (an ARINC 429 receive record of L = 8 is
// accepted, a CAN record needs only L >= DLC + 3); the bytes such a short
// record lacks are read as zero, never from beyond the record.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/framework/HdwEvent.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/units/KvxUnitProfile.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace kvx_events {

// The little-endian 32-bit value at `bytes`, which the caller knows to hold four.
inline uint32_t Le32(const uint8_t* bytes)
{
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

// Parameter byte `offset` of a record of L = `length`, 0 past its end.
inline uint8_t ParamByte(const uint8_t* params, unsigned length, unsigned offset)
{
    return length >= 1 && offset < length - 1 ? params[offset] : uint8_t(0);
}
inline uint16_t ParamLe16(const uint8_t* params, unsigned length, unsigned offset)
{
    return uint16_t(ParamByte(params, length, offset) | ParamByte(params, length, offset + 1) << 8);
}
inline uint32_t ParamLe32(const uint8_t* params, unsigned length, unsigned offset)
{
    return uint32_t(ParamLe16(params, length, offset)) | uint32_t(ParamLe16(params, length, offset + 2)) << 16;
}

// The time stamp and the ARINC 429 word at parameter offset 4 of types 2
// and 3: 0, or 11 when the record is refused.
inline unsigned ExtractArinc429Word(
    const uint8_t* params, unsigned length, CKVX_HdwArinc429Message& m, uint64_t& timeStamp)
{
    if (length < 8)
        return HDW_ERR_MALFORMED_EVENT;
    timeStamp = ParamLe32(params, length, 0);
    m.SetFromUint32(ParamLe32(params, length, 4));
    m.TimeStamp = timeStamp;
    return 0;
}

// The time stamp and the CAN frame at parameter offset 4 of types 6 and 7:
// 0, or 11 when the record is refused.
inline unsigned ExtractCanFrame(const uint8_t* params, unsigned length, CKVX_HdwCanMessage& m, uint64_t& timeStamp)
{
    if (length == 0)
        return HDW_ERR_MALFORMED_EVENT;
    // The longest layout has 17 parameter bytes (extended identifier, eight
    // data bytes). A shorter record is read from a zero-padded copy, so the
    // fields below come from fixed offsets without a bounds test per byte.
    constexpr unsigned kFull = 17;
    uint8_t padded[kFull];
    const uint8_t* p = params;
    if (length - 1 < kFull) {
        std::memset(padded, 0, kFull);
        std::memcpy(padded, params, length - 1);
        p = padded;
    }
    timeStamp = Le32(p);
    m.TimeStamp = timeStamp;
    const uint8_t flags = p[4];
    m.Dlc = uint8_t(flags & 0x0F);
    m.Rtr = (flags & 0x40) ? 1 : 0;
    m.Extended = (flags & 0x80) ? 1 : 0;
    unsigned data = 0;
    if (m.Extended) {
        if (length < m.Dlc + 5u)
            return HDW_ERR_MALFORMED_EVENT;
        m.Identifier = uint32_t(p[5]) << 21 | uint32_t(p[6]) << 13 | uint32_t(p[7]) << 5 | uint32_t(p[8]) >> 3;
        data = 9;
    } else {
        if (length < m.Dlc + 3u)
            return HDW_ERR_MALFORMED_EVENT;
        m.Identifier = uint32_t(p[5]) << 3 | uint32_t(p[6]) >> 5;
        data = 7;
    }
    // A DLC above 8 still carries eight bytes at most; the bytes past the
    // DLC are zero.
    const unsigned n = std::min<unsigned>(m.Dlc, 8);
    std::memset(m.Data, 0, sizeof m.Data);
    std::memcpy(m.Data, p + data, n);
    return 0;
}

// The command number an echo record (type 0, L = 7) carries at parameter
// offset 4: 0, or 11 when the record is refused.
inline unsigned ExtractEchoedCommand(const uint8_t* params, unsigned length, uint16_t& number)
{
    if (length != 7)
        return HDW_ERR_MALFORMED_EVENT;
    number = uint16_t(params[4] | params[5] << 8);
    return 0;
}

} // namespace kvx_events

// Base of the unit's event objects: the unit's 32-bit time stamp (first
// four parameter bytes) widened to 64 bits; the channel id is the record's
// sub-field in decimal.
class HDWLIB_EXPORT CKVX_HdwKvxEvent : public CKVX_HdwEvent {
public:
    CKVX_HdwKvxEvent() { m_EventCode = EventNotDecoded; }
    ~CKVX_HdwKvxEvent() override = default;
    // Fills the object from the record's parameters; `length` is the
    // record's L (type byte plus parameters). 0, or 11 when malformed.
    virtual unsigned ExtractData(const uint8_t* params, unsigned length)
    {
        if (length < 5)
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        return 0;
    }
    void ExtractTimeStamp(const uint8_t* params) { TimeStamp = kvx_events::Le32(params); }
    // The unit time of the event unwrapped to 64 bits (microseconds, never
    // wrapping), set by the unit core when it dispatches the event.
    uint64_t GetUnwrappedTime() const { return UnwrappedTime; }

    uint64_t TimeStamp = 0;
    uint64_t UnwrappedTime = 0;
};

// Echo of a command (type 0): L = 7, the echoed command number at 4..5.
class HDWLIB_EXPORT CKVX_HdwKvxComEchoEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxComEchoEvent() { m_EventCode = KvxEventComEcho; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (const unsigned rc = kvx_events::ExtractEchoedCommand(params, length, CommandNumber))
            return rc;
        this->ExtractTimeStamp(params);
        return 0;
    }
    uint16_t CommandNumber = 0;
};

// Type 1, L >= 5: time stamp only; the sub-field is the failure code.
class HDWLIB_EXPORT CKVX_HdwKvxCriticalFailureEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxCriticalFailureEvent() { m_EventCode = KvxEventCriticalFailure; }
    // Set by the handler from the record's sub-field.
    unsigned FailureCode = 0;
};

// Type 2, L >= 8: 4..7 the received word, 8..9 a value the unit appends.
class HDWLIB_EXPORT CKVX_HdwKvxArinc429RxEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxArinc429RxEvent() { m_EventCode = KvxEventA429Rx; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (const unsigned rc = kvx_events::ExtractArinc429Word(params, length, Message, TimeStamp))
            return rc;
        AuxValue = kvx_events::ParamLe16(params, length, 8);
        return 0;
    }
    CKVX_HdwArinc429Message Message;
    uint16_t AuxValue = 0;
};

// Type 3, L >= 8: 4..7 the word that went out on the bus.
class HDWLIB_EXPORT CKVX_HdwKvxArinc429TxEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxArinc429TxEvent() { m_EventCode = KvxEventA429Tx; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        return kvx_events::ExtractArinc429Word(params, length, Message, TimeStamp);
    }
    CKVX_HdwArinc429Message Message;
};

// Type 5, L = 10: 4 the status kind, 5..8 the status word. Kind 1: words
// waiting in ARINC 429 transmitter `sub-field`'s FIFO; kind 2: CAN channel
// `sub-field`, bits 0-7 fault state, 8-15 frames waiting, 16-31 the two
// error-register bytes.
class HDWLIB_EXPORT CKVX_HdwKvxStatusEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxStatusEvent() { m_EventCode = KvxEventStatus; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (length != 10)
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        Kind = params[4];
        StatusWord = kvx_events::ParamLe32(params, length, 5);
        return 0;
    }
    uint8_t Kind = 0;
    uint32_t StatusWord = 0;
};

// Type 6: a frame the channel received (layout of the push record from
// offset 4); refused for L = 0 and unless L >= DLC + 3 (standard) or
// L >= DLC + 5 (extended).
class HDWLIB_EXPORT CKVX_HdwKvxCanRxEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxCanRxEvent() { m_EventCode = KvxEventCanRx; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        return kvx_events::ExtractCanFrame(params, length, Message, TimeStamp);
    }
    CKVX_HdwCanMessage Message;
};

// Type 7: a frame the channel sent, as type 6.
class HDWLIB_EXPORT CKVX_HdwKvxCanTxEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxCanTxEvent() { m_EventCode = KvxEventCanTx; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        return kvx_events::ExtractCanFrame(params, length, Message, TimeStamp);
    }
    CKVX_HdwCanMessage Message;
};

// Type 8, L >= 12: 4 the kind.
// Kind 1 (transfer completed): 5..6 transfer id, 7..8 word count n, n data
// words, then the two status words and the transfer's error/status flags.
// Kind 2 (remote-terminal access or monitor record): 5 bits 2..0 a field
// (bit 0 bus B, bit 1 broadcast, bit 2 monitor record), bits 7..3 terminal
// address; 6 bits 4..0 subaddress, bit 5 transmit; 7 bits 5..0 word count n,
// bit 6 a flag (mode code); 8 bits 4..0 a field (transfer flags 0..4); 9..
// n data words; then command word 1, command word 2, the two status words
// and the transfer flags, where the record holds them.
// Other kinds: time stamp and kind only. Data holds the words that the
// record carries (at most n).
class HDWLIB_EXPORT CKVX_HdwKvxMilStd1553Event : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxMilStd1553Event() { m_EventCode = KvxEventMilStd1553; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        using namespace kvx_events;
        if (length < 12)
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        Kind = params[4];
        unsigned words = 0;
        if (Kind == 1) {
            TransferId = ParamLe16(params, length, 5);
            WordCount = ParamLe16(params, length, 7);
            words = WordCount;
        } else if (Kind == 2) {
            const uint8_t b5 = params[5], b6 = params[6], b7 = params[7], b8 = params[8];
            Field1 = uint8_t(b5 & 0x07);
            TerminalAddress = uint8_t(b5 >> 3);
            Subaddress = uint8_t(b6 & 0x1F);
            Transmit = uint8_t((b6 >> 5) & 1);
            WordCount = uint16_t(b7 & 0x3F);
            Flag = uint8_t((b7 >> 6) & 1);
            Field2 = uint8_t(b8 & 0x1F);
            words = WordCount;
        } else {
            return 0;
        }
        // Parameter bytes from offset 9 on hold the data words.
        const unsigned room = (length - 1 - 9) / 2;
        Data.assign(std::min(words, room), 0);
        for (unsigned i = 0; i < Data.size(); ++i)
            Data[i] = ParamLe16(params, length, 9 + 2 * i);
        unsigned after = 9 + 2 * words;
        if (Kind == 2) {
            CommandWord1 = ParamLe16(params, length, after);
            CommandWord2 = ParamLe16(params, length, after + 2);
            after += 4;
        }
        StatusWord1 = ParamLe16(params, length, after);
        StatusWord2 = ParamLe16(params, length, after + 2);
        TransferFlags = ParamLe16(params, length, after + 4);
        return 0;
    }
    uint8_t Kind = 0;
    // Kind 1.
    uint16_t TransferId = 0;
    // Kinds 1 and 2.
    uint16_t StatusWord1 = 0;
    uint16_t StatusWord2 = 0;
    uint16_t TransferFlags = 0;
    // Kind 2.
    uint16_t CommandWord1 = 0;
    uint16_t CommandWord2 = 0; // RT-to-RT: the transmit command
    uint8_t Field1 = 0;
    uint8_t TerminalAddress = 0;
    uint8_t Subaddress = 0;
    uint8_t Transmit = 0;
    uint8_t Flag = 0;
    uint8_t Field2 = 0;
    // Both: the word count the record states, and the words.
    uint16_t WordCount = 0;
    std::vector<uint16_t> Data;
};

// Type 9, L >= 6: 4 the receiver's status byte, 5.. the L - 6 bytes received.
class HDWLIB_EXPORT CKVX_HdwKvxUartRxEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxUartRxEvent() { m_EventCode = KvxEventUartRx; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (length < 6)
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        Status = params[4];
        Data.assign(params + 5, params + 5 + (length - 6));
        return 0;
    }
    uint8_t Status = 0;
    std::vector<uint8_t> Data;
};

// Type 10, L >= 6: 4..7 the chunk counter of the transmit record that
// completed, 8..9 a 16-bit count.
class HDWLIB_EXPORT CKVX_HdwKvxUartTxEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxUartTxEvent() { m_EventCode = KvxEventUartTx; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (length < 6)
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        ChunkCounter = kvx_events::ParamLe32(params, length, 4);
        Count = kvx_events::ParamLe16(params, length, 8);
        return 0;
    }
    uint32_t ChunkCounter = 0;
    uint16_t Count = 0;
};

// Types 11 (discrete input bank) and 12 (discrete output bank), L = 16; the
// sub-field is the bank. 4..7 the bank's logical state, 8..11 the lines
// that changed (0 for a read answer), 12..13 the bank's 16-bit count of
// events (read answers repeat the last), 14 the cause.
class HDWLIB_EXPORT CKVX_HdwKvxDiscreteEvent : public CKVX_HdwKvxEvent {
public:
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (length != 16)
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        State = kvx_events::ParamLe32(params, length, 4);
        Changed = kvx_events::ParamLe32(params, length, 8);
        Sequence = kvx_events::ParamLe16(params, length, 12);
        Cause = params[14];
        return 0;
    }
    uint32_t State = 0;
    uint32_t Changed = 0;
    uint16_t Sequence = 0;
    uint8_t Cause = 0;
};

// Type 11. Cause 0 a debounced change, 1 the answer to a read request.
class HDWLIB_EXPORT CKVX_HdwKvxDiscreteInEvent : public CKVX_HdwKvxDiscreteEvent {
public:
    enum : uint8_t { CauseChange = 0, CauseReadAnswer = 1 };
    CKVX_HdwKvxDiscreteInEvent() { m_EventCode = KvxEventDiscreteIn; }
};

// Type 12. Cause 0 a write or the start of a pulse, 1 the end of a pulse, 2
// the answer to a read request, 3 the bank switched on or off.
class HDWLIB_EXPORT CKVX_HdwKvxDiscreteOutEvent : public CKVX_HdwKvxDiscreteEvent {
public:
    enum : uint8_t { CauseWrite = 0, CausePulseEnd = 1, CauseReadAnswer = 2, CauseSwitched = 3 };
    CKVX_HdwKvxDiscreteOutEvent() { m_EventCode = KvxEventDiscreteOut; }
};

// Type 13 (I2C transfer result), L = 14 + n: 4..7 wire tag, 8 status, 9..10
// bytes written and acknowledged, 11..12 n, 13.. the n bytes read.
class HDWLIB_EXPORT CKVX_HdwKvxI2cResultEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxI2cResultEvent() { m_EventCode = KvxEventI2cResult; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (length < 14 || length != 14u + kvx_events::ParamLe16(params, length, 11))
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        WireTag = kvx_events::ParamLe32(params, length, 4);
        Status = params[8];
        Acked = kvx_events::ParamLe16(params, length, 9);
        Data.assign(params + 13, params + length - 1);
        return 0;
    }
    uint32_t WireTag = 0;
    uint8_t Status = 0;
    uint16_t Acked = 0;
    std::vector<uint8_t> Data;
};

// Type 14 (SPI transfer result), L = 12 + n: 4..7 wire tag, 8 status, 9..10
// n, 11.. the n bytes shifted in.
class HDWLIB_EXPORT CKVX_HdwKvxSpiResultEvent : public CKVX_HdwKvxEvent {
public:
    CKVX_HdwKvxSpiResultEvent() { m_EventCode = KvxEventSpiResult; }
    unsigned ExtractData(const uint8_t* params, unsigned length) override
    {
        if (length < 12 || length != 12u + kvx_events::ParamLe16(params, length, 9))
            return HDW_ERR_MALFORMED_EVENT;
        ExtractTimeStamp(params);
        WireTag = kvx_events::ParamLe32(params, length, 4);
        Status = params[8];
        Data.assign(params + 11, params + length - 1);
        return 0;
    }
    uint32_t WireTag = 0;
    uint8_t Status = 0;
    std::vector<uint8_t> Data;
};
