// The PC serial-port device on a pseudo-terminal, through the manager.
#include "PtyPair.h"

#include "links/BytePattern.h"

#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/links/HdwStdUartDevice.h>

#include <gtest/gtest.h>

long ReadLineSpeed(int fd);

namespace {

using Dev = CKVX_HdwStdUartDevice;
using Params = CKVX_HdwUartPort::CParameters;

class StdUart : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(pty.Ok());
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        ASSERT_EQ(manager.Enumerate(links, 2, CKVX_HdwManager::EnumerateNoScan), 0u);
        ASSERT_EQ(manager.Run(), 0u);
        port = dynamic_cast<Dev::CStdUartPort*>(manager.GetPort(HDW_PORT_UART, 0));
        ASSERT_NE(port, nullptr);
    }
    void TearDown() override { manager.Stop(); }

    void OpenWithServices(uint32_t inSize = 1u << 20, unsigned writeTimeoutMs = 1000)
    {
        CKVX_HdwService* s = nullptr;
        CKVX_HdwByteInBufferService::CParameters ip;
        ip.BufferSize = inSize;
        ASSERT_EQ(port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, &ip), 0u);
        in = dynamic_cast<Dev::CByteInBufferService*>(s);
        CKVX_HdwByteOutBufferService::CParameters op;
        op.BufferSize = 0; // unlimited
        ASSERT_EQ(port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, &op), 0u);
        out = dynamic_cast<Dev::CByteOutBufferService*>(s);
        ASSERT_TRUE(in && out);
        Params line;
        line.BaudRate = 115200;
        line.Timeout = writeTimeoutMs;
        ASSERT_EQ(port->Open(&line), 0u);
    }

    PtyPair pty;
    CKVX_HdwManager::CInitPortDesc links[2] = {
        {Dev::StdUartDeviceCode, pty.SlaveName().c_str()}, {Dev::StdUartDeviceCode, "/dev/hdwlib-missing-tty"}};
    Dev device;
    CKVX_HdwManager manager;
    Dev::CStdUartPort* port = nullptr;
    Dev::CByteInBufferService* in = nullptr;
    Dev::CByteOutBufferService* out = nullptr;
};

TEST_F(StdUart, ExplicitLinkBecomesAPortThatOpensTheLineWithItsSettings)
{
    EXPECT_EQ(links[0].Result, 0u);
    EXPECT_EQ(links[1].Result, 14u);
    EXPECT_EQ(manager.GetPortCount(HDW_PORT_UART), 1u);
    const auto* desc = manager.GetPortDescriptor(HDW_PORT_UART, 0);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(desc->SerialNumber, pty.SlaveName().c_str());
    EXPECT_EQ(desc->Link, pty.SlaveName().c_str());
    unsigned char buf[64];
    unsigned n = 0;
    EXPECT_EQ(port->Read(buf, sizeof buf, n), 19u);
    EXPECT_EQ(port->Write(buf, 1), 19u);

    // One input and one output service only.
    CKVX_HdwService* s = nullptr;
    EXPECT_EQ(port->EnableService(HDW_SERVICE_ARINC429_IN_BUFFER, &s, nullptr), 10u);
    EXPECT_EQ(port->EnableService(HDW_SERVICE_SIGNAL, &s, nullptr), 10u);
    ASSERT_EQ(port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr), 0u);
    EXPECT_EQ(port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr), 26u);
    CKVX_HdwByteOutBufferService::CParameters wrong;
    EXPECT_EQ(port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, &wrong), 2u);
    // Only the output service: the direct Read below has the input to itself.
    EXPECT_EQ(port->GetServiceList().GetLength(), 1u);

    Params params;
    params.Parity = Params::ParityEven; // a pseudo-terminal has none: the port stays closed
    EXPECT_EQ(port->Open(&params), 14u);
    EXPECT_FALSE(port->IsOpen());
    EXPECT_FALSE(device.GetStdInstance(0)->Uart.IsOpen());
    params.Parity = Params::ParityNone;
    params.BaudRate = 57600; // the line settings themselves: uart_test.cpp
    ASSERT_EQ(port->Open(&params), 0u);
    EXPECT_EQ(ReadLineSpeed(pty.Slave()), 57600);

    unsigned char hello[] = {'h', 'i', 0x00, 0xFF, '\r'};
    ASSERT_EQ(port->Write(hello, sizeof hello), 0u);
    EXPECT_EQ(pty.ReadMaster(sizeof hello), std::vector<uint8_t>(hello, hello + sizeof hello));
    ASSERT_TRUE(pty.WriteMaster({'o', 'k'}));
    ASSERT_TRUE(WaitUntil([&] { return port->Read(buf, sizeof buf, n) == 0 && n > 0; }));
    EXPECT_EQ(buf[0], 'o');

    ASSERT_EQ(port->Close(), 0u);
    EXPECT_FALSE(device.GetStdInstance(0)->Uart.IsOpen());
    EXPECT_EQ(port->Read(buf, sizeof buf, n), 19u);
    // It opens again, and stopping the manager closes the line.
    ASSERT_EQ(port->Open(&params), 0u);
    ASSERT_EQ(manager.Stop(), 0u);
    EXPECT_FALSE(port->IsOpen());
    EXPECT_FALSE(device.GetStdInstance(0)->Uart.IsOpen());
}

