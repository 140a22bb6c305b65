#pragma once
// Base of the drivers whose units sit behind a USB-UART bridge that the
// system presents as a serial port. It finds the units, one device instance
// per unit that answers the driver's probe, and gives the drivers their byte
// link by instance (Com_Open, Com_Close, Com_Read, Com_Write,
// Com_GetReadBufferBytes), each forwarding to the instance's CUart.
//
// A unit driver, in its constructor, sets its device code and identity:
//     m_DeviceCode = 3;
//     m_Manufacturer = "...";  m_ModelName = "...";
//     m_UsbVendorId = "0403";  m_UsbProductId = "6001";
//     m_UsbDescription = "...";
//     m_LinkParameters.BaudRate = 6000000;  m_LinkParameters.DataBits = 8;
// and overrides CreateDeviceInstance (its own instance class),
// ProbeUartLink (does a unit of its kind answer on this port?) and
// CreateInstancePorts (the port objects of one unit, via AddPortDescriptor).
//
// Enumeration (Init, called by the manager's Enumerate):
// - candidates are the explicit links handed over by the manager that name a
//   serial device (not "udp:..."), then, when the manager asks for a scan,
//   the bridges whose USB vendor and product identifiers match (hexadecimal,
//   case ignored) and whose USB product text equals m_UsbDescription (any
//   text when m_UsbDescription is empty); a port already listed explicitly
//   is probed once;
// - each candidate is probed on a temporary instance; its link is closed
//   afterwards whatever the outcome; a unit that answered (0) becomes an
//   instance, in candidate order;
// - each explicit link's Result is 0 when a unit answered, 14 when none did
//   or the port could not be opened; "udp:..." links are left untouched for
//   the subclasses that reach units over Ethernet;
// - the base ProbeUartLink answers 14: the base cannot know what a unit says,
//   so it accepts nothing;
// - identity: serial number and revision from the USB descriptors of the
//   bridge; for an explicit link with none, the serial number is the link
//   text and the revision is "".
//
// Open(instance) opens the link (a second Open of an open instance succeeds)
// and sets the open flag; Close(instance) closes it when no port of the unit
// remains open. Com_Write waits up to the device's link time-out
// (SetLinkTimeout; DefaultWriteTimeoutMs when 0).

