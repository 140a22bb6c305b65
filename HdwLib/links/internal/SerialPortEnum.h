#pragma once
// Platform half of the serial-port enumeration (posix/SerialPortEnum.cpp,
// win32/SerialPortEnum.cpp): the serial ports of the machine with the USB
// identity of their bridge where they have one.
//
// Linux: every /sys/class/tty entry with a `device` link that is a USB serial
// port (its device has a USB ancestor with idVendor) or a real on-board port
// (ttyS* with a driver and a non-zero `type`), whose node exists under /dev.
// Windows: the serial-port device interfaces of SetupAPI; failures of its
// calls are reported through the debug output.
//
// Exported for the tests only; not part of the installed interface.

#include <HdwLib/HdwLibExport.h>

#include <string>
#include <vector>

namespace hdw::platform {

struct SerialPortInfo {
    // Name to open: "/dev/ttyUSB0", "COM5".
    std::string Name;
    // USB identity of the bridge, lowercase hexadecimal ("0403", "6001"), or
    // empty for a port that is not behind USB.
    std::string VendorId;
    std::string ProductId;
    // USB product text (Linux) or device description (Windows).
    std::string Description;
    std::string SerialNumber;
    // Device release number in hexadecimal ("0600"); empty when unknown.
    std::string Revision;
    // The USB device the port belongs to, the same for every UART of one
    // bridge (Linux: its sysfs path); empty where the system does not tell.
    std::string UsbDevice;
    bool IsUsb = false;
};

// True when `a` and `b` are UARTs of one USB bridge: the same USB device
// where both name theirs, otherwise the same vendor, product and (non-empty)
// serial number.
inline bool SameUsbBridge(const SerialPortInfo& a, const SerialPortInfo& b)
{
    if (!a.IsUsb || !b.IsUsb)
        return false;
    if (!a.UsbDevice.empty() && !b.UsbDevice.empty())
        return a.UsbDevice == b.UsbDevice;
    return !a.SerialNumber.empty() && a.SerialNumber == b.SerialNumber && a.VendorId == b.VendorId &&
        a.ProductId == b.ProductId;
}

// The ports in name order. `sysRoot` and `devRoot` replace "/sys" and "/dev"
// (empty: the system's own); Windows ignores both.
std::vector<SerialPortInfo> EnumerateSerialPorts(
    const std::string& sysRoot = std::string(), const std::string& devRoot = std::string());

} // namespace hdw::platform
