#pragma once
// Generic SPI master port: one master of a unit with its chip selects. Keeps
// the settings Open takes and the clock the unit actually runs, and admits
// the SPI master service (14), one per port. A unit driver derives from it,
// checks the clock and chip select against what its unit can do and
// configures the master at Open.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwSpiPort : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // 0, or 2 for a mode above 3 or a word size outside 4..16 (the
        // clock and the chip select are the unit driver's to check).
        unsigned Check() const;

        uint8_t Mode = 0; // bit 1 CPOL, bit 0 CPHA
        uint32_t ClockHz = 1000000;
        bool LsbFirst = false;
        uint8_t WordBits = 8; // 4..16; above 8, two bytes per word, low byte first
        uint8_t ChipSelect = 0; // default chip select of the master
        bool CsActiveHigh = false;
    };

    CKVX_HdwSpiPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwSpiPort() override;

    // As CKVX_HdwI2cPort::Open, with this class's CParameters.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);

    // The clock the unit runs: 19 while the port is closed.
    unsigned GetActualClockHz(uint32_t& hz);

protected:
    // m_Parameters changes only at Open; m_ActualClockHz is set at Open (to
    // ClockHz here; a driver stores what its unit makes of it).
    CParameters m_Parameters;
    uint32_t m_ActualClockHz = 0;
};
