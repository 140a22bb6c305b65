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
//     CKVX_HdwKvxHaldenSmallDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(8, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxHaldenSmallDevice : public CKVX_HdwKvxUsbCommandDevice {
public:
    CKVX_HdwKvxHaldenSmallDevice();
    ~CKVX_HdwKvxHaldenSmallDevice() override;
};
