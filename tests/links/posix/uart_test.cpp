// CUart on a pseudo-terminal; the slave's settings are read on the test's own descriptor.
#include "PtyPair.h"

#include "links/BytePattern.h"

#include <HdwLib/links/Uart.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include <sys/ioctl.h>
#include <termios.h>

long ReadLineSpeed(int fd);

namespace {

using Params = CKVX_HdwUartPort::CParameters;

class UartPty : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(pty.Ok()); }
    void TearDown() override { uart.Close(); }

    unsigned OpenWith(const Params& p)
    {
        Params copy = p;
        return uart.Open(pty.SlaveName(), &copy);
    }

    bool WaitQueued(unsigned expected)
    {
        unsigned queued = 0;
        return WaitUntil([&] { return uart.GetReadBufferBytes(queued) == 0 && queued == expected; });
    }

    std::vector<uint8_t> Read(unsigned max)
    {
        std::vector<uint8_t> buf(max + 1);
        unsigned n = 77;
        EXPECT_EQ(uart.Read(buf.data(), max, n), 0u);
        EXPECT_LE(n, max);
        buf.resize(std::min(n, max));
        return buf;
    }

    PtyPair pty;
    CUart uart;
};

TEST(UartClosed, NotOpenOrFailedToOpenAnswers19)
{
    for (const char* name : {"", "/dev/hdwlib-no-such-tty", "/dev/null"}) {
        CUart uart;
        Params p;
        if (*name) {
            EXPECT_EQ(uart.Open(name, &p), 14u) << name;
        }
        EXPECT_FALSE(uart.IsOpen());
        unsigned char buf[4] = {1, 2, 3, 4};
        unsigned n = 99;
        EXPECT_EQ(uart.Read(buf, 4, n), 19u);
        EXPECT_EQ(n, 0u);
        EXPECT_EQ(uart.Write(buf, 4, 10), 19u);
        EXPECT_EQ(uart.WriteSome(buf, 4, n), 19u);
        EXPECT_EQ(uart.GetReadBufferBytes(n), 19u);
        EXPECT_EQ(uart.Close(), 0u);
    }
}

TEST_F(UartPty, OpenConfiguresARawLineWithTheStopBitsFlowControlAndRateOrRefusesBadCodesAndParity)
{
    // One and a half stop bits set two; odd rates are set the same way (termios2).
    const struct {
        const char* What;
        uint8_t Stop, Flow;
        uint32_t Rate;
        tcflag_t Cflag, Iflag; // of CSTOPB | CRTSCTS and IXON | IXOFF
    } cases[] = {
        {"plain", Params::StopBitsOne, 0, 115200, 0, 0},
        {"two stop bits", Params::StopBitsTwo, 0, 250000, CSTOPB, 0},
        {"one and a half", Params::StopBitsOneAndHalf, 0, 6000000, CSTOPB, 0},
        {"xon/xoff", Params::StopBitsOne, Params::FlowXonXoff, 9600, 0, IXON | IXOFF},
        {"rts/cts", Params::StopBitsOne, uint8_t(Params::FlowRtsCts | Params::FlowDtrDsr), 9600, CRTSCTS, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.What);
        Params p;
        p.StopBits = c.Stop;
        p.FlowControl = c.Flow;
        p.BaudRate = c.Rate;
        ASSERT_EQ(OpenWith(p), 0u);
        EXPECT_TRUE(uart.IsOpen());
        termios t{};
        ASSERT_EQ(tcgetattr(pty.Slave(), &t), 0);
        EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG), 0u);
        EXPECT_EQ(t.c_oflag & OPOST, 0u);
        EXPECT_EQ(t.c_iflag & (ICRNL | IXON | IXOFF), c.Iflag);
        EXPECT_EQ(t.c_cflag & CSIZE, tcflag_t(CS8));
        EXPECT_EQ(t.c_cflag & (PARENB | CSTOPB | CRTSCTS), c.Cflag);
        EXPECT_NE(t.c_cflag & CREAD, 0u);
        if (c.Flow) {
            EXPECT_EQ(t.c_cc[VSTART], 0x11);
            EXPECT_EQ(t.c_cc[VSTOP], 0x13);
        }
        EXPECT_EQ(ReadLineSpeed(pty.Slave()), long(c.Rate));
        EXPECT_EQ(uart.Close(), 0u);
        EXPECT_FALSE(uart.IsOpen());
    }
    EXPECT_EQ(uart.Close(), 0u); // closing a closed line is no error

    // Invalid codes or parity fail the configuration and free the line. The kernel clears PARENB on a pseudo-terminal:
    // every parity is refused.
    std::vector<Params> refused(5);
    refused[0].StopBits = 3;
    refused[1].DataBits = 9;
    refused[2].BaudRate = 0;
    refused[3].Parity = 5;
    refused[4].Parity = Params::ParityOdd;
    for (size_t i = 0; i < refused.size(); ++i) {
        EXPECT_EQ(OpenWith(refused[i]), 14u) << "case " << i;
        EXPECT_FALSE(uart.IsOpen()) << "case " << i;
    }
    ASSERT_EQ(OpenWith(Params()), 0u);
    // SetParity: a refusal is 14 and closes the port, keeping the old parity.
    EXPECT_EQ(uart.SetParity(Params::ParityNone), 0u);
    EXPECT_TRUE(uart.IsOpen());
    EXPECT_EQ(uart.SetParity(Params::ParityEven), 14u);
    EXPECT_FALSE(uart.IsOpen());
    EXPECT_EQ(uart.GetParameters().Parity, Params::ParityNone);
}

