// Serial-port enumeration against a fake sysfs tree and /dev folder in a temporary directory.
#include <HdwLib/links/internal/SerialPortEnum.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;
using hdw::platform::EnumerateSerialPorts;
using hdw::platform::SerialPortInfo;

namespace {

class FakeSysfs : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/hdwlib-sysfs-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root = tmpl;
        sys = root / "sys";
        dev = root / "dev";
        fs::create_directories(sys / "class" / "tty");
        fs::create_directories(dev);
    }
    void TearDown() override { fs::remove_all(root); }

    static void WriteFile(const fs::path& p, const std::string& text)
    {
        fs::create_directories(p.parent_path());
        std::ofstream(p) << text << "\n";
    }

    void AddUsbTty(const std::string& usbDir, const std::string& name, const std::string& vid, const std::string& pid,
        const std::string& product, const std::string& serial, const std::string& bcd, bool withNode = true,
        const std::string& usbInterface = "1.0")
    {
        const fs::path usb = sys / "devices" / "pci0000:00" / "0000:00:14.0" / "usb1" / usbDir;
        WriteFile(usb / "idVendor", vid);
        WriteFile(usb / "idProduct", pid);
        if (!product.empty())
            WriteFile(usb / "product", product);
        if (!serial.empty())
            WriteFile(usb / "serial", serial);
        WriteFile(usb / "bcdDevice", bcd);
        const fs::path port = usb / (usbDir + ":" + usbInterface) / name;
        fs::create_directories(port / "tty" / name);
        AddClassTty(name, port);
        if (withNode)
            AddNode(name);
    }

    void AddClassTty(const std::string& name, const fs::path& device)
    {
        const fs::path cls = sys / "class" / "tty" / name;
        fs::create_directories(cls);
        fs::create_directory_symlink(device, cls / "device");
    }

    void AddNode(const std::string& name) { WriteFile(dev / name, ""); }

    // One line per port, so that a whole enumeration compares at once.
    std::vector<std::string> Enumerate()
    {
        std::vector<std::string> rows;
        for (const SerialPortInfo& p : EnumerateSerialPorts(sys.string(), dev.string()))
            rows.push_back(fs::path(p.Name).lexically_relative(dev).string() + (p.IsUsb ? " usb " : " - ") +
                p.VendorId + "|" + p.ProductId + "|" + p.Description + "|" + p.SerialNumber + "|" + p.Revision);
        return rows;
    }

    fs::path root, sys, dev;
};

// Two bridges with the same identity, or with no serial number, are told apart by their USB device.
TEST_F(FakeSysfs, UsbBridgesCarryTheirDescriptorsInNameOrderAndUartsOfOneBridgeShareItsUsbDevice)
{
    AddUsbTty("1-5", "ttyUSB10", "0403", "6010", "Dual", "S10", "0700", true, "1.1");
    AddUsbTty("1-5", "ttyUSB0", "0403", "6010", "Dual", "S10", "0700", true, "1.0");
    AddUsbTty("1-2", "ttyUSB1", "0403", "6001", "Test Bridge", "A1B2C3", "0600");
    AddUsbTty("1-6", "ttyUSB2", "0403", "6010", "Dual", "S10", "0700");
    AddUsbTty("1-7", "ttyUSB3", "0403", "6001", "Plain", "", "0600", true, "1.0");
    AddUsbTty("1-7", "ttyUSB4", "0403", "6001", "Plain", "", "0600", true, "1.1");
    // Identifiers come out in lower case; missing texts are empty.
    AddUsbTty("1-3", "ttyACM0", "1A86", "7D2B", "", "", "0264");
    const std::vector<std::string> expected = {"ttyACM0 usb 1a86|7d2b|||0264", "ttyUSB0 usb 0403|6010|Dual|S10|0700",
        "ttyUSB1 usb 0403|6001|Test Bridge|A1B2C3|0600", "ttyUSB2 usb 0403|6010|Dual|S10|0700",
        "ttyUSB3 usb 0403|6001|Plain||0600", "ttyUSB4 usb 0403|6001|Plain||0600",
        "ttyUSB10 usb 0403|6010|Dual|S10|0700"};
    EXPECT_EQ(Enumerate(), expected);

    const std::vector<SerialPortInfo> ports = EnumerateSerialPorts(sys.string(), dev.string());
    ASSERT_EQ(ports.size(), 7u);
    std::vector<std::string> pairs;
    for (size_t a = 0; a < ports.size(); ++a)
        for (size_t b = a + 1; b < ports.size(); ++b)
            if (hdw::platform::SameUsbBridge(ports[a], ports[b]))
                pairs.push_back(std::to_string(a) + "-" + std::to_string(b));
    EXPECT_EQ(pairs, (std::vector<std::string>{"1-6", "4-5"}));
    // Where the system names no USB device: vendor, product and a serial number.
    SerialPortInfo x = ports[1], y = ports[3], z = ports[4], w = ports[5];
    x.UsbDevice = y.UsbDevice = z.UsbDevice = w.UsbDevice = "";
    EXPECT_TRUE(hdw::platform::SameUsbBridge(x, y));
    EXPECT_FALSE(hdw::platform::SameUsbBridge(z, w));
    y.ProductId = "6011";
    EXPECT_FALSE(hdw::platform::SameUsbBridge(x, y));
    x.IsUsb = false;
    EXPECT_FALSE(hdw::platform::SameUsbBridge(x, ports[1]));
}

TEST_F(FakeSysfs, OnboardPortsNeedADriverAndATypeAndVirtualTerminalsAndMissingNodesGiveNothing)
{
    const fs::path platform = sys / "devices" / "platform" / "serial8250";
    // ttyS0: a real UART (type 4 = 16550A).
    fs::create_directories(platform / "tty" / "ttyS0");
    fs::create_directories(sys / "bus" / "platform" / "drivers" / "serial8250");
    fs::create_directory_symlink(sys / "bus" / "platform" / "drivers" / "serial8250", platform / "driver");
    AddClassTty("ttyS0", platform);
    WriteFile(sys / "class" / "tty" / "ttyS0" / "type", "4");
    // ttyS1: registered but no UART behind it (type 0).
    AddClassTty("ttyS1", platform);
    WriteFile(sys / "class" / "tty" / "ttyS1" / "type", "0");
    AddNode("ttyS0");
    AddNode("ttyS1");
    // A virtual console has no device link.
    fs::create_directories(sys / "class" / "tty" / "tty1");
    AddNode("tty1");
    // A bridge whose /dev node does not exist (unplugged in between).
    AddUsbTty("1-4", "ttyUSB3", "0403", "6015", "Gone", "X", "1000", false);
    EXPECT_EQ(Enumerate(), std::vector<std::string>{"ttyS0 - ||||"});
    fs::remove_all(sys);
    EXPECT_TRUE(Enumerate().empty());
}

} // namespace
