// The Sorrel's six UARTs end to end over UDP on 127.0.0.1, reached through the whole library.
#include "UnitRig.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <tuple>

namespace {

using halden_test::Pattern;
using testsupport::WaitUntil;

// Room for everything a test sends, so that a slow reader never drops.
constexpr uint32_t kInBufferBytes = 8u << 20;

// What a UART of the unit may hold unsent to the host (one Data buffer) when it goes away: the host cannot count it.
constexpr size_t kGatherSlack = 1024;

// Sanitized hosts are several times slower: lines run an eighth as fast there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned kSanitizedPaceDivisor = 8;
#else
constexpr unsigned kSanitizedPaceDivisor = 1;
#endif

hdwsim::Emulator::Options SimOptions(unsigned paceFactor)
{
    hdwsim::Emulator::Options o = halden_test::EmulatorOptions(true);
    o.UartPaceFactor = std::max(1u, paceFactor / kSanitizedPaceDivisor);
    return o;
}

CKVX_HdwUartPort::CParameters Line(uint32_t baudRate)
{
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = baudRate;
    return p;
}

class SorrelRig : public halden_test::UnitRig {
public:
    struct Uart {
        CKVX_HdwPort* Port = nullptr;
        CKVX_HdwKvxSorrelByteInBufferService* In = nullptr;
        CKVX_HdwKvxSorrelByteOutBufferService* Out = nullptr;
        CKVX_HdwSignalService* Signals = nullptr; // with StartPair(rate, true)
        std::vector<uint8_t> Got;
    };

    explicit SorrelRig(unsigned paceFactor = 1) : UnitRig(halden_test::UnitNamed("sorrel"), SimOptions(paceFactor)) {}
    ~SorrelRig()
    {
        for (unsigned i = 0; i < Manager.GetPortCount(HDW_PORT_UART); ++i)
            if (CKVX_HdwPort* p = Manager.GetPort(HDW_PORT_UART, i))
                p->Close();
    }

    void Enable(unsigned num)
    {
        Uart& u = Uarts[num];
        u.Port = Port(HDW_PORT_UART, num);
        CKVX_HdwByteInBufferService::CParameters in;
        in.BufferSize = kInBufferBytes;
        u.In =
            UnitRig::Enable<CKVX_HdwKvxSorrelByteInBufferService>(HDW_PORT_UART, num, HDW_SERVICE_BYTE_IN_BUFFER, &in);
        u.Out = UnitRig::Enable<CKVX_HdwKvxSorrelByteOutBufferService>(HDW_PORT_UART, num, HDW_SERVICE_BYTE_OUT_BUFFER);
        ASSERT_TRUE(u.In && u.Out);
    }

    unsigned Open(unsigned num, CKVX_HdwUartPort::CParameters line) { return Uarts[num].Port->Open(&line); }

    // Starts and opens the wired UARTs 0 and 1 with their services (and signal services in `group`).
    void StartPair(uint32_t rate, CKVX_HdwSignalGroup* group = nullptr)
    {
        ASSERT_NO_FATAL_FAILURE(Start());
        for (unsigned n : {0, 1}) {
            ASSERT_NO_FATAL_FAILURE(Enable(n));
            if (group) {
                CKVX_HdwSignalService::CParameters sp;
                sp.BufferSize = 1u << 16; // every signal of a test, read or not
                Uarts[n].Signals = UnitRig::Enable<CKVX_HdwSignalService>(HDW_PORT_UART, n, HDW_SERVICE_SIGNAL, &sp);
                ASSERT_NE(Uarts[n].Signals, nullptr);
                ASSERT_EQ(Uarts[n].Signals->JoinGroup(group), 0u);
            }
            ASSERT_EQ(Open(n, Line(rate)), 0u) << "UART " << n;
        }
    }

