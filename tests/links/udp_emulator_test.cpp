#include "WaitUntil.h"

#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/links/HdwUdpEmulatorDevice.h>

#include <gtest/gtest.h>

#include <string>

namespace {

const CKVX_IpAddress kLoopback(127, 0, 0, 1);

TEST(UdpEmulator, OneUartPortPerLinkCarriesBytesBothWaysThroughTheTick)
{
    CKVX_HdwUdpSocket unit; // the serial unit's end of the byte stream
    ASSERT_EQ(unit.Open(0, kLoopback), 0u);
    CKVX_HdwUdpEmulatorDevice device; // outlives the manager, which does not own it
    CKVX_HdwManager manager;
    ASSERT_EQ(manager.AttachDevice(&device), 0u);
    CKVX_IpAddress from;
    unsigned short hostPort = 0;
    const auto receiveAtUnit = [&] {
        char buf[256];
        unsigned got = 0;
        EXPECT_EQ(unit.ReceiveFrom(buf, sizeof buf, got, from, hostPort, 10000), 0u);
        return std::string(buf, got);
    };
    CKVX_String link;
    link.Format("udp:127.0.0.1:%u", unsigned(unit.GetLocalPort()));
    CKVX_HdwManager::CInitPortDesc links[] = {{101, link}, {101, "udp:127.0.0.1:99999"}, {101, "COM3"}};
    ASSERT_EQ(manager.Enumerate(links, 3, CKVX_HdwManager::EnumerateNoScan), 0u);
    EXPECT_EQ(links[0].Result, 0u);
    EXPECT_EQ(links[1].Result, 2u);
    EXPECT_EQ(links[2].Result, 2u);
    ASSERT_EQ(device.GetInstanceCount(), 1u);
    EXPECT_EQ(manager.GetPort(HDW_PORT_UART, 1), nullptr);
    unsigned n = 0;
    EXPECT_EQ(device.UartGetReadBufferBytes(0, n), 19u); // not open yet
    const unsigned char hello[] = {'h', 'i', '!'};
    EXPECT_EQ(device.UartWrite(0, hello, 3), 19u);
    EXPECT_EQ(device.UartWrite(3, hello, 3), 2u);

    ASSERT_EQ(manager.Run(), 0u);
    CKVX_HdwPort* port = manager.GetPort(HDW_PORT_UART, 0);
    ASSERT_NE(dynamic_cast<CKVX_HdwUartPort*>(port), nullptr);
    CKVX_HdwService* s = nullptr;
    EXPECT_EQ(port->EnableService(HDW_SERVICE_CAN_IN_BUFFER, &s, nullptr), 10u);
    ASSERT_EQ(port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, nullptr), 0u);
    auto* in = dynamic_cast<CKVX_HdwUdpEmulatorDevice::CByteInBufferService*>(s);
    ASSERT_EQ(port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr), 0u);
    auto* out = dynamic_cast<CKVX_HdwUdpEmulatorDevice::CByteOutBufferService*>(s);
    ASSERT_TRUE(in && out);
    ASSERT_EQ(port->Open(nullptr), 0u);

    unsigned char five[] = {'h', 'e', 'l', 'l', 'o'};
    ASSERT_EQ(out->Write(five, sizeof five, 0), 0u);
    EXPECT_EQ(receiveAtUnit(), "hello");
    CKVX_HdwUdpSocket stranger;
    ASSERT_EQ(stranger.Open(0, kLoopback), 0u);
    ASSERT_EQ(stranger.SendTo("XX", 2, from, hostPort), 0u);
    ASSERT_EQ(unit.SendTo("abc", 3, from, hostPort), 0u);
    ASSERT_TRUE(WaitUntil([&] { return in->Read(five, sizeof five, n) == 0 && n > 0; }));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(five), n), "abc");
    ASSERT_EQ(port->Close(), 0u);

    ASSERT_EQ(device.Open(0), 0u);
    ASSERT_EQ(device.UartWrite(0, hello, 3), 0u);
    EXPECT_EQ(receiveAtUnit(), "hi!");
    ASSERT_EQ(unit.SendTo("abc", 3, from, hostPort), 0u);
    ASSERT_EQ(unit.SendTo("defgh", 5, from, hostPort), 0u);
    ASSERT_TRUE(WaitUntil([&] { return device.UartGetReadBufferBytes(0, n) == 0 && n == 8; }));
    unsigned char buf[16] = {};
    unsigned got = 0;
    ASSERT_EQ(device.UartRead(0, buf, 4, got), 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), got), "abcd");
    ASSERT_EQ(device.UartRead(0, buf, sizeof buf, got), 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), got), "efgh");

    EXPECT_EQ(device.Close(0), 0u);
    EXPECT_EQ(device.UartWrite(0, hello, 3), 19u);
}

} // namespace
