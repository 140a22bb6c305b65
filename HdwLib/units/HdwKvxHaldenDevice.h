#pragma once
// Driver of the Halden multi-protocol unit: 2 UART, 4 ARINC 429 transmit, 4
// ARINC 429 receive, 2 CAN and 2 MIL-STD-1553 channels, reached through its
// USB-UART bridge or over Ethernet (HOE, UDP port 55003).
//
//     CKVX_HdwKvxHaldenDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link{3, "/dev/ttyUSB0"};
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);
//
// Channel map (port kind: class, channels): 0 CUartPort 2, 1 CArinc429TxPort
// 4, 2 CArinc429RxPort 4, 3 CCanPort 2, 4 none, 5 CMilStd1553Port 2. Each
// channel's id is its number within its kind, in decimal.

#include <HdwLib/units/KvxCommandDevices.h>
#include <HdwLib/units/KvxUnitPorts.h>

class HDWLIB_EXPORT CKVX_HdwKvxHaldenDevice : public CKVX_HdwKvxDualCommandDevice {
public:
    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwKvxDualCommandDevice::CDeviceInstance {
    public:
        CDeviceInstance();
        ~CDeviceInstance() override;
        // A fresh session: besides the protocol state, every channel of the
        // unit is off again.
        void Reset() override;
        void ResetRxState() override;
    };

    CKVX_HdwKvxHaldenDevice();
    ~CKVX_HdwKvxHaldenDevice() override;

    CDeviceInstance* CreateDeviceInstance() override;
};
