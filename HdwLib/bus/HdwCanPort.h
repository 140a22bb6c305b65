#pragma once
// Generic CAN channel: keeps the channel's parameters and its fault status
// and admits the services that may run on it (signal 1, byte input 2, byte
// output 3, CAN output 8, CAN input 9, one of each, all together). A unit
// driver derives from it, turns BitRate and SamplePoint into the
// controller's bit timing at Open and feeds the fault status from the
// unit's status events through UpdateFaultStatus.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwCanPort : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t Reserved = 0; // copied along, used by no generic operation
        uint32_t BitRate = 1000000; // bit/s
        double SamplePoint = 0.5; // fraction of the bit time
        uint8_t ModeFlagA = 1; // channel switches for the unit driver
        uint8_t ModeFlagB = 1;
    };

    // The controller's state as the unit reports it.
    class HDWLIB_EXPORT CFaultStatus : public CKVX_Object {
    public:
        CFaultStatus() = default;
        CFaultStatus(const CFaultStatus&) = default;
        CFaultStatus& operator=(const CFaultStatus&) = default;
        ~CFaultStatus() override;

        bool operator==(const CFaultStatus& other) const
        {
            return Status == other.Status && ErrReg0 == other.ErrReg0 && ErrReg1 == other.ErrReg1;
        }
        bool operator!=(const CFaultStatus& other) const { return !(*this == other); }

        uint32_t Status = 3; // fault state code of the unit
        uint8_t ErrReg0 = 0; // error register, bits 16-23 of the unit's status word
        uint8_t ErrReg1 = 0; // bits 24-31
    };

    CKVX_HdwCanPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwCanPort() override;

    // Installs `params` (a CParameters of this class; null keeps the current
    // ones, another class answers 2) before opening; a failed open keeps them.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    using CKVX_HdwPort::GetParameters;
    virtual unsigned GetParameters(CParameters* params);
    // Copies the fault status out under the device lock.
    virtual unsigned GetFaultStatus(CFaultStatus* status);

protected:
    // Driver's status path, caller holds the device lock: stores the new
    // status and, when the port has a signal service, posts a status-change
    // signal if Status changed and an error-register signal if either
    // register byte changed. True when anything changed.
    bool UpdateFaultStatus(const CFaultStatus& status, uint64_t eventTime);

    // Lock rule: m_FaultStatus under the device lock; m_Parameters changes
    // only at Open.
    CFaultStatus m_FaultStatus;
    CParameters m_Parameters;
};