    // The signals waiting on UART `num`'s service.
    std::vector<CKVX_HdwSignalService::CSignal> TakeSignals(unsigned num)
    {
        std::vector<CKVX_HdwSignalService::CSignal> all;
        CKVX_HdwSignalService::CSignal batch[64];
        unsigned n = 0;
        while (Uarts[num].Signals->ReadSignals(batch, 64, n) == 0 && n)
            all.insert(all.end(), batch, batch + n);
        return all;
    }

    void Drain(unsigned num)
    {
        Uart& u = Uarts[num];
        uint8_t buf[65536];
        unsigned got = 0;
        while (u.In->Read(buf, sizeof buf, got) == 0 && got)
            u.Got.insert(u.Got.end(), buf, buf + got);
    }

    // Drains every UART of `nums` until each holds `bytes`.
    bool ReadUntil(const std::vector<unsigned>& nums, size_t bytes, unsigned timeoutMs)
    {
        const auto done = [&](unsigned n) { return Drain(n), Uarts[n].Got.size() >= bytes; };
        return WaitUntil(
            [&] { return size_t(std::count_if(nums.begin(), nums.end(), done)) == nums.size(); }, timeoutMs);
    }

    Uart Uarts[6];
};

std::atomic<int> g_LinkTimeouts{0};
void CountLinkTimeouts(const char* text)
{
    if (std::strcmp(text, "LINK TIMEOUT!!!\n") == 0)
        ++g_LinkTimeouts;
}

// Settings the unit cannot run send nothing, the last good ones kept; closing a pair ends the session, re-opened clean.
TEST(SorrelUnit, EnumeratesSixUartsRefusesSettingsItCannotRunAndCloseEndsTheSession)
{
    SorrelRig rig(8);
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    ASSERT_EQ(rig.Manager.GetPortCount(HDW_PORT_UART), 6u);
    EXPECT_FALSE(rig.Sim.HasUdpSession()) << "enumeration detects, it does not connect";
    CKVX_HdwPort* port = rig.Manager.GetPort(HDW_PORT_UART, 0);
    CKVX_HdwService* s = nullptr;
    EXPECT_EQ(port->EnableService(HDW_SERVICE_CAN_IN_BUFFER, &s, nullptr), 10u);
    EXPECT_EQ(port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, nullptr), 0u);
    EXPECT_EQ(port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, nullptr), 26u);
    rig.Uarts[0].Port = port;

    CKVX_HdwUartPort::CParameters xon = Line(115200);
    xon.FlowControl = CKVX_HdwUartPort::CParameters::FlowXonXoff;
    for (const auto& p : {Line(100000), xon}) {
        EXPECT_EQ(rig.Open(0, p), 2u);
        EXPECT_FALSE(port->IsOpen());
    }
    EXPECT_EQ(rig.Sim.GetCounters().PortPacketsIn, 0u);
    CKVX_HdwUartPort::CParameters now;
    ASSERT_EQ(port->GetParameters(&now), 0u);
    EXPECT_EQ(now.BaudRate, 9600u);

    ASSERT_NO_FATAL_FAILURE(rig.Enable(4));
    ASSERT_NO_FATAL_FAILURE(rig.Enable(5));
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(rig.Open(4, Line(460800)), 0u) << round;
        ASSERT_EQ(rig.Open(5, Line(460800)), 0u) << round;
        const auto bytes = Pattern(20000, 10 + round);
        rig.Uarts[5].Got.clear();
        ASSERT_EQ(rig.Uarts[4].Out->Write(const_cast<uint8_t*>(bytes.data()), 20000, 0), 0u);
        EXPECT_TRUE(rig.ReadUntil({5}, bytes.size(), 60000));
        EXPECT_TRUE(rig.Uarts[5].Got == bytes) << round;
        EXPECT_EQ(rig.Uarts[4].Port->Close(), 0u);
        EXPECT_TRUE(rig.Sim.HasUdpSession()) << "UART 5 still uses it";
        EXPECT_EQ(rig.Uarts[5].Port->Close(), 0u);
        EXPECT_TRUE(WaitUntil([&] { return !rig.Sim.HasUdpSession(); }));
    }
    // A rate the unit's divider makes exactly is taken.
    EXPECT_EQ(rig.Open(0, Line(3600)), 0u);
}

