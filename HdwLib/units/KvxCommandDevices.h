#pragma once
// The two link adapters of the command-protocol units: a link base plus the
// unit protocol (CKVX_HdwKvxCommandUnit), with the link base's overrides
// written once per base. USB-only units derive from
// CKVX_HdwKvxUsbCommandDevice, units also reached over Ethernet from
// CKVX_HdwKvxDualCommandDevice.

#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>
#include <HdwLib/links/HdwHoeFtdiUartBridgedDevice.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxUsbCommandDevice : public CKVX_HdwFtdiUartBridgedDevice, public CKVX_HdwKvxCommandUnit {
public:
    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance,
                                          public CKVX_HdwKvxUnitInstance {
    public:
        CDeviceInstance();
        ~CDeviceInstance() override;
    };

    // Sets the identity, link settings and echo time-out of `profile`.
    explicit CKVX_HdwKvxUsbCommandDevice(const CKVX_HdwKvxUnitProfile& profile);
    ~CKVX_HdwKvxUsbCommandDevice() override;

    // Overrides of the link base.
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;
    // Lost units' links first (reconnect), then the tick's passes.
    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    unsigned HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    CDeviceInstance* CreateDeviceInstance() override;
    unsigned ProbeUartLink(CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* tmp, const CKVX_String& portName) override;
    unsigned CreateInstancePorts(unsigned instance) override;

    // What the unit protocol needs of its device.
    CKVX_HdwDevice& GetUnitDevice() override { return *this; }
    unsigned UnitLinkOpen(unsigned instance) override;
    unsigned UnitLinkClose(unsigned instance) override;
    CKVX_HdwKvxUnitInstance* GetUnitInstance(unsigned instance) override;
    unsigned UnitLinkWrite(CKVX_HdwKvxUnitInstance* instance, uint8_t* data, unsigned count) override;
    unsigned UnitLinkRead(
        CKVX_HdwKvxUnitInstance* instance, uint8_t* buffer, unsigned maxBytes, unsigned& bytesRead) override;
    bool IsEthernetInstance(CKVX_HdwKvxUnitInstance* instance) override;
    void UnitLinkAbandon(CKVX_HdwKvxUnitInstance* instance) override;
    void UnitAddPort(unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description) override;

    // The instance as this class's type, or null.
    CDeviceInstance* GetProtocolInstance(unsigned instance);
    unsigned CheckUartLink(const CKVX_String& portName) override;
};

class HDWLIB_EXPORT CKVX_HdwKvxDualCommandDevice : public CKVX_HdwHoeFtdiUartBridgedDevice,
                                                   public CKVX_HdwKvxCommandUnit {
public:
    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwHoeFtdiUartBridgedDevice::CDeviceInstance,
                                          public CKVX_HdwKvxUnitInstance {
    public:
        CDeviceInstance();
        ~CDeviceInstance() override;
    };

    explicit CKVX_HdwKvxDualCommandDevice(const CKVX_HdwKvxUnitProfile& profile);
    ~CKVX_HdwKvxDualCommandDevice() override;

    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;
    // Lost units' links first (reconnect), then the tick's passes.
    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    unsigned HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    CDeviceInstance* CreateDeviceInstance() override;
    unsigned ProbeUartLink(CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* tmp, const CKVX_String& portName) override;
    unsigned CreateInstancePorts(unsigned instance) override;

    CKVX_HdwDevice& GetUnitDevice() override { return *this; }
    unsigned UnitLinkOpen(unsigned instance) override;
    unsigned UnitLinkClose(unsigned instance) override;
    CKVX_HdwKvxUnitInstance* GetUnitInstance(unsigned instance) override;
    unsigned UnitLinkWrite(CKVX_HdwKvxUnitInstance* instance, uint8_t* data, unsigned count) override;
    unsigned UnitLinkRead(
        CKVX_HdwKvxUnitInstance* instance, uint8_t* buffer, unsigned maxBytes, unsigned& bytesRead) override;
    bool IsEthernetInstance(CKVX_HdwKvxUnitInstance* instance) override;
    void UnitLinkAbandon(CKVX_HdwKvxUnitInstance* instance) override;
    void UnitAddPort(unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description) override;

    unsigned CheckUartLink(const CKVX_String& portName) override;
    // Over Ethernet: the unit's Detect reply names the serial number it was
    // found with (when it reports one).
    unsigned UnitLinkVerify(unsigned instance) override;

    CDeviceInstance* GetProtocolInstance(unsigned instance);
};
