// The Win32 CUart on a real line: under wine, a COM port whose device is a
// pseudo-terminal made by the test runner (see SerialPeer.h), which plays the
// line's far end and reports the settings the line carries.
#include "SerialPeer.h"

#include "links/BytePattern.h"

#include "links/WaitUntil.h"

#include <HdwLib/links/Uart.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <thread>

namespace {

using Params = CKVX_HdwUartPort::CParameters;

class UartCom : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (!std::getenv("HDWLIB_SERIAL_PEER"))
            return;
        peer = new SerialPeer;
    }
    static void TearDownTestSuite()
    {
        delete peer;
        peer = nullptr;
    }

    void SetUp() override
    {
        if (!peer)
            GTEST_SKIP() << "no serial peer: run under tests/support/wine_serial_peer";
        ASSERT_TRUE(peer->Ok()) << "serial peer unreachable";
        // Every test gets fresh lines.
        ASSERT_TRUE(peer->Renew(0));
        ASSERT_TRUE(peer->Renew(1));
    }
    void TearDown() override
    {
        uart.Close();
        other.Close();
    }

    std::string Com(size_t line = 0) const { return peer->PortName(line); }

    unsigned OpenWith(const Params& p, size_t line = 0)
    {
        Params copy = p;
        return uart.Open(Com(line).c_str(), &copy);
    }

    SerialPeer::Settings LineSettings(size_t line = 0)
    {
        SerialPeer::Settings s;
        EXPECT_TRUE(peer->GetSettings(line, s));
        return s;
    }

    // Reads through the CUart until `count` bytes came or 10 s passed.
    std::vector<uint8_t> ReadUart(size_t count)
    {
        std::vector<uint8_t> out;
        WaitUntil([&] {
            unsigned char buf[512];
            unsigned got = 0;
            EXPECT_EQ(uart.Read(buf, sizeof buf, got), 0u);
            out.insert(out.end(), buf, buf + got);
            return out.size() >= count;
        });
        return out;
    }

    bool WaitQueued(unsigned expected)
    {
        unsigned queued = 0;
        return WaitUntil([&] { return uart.GetReadBufferBytes(queued) == 0 && queued == expected; });
    }

    static SerialPeer* peer;
    CUart uart;
    CUart other;
};

SerialPeer* UartCom::peer = nullptr;

TEST_F(UartCom, MissingPortFailsToOpenAndStaysClosed)
{
    Params p;
    EXPECT_EQ(uart.Open("COM255", &p), 14u);
    EXPECT_FALSE(uart.IsOpen());
    unsigned n = 0;
    EXPECT_EQ(uart.GetReadBufferBytes(n), 19u);
    unsigned char b = 0;
    EXPECT_EQ(uart.Write(&b, 1, 10), 19u);
    EXPECT_EQ(uart.Close(), 0u);
}

TEST_F(UartCom, OpenConfiguresARawLineAndCloseReleasesIt)
{
    Params p;
    p.BaudRate = 115200;
    ASSERT_EQ(OpenWith(p), 0u);
    EXPECT_TRUE(uart.IsOpen());
    const auto s = LineSettings();
    EXPECT_EQ(s.Baud, 115200);
    EXPECT_EQ(s.Bits, 8);
    EXPECT_EQ(s.Parity, "none");
    EXPECT_EQ(s.Stop, 1);
    EXPECT_EQ(s.Crtscts, 0);
    EXPECT_EQ(s.Ixon, 0);
    EXPECT_EQ(s.Ixoff, 0);
    EXPECT_EQ(s.Raw, 1);
    EXPECT_EQ(uart.GetParameters().BaudRate, 115200u);

    EXPECT_EQ(uart.Close(), 0u);
    EXPECT_FALSE(uart.IsOpen());
    EXPECT_EQ(uart.Close(), 0u);
    unsigned n = 0;
    EXPECT_EQ(uart.GetReadBufferBytes(n), 19u);
    // The line opens again after Close.
    ASSERT_EQ(OpenWith(Params()), 0u);
    EXPECT_EQ(LineSettings().Baud, 9600);
}

