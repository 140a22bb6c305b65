#pragma once
// I2C master of a command-protocol unit (Wendal): configured on the unit
// when it opens (confirmed before Open returns), switched off when it
// closes. Its one service: the I2C master (16).

#include <HdwLib/bus/HdwI2cPort.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxI2cPort : public CKVX_HdwI2cPort {
public:
    CKVX_HdwKvxI2cPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxI2cPort() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    const CParameters& GetI2cParameters() const { return m_Parameters; }
    // Attaches the master's configuration (caller holds the device lock).
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};
