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
//     CKVX_HdwManager manager;
//     manager.AttachDevice(new CKVX_HdwKvxBexleyDevice);
//     CKVX_HdwManager::CInitPortDesc link(4, "/dev/ttyUSB0");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/units/KvxCommandDevice.h>

class HDWLIB_EXPORT CKVX_HdwKvxBexleyDevice : public CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice> {
public:
    using CUnitBase = CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>;

    CKVX_HdwKvxBexleyDevice();
    ~CKVX_HdwKvxBexleyDevice() override;

    // One port per channel, in channel-map order.
    unsigned CreateInstancePorts(unsigned instance) override;

    // Virtual operations added by this class, in interface order.
    // The port class of `kind` for channel id `name` of instance `index`;
    // null for the kinds this unit lacks.
    virtual CKVX_HdwPort* CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name);
    // The unit's number on its bus from the hardware identifier strings (as
    // for every command-protocol unit).
    virtual unsigned ProcessHardwareID(const CKVX_List<CKVX_String>& ids);

    // Channels of port kind `kind` on this unit.
    unsigned GetChannelCount(unsigned kind) const;
};