// Rate, bytes each way, pace factor of the emulator's lines.
class SorrelRoundTrip : public ::testing::TestWithParam<std::tuple<uint32_t, size_t, unsigned>> {};

TEST_P(SorrelRoundTrip, EveryPairCarriesEveryByteInOrder)
{
    const auto [rate, bytes, pace] = GetParam();
    SorrelRig rig(pace);
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    for (unsigned n = 0; n < 6; ++n) {
        ASSERT_NO_FATAL_FAILURE(rig.Enable(n));
        ASSERT_EQ(rig.Open(n, Line(rate)), 0u) << "UART " << n;
    }
    std::vector<std::vector<uint8_t>> sent;
    for (unsigned n = 0; n < 6; ++n) {
        sent.push_back(Pattern(bytes, rate + n));
        ASSERT_EQ(rig.Uarts[n].Out->Write(sent[n].data(), unsigned(bytes), 0), 0u);
    }
    EXPECT_TRUE(rig.ReadUntil({0, 1, 2, 3, 4, 5}, bytes, 120000));
    const hdwsim::Counters c = rig.Sim.GetCounters(); // all received: the lines are done
    for (unsigned n = 0; n < 6; ++n) {
        EXPECT_EQ(
            std::tuple(c.UartRxDropped[n], c.UartFramingErrors[n], c.UartTransmitted[n]), std::tuple(0u, 0u, bytes))
            << n;
        const auto& got = rig.Uarts[n].Got;
        EXPECT_EQ(got.size(), bytes) << "UART " << n;
        EXPECT_TRUE(got == sent[n ^ 1u]) << "UART " << n << " received other bytes than UART " << (n ^ 1u) << " sent";
        EXPECT_EQ(rig.Uarts[n].In->GetDroppedCount(), 0u);
        unsigned left = 1;
        EXPECT_TRUE(WaitUntil([&] { return rig.Uarts[n].Out->GetBytesToBeWritten(left) == 0 && !left; }));
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, SorrelRoundTrip,
    ::testing::Values(std::make_tuple(9600u, size_t(6000), 4u), std::make_tuple(115200u, size_t(40000), 64u),
        std::make_tuple(921600u, size_t(40000), 8u)));

// Woken by the group's descriptor: each port's signals count the bytes the tick moved into its input (never one the
// input does not hold yet) and the bytes the unit took into its transmit buffer, in time order.
TEST(SorrelUnit, SignalsCountTheBytesReceivedAndAcknowledgedAndNeverRunAheadOfTheInput)
{
    SorrelRig rig(8);
    CKVX_HdwSignalGroup group;
    ASSERT_NO_FATAL_FAILURE(rig.StartPair(115200, &group));
    const std::vector<uint8_t> sent[2] = {Pattern(20000, 5), Pattern(12000, 6)};
    for (unsigned n : {0u, 1u})
        ASSERT_EQ(rig.Uarts[n].Out->Write(const_cast<uint8_t*>(sent[n].data()), unsigned(sent[n].size()), 0), 0u);

    uint64_t received[2] = {}, acked[2] = {}, lastTime[2] = {};
    const auto all = [&] {
        return received[0] == sent[1].size() && received[1] == sent[0].size() && acked[0] == sent[0].size() &&
            acked[1] == sent[1].size();
    };
    const int fd = group.GetFileDescriptor();
    ASSERT_GE(fd, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!all() && std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 200) != 1)
            continue;
        for (unsigned n : {0u, 1u}) {
            for (const CKVX_HdwSignalService::CSignal& s : rig.TakeSignals(n)) {
                ASSERT_EQ(s.Port, rig.Uarts[n].Port);
                ASSERT_GE(s.TimeStamp, lastTime[n]) << "UART " << n;
                lastTime[n] = s.TimeStamp;
                if (s.Kind == HDW_SIGNAL_UART_RECEIVED) {
                    received[n] += s.Value;
                } else if (s.Kind == HDW_SIGNAL_UART_SENT) {
                    acked[n] += s.Value;
                    ASSERT_LE(s.Aux, 16384u) << "the unit's free transmit buffer";
                } else {
                    FAIL() << "UART " << n << ": kind " << s.Kind;
                }
            }
            rig.Drain(n);
            ASSERT_GE(rig.Uarts[n].Got.size(), received[n]) << "UART " << n << ": a signal ran ahead of the input";
        }
    }
    EXPECT_EQ(std::tuple(received[0], received[1]), std::tuple(sent[1].size(), sent[0].size()));
    EXPECT_EQ(std::tuple(acked[0], acked[1]), std::tuple(sent[0].size(), sent[1].size()));
    for (unsigned n : {0u, 1u})
        EXPECT_TRUE(rig.Uarts[n].Got == sent[n ^ 1u]) << "UART " << n;
}

