#pragma once
// One ARINC 429 word, kept unpacked, with the time it was received.
//
//     CKVX_HdwArinc429Message m;
//     m.Label = 0x31; m.Sdi = 1; m.Data = 0x1234; m.Ssm = 3;
//     m.SetParity(0);                  // odd parity, the bus convention
//     unsigned word = m.GetToUint32();
//
// Packing does not mask the fields: keeping them within their widths is the
// caller's duty (a Sdi of 4 spills into the data field).

#include <HdwLib/core/KvxBuffer.h>
#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429Message : public CKVX_Object {
public:
    CKVX_HdwArinc429Message() = default;
    CKVX_HdwArinc429Message(const CKVX_HdwArinc429Message&) = default;
    CKVX_HdwArinc429Message& operator=(const CKVX_HdwArinc429Message&) = default;
    ~CKVX_HdwArinc429Message() override;

    // Bits 0-7 label, 8-9 SDI, 10-28 data, 29-30 SSM, 31 parity.
    unsigned GetToUint32() const
    {
        return static_cast<uint32_t>(Label) | (static_cast<uint32_t>(Sdi) << 8) | (Data << 10) |
            (static_cast<uint32_t>(Ssm) << 29) | (static_cast<uint32_t>(Parity) << 31);
    }
    // Unpacks the five fields; the time stamp and the spare members stay.
    void SetFromUint32(unsigned word)
    {
        Label = static_cast<uint8_t>(word & 0xFFu);
        Sdi = static_cast<uint8_t>((word >> 8) & 3u);
        Data = (word >> 10) & 0x7FFFFu;
        Ssm = static_cast<uint8_t>((word >> 29) & 3u);
        Parity = static_cast<uint8_t>(word >> 31);
    }
    // Sets Parity from bits 0-30: non-zero `even` makes the number of ones in
    // all 32 bits even, zero makes it odd.
    void SetParity(unsigned char even);

    // Label, SDI, SSM and data only; parity and time take no part.
    bool operator==(const CKVX_HdwArinc429Message& other) const
    {
        return Label == other.Label && Sdi == other.Sdi && Ssm == other.Ssm && Data == other.Data;
    }
    bool operator!=(const CKVX_HdwArinc429Message& other) const { return !(*this == other); }

    uint8_t Label = 0;
    uint8_t Sdi = 0;
    uint8_t Ssm = 0;
    uint32_t Data = 0;
    uint8_t Parity = 0;
    // Event time of the unit event that delivered the word; 0 for words built here.
    uint64_t TimeStamp = 0;
    // Spare, carried by copying only.
    uint32_t AuxWord = 0;
    double AuxValue = 0.0;
};

// Label, SDI and SSM as one byte each, then Data as 32 bits; parity, time
// stamp and spare members are neither written nor read.
HDWLIB_EXPORT CKVX_Buffer& operator<<(CKVX_Buffer& buffer, const CKVX_HdwArinc429Message& message);
HDWLIB_EXPORT CKVX_Buffer& operator>>(CKVX_Buffer& buffer, CKVX_HdwArinc429Message& message);

class HDWLIB_EXPORT CKVX_HdwArinc429MessageList : public CKVX_List<CKVX_HdwArinc429Message> {
public:
    CKVX_HdwArinc429MessageList() = default;
    CKVX_HdwArinc429MessageList(const CKVX_HdwArinc429MessageList&) = default;
    CKVX_HdwArinc429MessageList(CKVX_HdwArinc429MessageList&&) = default;
    CKVX_HdwArinc429MessageList& operator=(const CKVX_HdwArinc429MessageList&) = default;
    CKVX_HdwArinc429MessageList& operator=(CKVX_HdwArinc429MessageList&&) = default;
    ~CKVX_HdwArinc429MessageList() override;
};
