#pragma once
// Generic ARINC 429 receiver channel: keeps the channel's parameters and
// decides which services may run on it together. Unit drivers derive their
// receiver from it, configure the unit in OnOpening and create the services
// in EnableService once this class has admitted them.
//
// Services admitted: signal (1), byte input (2), ARINC 429 input buffer (4),
// label-oriented input (6); 2, 4 and 6 exclude one another.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429RxPort : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        // Parity modes.
        static constexpr uint8_t ParityOdd = 0, ParityEven = 1, ParityIgnore = 2;
        // The rates the units run.
        static constexpr uint32_t LowSpeed = 12500, HighSpeed = 100000;

        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint8_t Parity = ParityOdd;
        uint32_t BaudRate = LowSpeed; // bit/s
    };

    CKVX_HdwArinc429RxPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    // A copy is a closed port of the same channel with the same parameters;
    // services belong to one port and are not copied. Assign only to a
    // closed port.
    CKVX_HdwArinc429RxPort(const CKVX_HdwArinc429RxPort& other);
    CKVX_HdwArinc429RxPort& operator=(const CKVX_HdwArinc429RxPort& other);
    ~CKVX_HdwArinc429RxPort() override;

    // Installs `params` (a CParameters of this class; null keeps the current
    // ones, another class answers 2) before opening, so a failed open still
    // leaves them in the port.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);
    // Stores the rate (19 when the port is closed); no check, no unit command.
    virtual unsigned SetBaudRate(unsigned rate);

protected:
    CParameters m_Parameters;
};
