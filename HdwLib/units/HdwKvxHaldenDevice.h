#pragma once
// Driver of the Halden multi-protocol unit: 2 UART, 4 ARINC 429 transmit, 4
// ARINC 429 receive, 2 CAN and 2 MIL-STD-1553 channels, reached through its
// USB-UART bridge or over Ethernet (HOE, UDP port 55003).
//
//     CKVX_HdwManager manager;
//     manager.AttachDevice(new CKVX_HdwKvxHaldenDevice);
//     CKVX_HdwManager::CInitPortDesc link{3, "/dev/ttyUSB0"};
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);
//
// Channel map (port kind: class, channels): 0 CUartPort 2, 1 CArinc429TxPort
// 4, 2 CArinc429RxPort 4, 3 CCanPort 2, 4 none, 5 CMilStd1553Port 2. Each
// channel's id is its number within its kind, in decimal.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/links/HdwHoeFtdiUartBridgedDevice.h>
#include <HdwLib/units/KvxCommandDevice.h>

class HDWLIB_EXPORT CKVX_HdwKvxHaldenDevice : public CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice> {
public:
    using CUnitBase = CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>;

    // Port kinds of the channel map.
    enum t_PortKind : unsigned {
        PortKindUart = 0,
        PortKindArinc429Tx = 1,
        PortKindArinc429Rx = 2,
        PortKindCan = 3,
        PortKindNone = 4,
        PortKindMilStd1553 = 5,
    };

    class HDWLIB_EXPORT CDeviceInstance : public CUnitBase::CDeviceInstance {
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
    // One port per channel, in channel-map order.
    unsigned CreateInstancePorts(unsigned instance) override;

    // Virtual operations added by this class, in interface order.
    // The port class of `kind` for channel id `name` of instance `index`;
    // null for kind 4 and kinds above 5.
    virtual CKVX_HdwPort* CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name);
    // The unit's number on its bus from the hardware identifier strings: with
    // exactly two strings, the last two characters of the second (upper-cased,
    // blanks trimmed) as a decimal number; 0 otherwise.
    virtual unsigned ProcessHardwareID(const CKVX_List<CKVX_String>& ids);

    // Channels of `kind` on this unit.
    unsigned GetChannelCount(unsigned kind) const;
};
