#pragma once
// Driver of the Mirrow unit: 2 ARINC 429 transmit and 2 receive channels,
// reached through its USB-UART bridge only.
//
// Command codes as on the Halden: transmit configuration 20 + channel,
// receive configuration 24 + channel.
//
// The Quillan unit has the same USB identity; the probe tells them apart by
// the shape of the answer to a status request (see ProbeByStatusShape): a
// Mirrow answers for its ARINC 429 transmitter and has no CAN channel.
//
// Channel map (port kind: class, channels): 1 CArinc429TxPort 2,
// 2 CArinc429RxPort 2; no other kinds.
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwKvxMirrowDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(12, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxMirrowDevice : public CKVX_HdwKvxUsbCommandDevice {
public:
    CKVX_HdwKvxMirrowDevice();
    ~CKVX_HdwKvxMirrowDevice() override;
};
