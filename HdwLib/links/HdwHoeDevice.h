#pragma once
// Base of the drivers whose units are reached over Ethernet only, with the
// HOE protocol. One instance per unit found; the unit link of an instance is
// its HOE session (CKVX_HdwHoeLink), opened by Open(instance) and closed by
// Close(instance) when no port of the unit remains open.
//
// A unit driver, in its constructor, sets its device code, identity and the
// UDP port its units listen on (m_HoeUdpPort, used by the broadcast scan),
// and overrides CreateDeviceInstance (its own instance class) and
// CreateInstancePorts (the ports of one unit, via AddPortDescriptor).
//
// Enumeration (Init, called by the manager's Enumerate): every explicit
// "udp:HOST:PORT" link is probed with a Detect sent to that address (other
// link texts get Result 2); on a scan with Ethernet mode on, a broadcast
// Detect on m_HoeUdpPort finds further units. A unit is taken when
// AcceptHoeUnit agrees (base: its device kind equals the device code).
// Serial number and revision come from the Detect reply.
//
// The Link operations are those the unit protocol uses; LinkClose ends the
// session and answers 8.

#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwHoeLink.h>

class HDWLIB_EXPORT CKVX_HdwHoeDevice : public CKVX_HdwDevice, public CKVX_HdwHoe {
public:
    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwDevice::CDeviceInstance, public CKVX_HdwHoeLink {
    public:
        CDeviceInstance();
        // Ends the session while the instance is still whole.
        ~CDeviceInstance() override;
    };

    // Gives the device a fresh client identifier.
    CKVX_HdwHoeDevice();
    ~CKVX_HdwHoeDevice() override;

    // Overrides of CKVX_HdwDevice. The argument of Init is ignored: the
    // instances are the units found. Open connects (0 when already open;
    // 14 when the unit does not answer, 21 without a local port); Close
    // disconnects when no port of the unit is open.
    unsigned Init(unsigned instanceCount) override;
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;

    // Virtual operations added by this class, in interface order.
    // Chooses Ethernet for the scan; ignored while the manager runs.
    virtual unsigned EnableEthernetMode(bool on);
    virtual CDeviceInstance* CreateDeviceInstance();
    // 0 when the unit that sent this Detect reply is of this driver's kind.
    virtual unsigned AcceptHoeUnit(const CKVX_HdwHoeLink::CDetectInfo& info);
    virtual unsigned CreateInstancePorts(unsigned instance);

    // The unit's byte link, by instance object and by number (2 when there is no such instance).
    unsigned LinkWrite(CDeviceInstance* instance, unsigned char* data, unsigned count);
    unsigned LinkRead(CDeviceInstance* instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned LinkGetReadBufferBytes(CDeviceInstance* instance, unsigned& count);
    unsigned LinkClose(CDeviceInstance* instance);
    unsigned LinkWrite(unsigned instance, unsigned char* data, unsigned count);
    unsigned LinkRead(unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned LinkGetReadBufferBytes(unsigned instance, unsigned& count);
    unsigned LinkClose(unsigned instance);

    bool IsEthernetModeEnabled() const { return m_EthernetMode; }
    unsigned short GetHoeUdpPort() const { return m_HoeUdpPort; }
    CDeviceInstance* GetHoeInstance(unsigned instance);

protected:
    bool m_EthernetMode = false;
    // UDP port the units listen on (the broadcast scan's destination).
    unsigned short m_HoeUdpPort = 0;
};
