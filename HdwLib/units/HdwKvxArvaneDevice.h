#pragma once
// Driver of the Arvane unit: 8 ARINC 429 transmit and 8 receive channels,
// reached through its USB-UART bridge or over Ethernet (HOE, UDP port 55006).
// It takes full 4000-byte command frames over Ethernet too.
//
// Per-channel command codes. The eight channels of each direction do not
// fit the 20 + channel / 24 + channel pattern of the four-channel units
// (20..27 would run into 24..31), so this unit takes its own block, clear of
// every fixed code (1, 2, 4, 16, 17, 18, 33, 34+, 48+, 50+, 52+) and of the
// 16-channel Pellor block (80..111):
//   ARINC 429 transmit configuration  64 + channel (64..71)
//   ARINC 429 receive configuration   72 + channel (72..79)
// Session 1, status request 2, label control 16, label data and push 17 and
// label reset 18 are as on every unit.
//
// Channel map (port kind: class, channels): 1 CArinc429TxPort 8,
// 2 CArinc429RxPort 8; no other kinds.
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwKvxArvaneDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(6, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxArvaneDevice : public CKVX_HdwKvxDualCommandDevice {
public:
    CKVX_HdwKvxArvaneDevice();
    ~CKVX_HdwKvxArvaneDevice() override;
};
