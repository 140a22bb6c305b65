// The emulator served on a pseudo-terminal, driven through its slave the way
// the host's serial link would.

#include "TestHost.h"

#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

using namespace simtest;

namespace {

constexpr unsigned EvEcho = 0, EvA429Rx = 2, EvA429Tx = 3;

class Slave {
public:
    explicit Slave(const std::string& path)
    {
        m_Fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (m_Fd >= 0) {
            termios t{};
            tcgetattr(m_Fd, &t);
            cfmakeraw(&t);
            tcsetattr(m_Fd, TCSANOW, &t);
        }
    }
    ~Slave() { Close(); }
    void Close()
    {
        if (m_Fd >= 0)
            close(m_Fd);
        m_Fd = -1;
    }
    bool IsOpen() const { return m_Fd >= 0; }
    void Write(const Bytes& b)
    {
        size_t done = 0;
        while (done < b.size()) {
            const ssize_t n = write(m_Fd, b.data() + done, b.size() - done);
            if (n > 0)
                done += static_cast<size_t>(n);
            else
                poll(nullptr, 0, 1);
        }
    }
    // Reads into the stream until `done` holds or 10 s pass; false on time-out or hang-up.
    bool ReadUntil(UnitStream& s, const std::function<bool()>& done)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            pollfd p{m_Fd, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0)
                continue;
            if (p.revents & (POLLHUP | POLLERR))
                return false;
            uint8_t buf[4096];
            const ssize_t n = read(m_Fd, buf, sizeof buf);
            if (n > 0)
                s.Feed(buf, static_cast<size_t>(n));
            else if (n == 0 || (errno != EAGAIN && errno != EINTR))
                return false;
        }
        return true;
    }
    int Fd() const { return m_Fd; }

private:
    int m_Fd = -1;
};

struct PtyFixture : ::testing::Test {
    void StartSim(bool pacing = false)
    {
        hdwsim::Emulator::Options o;
        o.Pacing = pacing;
        Sim = std::make_unique<hdwsim::Emulator>(hdwsim::HaldenModel(), o);
        std::string error;
        ASSERT_TRUE(Sim->Start(&error)) << error;
        ASSERT_FALSE(Sim->PtyPath().empty());
    }
    std::unique_ptr<hdwsim::Emulator> Sim;
};

} // namespace

TEST_F(PtyFixture, CommandsAreEchoedAndArinc429WordsLoopBack)
{
    StartSim();
    Slave s(Sim->PtyPath());
    ASSERT_TRUE(s.IsOpen());
    UnitStream u;
    s.Write(Frame({Session(1, false), Session(2, true), AtxConfig(3, 0, true, 299),
                   ArxConfig(4, 0, true, true, AllLabels())}));
    s.Write(Frame({AtxPush(5, 0, 0x1234), AtxPush(6, 0, 0x5678)}));
    ASSERT_TRUE(s.ReadUntil(u, [&] { return u.OfType(EvA429Rx).size() == 2; }));
    const auto echoes = u.OfType(EvEcho);
    ASSERT_EQ(echoes.size(), 6u);
    for (unsigned i = 0; i < 6; ++i)
        EXPECT_EQ(echoes[i].EchoNumber(), i + 1);
    EXPECT_EQ(u.OfType(EvA429Rx)[1].Word(), 0x5678u);
    EXPECT_EQ(u.BadFrames, 0u);
    const hdwsim::Counters c = Sim->GetCounters();
    EXPECT_EQ(c.CommandsReceived, 6u);
    EXPECT_EQ(c.A429Transmitted[0], 2u);
}

TEST_F(PtyFixture, SlaveClosedAndOpenedAgainIsServed)
{
    StartSim();
    const std::string path = Sim->PtyPath();
    {
        Slave probe(path);
        UnitStream u;
        probe.Write(Frame({Session(0, false)}));
        ASSERT_TRUE(probe.ReadUntil(u, [&] { return u.OfType(EvEcho).size() == 1; }));
    }
    Slave s(path);
    UnitStream u;
    s.Write(Frame({Session(1, false), Session(2, true)}));
    ASSERT_TRUE(s.ReadUntil(u, [&] { return u.OfType(EvEcho).size() >= 2; }));
    EXPECT_EQ(u.OfType(EvEcho).back().EchoNumber(), 2u);
    EXPECT_EQ(Sim->GetCounters().CommandsReceived, 3u);
}