// Lost packets at the real line rate (whose 50 ms the unit's buffer holds).
TEST(SorrelUnit, LostPacketsBothWaysCostResendsNeverBytesAndResetsLetNoOlderByteThrough)
{
    SorrelRig rig(1);
    ASSERT_NO_FATAL_FAILURE(rig.StartPair(230400));
    rig.Sim.SetUdpDropFraction(0.05);
    rig.Sim.DropHostPackets(3);
    const size_t bytes = 64 * 1024;
    const auto a = Pattern(bytes, 1), b = Pattern(bytes, 2);
    ASSERT_EQ(rig.Uarts[0].Out->Write(const_cast<uint8_t*>(a.data()), unsigned(bytes), 0), 0u);
    ASSERT_EQ(rig.Uarts[1].Out->Write(const_cast<uint8_t*>(b.data()), unsigned(bytes), 0), 0u);
    // While the tick resends, what is left to write only goes down.
    unsigned left = 0, before = unsigned(bytes);
    EXPECT_TRUE(WaitUntil(
        [&] {
            EXPECT_EQ(rig.Uarts[0].Out->GetBytesToBeWritten(left), 0u);
            EXPECT_LE(left, before);
            before = left;
            return rig.ReadUntil({0, 1}, bytes, 0);
        },
        30000))
        << "UART 0 got " << rig.Uarts[0].Got.size() << ", UART 1 got " << rig.Uarts[1].Got.size();
    rig.Sim.SetUdpDropFraction(0);
    EXPECT_TRUE(rig.Uarts[1].Got == a);
    EXPECT_TRUE(rig.Uarts[0].Got == b);
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(c.HostPacketsIgnored, 3u);
    EXPECT_GT(c.UdpPacketsDropped, 0u);
    EXPECT_GT(c.PortDataResends, 0u) << "the unit resent what the host did not acknowledge";
    EXPECT_GT(rig.Uarts[0].Out->GetResendCount() + rig.Uarts[1].Out->GetResendCount(), 0u);

    // Resets while data flows let no older byte (0x00) follow a new one (0xFF).
    std::vector<uint8_t> old(40000, 0x00), fresh(3000, 0xFF);
    std::vector<uint8_t>& got = rig.Uarts[1].Got;
    got.clear();
    ASSERT_EQ(rig.Uarts[0].Out->Write(old.data(), unsigned(old.size()), 0), 0u);
    ASSERT_TRUE(rig.ReadUntil({1}, 1000, 20000)); // the line is busy
    EXPECT_EQ(rig.Uarts[0].Out->ResetWriteBuffer(), 0u);
    EXPECT_EQ(rig.Uarts[1].In->ResetReadBuffer(), 0u);
    got.clear();
    ASSERT_EQ(rig.Uarts[0].Out->Write(fresh.data(), unsigned(fresh.size()), 0), 0u);
    const auto allFresh = [&] { return std::count(got.begin(), got.end(), 0xFF) == 3000 && got.back() == 0xFF; };
    EXPECT_TRUE(WaitUntil([&] { return rig.Drain(1), allFresh(); }, 20000));
    EXPECT_EQ(std::count(got.begin(), got.end(), 0x00), 0) << "an old byte after the resets";
    EXPECT_EQ(got.size(), fresh.size());
}