TEST_F(UartPty, OpenDiscardsWhatWasQueuedAndReadsTakeAtMostMaxBytesInOrderAndQueuesCountAndPurge)
{
    ASSERT_TRUE(pty.WriteMaster(Pattern(20, 4)));
    ASSERT_TRUE(WaitUntil([&] {
        int n = 0;
        ioctl(pty.Slave(), FIONREAD, &n);
        return n == 20;
    }));
    ASSERT_EQ(OpenWith(Params()), 0u);
    EXPECT_TRUE(Read(64).empty());
    unsigned char out[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(uart.Write(out, 0, 0), 0u);
    EXPECT_EQ(pty.MasterQueued(), 0);
    unsigned queued = 99;
    EXPECT_EQ(uart.GetBytesToBeWritten(queued), 0u);
    EXPECT_EQ(queued, 0u);

    const auto data = Pattern(10, 0x30);
    ASSERT_TRUE(pty.WriteMaster(data));
    ASSERT_TRUE(WaitQueued(10));
    EXPECT_TRUE(Read(0).empty());
    EXPECT_EQ(Read(4), std::vector<uint8_t>(data.begin(), data.begin() + 4));
    EXPECT_EQ(Read(10), std::vector<uint8_t>(data.begin() + 4, data.end()));

    ASSERT_TRUE(pty.WriteMaster(Pattern(50, 3)));
    ASSERT_TRUE(WaitQueued(50));
    EXPECT_EQ(uart.ResetReadBuffer(), 0u);
    EXPECT_TRUE(WaitQueued(0));
    EXPECT_TRUE(Read(64).empty());

    // A pseudo-terminal has no output queue: nothing is left to purge.
    ASSERT_EQ(uart.Write(out, 5, 1000), 0u);
    ASSERT_TRUE(WaitUntil([&] { return pty.MasterQueued() == 5; }));
    EXPECT_EQ(uart.ResetWriteBuffer(), 0u);
    EXPECT_EQ(pty.ReadMaster(5), std::vector<uint8_t>({1, 2, 3, 4, 5}));
}

TEST_F(UartPty, WriteTimesOutOnAnUndrainedLineAndDropsTheRest)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    // Nobody reads the master: the line fills up and the write cannot finish.
    const auto big = Pattern(1 << 20, 1);
    EXPECT_EQ(uart.Write(const_cast<uint8_t*>(big.data()), unsigned(big.size()), 200), 23u);
    EXPECT_TRUE(uart.IsOpen());
    EXPECT_EQ(uart.Write(const_cast<uint8_t*>(big.data()), unsigned(big.size()), 0), 23u);
    // A marker written afterwards comes right after a prefix of the timed-out data.
    unsigned markerRc = 99;
    std::thread writer([&] {
        unsigned char marker[] = {0xEE, 0xFF, 0xEE};
        markerRc = uart.Write(marker, 3, 10000);
    });
    std::vector<uint8_t> got;
    WaitUntil([&] {
        const auto more = pty.ReadSome();
        got.insert(got.end(), more.begin(), more.end());
        return got.size() >= 3 && got[got.size() - 3] == 0xEE && got[got.size() - 2] == 0xFF && got.back() == 0xEE;
    });
    writer.join();
    EXPECT_EQ(markerRc, 0u);
    ASSERT_GE(got.size(), 3u);
    const size_t before = got.size() - 3;
    EXPECT_LT(before, big.size());
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + long(before), big.begin()));
}

// WriteSome takes what the line takes and returns at once: 0 bytes from a full
// line, more once it is read, everything in order; a hung-up line answers 13.
TEST_F(UartPty, WriteSomeTakesWhatTheLineTakesWithoutWaiting)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    const auto big = Pattern(1 << 20, 9);
    size_t offered = 0;
    unsigned written = 99;
    for (;;) {
        ASSERT_EQ(uart.WriteSome(big.data() + offered, 4096, written), 0u);
        if (written == 0)
            break;
        offered += written;
        ASSERT_LT(offered, big.size()) << "a pseudo-terminal holds far less than 1 MB";
    }
    ASSERT_GT(offered, 0u);
    std::vector<uint8_t> got = pty.ReadMaster(offered);
    ASSERT_EQ(got.size(), offered);
    ASSERT_TRUE(WaitUntil([&] {
        EXPECT_EQ(uart.WriteSome(big.data() + offered, 4096, written), 0u);
        offered += written;
        return written > 0;
    }));
    const auto rest = pty.ReadMaster(offered - got.size());
    got.insert(got.end(), rest.begin(), rest.end());
    EXPECT_EQ(got, std::vector<uint8_t>(big.begin(), big.begin() + long(offered)));
    EXPECT_EQ(uart.WriteSome(big.data(), 0, written), 0u);
    EXPECT_EQ(written, 0u);

    pty.CloseMaster();
    EXPECT_EQ(uart.WriteSome(big.data(), 16, written), 13u);
    EXPECT_EQ(written, 0u);
}

// A hang-up (a bridge unplugged) is a dead line, not an empty one.
TEST_F(UartPty, HungUpLineTurnsIntoResultCodes)
{
    ASSERT_EQ(OpenWith(Params()), 0u);
    if (ioctl(pty.Slave(), TIOCVHANGUP) != 0)
        GTEST_SKIP() << "hanging up a terminal needs CAP_SYS_ADMIN";
    unsigned char buf[8];
    unsigned n = 5;
    EXPECT_EQ(uart.Read(buf, sizeof buf, n), 13u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(uart.Close(), 0u);
}

} // namespace
