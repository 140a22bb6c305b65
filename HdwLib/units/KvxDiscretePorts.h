#pragma once
// Discrete banks of a command-protocol unit, one port per bank. Open sends
// the bank's configuration (inputs: reporting on with the port's debounce,
// polarity and change mask; outputs: the bank driven with InitialState) and
// waits for it to be confirmed; Close sends it again with reporting off or
// the bank off. The bank's width is the unit's (LinesPerBank).

#include <HdwLib/bus/HdwDiscreteInPort.h>
#include <HdwLib/bus/HdwDiscreteOutPort.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxDiscreteInPort : public CKVX_HdwDiscreteInPort {
public:
    CKVX_HdwKvxDiscreteInPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxDiscreteInPort() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};

class HDWLIB_EXPORT CKVX_HdwKvxDiscreteOutPort : public CKVX_HdwDiscreteOutPort {
public:
    CKVX_HdwKvxDiscreteOutPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxDiscreteOutPort() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);
    // The configuration again after the unit came back, driving the state
    // the output service last commanded. Caller holds the device lock.
    unsigned AttachRestoredConfiguration();

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};