// Lost packets on a sped-up line overflow the unit's buffer; Close adds what the unit dropped to the input's count.
TEST(SorrelUnit, BytesTheUnitDroppedCountAsLostAtClose)
{
    SorrelRig rig(512);
    ASSERT_NO_FATAL_FAILURE(rig.StartPair(115200));
    rig.Sim.SetUdpDropFraction(0.2);
    const auto bytes = Pattern(256 * 1024, 5);
    ASSERT_EQ(rig.Uarts[0].Out->Write(const_cast<uint8_t*>(bytes.data()), unsigned(bytes.size()), 0), 0u);
    const auto lineDone = [&] {
        rig.Drain(1);
        const hdwsim::Counters c = rig.Sim.GetCounters();
        return c.UartTransmitted[0] == bytes.size() && rig.Uarts[1].Got.size() + c.UartRxDropped[1] == bytes.size();
    };
    ASSERT_TRUE(WaitUntil(lineDone, 60000));
    rig.Sim.SetUdpDropFraction(0);
    const uint64_t unitDropped = rig.Sim.GetCounters().UartRxDropped[1];
    ASSERT_GT(unitDropped, 0u);
    EXPECT_EQ(rig.Uarts[1].In->GetDroppedCount(), 0u);
    EXPECT_EQ(rig.Uarts[1].Port->Close(), 0u);
    EXPECT_EQ(rig.Uarts[1].In->GetDroppedCount(), unitDropped);
}

// Unplugged: "LINK TIMEOUT!!!" once per silence, the services fail, closing works.
TEST(SorrelUnit, AnUnpluggedUnitFailsTheServicesAndReportsTheLinkTimeoutOnce)
{
    SorrelRig rig(8);
    ASSERT_NO_FATAL_FAILURE(rig.StartPair(921600));
    const auto bytes = Pattern(5000, 7);
    ASSERT_EQ(rig.Uarts[0].Out->Write(const_cast<uint8_t*>(bytes.data()), 5000, 0), 0u);
    ASSERT_TRUE(rig.ReadUntil({1}, bytes.size(), 20000));
    g_LinkTimeouts = 0;
    CKVX_HdwObject::SetDebugOutput(&CountLinkTimeouts);
    rig.Sim.Unplug();
    EXPECT_TRUE(WaitUntil([&] {
        return rig.Uarts[0].In->GetStatus() == HDW_SERVICE_FAILED &&
            rig.Uarts[1].Out->GetStatus() == HDW_SERVICE_FAILED;
    }));
    uint8_t b = 0;
    unsigned n = 0;
    EXPECT_EQ(rig.Uarts[1].In->Read(&b, 1, n), 15u);
    EXPECT_EQ(rig.Uarts[0].Out->Write(&b, 1, 0), 15u);
    EXPECT_TRUE(WaitUntil([] { return g_LinkTimeouts.load() >= 1; }));
    // Well past a second link time-out: still once for this one silence.
    const auto later = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    WaitUntil([&] { return std::chrono::steady_clock::now() >= later; }, 5000);
    EXPECT_EQ(g_LinkTimeouts.load(), 1);
    CKVX_HdwObject::SetDebugOutput(nullptr);
    EXPECT_EQ(rig.Uarts[0].Port->Close(), 0u);
    EXPECT_EQ(rig.Uarts[1].Port->Close(), 0u);
}

