#pragma once
// Generic I2C master port: one master of a unit. Keeps the bus settings that
// Open takes and admits the I2C master service (16), one per port. A unit
// driver derives from it and configures the master at Open.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwI2cPort : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // 0, or 2 for a speed other than 100 kHz, 400 kHz, 1 MHz or a
        // time-out outside 1..1000 ms.
        unsigned Check() const;

        uint32_t BusSpeed = 100000; // Hz
        uint32_t BusTimeoutMs = 25; // longest clock stretch or stuck line before a bus fault
        bool PullUps = true; // the master's own pull-up resistors
    };

    CKVX_HdwI2cPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwI2cPort() override;

    // Installs `params` (a CParameters of this class that passes Check; null
    // keeps the current ones, anything else answers 2) before opening; a
    // failed open keeps the old ones.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);

protected:
    // Changes only at Open.
    CParameters m_Parameters;
};
