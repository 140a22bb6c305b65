// The emulator served over HOE on loopback UDP. The host's packets are built and checked with the
// library's HOE codec, which shares no code with the emulator; TestHost.h takes the unit frames apart.

#include "TestHost.h"

#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwUdpSocket.h>
#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace simtest;
using Hoe = CKVX_HdwHoe;
using Packet = Hoe::t_HoePacket_Union;

namespace {

const CKVX_IpAddress kLoopback(127, 0, 0, 1);

class Host {
public:
    Host(uint16_t unitPort, uint32_t clientId) : m_Hoe(clientId), m_UnitPort(unitPort)
    {
        EXPECT_EQ(m_Socket.Open(0, kLoopback), 0u);
    }

    // A packet of any code: a send-command packet with its code and CRC redone.
    Packet Make(uint32_t code, uint32_t first, uint32_t second, Bytes payload = {})
    {
        Packet p;
        m_Hoe.BuildSendCmdPacket(first, second, payload.data(), static_cast<unsigned short>(payload.size()), p);
        Hoe::SetU32(p, Hoe::OffCode, code);
        Hoe::SetU16(p, Hoe::OffCrc, Hoe::ComputeCrc(p));
        return p;
    }
    void Send(uint32_t code, uint32_t first, uint32_t second, const Bytes& payload = {})
    {
        SendRaw(Make(code, first, second, payload));
    }
    void SendRaw(const Packet& p) { m_Socket.SendTo(p.Bytes, Hoe::GetPacketSize(p), kLoopback, m_UnitPort); }
    // The next packet with `code` for this client and `first` that passes every check.
    bool Receive(uint32_t code, uint32_t first, Packet& out)
    {
        return WaitUntil(
            [&] {
                unsigned n = 0;
                CKVX_IpAddress from;
                unsigned short port = 0;
                const int got = m_Socket.ReceiveFrom(out.Bytes, sizeof out.Bytes, n, from, port, 0) == 0 ? int(n) : -1;
                return m_Hoe.CheckReceivedPacket(out, got, first, code) == Hoe::HoeAccepted;
            },
            10000);
    }

private:
    Hoe m_Hoe;
    uint16_t m_UnitPort;
    CKVX_HdwUdpSocket m_Socket;
};

// A session command numbered `number`: the next event data packet holds only its echo.
void ExpectSingleEcho(Host& h, uint32_t tag, uint32_t session, unsigned number, Packet& r)
{
    h.Send(Hoe::CodeSendCmd, tag, session, Frame({Session(number, true)}));
    ASSERT_TRUE(h.Receive(Hoe::CodeEventData, tag, r));
    UnitStream u;
    u.Feed(r.Sections.Payload, Hoe::GetPayloadLength(r));
    ASSERT_EQ(u.OfType(EvEcho).size(), 1u);
    EXPECT_EQ(u.OfType(EvEcho)[0].EchoNumber(), number);
}

struct UdpFixture : ::testing::Test {
    void StartSim(unsigned keepAliveMs = 250)
    {
        hdwsim::Emulator::Options o;
        o.Pty = false;
        o.Udp = true; // on any free port
        o.KeepAliveMs = keepAliveMs;
        Sim = std::make_unique<hdwsim::Emulator>(hdwsim::HaldenModel(), o);
        std::string error;
        ASSERT_TRUE(Sim->Start(&error)) << error;
        ASSERT_NE(Sim->UdpPort(), 0);
    }
    // The session id the unit grants (0: refused).
    uint32_t ConnectHost(Host& h, uint32_t tag)
    {
        h.Send(Hoe::CodeConnect, tag, 0, {0x34, 0x12});
        Packet r{};
        EXPECT_TRUE(h.Receive(Hoe::CodeConnectReply, tag, r)) << "no answer to connect";
        return Hoe::GetSecondWord(r);
    }
    std::unique_ptr<hdwsim::Emulator> Sim;
};

} // namespace

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
    b.Send(Hoe::CodeSendCmd, 2, sa, Frame({Session(1, true)}));
    a.Send(Hoe::CodeSendCmd, 1, sa + 1, Frame({Session(2, true)}));
    Packet bad = a.Make(Hoe::CodeSendCmd, 1, sa, Frame({Session(3, true)}));
    bad.Bytes[70] ^= 0xFF;
    a.SendRaw(bad);
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().UdpPacketsRejected == 3; }));
    Packet r;
    ExpectSingleEcho(a, 1, sa, 4, r);
    EXPECT_EQ(Sim->GetCounters().CommandsReceived, 1u);

    a.Send(Hoe::CodeDisconnect, 1, sa);
    ASSERT_TRUE(a.Receive(Hoe::CodeDisconnectReply, 1, r));
    EXPECT_EQ(Hoe::GetSecondWord(r), sa);
    const uint32_t sb = ConnectHost(b, 2);
    EXPECT_NE(sb, 0u);
    EXPECT_NE(sb, sa);
}

TEST_F(UdpFixture, DroppedPacketsAreCountedAndTheNextOnesArrive)
{
    StartSim(600000); // no keep-alive in the way
    Host h(Sim->UdpPort(), 0x6666);
    const uint32_t s = ConnectHost(h, 1);
    ASSERT_NE(s, 0u);
    Sim->DropNextUdpPackets(1);
    h.Send(Hoe::CodeSendCmd, 1, s, Frame({Session(1, true)}));
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().UdpPacketsDropped == 1; }));
    Packet r;
    ExpectSingleEcho(h, 1, s, 2, r);
    // The lost packet still took its number: the host can see the gap.
    EXPECT_EQ(Hoe::GetPacketNumber(r), 1u);

    // Fraction 1 loses every packet, 0 none.
    Sim->SetUdpDropFraction(1.0);
    for (unsigned i = 0; i < 5; ++i)
        h.Send(Hoe::CodeSendCmd, 1, s, Frame({Session(10 + i, true)}));
    // Several frames may share one packet: wait until all five left the unit.
    ASSERT_TRUE(WaitUntil([&] { return Sim->GetCounters().FramesSent == 7; }));
    const uint64_t dropped = Sim->GetCounters().UdpPacketsDropped;
    EXPECT_GE(dropped, 2u);
    Sim->SetUdpDropFraction(0.0);
    ExpectSingleEcho(h, 1, s, 20, r);
    EXPECT_EQ(Sim->GetCounters().UdpPacketsDropped, dropped);
}
