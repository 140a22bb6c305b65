#pragma once
// Driver of the Quillan unit: 2 CAN channels, reached through its USB-UART
// bridge only.
//
// Command codes as on the Halden: CAN configuration 48 + channel, CAN push
// 50 + channel.
//
// The Mirrow unit has the same USB identity; the probe tells them apart by
// the shape of the answer to a status request (see ProbeByStatusShape): a
// Quillan answers for its CAN channel and has no ARINC 429 transmitter.
//
// Channel map (port kind: class, channels): 3 CCanPort 2, sharing one bus.
// Besides the frame services, a CAN port takes the byte-stream services
// (CCanByteInBufferService, CCanByteOutBufferService; see
// KvxByteAndMilPorts.h for how a stream travels in frames).
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwKvxQuillanDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(11, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxQuillanDevice : public CKVX_HdwKvxUsbCommandDevice {
public:
    CKVX_HdwKvxQuillanDevice();
    ~CKVX_HdwKvxQuillanDevice() override;
};
