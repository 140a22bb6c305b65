// The USB-UART bridged device base on pseudo-terminals, with a probing test driver.
#include "PtyPair.h"

#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>

namespace {

constexpr uint64_t kTestDeviceCode = 0x7E57;

class CTestBridgedDevice : public CKVX_HdwFtdiUartBridgedDevice {
public:
    class CTestInstance : public CDeviceInstance {
    public:
        int Marker = 42;
    };

    CTestBridgedDevice()
    {
        m_DeviceCode = kTestDeviceCode;
        m_Manufacturer = "Test Maker";
        m_ModelName = "Probe";
        m_UsbVendorId = "fffe";
        m_UsbProductId = "0001";
        m_UsbDescription = "No Such Bridge";
        m_LinkParameters.BaudRate = 115200;
    }

    CDeviceInstance* CreateDeviceInstance() override { return new CTestInstance; }

    unsigned ProbeUartLink(CDeviceInstance* tmp, const CKVX_String& portName) override
    {
        ++probes;
        if (!(tmp->PortName == portName))
            return 2;
        unsigned char ping[] = {'P', 'I', 'N', 'G', '?'};
        if (Com_Open(tmp) != 0 || Com_Write(tmp, ping, sizeof ping) != 0)
            return 14;
        return portName == refuse.c_str() ? 14u : 0u;
    }

    unsigned CreateInstancePorts(unsigned instance) override
    {
        AddPortDescriptor(instance, new CKVX_HdwUartPort(this, instance, "0"), 0, "Test UART 0");
        return 0;
    }

