// The PC serial-port device on a pseudo-terminal, through the manager: the
// link given explicitly becomes a UART port that opens the line with the
// port's settings and passes bytes both ways.
#include "PtyPair.h"

#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/framework/HdwService.h>
#include <HdwLib/links/HdwStdUartDevice.h>

#include <gtest/gtest.h>

long ReadLineSpeed(int fd);

namespace {

class StdUartDevice : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(pty.Ok());
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
    }
    void TearDown() override { manager.Stop(); }

    CKVX_HdwStdUartDevice::CStdUartPort* EnumerateAndRun()
    {
        CKVX_HdwManager::CInitPortDesc links[] = {
            {CKVX_HdwStdUartDevice::StdUartDeviceCode, pty.SlaveName().c_str()},
            {CKVX_HdwStdUartDevice::StdUartDeviceCode, "/dev/hdwlib-missing-tty"},
        };
        EXPECT_EQ(manager.Enumerate(links, 2, CKVX_HdwManager::EnumerateNoScan), 0u);
        EXPECT_EQ(links[0].Result, 0u);
        EXPECT_EQ(links[1].Result, 14u);
        auto* port = dynamic_cast<CKVX_HdwStdUartDevice::CStdUartPort*>(manager.GetPort(HDW_PORT_UART, 0));
        EXPECT_EQ(manager.Run(), 0u);
        // A port opens with a service enabled; the direct Read and Write work beside it.
        CKVX_HdwService* s = nullptr;
        if (port) {
            EXPECT_EQ(port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr), 0u);
        }
        return port;
    }

    PtyPair pty;
    CKVX_HdwStdUartDevice device;
    CKVX_HdwManager manager;
};

TEST_F(StdUartDevice, ExplicitLinkBecomesOneUartPort)
{
    auto* port = EnumerateAndRun();
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(device.GetDeviceCode(), 100u);
    EXPECT_EQ(device.GetInstanceCount(), 1u);
    EXPECT_EQ(manager.GetPortCount(HDW_PORT_UART), 1u);
    EXPECT_EQ(port->GetChannelId(), "0");
    const auto* desc = manager.GetPortDescriptor(HDW_PORT_UART, 0);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(desc->SerialNumber, pty.SlaveName().c_str());
    EXPECT_EQ(desc->Revision, "");
    EXPECT_EQ(desc->Link, pty.SlaveName().c_str());
}

TEST_F(StdUartDevice, OpenPortConfiguresTheLineAndBytesPass)
{
    auto* port = EnumerateAndRun();
    ASSERT_NE(port, nullptr);
    unsigned char buf[64];
    unsigned n = 0;
    EXPECT_EQ(port->Read(buf, sizeof buf, n), 19u);
    EXPECT_EQ(port->Write(buf, 1), 19u);

    CKVX_HdwUartPort::CParameters params;
    params.BaudRate = 57600;
    params.StopBits = CKVX_HdwUartPort::CParameters::StopBitsTwo;
    ASSERT_EQ(port->Open(&params), 0u);
    EXPECT_TRUE(port->IsOpen());
    EXPECT_EQ(ReadLineSpeed(pty.Slave()), 57600);
    termios t{};
    tcgetattr(pty.Slave(), &t);
    EXPECT_NE(t.c_cflag & CSTOPB, 0u);
    CKVX_HdwUartPort::CParameters back;
    ASSERT_EQ(port->GetParameters(&back), 0u);
    EXPECT_EQ(back.BaudRate, 57600u);

    unsigned char hello[] = {'h', 'e', 'l', 'l', 'o', 0x00, 0xFF, '\r', '\n'};
    ASSERT_EQ(port->Write(hello, sizeof hello), 0u);
    EXPECT_EQ(pty.ReadMaster(sizeof hello), std::vector<uint8_t>(hello, hello + sizeof hello));

    ASSERT_TRUE(pty.WriteMaster({'o', 'k', 0x11, 0x13}));
    std::vector<uint8_t> got;
    ASSERT_TRUE(WaitUntil([&] {
        EXPECT_EQ(port->Read(buf, sizeof buf, n), 0u);
        got.insert(got.end(), buf, buf + n);
        return got.size() >= 4;
    }));
    EXPECT_EQ(got, std::vector<uint8_t>({'o', 'k', 0x11, 0x13}));

    ASSERT_EQ(port->Close(), 0u);
    EXPECT_FALSE(port->IsOpen());
    EXPECT_FALSE(device.GetStdInstance(0)->Uart.IsOpen());
    EXPECT_FALSE(device.GetStdInstance(0)->IsOpen());
    EXPECT_EQ(port->Read(buf, sizeof buf, n), 19u);
    // And it opens again.
    ASSERT_EQ(port->Open(&params), 0u);
    ASSERT_EQ(port->Write(hello, 2), 0u);
    EXPECT_EQ(pty.ReadMaster(2), std::vector<uint8_t>({'h', 'e'}));
}

TEST_F(StdUartDevice, SettingsTheLineRefusesKeepThePortClosed)
{
    auto* port = EnumerateAndRun();
    ASSERT_NE(port, nullptr);
    CKVX_HdwUartPort::CParameters params;
    params.Parity = CKVX_HdwUartPort::CParameters::ParityEven; // a pseudo-terminal has none
    EXPECT_EQ(port->Open(&params), 14u);
    EXPECT_FALSE(port->IsOpen());
    EXPECT_FALSE(device.GetStdInstance(0)->Uart.IsOpen());
    params.Parity = CKVX_HdwUartPort::CParameters::ParityNone;
    EXPECT_EQ(port->Open(&params), 0u);
}

TEST_F(StdUartDevice, StopClosesTheLine)
{
    auto* port = EnumerateAndRun();
    ASSERT_NE(port, nullptr);
    CKVX_HdwUartPort::CParameters params;
    ASSERT_EQ(port->Open(&params), 0u);
    ASSERT_EQ(manager.Stop(), 0u);
    EXPECT_FALSE(port->IsOpen());
    EXPECT_FALSE(device.GetStdInstance(0)->Uart.IsOpen());
}

} // namespace
