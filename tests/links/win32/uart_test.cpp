// The Win32 CUart on a real line: under wine, a COM port onto a pseudo-terminal
// whose far end SerialPeer plays.
#include "SerialPeer.h"
#include "links/BytePattern.h"
#include "links/WaitUntil.h"

#include <HdwLib/links/Uart.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <thread>

namespace {

using Params = CKVX_HdwUartPort::CParameters;

class UartCom : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (std::getenv("HDWLIB_SERIAL_PEER"))
            peer = std::make_unique<SerialPeer>();
    }
    static void TearDownTestSuite() { peer.reset(); }

    void SetUp() override
    {
        if (!peer)
            GTEST_SKIP() << "no serial peer: run under tests/support/wine_serial_peer";
        ASSERT_TRUE(peer->Ok()) << "serial peer unreachable";
        ASSERT_TRUE(peer->Renew(0));
        ASSERT_TRUE(peer->Renew(1));
    }
    void TearDown() override
    {
        uart.Close();
        other.Close();
    }

    unsigned OpenWith(Params p, CUart& u, size_t line = 0) { return u.Open(peer->PortName(line).c_str(), &p); }
    unsigned OpenWith(Params p) { return OpenWith(p, uart); }
    SerialPeer::Settings LineSettings() { return peer->GetSettings(0); }

    bool WaitQueued(unsigned expected)
    {
        unsigned queued = 0;
        return WaitUntil([&] { return uart.GetReadBufferBytes(queued) == 0 && queued == expected; });
    }

    static inline std::unique_ptr<SerialPeer> peer;
    CUart uart;
    CUart other;
};

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
    const SerialPeer::Settings raw8N1 = {{"baud", "115200"}, {"bits", "8"}, {"parity", "none"}, {"stop", "1"},
        {"crtscts", "0"}, {"ixon", "0"}, {"ixoff", "0"}, {"raw", "1"}};
    auto s = LineSettings();
    for (const auto& [key, value] : raw8N1)
        EXPECT_EQ(s[key], value) << key;
    EXPECT_EQ(uart.GetParameters().BaudRate, 115200u);

    EXPECT_EQ(uart.Close(), 0u);
    EXPECT_FALSE(uart.IsOpen());
    EXPECT_EQ(uart.Close(), 0u);
    unsigned n = 0;
    EXPECT_EQ(uart.GetReadBufferBytes(n), 19u);
    ASSERT_EQ(OpenWith(Params()), 0u);
    EXPECT_EQ(LineSettings()["baud"], "9600");
}