TEST_F(PtyFixture, StoppedEchoesAndHangUpSilenceTheUnit)
{
    StartSim();
    Slave s(Sim->PtyPath());
    UnitStream u;
    Sim->SetEchoEnabled(false);
    s.Write(Frame({Session(1, true)}));
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().EchoesSuppressed == 1; }));

    Sim->SetEchoEnabled(true);
    Sim->SetHungUp(true);
    const Bytes lost = Frame({Session(2, true)});
    s.Write(lost);
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().BytesIgnored == lost.size(); }));
    Sim->SetHungUp(false);
    s.Write(Frame({Session(3, true)}));
    ASSERT_TRUE(s.ReadUntil(u, [&] { return !u.OfType(EvEcho).empty(); }));
    ASSERT_EQ(u.OfType(EvEcho).size(), 1u);
    EXPECT_EQ(u.OfType(EvEcho)[0].EchoNumber(), 3u);
    EXPECT_EQ(Sim->GetCounters().CommandsReceived, 2u);
}

TEST_F(PtyFixture, ClosedMasterFailsTheSlaveAndANewTerminalServesAgain)
{
    StartSim();
    Slave s(Sim->PtyPath());
    Sim->ClosePty();
    UnitStream u;
    // The host sees the hang-up as a failing read.
    EXPECT_FALSE(s.ReadUntil(u, [] { return false; }));
    s.Close();
    std::string error;
    ASSERT_TRUE(Sim->ReopenPty(&error)) << error;
    Slave again(Sim->PtyPath());
    ASSERT_TRUE(again.IsOpen());
    again.Write(Frame({Session(9, true)}));
    ASSERT_TRUE(again.ReadUntil(u, [&] { return u.OfType(EvEcho).size() == 1; }));
    EXPECT_EQ(u.OfType(EvEcho)[0].EchoNumber(), 9u);
}

TEST_F(PtyFixture, PacedWordsAreSpacedByTheirBusTimeOnTheUnitClock)
{
    StartSim(true);
    Slave s(Sim->PtyPath());
    UnitStream u;
    std::vector<Bytes> recs{AtxConfig(1, 1, true, 2399), ArxConfig(2, 1, true, false, AllLabels())};
    for (unsigned i = 0; i < 30; ++i)
        recs.push_back(AtxPush(10 + i, 1, i));
    s.Write(FrameOf(recs));
    ASSERT_TRUE(s.ReadUntil(u, [&] { return u.OfType(EvA429Tx).size() == 30; }));
    const auto tx = u.OfType(EvA429Tx);
    // 12.5 kbit/s: 36 bit times are 2880 us; the unit cannot send faster.
    for (size_t i = 1; i < tx.size(); ++i)
        EXPECT_EQ(tx[i].Time() - tx[i - 1].Time(), 2880u);
    EXPECT_EQ(u.OfType(EvA429Rx).size(), 30u);
}

namespace {

uint32_t MonotonicUs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint32_t(uint64_t(t.tv_sec) * 1000000u + uint64_t(t.tv_nsec) / 1000u);
}

// A load test in another process compares the events' time stamps with its
// own CLOCK_MONOTONIC: with the option the unit clock is that clock.
TEST(EmulatorClock, MonotonicOptionMakesTheUnitClockTheSystemMonotonicClock)
{
    hdwsim::Emulator::Options o;
    o.MonotonicClock = true;
    o.ClockStartUs = 12345; // overridden by the option
    hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
    ASSERT_TRUE(sim.Start());
    for (int i = 0; i < 100; ++i) {
        const uint32_t before = MonotonicUs();
        const uint32_t unit = sim.ClockUs();
        const uint32_t after = MonotonicUs();
        // Wrap-safe: unit lies in [before - 1, after + 1] (whole microseconds on both sides).
        ASSERT_LE(uint32_t(unit - before + 1), uint32_t(after - before + 2)) << "try " << i;
    }
}

TEST(EmulatorClock, WithoutTheOptionTheUnitClockStartsAtClockStartUs)
{
    hdwsim::Emulator::Options o;
    o.ClockStartUs = 0x7FFF0000u;
    hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
    ASSERT_TRUE(sim.Start());
    const uint32_t elapsed = sim.ClockUs() - o.ClockStartUs;
    EXPECT_LT(elapsed, 10'000'000u); // the emulator was made less than 10 s ago
}

} // namespace