    std::atomic<int> probes{0};
    std::string refuse; // the link the probe refuses, as another kind of unit
};

TEST(BridgedDevice, ExplicitLinksAreProbedAcceptedOnesBecomeInstancesWithComOperationsAndEnumerationReplacesThem)
{
    PtyPair ptyA, ptyB;
    ASSERT_TRUE(ptyA.Ok() && ptyB.Ok());
    CTestBridgedDevice device; // outlives the manager, which does not own it
    CKVX_HdwManager manager;
    ASSERT_EQ(manager.AttachDevice(&device), 0u);
    device.refuse = ptyB.SlaveName();
    CKVX_HdwManager::CInitPortDesc links[] = {{kTestDeviceCode, ptyB.SlaveName().c_str()},
        {kTestDeviceCode, "/dev/hdwlib-missing-tty"}, {kTestDeviceCode, ptyA.SlaveName().c_str()},
        {kTestDeviceCode, "udp:127.0.0.1:40003"}};
    ASSERT_EQ(manager.Enumerate(links, 4, CKVX_HdwManager::EnumerateNoScan), 0u);
    EXPECT_EQ((std::vector<unsigned>{links[0].Result, links[1].Result, links[2].Result, links[3].Result}),
        (std::vector<unsigned>{14, 14, 0, CKVX_HdwInitPortDesc::ResultNotTried}));
    EXPECT_EQ(device.probes.load(), 3);
    EXPECT_EQ(ptyA.ReadMaster(5), std::vector<uint8_t>({'P', 'I', 'N', 'G', '?'}));

    ASSERT_EQ(device.GetInstanceCount(), 1u);
    auto* inst = device.GetUartInstance(0);
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(dynamic_cast<CTestBridgedDevice::CTestInstance*>(inst)->Marker, 42);
    EXPECT_EQ(inst->PortName, ptyA.SlaveName().c_str());
    // A link with no USB identity: the link text is the serial number.
    EXPECT_EQ(inst->SerialNumber, ptyA.SlaveName().c_str());
    EXPECT_EQ(inst->Revision, "");
    EXPECT_FALSE(inst->Uart.IsOpen());
    EXPECT_FALSE(inst->IsOpen());

    const auto* desc = manager.GetPortDescriptor(HDW_PORT_UART, 0);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(desc->Manufacturer, "Test Maker");
    EXPECT_EQ(desc->FullName, "Probe");
    EXPECT_EQ(desc->SerialNumber, ptyA.SlaveName().c_str());
    EXPECT_EQ(manager.GetPort(HDW_PORT_UART, 1), nullptr);

    unsigned count = 99;
    unsigned char buf[32];
    unsigned n = 0;
    EXPECT_EQ(device.Com_Read(0u, buf, sizeof buf, n), 19u) << "closed link";
    EXPECT_EQ(device.Com_Read(1u, buf, sizeof buf, n), 2u) << "no such instance";
    EXPECT_EQ(device.Com_GetReadBufferBytes(1u, count), 2u);
    EXPECT_EQ(device.Open(1), 2u);

    ASSERT_EQ(device.Open(0), 0u);
    EXPECT_TRUE(inst->IsOpen());
    EXPECT_TRUE(inst->Uart.IsOpen());
    EXPECT_EQ(device.Open(0), 0u); // a second open succeeds
    EXPECT_EQ(inst->Uart.GetParameters().BaudRate, 115200u);

    EXPECT_EQ(device.Close(0), 0u);
    EXPECT_FALSE(inst->IsOpen());
    EXPECT_FALSE(inst->Uart.IsOpen());
    EXPECT_EQ(device.Com_Write(0u, buf, 1), 19u);

    // Pseudo-terminals have no USB bridge: only a unit's own link belongs to it.
    CKVX_String path = "stale";
    EXPECT_EQ(device.GetDevPathIndentifier(0, path), 0u);
    EXPECT_EQ(path, ptyA.SlaveName().c_str());
    EXPECT_EQ(device.GetDevPathIndentifier(1, path), 2u);
    EXPECT_EQ(path, "");

    const unsigned none = CKVX_HdwFtdiUartBridgedDevice::NoInstance;
    const struct {
        std::string Link;
        unsigned Result, Instance;
    } owners[] = {{ptyA.SlaveName(), 0, 0}, {ptyB.SlaveName(), 0, none}, {"udp:127.0.0.1:40003", 2, none}};
    for (const auto& o : owners) {
        unsigned instance = 7;
        bool additional = true;
        EXPECT_EQ(device.IdentifyAddictionalUart(o.Link.c_str(), instance, additional), o.Result) << o.Link;
        EXPECT_EQ(instance, o.Instance) << o.Link;
        EXPECT_FALSE(additional) << o.Link;
    }

    // Enumerating again drops the open instance before probing again.
    ASSERT_EQ(device.Open(0), 0u);
    device.refuse.clear();
    ASSERT_EQ(manager.Enumerate(&links[0], 1, CKVX_HdwManager::EnumerateNoScan), 0u);
    EXPECT_EQ(links[0].Result, 0u);
    ASSERT_EQ(device.GetInstanceCount(), 1u);
    EXPECT_EQ(device.GetUartInstance(0)->PortName, ptyB.SlaveName().c_str());
    EXPECT_EQ(manager.GetPortCount(HDW_PORT_UART), 1u);
    ASSERT_EQ(manager.Enumerate(nullptr, 0, CKVX_HdwManager::EnumerateNoScan), 0u);
    EXPECT_EQ(device.GetInstanceCount(), 0u);
    // A scan probes only bridges with the driver's identifiers: none here.
    device.probes = 0;
    ASSERT_EQ(manager.Enumerate(), 0u);
    EXPECT_EQ(device.probes.load(), 0);
    EXPECT_EQ(device.GetInstanceCount(), 0u);
}

TEST(BridgedDeviceBase, AcceptsNothingItCannotProbeAndWritesWithTheLinkTimeOut)
{
    PtyPair pty;
    ASSERT_TRUE(pty.Ok());
    CKVX_HdwFtdiUartBridgedDevice device;
    ASSERT_EQ(device.SetLinkTimeout(250), 0u);
    EXPECT_EQ(device.GetWriteTimeoutMs(), 250u);
    CKVX_HdwManager manager;
    ASSERT_EQ(manager.AttachDevice(&device), 0u);
    CKVX_HdwManager::CInitPortDesc link{0, pty.SlaveName().c_str()};
    ASSERT_EQ(manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan), 0u);
    EXPECT_EQ(link.Result, 14u);
    EXPECT_EQ(device.GetInstanceCount(), 0u);
    for (const char* name : {"/dev/ttyUSB0", "COM5"})
        EXPECT_TRUE(CKVX_HdwFtdiUartBridgedDevice::IsSerialLinkName(name)) << name;
    for (const char* name : {"udp:127.0.0.1:40003", ""})
        EXPECT_FALSE(CKVX_HdwFtdiUartBridgedDevice::IsSerialLinkName(name)) << name;
}

} // namespace
