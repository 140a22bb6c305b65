#pragma once
// ARINC 429 transmitter and receiver channels of a command-protocol unit:
// configured on the unit when they open (confirmed before Open returns),
// switched off when they close. The receiver's configuration carries the
// label table of its input service (every label when it has none).

#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxArinc429TxPort : public CKVX_HdwArinc429TxPort {
public:
    CKVX_HdwKvxArinc429TxPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxArinc429TxPort() override;

    // HDW_ERR_ARGUMENT for a rate the unit cannot run or a word gap of 0.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    // The unit this port belongs to (null when its device is none).
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};

class HDWLIB_EXPORT CKVX_HdwKvxArinc429RxPort : public CKVX_HdwArinc429RxPort {
public:
    CKVX_HdwKvxArinc429RxPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxArinc429RxPort() override;

    // HDW_ERR_ARGUMENT for a rate other than 12500 and 100000 bit/s.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // Receive configuration with the label table of the port's input
    // service (all labels when it has none). Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};
