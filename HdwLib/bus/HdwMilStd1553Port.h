#pragma once
// Generic MIL-STD-1553 channel (port type 5): keeps the channel's parameters
// and admits the services that may run on it. Today that is the signal
// service (1), which reports every message the unit sees on the bus
// (HDW_SIGNAL_MIL1553_MESSAGE), beside one bus controller (10) or one single
// remote terminal (11): a second of the same type answers 26, the other of
// the two 10, as does every other type. A unit driver derives from it, makes
// the services and forwards the unit's MIL-STD-1553 events to them.
//
// The parameters describe the channel's electrical and timing side; the
// bus-controller and remote-terminal services write them into the unit's
// channel configuration when they set the channel up.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwMilStd1553Port : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        // Bus coupling of the channel's stubs.
        enum t_Coupling : uint8_t { CouplingDirect = 0, CouplingTransformer = 1 };

        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // True when Coupling is known and ResponseTimeoutUs lies in 4..255.
        bool IsValid() const;

        uint8_t Coupling = CouplingTransformer;
        // Time a terminal is given to answer before the message counts as
        // without response, in microseconds.
        uint32_t ResponseTimeoutUs = 14;
    };

    CKVX_HdwMilStd1553Port(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwMilStd1553Port() override;

    // Installs `params` (a CParameters of this class; null keeps the current
    // ones; another class or invalid values answer 2 and change nothing)
    // before opening.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);

    // The installed parameters (they change only at Open, so no lock).
    const CParameters& GetMilStd1553Parameters() const { return m_Parameters; }

protected:
    // Lock rule: m_Parameters changes only at Open.
    CParameters m_Parameters;
};
