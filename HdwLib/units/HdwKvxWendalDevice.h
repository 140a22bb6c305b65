#pragma once
// Driver of the Wendal unit: two I2C masters and two SPI masters (four chip
// selects each), reached through its USB-UART bridge only. Transfers go out
// as commands (I2C 116, SPI 117); each result comes back as an event (types
// 13 and 14) after the transfer's echo, in the order the transfers were sent.
// Configuration codes: I2C 112 + channel, SPI 114 + channel.
//
// Channel map (port kind: class, channels): 8 CI2cPort 2, 9 CSpiPort 2.
// Each channel's id is its number within its kind, in decimal.
//
//     CKVX_HdwKvxWendalDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(7, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxWendalDevice : public CKVX_HdwKvxUsbCommandDevice {
public:
    CKVX_HdwKvxWendalDevice();
    ~CKVX_HdwKvxWendalDevice() override;
};
