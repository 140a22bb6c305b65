#pragma once
// What a single remote terminal answers: its address, buses, status word
// bits and response time, and per subaddress and direction whether it is
// legal, reported and legal as broadcast, with the words a transmit
// subaddress sends until the application updates them; per mode code whether
// it is legal and reported, and its data word.
//
// A terminal address of NoTerminal makes the channel a passive monitor.
// Subaddresses 0 and 31 are mode codes: their entries are never legal.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwMilStd1553RemoteTerminal : public CKVX_Object {
public:
    static constexpr uint8_t NoTerminal = 0xFF;
    // Status word bits the application sets (StatusBits).
    enum t_StatusBits : uint8_t {
        StatusBusy = 1u << 0,
        StatusServiceRequest = 1u << 1,
        StatusSubsystemFlag = 1u << 2,
        StatusTerminalFlag = 1u << 3,
        StatusDynamicBusControl = 1u << 4, // dynamic bus control acceptance
    };

    class HDWLIB_EXPORT CSubaddress : public CKVX_Object {
    public:
        CSubaddress() = default;
        CSubaddress(const CSubaddress&) = default;
        CSubaddress(CSubaddress&&) = default;
        CSubaddress& operator=(const CSubaddress&) = default;
        CSubaddress& operator=(CSubaddress&&) = default;
        ~CSubaddress() override;

        uint8_t Legal = 1;
        uint8_t Report = 0; // a receive subaddress that is legal is always reported
        uint8_t BroadcastLegal = 1; // receive subaddresses only
        std::vector<uint16_t> Data; // transmit: the first words sent (up to 32, the rest 0)
    };

    class HDWLIB_EXPORT CModeCode : public CKVX_Object {
    public:
        CModeCode() = default;
        CModeCode(const CModeCode&) = default;
        CModeCode(CModeCode&&) = default;
        CModeCode& operator=(const CModeCode&) = default;
        CModeCode& operator=(CModeCode&&) = default;
        ~CModeCode() override;

        uint8_t Legal = 1;
        uint8_t Report = 0;
        uint16_t DataWord = 0; // sent for transmit vector word (16) and transmit BIT word (19)
    };

    CKVX_HdwMilStd1553RemoteTerminal();
    CKVX_HdwMilStd1553RemoteTerminal(const CKVX_HdwMilStd1553RemoteTerminal&) = default;
    CKVX_HdwMilStd1553RemoteTerminal(CKVX_HdwMilStd1553RemoteTerminal&&) = default;
    CKVX_HdwMilStd1553RemoteTerminal& operator=(const CKVX_HdwMilStd1553RemoteTerminal&) = default;
    CKVX_HdwMilStd1553RemoteTerminal& operator=(CKVX_HdwMilStd1553RemoteTerminal&&) = default;
    ~CKVX_HdwMilStd1553RemoteTerminal() override;

    // 0, or 2 for an address other than 0..30 or NoTerminal, no bus enabled,
    // status bits above bit 4, a response time other than 0 or 4..12, a
    // flag other than 0 or 1, a legal subaddress 0 or 31, or more than 32
    // transmit words.
    unsigned Check() const;

    uint8_t TerminalAddress = 1;
    uint8_t BusA = 1;
    uint8_t BusB = 1;
    uint8_t Monitor = 0; // 1: the channel also reports every transfer on its bus
    uint8_t StatusBits = 0; // t_StatusBits
    uint8_t ResponseTimeUs = 0; // 4..12, 0 = 8
    CSubaddress Receive[32];
    CSubaddress Transmit[32];
    CModeCode ModeCodes[32];
};
