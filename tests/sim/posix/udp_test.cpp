// The emulator served over HOE on loopback UDP, driven with datagrams built
// here byte by byte.

#include "TestHost.h"

#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using namespace simtest;

namespace {

constexpr uint32_t Detect = 0xF0000001, DetectReply = 0xF0000002, Connect = 0xC0000001, ConnectReply = 0xC0000002,
                   Disconnect = 0xC0000003, DisconnectReply = 0xC0000004, SendCmd = 0xC0000005, EventData = 0xC0000006,
                   KeepAlive = 0xA0000005;

struct Packet {
    uint32_t ClientId = 0, Second = 0, First = 0, Number = 0, Code = 0;
    Bytes Payload;
};

Bytes Build(const Packet& p)
{
    Bytes d;
    Le32(d, 0xFE0000A1);
    Le16(d, 1);
    Le32(d, p.ClientId);
    Le32(d, p.Second);
    Le32(d, p.First);
    Le32(d, 0);
    Le32(d, p.Number);
    Le16(d, 0); // port type
    Le16(d, 0); // channel
    Le16(d, 0);
    Le32(d, p.Code);
    Le16(d, static_cast<uint32_t>(p.Payload.size()));
    d.resize(64, 0);
    d.insert(d.end(), p.Payload.begin(), p.Payload.end());
    const uint16_t crc = BitwiseCrc16(d.data(), d.size());
    d[62] = static_cast<uint8_t>(crc);
    d[63] = static_cast<uint8_t>(crc >> 8);
    return d;
}

bool Parse(const Bytes& d, Packet& p)
{
    if (d.size() < 64 || GetLe32(d.data()) != 0xFE0000A1)
        return false;
    const size_t len = d[36] | (d[37] << 8);
    if (len + 64 != d.size())
        return false;
    Bytes z = d;
    z[62] = z[63] = 0;
    if (BitwiseCrc16(z.data(), z.size()) != (d[62] | (d[63] << 8)))
        return false;
    p.ClientId = GetLe32(&d[6]);
    p.Second = GetLe32(&d[10]);
    p.First = GetLe32(&d[14]);
    p.Number = GetLe32(&d[22]);
    p.Code = GetLe32(&d[32]);
    p.Payload.assign(d.begin() + 64, d.end());
    return true;
}

class Host {
public:
    Host(uint16_t unitPort, uint32_t clientId) : m_ClientId(clientId)
    {
        m_Fd = socket(AF_INET, SOCK_DGRAM, 0);
        m_Unit.sin_family = AF_INET;
        m_Unit.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(m_Fd, reinterpret_cast<sockaddr*>(&m_Unit), sizeof m_Unit);
        m_Unit.sin_port = htons(unitPort);
    }
    ~Host() { close(m_Fd); }

    void Send(uint32_t code, uint32_t first, uint32_t second, const Bytes& payload = {})
    {
        SendRaw(Build({m_ClientId, second, first, 0, code, payload}));
    }
    void SendRaw(const Bytes& d)
    {
        sendto(m_Fd, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&m_Unit), sizeof m_Unit);
    }
    // Next valid packet with `code` within the time-out (others are passed over).
    bool Receive(uint32_t code, Packet& out, unsigned timeoutMs = 10000)
    {
        return WaitUntil(
            [&] {
                Bytes d(2048);
                const ssize_t n = recv(m_Fd, d.data(), d.size(), MSG_DONTWAIT);
                d.resize(n > 0 ? static_cast<size_t>(n) : 0);
                Packet pk;
                if (!Parse(d, pk))
                    return false;
                if (pk.Code == code)
                    out = pk;
                return pk.Code == code;
            },
            timeoutMs);
    }
    uint32_t ClientId() const { return m_ClientId; }

private:
    int m_Fd = -1;
    uint32_t m_ClientId;
    sockaddr_in m_Unit{};
};

// Sends a session command numbered `number` and expects the next event data
// packet to hold exactly its echo.
void ExpectSingleEcho(Host& h, uint32_t tag, uint32_t session, unsigned number, Packet& r)
{
    h.Send(SendCmd, tag, session, Frame({Session(number, true)}));
    ASSERT_TRUE(h.Receive(EventData, r));
    UnitStream u;
    u.Feed(r.Payload);
    ASSERT_EQ(u.OfType(0).size(), 1u);
    EXPECT_EQ(u.OfType(0)[0].EchoNumber(), number);
}

struct UdpFixture : ::testing::Test {
    void StartSim(unsigned keepAliveMs = 250)
    {
        hdwsim::Emulator::Options o;
        o.Pty = false;
        o.Udp = true;
        o.UdpPort = 0;
        o.SerialNumber = "SN-4711";
        o.KeepAliveMs = keepAliveMs;
        Sim = std::make_unique<hdwsim::Emulator>(hdwsim::HaldenModel(), o);
        std::string error;
        ASSERT_TRUE(Sim->Start(&error)) << error;
        ASSERT_NE(Sim->UdpPort(), 0);
    }
    // The session id the unit grants (0: refused).
    uint32_t ConnectHost(Host& h, uint32_t tag)
    {
        h.Send(Connect, tag, 0, {0x34, 0x12});
        Packet r;
        if (!h.Receive(ConnectReply, r)) {
            ADD_FAILURE() << "no answer to connect";
            return 0;
        }
        EXPECT_EQ(r.ClientId, h.ClientId());
        EXPECT_EQ(r.First, tag);
        return r.Second;
    }
    std::unique_ptr<hdwsim::Emulator> Sim;
};

} // namespace

