// Serial ports on Windows, from SetupAPI: every present device interface of
// the COM-port class. The port name comes from the friendly name
// ("USB Serial Port (COM5)"), the USB identity from the hardware identifier
// ("USB\VID_0403&PID_6001&REV_0600", "FTDIBUS\VID_0403+PID_6001+A1B2C3A\0000").
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/links/internal/SerialPortEnum.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>
#include <windows.h>
#include <setupapi.h>

namespace {

// GUID_DEVINTERFACE_COMPORT.
const GUID kComPortInterface = {0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};

void Report(const char* format, DWORD err)
{
    char text[96];
    std::snprintf(text, sizeof text, format, static_cast<unsigned long>(err));
    CKVX_HdwObject::DebugOutput(text);
}

std::string RegistryText(HDEVINFO set, SP_DEVINFO_DATA* info, DWORD property)
{
    char buf[1024] = {};
    DWORD type = 0;
    if (!SetupDiGetDeviceRegistryPropertyA(
            set, info, property, &type, reinterpret_cast<BYTE*>(buf), sizeof buf - 2, nullptr))
        return {};
    return std::string(buf); // first string of a multi-string
}

std::string Upper(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string Lower(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The hexadecimal digits after `key` ("VID_") in `id`, lowercase.
std::string HexAfter(const std::string& id, const char* key)
{
    const size_t at = Upper(id).find(key);
    if (at == std::string::npos)
        return {};
    size_t end = at + std::strlen(key);
    std::string out;
    while (end < id.size() && std::isxdigit(static_cast<unsigned char>(id[end])))
        out += id[end++];
    return Lower(out);
}

// "COM5" out of "USB Serial Port (COM5)".
std::string PortFromFriendlyName(const std::string& name)
{
    const size_t open = name.rfind("(COM");
    if (open == std::string::npos)
        return {};
    const size_t close = name.find(')', open);
    return close == std::string::npos ? std::string() : name.substr(open + 1, close - open - 1);
}

// The serial number that some bridge drivers put in the hardware identifier
// after the product ("...+PID_6001+A1B2C3A\0000").
std::string SerialFromHardwareId(const std::string& id)
{
    const size_t pid = Upper(id).find("PID_");
    if (pid == std::string::npos)
        return {};
    const size_t plus = id.find('+', pid);
    if (plus == std::string::npos)
        return {};
    const size_t end = id.find('\\', plus);
    return id.substr(plus + 1, end == std::string::npos ? std::string::npos : end - plus - 1);
}

} // namespace

std::vector<hdw::platform::SerialPortInfo> hdw::platform::EnumerateSerialPorts(const std::string&, const std::string&)
{
    std::vector<SerialPortInfo> ports;
    HDEVINFO set = SetupDiGetClassDevsA(&kComPortInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    if (set == INVALID_HANDLE_VALUE) {
        Report("SetupDiGetClassDevs failed. (err=%lx)", GetLastError());
        return ports;
    }
    for (DWORD index = 0;; ++index) {
        SP_DEVICE_INTERFACE_DATA iface;
        std::memset(&iface, 0, sizeof iface);
        iface.cbSize = sizeof iface;
        if (!SetupDiEnumDeviceInterfaces(set, nullptr, &kComPortInterface, index, &iface)) {
            const DWORD err = GetLastError();
            if (err != ERROR_NO_MORE_ITEMS)
                Report("SetupDiEnumDeviceInterfaces failed. (err=%lx)", err);
            break;
        }
        DWORD needed = 0;
        SetupDiGetDeviceInterfaceDetailA(set, &iface, nullptr, 0, &needed, nullptr);
        std::vector<unsigned char> detailBuf(
            needed > sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A) ? needed : sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A));
        auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(detailBuf.data());
        detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
        SP_DEVINFO_DATA info;
        std::memset(&info, 0, sizeof info);
        info.cbSize = sizeof info;
        if (!SetupDiGetDeviceInterfaceDetailA(
                set, &iface, detail, static_cast<DWORD>(detailBuf.size()), nullptr, &info)) {
            Report("SetupDiGetDeviceInterfaceDetail failed. (err=%lx)", GetLastError());
            continue;
        }
        SerialPortInfo port;
        port.Name = PortFromFriendlyName(RegistryText(set, &info, SPDRP_FRIENDLYNAME));
        if (port.Name.empty())
            continue;
        const std::string hwid = RegistryText(set, &info, SPDRP_HARDWAREID);
        port.VendorId = HexAfter(hwid, "VID_");
        port.ProductId = HexAfter(hwid, "PID_");
        port.Revision = HexAfter(hwid, "REV_");
        port.SerialNumber = SerialFromHardwareId(hwid);
        port.Description = RegistryText(set, &info, SPDRP_DEVICEDESC);
        port.IsUsb = !port.VendorId.empty() && !port.ProductId.empty();
        ports.push_back(std::move(port));
    }
    SetupDiDestroyDeviceInfoList(set);
    std::sort(ports.begin(), ports.end(), [](const SerialPortInfo& a, const SerialPortInfo& b) {
        // COM2 before COM10.
        return a.Name.size() != b.Name.size() ? a.Name.size() < b.Name.size() : a.Name < b.Name;
    });
    return ports;
}
