#pragma once
// UART channel of a command-protocol unit: configured on the unit when it
// opens (confirmed before Open returns), switched off when it closes. Its
// services: signals, byte input and byte output (one of each).

#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxUartPort : public CKVX_HdwUartPort {
public:
    CKVX_HdwKvxUartPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxUartPort() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    // The unit this port belongs to (null when its device is none).
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // Attaches the channel's configuration (caller holds the device lock).
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};
