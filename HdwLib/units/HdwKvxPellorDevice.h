#pragma once
// Driver of the Pellor unit: 16 ARINC 429 transmit and 16 receive channels,
// reached through its USB-UART bridge or over Ethernet (HOE, UDP port 55010;
// 1345-byte command frames there, 4000 over the bridge).
//
// Per-channel command codes, a block of its own clear of every fixed code
// (1, 2, 4, 16, 17, 18, 33, 34+, 48+, 50+, 52+) and of the 8-channel Arvane
// block (64..79):
//   ARINC 429 transmit configuration  80 + channel (80..95)
//   ARINC 429 receive configuration   96 + channel (96..111)
// The label commands (16, 17, 18) carry the channel in their record.
//
// Sixteen channels do not fit the 3-bit sub-field of an event record: the
// unit appends one byte to its ARINC 429 receive and transmit records, the
// channel's upper bits (channel >> 3), the sub-field holding channel & 7.
// The FIFO status request has a bit for transmitters 0..7 only; the output
// services of channels 8..15 count their FIFO from transmit events alone.
//
// Keep-alive (code 4, 5 bytes): the unit watches its host. The driver sends
// one whenever a tick finds nothing to send, nothing in flight and no frame
// sent for 250 ms, so an idle unit hears from its host four times a second;
// traffic of any kind counts as well. A unit that hears nothing for longer
// than the session's watchdog time (the session command's watchdog field,
// set with SetSessionWatchdog) stops its transmitters; without a watchdog
// time the keep-alive is echoed and changes nothing.
//
// The unit reports critical failures (event type 1); every service of the
// unit then fails. Its receivers also offer label-oriented ARINC 429 input
// (CArinc429InLbloService, service type 6), the other units' do not (10).
//
// Channel map (port kind: class, channels): 1 CArinc429TxPort 16,
// 2 CArinc429RxPort 16; no other kinds.
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwKvxPellorDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(10, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxPellorDevice : public CKVX_HdwKvxDualCommandDevice {
public:
    // Idle time (ms) after which the keep-alive command goes out.
    static constexpr unsigned KeepAliveIdleMs = 250;

    CKVX_HdwKvxPellorDevice();
    ~CKVX_HdwKvxPellorDevice() override;
};
