#pragma once
// Generic bank of discrete inputs: keeps the bank's parameters and width and
// admits the services that may run on it (signal 1, discrete input 17, one
// of each). A unit driver derives from it and sends the parameters to the
// unit at Open; the unit applies debounce and polarity, so every state the
// library sees is the logical one.

#include <HdwLib/bus/HdwDiscretePort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwDiscreteInPort : public CKVX_HdwDiscretePort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // A line must hold a new level this long before the change counts
        // (0: no debounce); 0..100,000, a multiple of 10.
        uint32_t DebounceUs = 1000;
        // A set bit makes that line read 1 when its input is low; lines of the bank only.
        uint32_t InvertMask = 0;
        // Lines whose changes are reported (the others are still read); bits
        // beyond the bank are ignored.
        uint32_t ChangeMask = 0xFFFFFFFFu;
    };

    static constexpr uint32_t MaxDebounceUs = 100000;
    // `lineCount`: the bank's width, 1..32 (the driver's, from its unit).
    CKVX_HdwDiscreteInPort(
        CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId, unsigned lineCount = MaxLines);
    ~CKVX_HdwDiscreteInPort() override;

    // Installs `params` (null keeps the current ones; another class or a
    // value outside the table answers 2) before opening; a failed open keeps them.
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
