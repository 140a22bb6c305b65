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
        if (std::getenv("HDWLIB_SERIAL_PEER"))
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

    unsigned OpenWith(Params p) { return uart.Open(peer->PortName(0).c_str(), &p); }

    // The line's settings as "baud stop crtscts/ixon/ixoff", after checking
    // that it is a raw line of 8 bits without parity.
    std::string LineSettings()
    {
        auto s = peer->Settings(0);
        EXPECT_EQ(s["bits"] + s["parity"] + s["raw"], "8none1");
        return s["baud"] + " " + s["stop"] + " " + s["crtscts"] + "/" + s["ixon"] + "/" + s["ixoff"];
    }

    std::vector<uint8_t> Read(unsigned max)
    {
        std::vector<uint8_t> buf(max + 1);
        unsigned n = 77;
        EXPECT_EQ(uart.Read(buf.data(), max, n), 0u);
        buf.resize(std::min(n, max));
        return buf;
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

TEST_F(UartCom, OpenConfiguresARawLineWithTheRateStopBitsAndFlowAndCloseReleasesIt)
{
    const struct {
        uint32_t Rate;
        uint8_t Stop, Flow;
        const char* Line;
    } cases[] = {
        {115200, Params::StopBitsOne, 0, "115200 1 0/0/0"},
        {9600, Params::StopBitsTwo, 0, "9600 2 0/0/0"},
        {19200, Params::StopBitsTwo, 0, "19200 2 0/0/0"},
        {57600, Params::StopBitsTwo, 0, "57600 2 0/0/0"},
        {230400, Params::StopBitsTwo, 0, "230400 2 0/0/0"},
        {9600, Params::StopBitsOne, Params::FlowXonXoff, "9600 1 0/1/1"},
        {9600, Params::StopBitsOne, Params::FlowRtsCts, "9600 1 1/0/0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Line);
        Params p;
        p.BaudRate = c.Rate;
        p.StopBits = c.Stop;
        p.FlowControl = c.Flow;
        ASSERT_EQ(OpenWith(p), 0u);
        EXPECT_TRUE(uart.IsOpen());
        EXPECT_EQ(LineSettings(), c.Line);
        if (c.Flow == Params::FlowXonXoff) {
            auto s = peer->Settings(0);
            EXPECT_EQ(s["xon"] + "/" + s["xoff"], "17/19");
        }
        EXPECT_EQ(uart.GetParameters().BaudRate, c.Rate);
        EXPECT_EQ(uart.Close(), 0u);
        EXPECT_FALSE(uart.IsOpen());
    }
    EXPECT_EQ(uart.Close(), 0u);
    unsigned n = 0;
    EXPECT_EQ(uart.GetReadBufferBytes(n), 19u);
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

TEST_F(UartCom, OpenDiscardsWhatWasQueuedAndReadsTakeAtMostMaxBytesInOrderAndQueuesCountAndPurge)
{
    ASSERT_TRUE(peer->Send(0, Pattern(20, 4)));
    ASSERT_TRUE(WaitUntil([&] { return peer->InQueue(0) == 20; }));
    ASSERT_EQ(OpenWith(Params()), 0u);
    EXPECT_TRUE(WaitQueued(0));
    EXPECT_TRUE(Read(8).empty());
    unsigned queued = 99;
    EXPECT_EQ(uart.GetBytesToBeWritten(queued), 0u);
    EXPECT_EQ(queued, 0u);

    const auto data = Pattern(10, 0x30);
    ASSERT_TRUE(peer->Send(0, data));
    ASSERT_TRUE(WaitQueued(10));
    EXPECT_TRUE(Read(0).empty());
    ASSERT_TRUE(WaitQueued(10));
    EXPECT_EQ(Read(4), std::vector<uint8_t>(data.begin(), data.begin() + 4));
    EXPECT_EQ(Read(10), std::vector<uint8_t>(data.begin() + 4, data.end()));

    ASSERT_TRUE(peer->Send(0, Pattern(50, 3)));
    ASSERT_TRUE(WaitQueued(50));
    EXPECT_EQ(uart.ResetReadBuffer(), 0u);
    EXPECT_TRUE(WaitQueued(0));
    EXPECT_TRUE(Read(64).empty());
    EXPECT_EQ(uart.ResetWriteBuffer(), 0u);
}

// Every byte value and more than a line buffer, and two lines that stay apart.
TEST_F(UartCom, BytesPassBothWaysUnchangedAndTwoLinesStaySeparate)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    std::vector<uint8_t> all(256);
    std::iota(all.begin(), all.end(), 0);
    ASSERT_EQ(uart.Write(all.data(), unsigned(all.size()), 1000), 0u);
    EXPECT_EQ(peer->Receive(0, all.size()), all);

    const auto back = Pattern(3000, 0x55);
    ASSERT_TRUE(peer->Send(0, back));
    std::vector<uint8_t> got;
    WaitUntil([&] {
        const auto more = Read(512);
        got.insert(got.end(), more.begin(), more.end());
        return got.size() >= back.size();
    });
    EXPECT_EQ(got, back);

    Params p;
    ASSERT_EQ(other.Open(peer->PortName(1).c_str(), &p), 0u);
    unsigned char a[] = {0xA1, 0xA2};
    unsigned char b[] = {0xB1};
    ASSERT_EQ(uart.Write(a, 2, 1000), 0u);
    ASSERT_EQ(other.Write(b, 1, 1000), 0u);
    EXPECT_EQ(peer->Receive(1, 1), std::vector<uint8_t>({0xB1}));
    EXPECT_EQ(peer->Receive(0, 2), std::vector<uint8_t>({0xA1, 0xA2}));
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
        const auto more = peer->Receive(0, 1 << 20, 100);
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
