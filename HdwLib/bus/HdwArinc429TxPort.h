#pragma once
// Generic ARINC 429 transmitter channel: keeps the channel's parameters and
// decides which services may run on it together. Unit drivers derive their
// transmitter from it.
//
// Services admitted: signal (1), byte output (3), ARINC 429 output buffer
// (5), label-oriented output (7), data generator (15). Either buffer service
// runs alone (besides the signal service); label-oriented output and the
// data generator may run together.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429TxPort : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        // Parity modes, as the receiver's.
        static constexpr uint8_t ParityOdd = 0, ParityEven = 1, ParityIgnore = 2;
        static constexpr uint32_t LowSpeed = 12500, HighSpeed = 100000;

        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint8_t Parity = ParityOdd;
        uint32_t BaudRate = LowSpeed; // bit/s
        // Gap between words in microseconds, never 0. One less than
        // CalcWordIntergap(12500, 4) on purpose; a transmitter at another
        // rate sets CalcWordIntergap(BaudRate, 4).
        uint16_t WordIntergap = 319;
    };

    CKVX_HdwArinc429TxPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    // As the receiver's: a copy is a closed port of the same channel with the
    // same parameters and no services. Assign only to a closed port.
    CKVX_HdwArinc429TxPort(const CKVX_HdwArinc429TxPort& other);
    CKVX_HdwArinc429TxPort& operator=(const CKVX_HdwArinc429TxPort& other);
    ~CKVX_HdwArinc429TxPort() override;

    // As the receiver's: installs `params` (null keeps the current ones,
    // another class answers 2), then opens.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetBaudRate(unsigned rate);

    // Duration of `bitTimes` bit periods at `baudRate`, in microseconds,
    // rounded; 0 for a rate of 0.
    static unsigned short CalcWordIntergap(unsigned int baudRate, double bitTimes);

protected:
    CParameters m_Parameters;
};