TEST_F(StdUart, LargeAmountsCrossTheLineWholeAndInOrderBothWays)
{
    // A pty cannot pace the writer: a loaded machine may stall the line for seconds.
    OpenWithServices(1u << 20, 30000);
    const auto fromLine = Pattern(200000, 0);
    std::thread writer([&] { EXPECT_TRUE(pty.WriteMaster(fromLine)); });
    std::vector<uint8_t> got;
    unsigned char buf[5000];
    ASSERT_TRUE(WaitUntil(
        [&] {
            unsigned n = 0;
            EXPECT_EQ(in->Read(buf, sizeof buf, n), 0u);
            got.insert(got.end(), buf, buf + n);
            return got.size() >= fromLine.size();
        },
        30000));
    writer.join();
    EXPECT_EQ(got, fromLine);
    EXPECT_EQ(in->GetDroppedCount(), 0u);

    auto sent = Pattern(300000, 0);
    EXPECT_EQ(out->Write(sent.data(), unsigned(sent.size()), 1), 2u) << "reserved option";
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u);
    unsigned pending = 0;
    ASSERT_EQ(out->GetBytesToBeWritten(pending), 0u);
    EXPECT_GT(pending, 0u);
    EXPECT_EQ(pty.ReadMaster(sent.size()), sent);
    ASSERT_TRUE(WaitUntil([&] { return out->GetBytesToBeWritten(pending) == 0 && pending == 0; }));
    EXPECT_EQ(out->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
}

// The tick offers the line only what it takes at once. With nobody reading, the
// line fills while the tick goes on and the application's calls on the service
// answer (the tick once waited for room holding the device, up to the write
// Timeout); read, every byte arrives in order and nothing is counted lost.
TEST_F(StdUart, AFullLineHoldsNeitherTheTickNorTheApplication)
{
    OpenWithServices(1u << 20, 120000);
    const auto sent = Pattern(300000, 3);
    ASSERT_EQ(out->Write(const_cast<uint8_t*>(sent.data()), unsigned(sent.size()), 0), 0u);
    unsigned pending = 0;
    ASSERT_TRUE(WaitUntil(
        [&] { return out->GetBytesToBeWritten(pending) == 0 && pending < sent.size() && pty.MasterQueued() > 0; }));
    const uint64_t ticks = manager.GetTickCounter();
    ASSERT_TRUE(WaitUntil([&] { return manager.GetTickCounter() >= ticks + 50; })) << "the tick stopped";
    ASSERT_EQ(out->GetBytesToBeWritten(pending), 0u);
    EXPECT_GT(pending, 0u) << "a pseudo-terminal cannot hold 300,000 bytes";
    EXPECT_EQ(out->GetStatus(), unsigned(HDW_SERVICE_RUNNING));

    EXPECT_EQ(pty.ReadMaster(sent.size()), sent);
    EXPECT_TRUE(WaitUntil([&] { return out->GetBytesToBeWritten(pending) == 0 && pending == 0; }));
    EXPECT_EQ(out->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    EXPECT_EQ(out->GetUnplacedCount(), 0u);
}

// A line that takes nothing for the open Timeout fails the output service, which
// counts the chunk it gave up; what went out before is a whole, ordered prefix.
TEST_F(StdUart, ALineThatTakesNothingForItsTimeoutFailsTheOutput)
{
    OpenWithServices(1u << 20, 300);
    const auto sent = Pattern(300000, 5);
    ASSERT_EQ(out->Write(const_cast<uint8_t*>(sent.data()), unsigned(sent.size()), 0), 0u);
    ASSERT_TRUE(WaitUntil([&] { return out->GetStatus() == unsigned(HDW_SERVICE_FAILED); }));
    EXPECT_GT(out->GetUnplacedCount(), 0u);
    EXPECT_LE(out->GetUnplacedCount(), uint64_t(CKVX_HdwLineByteOutBufferService::MaxWritePerTick));
    unsigned pending = 0;
    ASSERT_EQ(out->GetBytesToBeWritten(pending), 0u);
    ASSERT_GT(pending, 0u);
    const size_t written = sent.size() - pending;
    ASSERT_GT(written, 0u);
    EXPECT_EQ(pty.ReadMaster(written), std::vector<uint8_t>(sent.begin(), sent.begin() + std::ptrdiff_t(written)));
    unsigned char b = 0;
    EXPECT_EQ(out->Write(&b, 1, 0), 15u);
}

TEST_F(StdUart, FullInputDropsTheOldestBytesAHungUpLineFailsItAndStoppedServicesAnswer29)
{
    OpenWithServices(100);
    const auto sent = Pattern(300, 0);
    ASSERT_TRUE(pty.WriteMaster(sent));
    ASSERT_TRUE(WaitUntil([&] { return in->GetDroppedCount() == 200; }));
    unsigned char buf[300];
    unsigned n = 0;
    ASSERT_EQ(in->Read(buf, sizeof buf, n), 0u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + n), std::vector<uint8_t>(sent.begin() + 200, sent.end()));

    pty.CloseMaster();
    ASSERT_TRUE(WaitUntil([&] { return in->Read(buf, sizeof buf, n) == 15u; }));
    // Bytes for a line that hung up fail the output service and are counted.
    ASSERT_EQ(out->Write(buf, 10, 0), 0u);
    ASSERT_TRUE(WaitUntil([&] { return out->GetStatus() == unsigned(HDW_SERVICE_FAILED); }));
    EXPECT_EQ(out->GetUnplacedCount(), 10u);
    ASSERT_EQ(port->Close(), 0u);
    EXPECT_EQ(in->Read(buf, sizeof buf, n), 29u);
    EXPECT_EQ(out->Write(buf, 1, 0), 29u);
}

} // namespace
