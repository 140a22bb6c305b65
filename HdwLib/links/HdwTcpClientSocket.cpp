#include <HdwLib/links/HdwTcpClientSocket.h>
#include <HdwLib/links/internal/PlatformSocket.h>
#include <HdwLib/links/internal/SocketResult.h>

using namespace hdw::platform;

CKVX_HdwTcpClientSocket::CKVX_HdwTcpClientSocket() : m_Handle(InvalidSocket) {}

CKVX_HdwTcpClientSocket::~CKVX_HdwTcpClientSocket()
{
    Close();
}

bool CKVX_HdwTcpClientSocket::IsConnected() const
{
    return m_Handle != InvalidSocket;
}

void CKVX_HdwTcpClientSocket::Adopt(intptr_t handle, const CKVX_IpAddress& peer, unsigned short peerPort)
{
    m_Handle = handle;
    m_PeerAddress = peer;
    m_PeerPort = peerPort;
    m_LocalPort = SocketLocalPort(handle);
}

unsigned CKVX_HdwTcpClientSocket::Connect(const CKVX_IpAddress& address, unsigned short port, unsigned timeoutMs)
{
    if (IsConnected())
        return HDW_ERR_WRONG_STATE;
    const SocketHandle s = SocketOpenTcp();
    if (s == InvalidSocket)
        return HDW_ERR_SYSTEM_CALL;
    SocketStatus st = SocketConnect(s, address.GetHostOrder(), port);
    if (st == SocketStatus::WouldBlock) {
        st = SocketWait(s, true, timeoutMs);
        if (st == SocketStatus::Ok)
            st = SocketConnectResult(s);
        else if (st == SocketStatus::WouldBlock)
            st = SocketStatus::Failed;
    }
    if (st != SocketStatus::Ok) {
        SocketClose(s);
        return HDW_ERR_LINK;
    }
    Adopt(s, address, port);
    return 0;
}

unsigned CKVX_HdwTcpClientSocket::Close()
{
    if (IsConnected()) {
        SocketClose(m_Handle);
        m_Handle = InvalidSocket;
        m_LocalPort = 0;
    }
    return 0;
}

unsigned CKVX_HdwTcpClientSocket::Send(const void* data, unsigned length, unsigned& sent, unsigned timeoutMs)
{
    sent = 0;
    if (!IsConnected())
        return HDW_ERR_WRONG_STATE;
    if (!data && length)
        return HDW_ERR_ARGUMENT;
    SocketStatus st = SocketSend(m_Handle, data, length, sent);
    if (st == SocketStatus::WouldBlock && timeoutMs) {
        st = SocketWait(m_Handle, true, timeoutMs);
        if (st == SocketStatus::Ok)
            st = SocketSend(m_Handle, data, length, sent);
    }
    if (st == SocketStatus::Closed)
        Close();
    return hdw::links::ToResult(st);
}

unsigned CKVX_HdwTcpClientSocket::Receive(void* buffer, unsigned capacity, unsigned& received, unsigned timeoutMs)
{
    received = 0;
    if (!IsConnected())
        return HDW_ERR_WRONG_STATE;
    if (!buffer && capacity)
        return HDW_ERR_ARGUMENT;
    SocketStatus st = SocketWait(m_Handle, false, timeoutMs);
    if (st == SocketStatus::Ok)
        st = SocketRecv(m_Handle, buffer, capacity, received);
    if (st == SocketStatus::Closed)
        Close();
    return hdw::links::ToResult(st);
}
