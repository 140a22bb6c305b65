#pragma once
// Driver of the Travin unit: 32 discrete inputs and 32 discrete outputs in
// banks of 8, reached through its USB-UART bridge only.
//
// Command codes: input bank configuration 36 + bank, output bank
// configuration 40 + bank, output write 44, output pulse 45, read 46. Events:
// 11 input bank, 12 output bank (the sub-field is the bank).
//
// Channel map (port kind: class, channels): 6 CDiscreteInPort 4, 7
// CDiscreteOutPort 4; each port is one bank, its channel id the bank number
// in decimal. An input port takes CDiscreteInService (17) and CSignalService
// (1), an output port CDiscreteOutService (18) and CSignalService.
//
//     CKVX_HdwKvxTravinDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(5, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxTravinDevice : public CKVX_HdwKvxUsbCommandDevice {
public:
    CKVX_HdwKvxTravinDevice();
    ~CKVX_HdwKvxTravinDevice() override;
};
