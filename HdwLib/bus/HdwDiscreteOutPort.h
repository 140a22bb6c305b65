#pragma once
// Generic bank of discrete outputs: keeps the bank's parameters and width
// and admits the services that may run on it (signal 1, discrete output 18,
// one of each). A unit driver derives from it: Open switches the bank on
// driving InitialState, Close switches it off (every output not driven).

#include <HdwLib/bus/HdwDiscretePort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwDiscreteOutPort : public CKVX_HdwDiscretePort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t InitialState = 0; // logical state driven when the port opens
        uint32_t InvertMask = 0; // a set bit drives that output low for logical 1
    };

    // `lineCount`: the bank's width, 1..32 (the driver's, from its unit).
    CKVX_HdwDiscreteOutPort(
        CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId, unsigned lineCount = MaxLines);
    ~CKVX_HdwDiscreteOutPort() override;

    // Installs `params` (null keeps the current ones; another class or a
    // mask beyond the bank answers 2) before opening; a failed open keeps them.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);

    // 0 when `params` fit this bank, else 2.
    unsigned CheckParameters(const CParameters& params) const;

protected:
    // Lock rule: m_Parameters changes only at Open.
    CParameters m_Parameters;
};
