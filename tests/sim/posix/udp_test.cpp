// The emulator served over HOE on loopback UDP. The host's packets are built and checked with the
// library's HOE codec, which shares no code with the emulator; TestHost.h takes the unit frames apart.

#include "TestHost.h"

#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwUdpSocket.h>
#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

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

} // namespace

// Keep-alives are off (600 s): only the packets the test causes are numbered and dropped.
TEST(UdpSession, SecondClientWrongSessionIdAndBadCrcAreRefusedUntilTheFirstLeavesAndDroppedPacketsAreCounted)
{
    hdwsim::Emulator::Options o;
    o.Pty = false;
    o.Udp = true; // on any free port
    o.KeepAliveMs = 600000;
    hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
    std::string error;
    ASSERT_TRUE(sim.Start(&error)) << error;
    ASSERT_NE(sim.UdpPort(), 0);
    // The session id the unit grants (0: refused).
    const auto connect = [](Host& h, uint32_t tag) {
        h.Send(Hoe::CodeConnect, tag, 0, {0x34, 0x12});
        Packet r{};
        EXPECT_TRUE(h.Receive(Hoe::CodeConnectReply, tag, r)) << "no answer to connect";
        return Hoe::GetSecondWord(r);
    };
    Host a(sim.UdpPort(), 0xA), b(sim.UdpPort(), 0xB);
    const uint32_t sa = connect(a, 1);
    ASSERT_NE(sa, 0u);
    EXPECT_EQ(connect(b, 2), 0u);
    EXPECT_EQ(sim.GetCounters().SessionsRefused, 1u);
    // None of these is executed: the refused client's, a wrong session id, a bad CRC.
    b.Send(Hoe::CodeSendCmd, 2, sa, Frame({Session(1, true)}));
    a.Send(Hoe::CodeSendCmd, 1, sa + 1, Frame({Session(2, true)}));
    Packet bad = a.Make(Hoe::CodeSendCmd, 1, sa, Frame({Session(3, true)}));
    bad.Bytes[70] ^= 0xFF;
    a.SendRaw(bad);
    ASSERT_TRUE(WaitUntil([&] { return sim.GetCounters().UdpPacketsRejected == 3; }));
    Packet r;
    ExpectSingleEcho(a, 1, sa, 4, r);
    EXPECT_EQ(sim.GetCounters().CommandsReceived, 1u);

    a.Send(Hoe::CodeDisconnect, 1, sa);
    ASSERT_TRUE(a.Receive(Hoe::CodeDisconnectReply, 1, r));
    EXPECT_EQ(Hoe::GetSecondWord(r), sa);
    const uint32_t sb = connect(b, 2);
    ASSERT_NE(sb, 0u);
    EXPECT_NE(sb, sa);

    sim.DropNextUdpPackets(1);
    b.Send(Hoe::CodeSendCmd, 2, sb, Frame({Session(5, true)}));
    ASSERT_TRUE(WaitUntil([&] { return sim.GetCounters().UdpPacketsDropped == 1; }));
    ExpectSingleEcho(b, 2, sb, 6, r);
    // The lost packet still took its number in the new session: the host can see the gap.
    EXPECT_EQ(Hoe::GetPacketNumber(r), 1u);

    // Fraction 1 loses every packet, 0 none.
    const uint64_t sent = sim.GetCounters().FramesSent;
    sim.SetUdpDropFraction(1.0);
    for (unsigned i = 0; i < 5; ++i)
        b.Send(Hoe::CodeSendCmd, 2, sb, Frame({Session(10 + i, true)}));
    // Several frames may share one packet: wait until all five left the unit.
    ASSERT_TRUE(WaitUntil([&] { return sim.GetCounters().FramesSent == sent + 5; }));
    const uint64_t dropped = sim.GetCounters().UdpPacketsDropped;
    EXPECT_GE(dropped, 2u);
    sim.SetUdpDropFraction(0.0);
    ExpectSingleEcho(b, 2, sb, 20, r);
    EXPECT_EQ(sim.GetCounters().UdpPacketsDropped, dropped);
}
