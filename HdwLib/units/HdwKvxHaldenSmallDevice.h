#pragma once
// Driver of the Halden Small unit: 2 ARINC 429 transmit, 2 receive and 1 CAN
// channel, reached through its USB-UART bridge only.
//
// Command codes as on the Halden: transmit configuration 20 + channel,
// receive configuration 24 + channel, CAN configuration 48, CAN push 50.
//
// Channel map (port kind: class, channels): 1 CArinc429TxPort 2,
// 2 CArinc429RxPort 2, 3 CCanPort 1. The single CAN channel has no partner
// on the unit: its frames go to the bus, and what it receives comes from it.
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwManager manager;
//     manager.AttachDevice(new CKVX_HdwKvxHaldenSmallDevice);
//     CKVX_HdwManager::CInitPortDesc link(8, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/units/KvxCommandDevice.h>

class HDWLIB_EXPORT CKVX_HdwKvxHaldenSmallDevice : public CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice> {
public:
    using CUnitBase = CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>;

    CKVX_HdwKvxHaldenSmallDevice();
    ~CKVX_HdwKvxHaldenSmallDevice() override;

    // One port per channel, in channel-map order.
    unsigned CreateInstancePorts(unsigned instance) override;

    // Virtual operations added by this class, in interface order.
    // The port class of `kind` for channel id `name` of instance `index`;
    // null for the kinds this unit lacks.
    virtual CKVX_HdwPort* CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name);
    // The unit's number on its bus from the hardware identifier strings (as
    // for every command-protocol unit).
    virtual unsigned ProcessHardwareID(const CKVX_List<CKVX_String>& ids);

    // Channels of port kind `kind` on this unit.
    unsigned GetChannelCount(unsigned kind) const;
};