TEST_F(UartCom, RatesAndStopBitsReachTheLine)
{
    for (uint32_t rate : {9600u, 19200u, 57600u, 230400u}) {
        Params p;
        p.BaudRate = rate;
        p.StopBits = Params::StopBitsTwo;
        ASSERT_EQ(OpenWith(p), 0u) << rate;
        const auto s = LineSettings();
        EXPECT_EQ(s.Baud, long(rate));
        EXPECT_EQ(s.Stop, 2);
        uart.Close();
    }
}

TEST_F(UartCom, XonXoffFlowControl)
{
    Params p;
    p.FlowControl = Params::FlowXonXoff;
    ASSERT_EQ(OpenWith(p), 0u);
    const auto s = LineSettings();
    EXPECT_EQ(s.Ixon, 1);
    EXPECT_EQ(s.Ixoff, 1);
    EXPECT_EQ(s.Crtscts, 0);
    EXPECT_EQ(s.Xon, 0x11);
    EXPECT_EQ(s.Xoff, 0x13);
}

TEST_F(UartCom, RtsCtsFlowControl)
{
    Params p;
    p.FlowControl = Params::FlowRtsCts;
    ASSERT_EQ(OpenWith(p), 0u);
    const auto s = LineSettings();
    EXPECT_EQ(s.Crtscts, 1);
    EXPECT_EQ(s.Ixon, 0);
    EXPECT_EQ(s.Ixoff, 0);
}

TEST_F(UartCom, SetParityStoresTheParity)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    EXPECT_EQ(uart.SetParity(Params::ParityEven), 0u);
    EXPECT_EQ(uart.GetParameters().Parity, Params::ParityEven);
    EXPECT_TRUE(uart.IsOpen());
    uart.Close();
    EXPECT_EQ(uart.SetParity(Params::ParityOdd), 19u);
    EXPECT_EQ(uart.GetParameters().Parity, Params::ParityEven);
}

TEST_F(UartCom, ReadOfNothingAndOfZeroBytes)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    unsigned char buf[8];
    unsigned n = 77;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 0u);
    EXPECT_EQ(n, 0u);
    ASSERT_TRUE(peer->Send(0, {1, 2, 3}));
    ASSERT_TRUE(WaitQueued(3));
    n = 77;
    EXPECT_EQ(uart.Read(buf, 0, n), 0u);
    EXPECT_EQ(n, 0u);
    ASSERT_TRUE(WaitQueued(3));
}

TEST_F(UartCom, ReadTakesAtMostMaxBytesAndLeavesTheRestInOrder)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    const auto data = Pattern(10, 0x30);
    ASSERT_TRUE(peer->Send(0, data));
    ASSERT_TRUE(WaitQueued(10));
    unsigned char buf[10] = {};
    unsigned n = 0;
    ASSERT_EQ(uart.Read(buf, 4, n), 0u);
    ASSERT_EQ(n, 4u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 4), std::vector<uint8_t>(data.begin(), data.begin() + 4));
    ASSERT_EQ(uart.Read(buf, 10, n), 0u);
    ASSERT_EQ(n, 6u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 6), std::vector<uint8_t>(data.begin() + 4, data.end()));
}

TEST_F(UartCom, BytesPassBothWaysUnchanged)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    std::vector<uint8_t> all(256);
    std::iota(all.begin(), all.end(), 0);
    ASSERT_EQ(uart.Write(all.data(), unsigned(all.size()), 1000), 0u);
    EXPECT_EQ(peer->Receive(0, all.size()), all);

    const auto back = Pattern(3000, 0x55);
    ASSERT_TRUE(peer->Send(0, back));
    EXPECT_EQ(ReadUart(back.size()), back);
}

