// The emulator served on a pseudo-terminal, driven through its slave the way
// the host's serial link would.

#include "TestHost.h"

#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <functional>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

using namespace simtest;

namespace {

constexpr unsigned EvEcho = 0, EvA429Rx = 2;

// The host's end: the slave, raw and non-blocking; what it reads goes to Stream.
struct Slave {
    explicit Slave(const std::string& path) : Fd(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        termios t{};
        tcgetattr(Fd, &t);
        cfmakeraw(&t);
        tcsetattr(Fd, TCSANOW, &t);
    }
    ~Slave() { close(Fd); }
    void Write(const Bytes& b)
    {
        for (size_t done = 0; done < b.size();) {
            const ssize_t n = write(Fd, b.data() + done, b.size() - done);
            if (n > 0)
                done += static_cast<size_t>(n);
            else
                poll(nullptr, 0, 1);
        }
    }
    // Reads until `done` holds (10 s at most).
    bool ReadUntil(const std::function<bool()>& done)
    {
        return WaitUntil([&] {
            uint8_t buf[4096];
            const ssize_t n = read(Fd, buf, sizeof buf);
            if (n > 0)
                Stream.Feed(buf, static_cast<size_t>(n));
            return done();
        });
    }
    int Fd;
    UnitStream Stream;
};

struct PtyFixture : ::testing::Test {
    void StartSim()
    {
        Sim = std::make_unique<hdwsim::Emulator>(hdwsim::HaldenModel(), hdwsim::Emulator::Options{});
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
    ASSERT_GE(s.Fd, 0);
    s.Write(Frame(
        {Session(1, false), Session(2, true), AtxConfig(3, 0, true, 299), ArxConfig(4, 0, true, true, AllLabels())}));
    s.Write(Frame({AtxPush(5, 0, 0x1234), AtxPush(6, 0, 0x5678)}));
    ASSERT_TRUE(s.ReadUntil([&] { return s.Stream.OfType(EvA429Rx).size() == 2; }));
    const auto echoes = s.Stream.OfType(EvEcho);
    ASSERT_EQ(echoes.size(), 6u);
    for (unsigned i = 0; i < 6; ++i)
        EXPECT_EQ(echoes[i].EchoNumber(), i + 1);
    EXPECT_EQ(s.Stream.OfType(EvA429Rx)[1].Word(), 0x5678u);
    EXPECT_EQ(s.Stream.BadFrames, 0u);
    const hdwsim::Counters c = Sim->GetCounters();
    EXPECT_EQ(c.CommandsReceived, 6u);
    EXPECT_EQ(c.A429Transmitted[0], 2u);
}

TEST_F(PtyFixture, SlaveOpenedAgainIsServedAndBytesWhileHungUpAreIgnored)
{
    StartSim();
    {
        Slave probe(Sim->PtyPath());
        probe.Write(Frame({Session(0, false)}));
        ASSERT_TRUE(probe.ReadUntil([&] { return probe.Stream.OfType(EvEcho).size() == 1; }));
    }
    Slave s(Sim->PtyPath());
    Sim->SetHungUp(true);
    const Bytes lost = Frame({Session(1, true)});
    s.Write(lost);
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().BytesIgnored == lost.size(); }));
    Sim->SetHungUp(false);
    s.Write(Frame({Session(2, true)}));
    ASSERT_TRUE(s.ReadUntil([&] { return !s.Stream.OfType(EvEcho).empty(); }));
    ASSERT_EQ(s.Stream.OfType(EvEcho).size(), 1u);
    EXPECT_EQ(s.Stream.OfType(EvEcho)[0].EchoNumber(), 2u);
    EXPECT_EQ(Sim->GetCounters().CommandsReceived, 2u);
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