#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/links/Uart.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwFtdiUartBridgedDevice : public CKVX_HdwDevice {
public:
    static constexpr unsigned DefaultWriteTimeoutMs = 1000;

    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwDevice::CDeviceInstance {
    public:
        CDeviceInstance();
        // Closes the serial port if it is still open.
        ~CDeviceInstance() override;

        // The serial link to the unit.
        CUart Uart;
        // Serial device name ("/dev/ttyUSB0", "COM5"); also the inherited Link.
        CKVX_String PortName;
        // USB product text of the bridge ("" for a plain serial device).
        CKVX_String UsbDescription;
        // The inherited SerialNumber and Revision hold the unit's identity.
    };

    // One serial port that a scan or an explicit link offers for probing.
    class HDWLIB_EXPORT CUartCandidate : public CKVX_Object {
    public:
        CUartCandidate() = default;
        CUartCandidate(const CUartCandidate&) = default;
        CUartCandidate(CUartCandidate&&) = default;
        CUartCandidate& operator=(const CUartCandidate&) = default;
        CUartCandidate& operator=(CUartCandidate&&) = default;
        ~CUartCandidate() override;

        CKVX_String PortName;
        CKVX_String SerialNumber;
        CKVX_String Revision;
        CKVX_String UsbDescription;
        // The manager's explicit link, or null for a scanned bridge.
        CKVX_HdwInitPortDesc* InitLink = nullptr;
    };

    CKVX_HdwFtdiUartBridgedDevice();
    ~CKVX_HdwFtdiUartBridgedDevice() override;

    // Overrides of CKVX_HdwDevice. The argument of Init is ignored: the
    // instances are the units found (see above). Init answers 0, also when
    // no unit answered (the device then has no instances).
    unsigned Init(unsigned instanceCount) override;
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;

    // Virtual operations added by this class, in interface order.
    // A new, empty instance of the driver's own instance class.
    virtual CDeviceInstance* CreateDeviceInstance();
    // Probes `portName` on the temporary instance `tmp` (whose PortName is
    // set): opens it with Com_Open(tmp), asks the unit, and returns 0 when a
    // unit of this driver's kind answered. The caller closes the link
    // afterwards. Base: 14.
    virtual unsigned ProbeUartLink(CDeviceInstance* tmp, const CKVX_String& portName);
    // Creates the port objects of a new instance (AddPortDescriptor). Base: 0.
    virtual unsigned CreateInstancePorts(unsigned instance);

    // The byte link by instance number (2 when there is no such instance) and
    // by instance object (used on the probe's temporary instance).
    // Com_Open opens the instance's CUart on its PortName with
    // m_LinkParameters (0 when it is already open, 14 when it cannot be
    // opened or configured); Com_Close closes it (0).
    unsigned Com_Open(unsigned instance);
    unsigned Com_Close(unsigned instance);
    unsigned Com_Read(unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned Com_Write(unsigned instance, unsigned char* data, unsigned count);
    unsigned Com_GetReadBufferBytes(unsigned instance, unsigned& count);
    unsigned Com_Open(CDeviceInstance* instance);
    unsigned Com_Close(CDeviceInstance* instance);
    unsigned Com_Read(CDeviceInstance* instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned Com_Write(CDeviceInstance* instance, unsigned char* data, unsigned count);
    unsigned Com_GetReadBufferBytes(CDeviceInstance* instance, unsigned& count);

    // The instance as this class's type, or null.
    CDeviceInstance* GetUartInstance(unsigned instance);

    // Instance number that stands for none (IdentifyAddictionalUart).
    static constexpr unsigned NoInstance = 0xFFFFFFFFu;

    // The path identifier of a unit's link: the device path by which the
    // instance was found ("/dev/ttyUSB0", "COM5"; "udp:HOST:PORT" for a unit
    // found over Ethernet). 0, or 2 when there is no such instance (`path`
    // is then emptied).
    unsigned GetDevPathIndentifier(unsigned instance, CKVX_String& path);

    // Additional-UART identification. A bridge with several UARTs (dual or
    // quad port) shows each as a serial port of its own; a unit talks on one
    // of them, its link, and the others are its additional UARTs. Tells
    // whether the serial port `portName` belongs to the bridge of one of
    // this device's units: `instance` is that unit's instance number
    // (NoInstance for a plain serial port or one of no unit's bridge), and
    // `additional` is true when the port is not the unit's link itself.
    // Two ports are of one bridge when the system shows them under the same
    // USB device, or, where it does not tell, when their USB vendor, product
    // and non-empty serial number are equal. 0, or 2 when `portName` does
    // not name a serial device ("", "udp:...").
    unsigned IdentifyAddictionalUart(const CKVX_String& portName, unsigned& instance, bool& additional);

    const CKVX_String& GetUsbVendorId() const { return m_UsbVendorId; }
    const CKVX_String& GetUsbProductId() const { return m_UsbProductId; }
    const CKVX_String& GetUsbDescription() const { return m_UsbDescription; }
    const CKVX_HdwUartPort::CParameters& GetLinkParameters() const { return m_LinkParameters; }
    // Time allowed for one Com_Write, milliseconds.
    unsigned GetWriteTimeoutMs() const;

    // True for a link text that names a serial device (not "udp:...", not empty).
    static bool IsSerialLinkName(const CKVX_String& link);

protected:
    // The steps of Init, for subclasses that add units reached otherwise:
    // the serial candidates (explicit links, then the scan) ...
    void CollectUartCandidates(std::vector<CUartCandidate>& candidates);
    // ... probing each and appending the instances of the units that answered
    // (setting the explicit links' Result) ...
    void ProbeUartCandidates(const std::vector<CUartCandidate>& candidates, std::vector<CDeviceInstance*>& found);
    // ... and installing them: the base Init(count), the instances in order,
    // CreateInstancePorts for each. With none found the device is emptied.
    // Takes ownership of the instances. Returns 0.
    unsigned InstallInstances(std::vector<CDeviceInstance*>& found);

    // A unit driver's identity and link settings in one call: device code,
    // manufacturer, model word, USB product text (also the description), USB
    // vendor and product identifiers, bridge speed (8 data bits), link time-out.
    void SetUnitIdentity(uint64_t deviceCode, const char* manufacturer, const char* model, const char* usbDescription,
        const char* vendorId, const char* productId, unsigned baudRate, unsigned linkTimeoutMs);

    // USB identity of the bridge the driver looks for (hexadecimal texts).
    CKVX_String m_UsbVendorId;
    CKVX_String m_UsbProductId;
    CKVX_String m_UsbDescription;
    // Line settings of the link to a unit (speed in bit/s, data bits ...).
    CKVX_HdwUartPort::CParameters m_LinkParameters;
};