TEST_F(UartCom, RateStopBitsAndFlowControlReachTheLine)
{
    struct Case {
        uint32_t rate;
        uint8_t stop, flow;
        const char *crtscts, *ixon; // ixoff follows ixon
    };
    for (const Case& c : {Case{9600, Params::StopBitsTwo, Params::FlowXonXoff, "0", "1"},
             Case{57600, Params::StopBitsTwo, Params::FlowRtsCts, "1", "0"},
             Case{230400, Params::StopBitsOne, 0, "0", "0"}}) {
        Params p;
        p.BaudRate = c.rate;
        p.StopBits = c.stop;
        p.FlowControl = c.flow;
        ASSERT_EQ(OpenWith(p), 0u) << c.rate;
        auto s = LineSettings();
        EXPECT_EQ(s["baud"], std::to_string(c.rate));
        EXPECT_EQ(s["stop"], c.stop == Params::StopBitsTwo ? "2" : "1") << c.rate;
        EXPECT_EQ(s["crtscts"], c.crtscts) << c.rate;
        EXPECT_EQ(s["ixon"], c.ixon) << c.rate;
        EXPECT_EQ(s["ixoff"], c.ixon) << c.rate;
        if (c.flow == Params::FlowXonXoff) {
            EXPECT_EQ(s["xon"], "17"); // DC1
            EXPECT_EQ(s["xoff"], "19"); // DC3
        }
        uart.Close();
    }
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

TEST_F(UartCom, OpenDiscardsOldBytesThenReadsQueueCountsAndPurge)
{
    ASSERT_TRUE(peer->Send(0, Pattern(20, 4)));
    ASSERT_TRUE(WaitUntil([&] { return peer->InQueue(0) == 20; }));
    ASSERT_EQ(OpenWith(Params()), 0u);
    unsigned queued = 99;
    EXPECT_EQ(uart.GetReadBufferBytes(queued), 0u);
    EXPECT_EQ(queued, 0u);
    unsigned char buf[64];
    unsigned n = 77;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 0u);
    EXPECT_EQ(n, 0u);
    queued = 99;
    EXPECT_EQ(uart.GetBytesToBeWritten(queued), 0u);
    EXPECT_EQ(queued, 0u);

    // A read of zero bytes takes nothing; a short read leaves the rest in order.
    const auto data = Pattern(10, 0x30);
    ASSERT_TRUE(peer->Send(0, data));
    ASSERT_TRUE(WaitQueued(10));
    n = 77;
    EXPECT_EQ(uart.Read(buf, 0, n), 0u);
    EXPECT_EQ(n, 0u);
    ASSERT_TRUE(WaitQueued(10));
    ASSERT_EQ(uart.Read(buf, 4, n), 0u);
    ASSERT_EQ(n, 4u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 4), std::vector<uint8_t>(data.begin(), data.begin() + 4));
    ASSERT_EQ(uart.Read(buf, 10, n), 0u);
    ASSERT_EQ(n, 6u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 6), std::vector<uint8_t>(data.begin() + 4, data.end()));

    ASSERT_TRUE(peer->Send(0, Pattern(50, 3)));
    ASSERT_TRUE(WaitQueued(50));
    EXPECT_EQ(uart.ResetReadBuffer(), 0u);
    EXPECT_EQ(uart.GetReadBufferBytes(queued), 0u);
    EXPECT_EQ(queued, 0u);
    n = 9;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 0u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(uart.ResetWriteBuffer(), 0u);
}

TEST_F(UartCom, BytesPassBothWaysUnchangedAndTwoLinesStaySeparate)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    ASSERT_EQ(OpenWith(Params(), other, 1), 0u);
    std::vector<uint8_t> all(256);
    std::iota(all.begin(), all.end(), 0);
    unsigned char b1 = 0xB1;
    ASSERT_EQ(uart.Write(all.data(), unsigned(all.size()), 1000), 0u);
    ASSERT_EQ(other.Write(&b1, 1, 1000), 0u);
    EXPECT_EQ(peer->Receive(1, 1), std::vector<uint8_t>({0xB1}));
    EXPECT_EQ(peer->Receive(0, all.size()), all);

    const auto back = Pattern(3000, 0x55);
    ASSERT_TRUE(peer->Send(0, back));
    std::vector<uint8_t> got;
    unsigned char buf[512];
    WaitUntil([&] {
        unsigned n = 0;
        EXPECT_EQ(uart.Read(buf, sizeof buf, n), 0u);
        got.insert(got.end(), buf, buf + n);
        return got.size() >= back.size();
    });
    EXPECT_EQ(got, back);
}

TEST_F(UartCom, WriteTimesOutOnAnUndrainedLine)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    // Nobody reads the far end: the line fills up.
    const auto big = Pattern(1 << 20, 1);
    EXPECT_EQ(uart.Write(const_cast<uint8_t*>(big.data()), unsigned(big.size()), 200), 23u);
    EXPECT_TRUE(uart.IsOpen());
    EXPECT_EQ(uart.Write(const_cast<uint8_t*>(big.data()), unsigned(big.size()), 0), 23u);
    // What went out before the time-out stays; nothing of the rest follows the
    // prefix, so a marker written now comes right after it.
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
    unsigned char buf[8];
    unsigned n = 5;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 13u);
    EXPECT_EQ(n, 0u);
    // A refused write answers 0 (a dead link shows by missing answers), at once.
    unsigned char out[] = {1, 2, 3};
    EXPECT_EQ(uart.Write(out, 3, 100), 0u);
    EXPECT_EQ(uart.Close(), 0u);
    EXPECT_FALSE(uart.IsOpen());
}

} // namespace