TEST_F(UartCom, TwoLinesStaySeparate)
{
    ASSERT_EQ(OpenWith(Params(), 0), 0u);
    Params p;
    ASSERT_EQ(other.Open(Com(1).c_str(), &p), 0u);
    unsigned char a[] = {0xA1, 0xA2};
    unsigned char b[] = {0xB1};
    ASSERT_EQ(uart.Write(a, 2, 1000), 0u);
    ASSERT_EQ(other.Write(b, 1, 1000), 0u);
    EXPECT_EQ(peer->Receive(1, 1), std::vector<uint8_t>({0xB1}));
    EXPECT_EQ(peer->Receive(0, 2), std::vector<uint8_t>({0xA1, 0xA2}));
}

TEST_F(UartCom, QueueCountAndReadPurge)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    unsigned queued = 99;
    EXPECT_EQ(uart.GetReadBufferBytes(queued), 0u);
    EXPECT_EQ(queued, 0u);
    EXPECT_EQ(uart.GetBytesToBeWritten(queued), 0u);
    EXPECT_EQ(queued, 0u);

    ASSERT_TRUE(peer->Send(0, Pattern(50, 3)));
    ASSERT_TRUE(WaitQueued(50));
    EXPECT_EQ(uart.ResetReadBuffer(), 0u);
    EXPECT_EQ(uart.GetReadBufferBytes(queued), 0u);
    EXPECT_EQ(queued, 0u);
    unsigned char buf[64];
    unsigned n = 9;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 0u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(uart.ResetWriteBuffer(), 0u);
}

TEST_F(UartCom, OpenDiscardsWhatWasQueuedBefore)
{
    ASSERT_TRUE(peer->Send(0, Pattern(20, 4)));
    ASSERT_TRUE(WaitUntil([&] { return peer->InQueue(0) == 20; }));
    ASSERT_EQ(OpenWith(Params()), 0u);
    unsigned queued = 99;
    EXPECT_EQ(uart.GetReadBufferBytes(queued), 0u);
    EXPECT_EQ(queued, 0u);
}

TEST_F(UartCom, WriteTimesOutOnAnUndrainedLine)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    // Nobody reads the far end: the line fills up and the write cannot finish.
    const auto big = Pattern(1 << 20, 1);
    EXPECT_EQ(uart.Write(const_cast<uint8_t*>(big.data()), unsigned(big.size()), 200), 23u);
    EXPECT_TRUE(uart.IsOpen());
    // With no time at all it times out just the same.
    EXPECT_EQ(uart.Write(const_cast<uint8_t*>(big.data()), unsigned(big.size()), 0), 23u);
    // What went out before the time-out stays on the line; nothing of the
    // rest may follow. A marker written now must come right after a prefix
    // of the data.
    unsigned markerRc = 99;
    std::thread writer([&] {
        unsigned char marker[] = {0xEE, 0xFF, 0xEE};
        markerRc = uart.Write(marker, 3, 10000);
    });
    std::vector<uint8_t> got;
    WaitUntil([&] {
        const auto more = peer->ReceiveSome(0);
        got.insert(got.end(), more.begin(), more.end());
        return got.size() >= 3 && got[got.size() - 3] == 0xEE && got[got.size() - 2] == 0xFF && got.back() == 0xEE;
    });
    writer.join();
    EXPECT_EQ(markerRc, 0u);
    ASSERT_GE(got.size(), 3u);
    const size_t before = got.size() - 3;
    EXPECT_GT(before, 0u);
    EXPECT_LT(before, big.size());
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + long(before), big.begin()));
}

TEST_F(UartCom, VanishedFarSideTurnsIntoResultCodes)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    ASSERT_TRUE(peer->HangUp(0));
    // The status call fails on a hung-up line: 13, nothing read.
    unsigned char buf[8];
    unsigned n = 5;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 13u);
    EXPECT_EQ(n, 0u);
    // A write the system refuses outright answers 0 (a dead link is noticed
    // by missing answers), and it does not hang.
    unsigned char out[] = {1, 2, 3};
    EXPECT_EQ(uart.Write(out, 3, 100), 0u);
    EXPECT_EQ(uart.Close(), 0u);
    EXPECT_FALSE(uart.IsOpen());
}

} // namespace
