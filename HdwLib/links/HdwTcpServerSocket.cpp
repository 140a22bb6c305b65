#include <HdwLib/links/HdwTcpClientSocket.h>
#include <HdwLib/links/HdwTcpServerSocket.h>
#include <HdwLib/links/internal/PlatformSocket.h>
#include <HdwLib/links/internal/SocketResult.h>

using namespace hdw::platform;

CKVX_HdwTcpServerSocket::CKVX_HdwTcpServerSocket() : m_Handle(InvalidSocket) {}

CKVX_HdwTcpServerSocket::~CKVX_HdwTcpServerSocket()
{
    Close();
}

bool CKVX_HdwTcpServerSocket::IsListening() const
{
    return m_Handle != InvalidSocket;
}

unsigned CKVX_HdwTcpServerSocket::Listen(unsigned short localPort, const CKVX_IpAddress& localAddress, unsigned backlog)
{
    if (IsListening())
        return HDW_ERR_WRONG_STATE;
    const SocketHandle s = SocketOpenTcp();
    if (s == InvalidSocket)
        return HDW_ERR_SYSTEM_CALL;
    SocketStatus st = SocketBind(s, localAddress.GetHostOrder(), localPort, true);
    if (st == SocketStatus::Ok)
        st = SocketListen(s, static_cast<int>(backlog ? backlog : 1));
    if (st != SocketStatus::Ok) {
        SocketClose(s);
        return st == SocketStatus::AddressInUse ? HDW_ERR_NO_LOCAL_PORT : HDW_ERR_SYSTEM_CALL;
    }
    m_Handle = s;
    m_LocalPort = SocketLocalPort(s);
    return 0;
}

unsigned CKVX_HdwTcpServerSocket::Close()
{
    if (IsListening()) {
        SocketClose(m_Handle);
        m_Handle = InvalidSocket;
        m_LocalPort = 0;
    }
    return 0;
}

unsigned CKVX_HdwTcpServerSocket::Accept(CKVX_HdwTcpClientSocket& client, unsigned timeoutMs)
{
    if (!IsListening() || client.IsConnected())
        return HDW_ERR_WRONG_STATE;
    SocketStatus st = SocketWait(m_Handle, false, timeoutMs);
    if (st != SocketStatus::Ok)
        return hdw::links::ToResult(st);
    SocketHandle c = InvalidSocket;
    uint32_t address = 0;
    uint16_t port = 0;
    st = SocketAccept(m_Handle, c, address, port);
    if (st != SocketStatus::Ok)
        return hdw::links::ToResult(st);
    client.Adopt(c, CKVX_IpAddress(address), port);
    return 0;
}