// The pair carries the rest of the stream in order; what went with the unit is counted.
TEST(SorrelUnit, WithReconnectALostUnitComesBackAndItsPairCarriesTheRestInOrder)
{
    SorrelRig rig;
    rig.Reconnect = true;
    CKVX_HdwSignalGroup group;
    ASSERT_NO_FATAL_FAILURE(rig.StartPair(115200, &group));
    const auto bytes = Pattern(60000, 11);
    ASSERT_EQ(rig.Uarts[0].Out->Write(const_cast<uint8_t*>(bytes.data()), unsigned(bytes.size()), 0), 0u);
    ASSERT_TRUE(rig.ReadUntil({1}, 2000, 20000));
    auto status = [&] {
        CKVX_HdwKvxUnitLinkStatus s;
        EXPECT_EQ(static_cast<CKVX_HdwKvxSorrelDevice&>(*rig.Device).GetUnitLinkStatus(0, s), 0u);
        return s;
    };
    rig.Sim.Unplug();
    ASSERT_TRUE(WaitUntil([&] { return status().Outages == 1; }, 20000));
    EXPECT_NE(status().State, unsigned(HDW_UNIT_LINK_UP));
    EXPECT_EQ(rig.Uarts[1].In->GetStatus(), unsigned(HDW_SERVICE_RUNNING)) << "no failure while lost";
    // Opening a third port tries the unit at once: 14 while away, back after the plug.
    ASSERT_NO_FATAL_FAILURE(rig.Enable(2));
    const uint32_t failed = status().FailedAttempts;
    EXPECT_EQ(rig.Open(2, Line(115200)), 14u);
    EXPECT_GT(status().FailedAttempts, failed);
    EXPECT_EQ(status().Returns, 0u);
    std::string error;
    ASSERT_TRUE(rig.Sim.Plug(&error)) << error;
    EXPECT_EQ(rig.Open(2, Line(115200)), 0u);
    EXPECT_EQ(std::tuple(status().State, status().Returns), std::tuple(unsigned(HDW_UNIT_LINK_UP), 1u));

    // The rest of the stream after one gap, up to its last byte.
    const size_t tail = 64;
    auto& got = rig.Uarts[1].Got;
    ASSERT_TRUE(WaitUntil(
        [&] {
            rig.Drain(1);
            return got.size() >= tail && std::equal(got.end() - tail, got.end(), bytes.end() - tail);
        },
        30000));
    const size_t head = size_t(std::mismatch(got.begin(), got.end(), bytes.begin()).first - got.begin());
    const size_t gap = bytes.size() - got.size();
    ASSERT_GT(gap, 0u);
    EXPECT_TRUE(std::equal(got.begin() + std::ptrdiff_t(head), got.end(), bytes.begin() + std::ptrdiff_t(head + gap)))
        << "one gap, the rest in order";
    // Counted: what the unit had not put on the line; not: what the far UART held unsent (one gathering at most).
    const uint64_t lost = status().LostItems;
    EXPECT_GT(lost, 0u);
    EXPECT_LE(gap, lost + kGatherSlack);
    EXPECT_EQ(rig.Sim.GetCounters().UartFramingErrors[1], 0u);

    // Both open ports were told, in order: lost (outage 1, what it cost), then back (return 1).
    for (unsigned n : {0u, 1u}) {
        std::vector<std::tuple<unsigned, uint32_t>> link;
        uint32_t lostAux = 0;
        for (const CKVX_HdwSignalService::CSignal& s : rig.TakeSignals(n))
            if (s.Kind == HDW_SIGNAL_UNIT_LOST || s.Kind == HDW_SIGNAL_UNIT_BACK) {
                link.emplace_back(s.Kind, s.Value);
                if (s.Kind == HDW_SIGNAL_UNIT_LOST)
                    lostAux = s.Aux;
            }
        EXPECT_EQ(
            link, (std::vector<std::tuple<unsigned, uint32_t>>{{HDW_SIGNAL_UNIT_LOST, 1u}, {HDW_SIGNAL_UNIT_BACK, 1u}}))
            << "UART " << n;
        EXPECT_EQ(lostAux, lost) << "UART " << n;
    }
}

} // namespace