TEST_F(UdpFixture, DetectAnswersWithKindModelAndSerialNumber)
{
    StartSim();
    Host h(Sim->UdpPort(), 0x1111);
    h.Send(Detect, 77, 0);
    Packet r;
    ASSERT_TRUE(h.Receive(DetectReply, r));
    EXPECT_EQ(r.ClientId, 0x1111u);
    EXPECT_EQ(r.First, 77u);
    ASSERT_EQ(r.Payload.size(), 84u);
    EXPECT_EQ(GetLe32(r.Payload.data()), 3u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&r.Payload[4])), "Halden");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&r.Payload[36])), "SN-4711");
    EXPECT_EQ(r.Payload[67], 0); // NUL-padded fields
}

// Commands and their echoes over a session are run end to end by the units
// area (UnitRig over UDP); the packet numbering is checked below
// where a dropped packet leaves its gap.

TEST_F(UdpFixture, SecondClientWrongSessionIdAndBadCrcAreRefusedUntilTheFirstLeaves)
{
    StartSim();
    Host a(Sim->UdpPort(), 0xA);
    Host b(Sim->UdpPort(), 0xB);
    const uint32_t sa = ConnectHost(a, 1);
    ASSERT_NE(sa, 0u);
    EXPECT_EQ(ConnectHost(b, 2), 0u);
    EXPECT_EQ(Sim->GetCounters().SessionsRefused, 1u);
    // None of these is executed: the refused client's, a wrong session id, a bad CRC.
    b.Send(SendCmd, 2, sa, Frame({Session(1, true)}));
    a.Send(SendCmd, 1, sa + 1, Frame({Session(2, true)}));
    Bytes bad = Build({0xA, sa, 1, 0, SendCmd, Frame({Session(3, true)})});
    bad[70] ^= 0xFF;
    a.SendRaw(bad);
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().UdpPacketsRejected == 3; }));
    Packet r;
    ExpectSingleEcho(a, 1, sa, 4, r);
    EXPECT_EQ(Sim->GetCounters().CommandsReceived, 1u);

    a.Send(Disconnect, 1, sa);
    ASSERT_TRUE(a.Receive(DisconnectReply, r));
    EXPECT_EQ(r.Second, sa);
    const uint32_t sb = ConnectHost(b, 2);
    EXPECT_NE(sb, 0u);
    EXPECT_NE(sb, sa);
}

TEST_F(UdpFixture, KeepAlivesFlowAndASilentSessionIsDropped)
{
    StartSim(20);
    Sim->SetSessionTimeoutMs(300);
    Host h(Sim->UdpPort(), 0x4444);
    const uint32_t s = ConnectHost(h, 3);
    ASSERT_NE(s, 0u);
    Packet r;
    ASSERT_TRUE(h.Receive(KeepAlive, r));
    EXPECT_EQ(r.Second, s);
    EXPECT_EQ(r.First, 3u);
    // The host says nothing more: the unit ends the session.
    ASSERT_TRUE(WaitUntil([&] { return !Sim->HasUdpSession(); }));
    EXPECT_EQ(Sim->GetCounters().SessionsTimedOut, 1u);
    // Another client may connect now.
    Host other(Sim->UdpPort(), 0x5555);
    EXPECT_NE(ConnectHost(other, 4), 0u);
}

TEST_F(UdpFixture, DroppedPacketsAreCountedAndTheNextOnesArrive)
{
    StartSim(600000); // no keep-alive in the way
    Host h(Sim->UdpPort(), 0x6666);
    const uint32_t s = ConnectHost(h, 1);
    ASSERT_NE(s, 0u);
    Sim->DropNextUdpPackets(1);
    h.Send(SendCmd, 1, s, Frame({Session(1, true)}));
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().UdpPacketsDropped == 1; }));
    Packet r;
    ExpectSingleEcho(h, 1, s, 2, r);
    // The lost packet still took its number: the host can see the gap.
    EXPECT_EQ(r.Number, 1u);

    // Fraction 1 loses every packet, 0 none.
    Sim->SetUdpDropFraction(1.0);
    for (unsigned i = 0; i < 5; ++i)
        h.Send(SendCmd, 1, s, Frame({Session(10 + i, true)}));
    // Several frames may share one packet: wait until all five left the unit.
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().FramesSent == 7; }));
    const uint64_t dropped = Sim->GetCounters().UdpPacketsDropped;
    EXPECT_GE(dropped, 2u);
    Sim->SetUdpDropFraction(0.0);
    ExpectSingleEcho(h, 1, s, 20, r);
    EXPECT_EQ(Sim->GetCounters().UdpPacketsDropped, dropped);
}
