#include <HdwLib/links/HdwTcpClientSocket.h>
#include <HdwLib/links/HdwTcpServerSocket.h>
#include <HdwLib/links/HdwUdpSocket.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const CKVX_IpAddress kLoopback(127, 0, 0, 1);
constexpr unsigned kWaitMs = 10000; // generous: the machine may be loaded

std::string ReceiveAll(CKVX_HdwTcpClientSocket& s, size_t n)
{
    std::string in;
    char buf[16];
    unsigned got = 0;
    while (in.size() < n && s.Receive(buf, sizeof buf, got, kWaitMs) == 0)
        in.append(buf, got);
    return in;
}

} // namespace

TEST(UdpSocket, ResultCodesAndAnOversizedDatagramIsAnErrorNotATruncatedRead)
{
    CKVX_HdwUdpSocket s;
    char buf[10];
    unsigned got = 99;
    CKVX_IpAddress from;
    unsigned short port = 0;
    EXPECT_EQ(s.ReceiveFrom(buf, sizeof buf, got, from, port, 0), 10u);
    EXPECT_EQ(s.SendTo("a", 1, kLoopback, 9), 10u);
    ASSERT_EQ(s.Open(0, kLoopback), 0u);
    EXPECT_EQ(s.Open(0, kLoopback), 10u);
    EXPECT_EQ(s.ReceiveFrom(buf, sizeof buf, got, from, port, 0), 4u);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(s.ReceiveFrom(buf, sizeof buf, got, from, port, 20), 4u);
    EXPECT_EQ(s.WaitReadable(0), 4u);
    CKVX_HdwUdpSocket other;
    EXPECT_EQ(other.Open(s.GetLocalPort(), kLoopback), 21u); // held by s
    EXPECT_FALSE(other.IsOpen());

    ASSERT_EQ(other.Open(0, kLoopback), 0u);
    std::vector<char> big(100, 'q');
    ASSERT_EQ(other.SendTo(big.data(), unsigned(big.size()), kLoopback, s.GetLocalPort()), 0u);
    ASSERT_EQ(other.SendTo("ok", 2, kLoopback, s.GetLocalPort()), 0u);
    EXPECT_EQ(s.ReceiveFrom(buf, sizeof buf, got, from, port, kWaitMs), 13u);
    EXPECT_EQ(got, 0u);
    ASSERT_EQ(s.ReceiveFrom(buf, sizeof buf, got, from, port, kWaitMs), 0u);
    EXPECT_EQ(std::string(buf, got), "ok");
    EXPECT_EQ(s.Close(), 0u);
    EXPECT_FALSE(s.IsOpen());
}

TEST(TcpSocket, AcceptConnectSendReceivePeerCloseAndAClosedPort)
{
    CKVX_HdwTcpServerSocket server;
    ASSERT_EQ(server.Listen(0, kLoopback), 0u);
    ASSERT_NE(server.GetLocalPort(), 0);

    CKVX_HdwTcpClientSocket accepted;
    EXPECT_EQ(server.Accept(accepted, 0), 4u); // nobody yet

    CKVX_HdwTcpClientSocket client;
    ASSERT_EQ(client.Connect(kLoopback, server.GetLocalPort(), kWaitMs), 0u);
    EXPECT_TRUE(client.IsConnected());
    EXPECT_EQ(client.Connect(kLoopback, server.GetLocalPort(), kWaitMs), 10u);
    ASSERT_EQ(server.Accept(accepted, kWaitMs), 0u);
    EXPECT_EQ(accepted.GetPeerAddress(), kLoopback);
    EXPECT_EQ(accepted.GetPeerPort(), client.GetLocalPort());

    unsigned sent = 0;
    ASSERT_EQ(client.Send("ping", 4, sent, kWaitMs), 0u);
    EXPECT_EQ(sent, 4u);
    EXPECT_EQ(ReceiveAll(accepted, 4), "ping");
    ASSERT_EQ(accepted.Send("pong!", 5, sent, kWaitMs), 0u);
    EXPECT_EQ(ReceiveAll(client, 5), "pong!");
    char buf[16];
    unsigned got = 0;
    EXPECT_EQ(client.Receive(buf, sizeof buf, got, 0), 4u);

    accepted.Close();
    EXPECT_EQ(client.Receive(buf, sizeof buf, got, kWaitMs), 13u);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_EQ(client.Send("a", 1, sent), 10u);

    const unsigned short port = server.GetLocalPort();
    ASSERT_EQ(server.Close(), 0u);
    CKVX_HdwTcpClientSocket late;
    EXPECT_EQ(late.Connect(kLoopback, port, kWaitMs), 14u);
    EXPECT_FALSE(late.IsConnected());
}
