// Serial ports on Linux, from sysfs: /sys/class/tty/<name>/device leads to
// the port's device; a USB serial port has an ancestor directory that holds
// the USB descriptors (idVendor, idProduct, product, serial, bcdDevice).
#include <HdwLib/links/internal/SerialPortEnum.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace {

std::string ReadAttribute(const fs::path& file)
{
    std::ifstream in(file);
    std::string line;
    if (!in || !std::getline(in, line))
        return {};
    const size_t end = line.find_last_not_of(" \t\r\n");
    return end == std::string::npos ? std::string() : line.substr(0, end + 1);
}

std::string Lower(std::string s)
{
    for (char& c : s)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return s;
}

bool StartsWith(const std::string& s, const char* prefix)
{
    return s.rfind(prefix, 0) == 0;
}

// The nearest ancestor of `device` (itself included) that is a USB device,
// below `stop`; empty when there is none.
fs::path FindUsbDevice(const fs::path& device, const fs::path& stop)
{
    std::error_code ec;
    for (fs::path p = device; !p.empty() && p != p.root_path(); p = p.parent_path()) {
        if (p == stop)
            break;
        if (fs::exists(p / "idVendor", ec) && fs::exists(p / "idProduct", ec))
            return p;
    }
    return {};
}

// An on-board port that the serial driver registered but found no UART for
// has type 0 (unknown); it cannot be used.
bool IsRealOnboardPort(const fs::path& ttyDir)
{
    std::error_code ec;
    if (!fs::exists(ttyDir / "device" / "driver", ec))
        return false;
    const std::string type = ReadAttribute(ttyDir / "type");
    return !type.empty() && type != "0";
}

// "ttyUSB2" before "ttyUSB10": the text part, then the number at the end.
bool NameOrder(const std::string& a, const std::string& b)
{
    const size_t da = a.find_last_not_of("0123456789") + 1;
    const size_t db = b.find_last_not_of("0123456789") + 1;
    const std::string ta = a.substr(0, da), tb = b.substr(0, db);
    if (ta != tb)
        return ta < tb;
    const std::string na = a.substr(da), nb = b.substr(db);
    if (na.size() != nb.size())
        return na.size() < nb.size();
    return na < nb;
}

} // namespace

std::vector<hdw::platform::SerialPortInfo> hdw::platform::EnumerateSerialPorts(
    const std::string& sysRoot, const std::string& devRoot)
{
    const fs::path sys = sysRoot.empty() ? fs::path("/sys") : fs::path(sysRoot);
    const fs::path dev = devRoot.empty() ? fs::path("/dev") : fs::path(devRoot);
    std::vector<SerialPortInfo> ports;
    std::error_code ec;
    const fs::path ttyClass = sys / "class" / "tty";
    fs::directory_iterator it(ttyClass, ec);
    if (ec)
        return ports;
    const fs::path devicesRoot = fs::weakly_canonical(sys / "devices", ec);
    for (; it != fs::directory_iterator(); it.increment(ec)) {
        if (ec)
            break;
        const fs::path ttyDir = it->path();
        const std::string name = ttyDir.filename().string();
        std::error_code e2;
        if (!fs::exists(ttyDir / "device", e2))
            continue;
        const fs::path node = dev / name;
        if (!fs::exists(node, e2))
            continue;

        SerialPortInfo info;
        info.Name = node.string();
        const fs::path device = fs::canonical(ttyDir / "device", e2);
        const fs::path usb = e2 ? fs::path() : FindUsbDevice(device, devicesRoot);
        if (!usb.empty()) {
            info.IsUsb = true;
            info.VendorId = Lower(ReadAttribute(usb / "idVendor"));
            info.ProductId = Lower(ReadAttribute(usb / "idProduct"));
            info.Description = ReadAttribute(usb / "product");
            info.SerialNumber = ReadAttribute(usb / "serial");
            info.Revision = Lower(ReadAttribute(usb / "bcdDevice"));
            info.UsbDevice = usb.string();
        } else if (!(StartsWith(name, "ttyS") && IsRealOnboardPort(ttyDir)) && !StartsWith(name, "ttyUSB") &&
            !StartsWith(name, "ttyACM")) {
            continue;
        }
        ports.push_back(std::move(info));
    }
    std::sort(ports.begin(), ports.end(),
        [](const SerialPortInfo& a, const SerialPortInfo& b) { return NameOrder(a.Name, b.Name); });
    return ports;
}
