#pragma once
// Base of the drivers whose units can be reached either through their
// USB-UART bridge or over Ethernet with HOE, chosen per unit. The unit
// protocol talks to a unit only through the Link operations, which take the
// instance's transport: its Ethernet session when the instance's
// EthernetMode is set, its serial port otherwise.
//
// Enumeration finds both kinds: the serial candidates of the USB-UART base
// (explicit serial links, then on a scan the matching bridges) and the
// Ethernet units (explicit "udp:HOST:PORT" links probed with a Detect to
// that address, then on a scan with Ethernet mode on a broadcast Detect on
// m_HoeUdpPort). An instance found over Ethernet has its EthernetMode set;
// its serial number and revision come from the Detect reply, and it is taken
// when AcceptHoeUnit agrees (base: the reply's device kind equals the
// device code). EnableEthernetMode is ignored while the manager runs.

#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>
#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwHoeLink.h>

class HDWLIB_EXPORT CKVX_HdwHoeFtdiUartBridgedDevice : public CKVX_HdwFtdiUartBridgedDevice, public CKVX_HdwHoe {
public:
    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance,
                                          public CKVX_HdwHoeLink {
    public:
        CDeviceInstance();
        // Ends the session while the instance is still whole.
        ~CDeviceInstance() override;
    };

    // Gives the device a fresh client identifier.
    CKVX_HdwHoeFtdiUartBridgedDevice();
    ~CKVX_HdwHoeFtdiUartBridgedDevice() override;

    // Overrides: the units of both transports are enumerated; Open and
    // Close of an Ethernet instance connect and disconnect its session (0
    // when already open; 14 when the unit does not answer, 21 without a
    // local port), of a serial instance open and close its port.
    unsigned Init(unsigned instanceCount) override;
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;
    CDeviceInstance* CreateDeviceInstance() override;

    // Virtual operations added by this class, in interface order.
    virtual unsigned EnableEthernetMode(bool on);
    // 0 when the unit that sent this Detect reply is of this driver's kind.
    virtual unsigned AcceptHoeUnit(const CKVX_HdwHoeLink::CDetectInfo& info);

    // The byte link of a unit, by instance object and by number (2 when
    // there is no such instance).
    unsigned LinkWrite(CDeviceInstance* instance, unsigned char* data, unsigned count);
    unsigned LinkRead(CDeviceInstance* instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned LinkGetReadBufferBytes(CDeviceInstance* instance, unsigned& count);
    // Over Ethernet: disconnects and answers 8, always.
    unsigned LinkClose(CDeviceInstance* instance);
    unsigned LinkWrite(unsigned instance, unsigned char* data, unsigned count);
    unsigned LinkRead(unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned LinkGetReadBufferBytes(unsigned instance, unsigned& count);
    unsigned LinkClose(unsigned instance);

    bool IsEthernetModeEnabled() const { return m_EthernetMode; }
    unsigned short GetHoeUdpPort() const { return m_HoeUdpPort; }
    CDeviceInstance* GetHoeInstance(unsigned instance);

protected:
    // Device-level Ethernet-mode flag: the scan looks for Ethernet units.
    bool m_EthernetMode = false;
    // UDP port the units listen on (the broadcast scan's destination).
    unsigned short m_HoeUdpPort = 0;
};
