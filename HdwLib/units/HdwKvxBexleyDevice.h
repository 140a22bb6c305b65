#pragma once
// Driver of the Bexley unit: 4 CAN channels, reached through its USB-UART
// bridge only.
//
// Command codes. Four channels do not fit 48 + channel and 50 + channel
// together (48..51 and 50..53 overlap), so the push takes its own block:
//   CAN configuration  48 + channel (48..51)
//   CAN push           56 + channel (56..59)
// Status requests address CAN channel n by bit n of byte 6; the transmit
// state (kind 3) is part of that kind-2 answer.
//
// Channel map (port kind: class, channels): 3 CCanPort 4; channels 0 and 1
// share a bus, as do 2 and 3.
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwKvxBexleyDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(4, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxBexleyDevice : public CKVX_HdwKvxUsbCommandDevice {
public:
    CKVX_HdwKvxBexleyDevice();
    ~CKVX_HdwKvxBexleyDevice() override;
};
