#include <HdwLib/links/HdwUdpSocket.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/links/internal/PlatformSocket.h>
#include <HdwLib/links/internal/SocketResult.h>

using namespace hdw::platform;

CKVX_HdwUdpSocket::CKVX_HdwUdpSocket() : m_Handle(InvalidSocket) {}

CKVX_HdwUdpSocket::~CKVX_HdwUdpSocket()
{
    Close();
}

bool CKVX_HdwUdpSocket::IsOpen() const
{
    return m_Handle != InvalidSocket;
}

unsigned CKVX_HdwUdpSocket::Open(unsigned short localPort, const CKVX_IpAddress& localAddress)
{
    if (IsOpen())
        return HDW_ERR_WRONG_STATE;
    const SocketHandle s = SocketOpenUdp();
    if (s == InvalidSocket)
        return HDW_ERR_SYSTEM_CALL;
    const SocketStatus st = SocketBind(s, localAddress.GetHostOrder(), localPort, false);
    if (st != SocketStatus::Ok) {
        SocketClose(s);
        return st == SocketStatus::AddressInUse ? HDW_ERR_NO_LOCAL_PORT : HDW_ERR_SYSTEM_CALL;
    }
    m_Handle = s;
    m_LocalPort = SocketLocalPort(s);
    return 0;
}

unsigned CKVX_HdwUdpSocket::Close()
{
    if (IsOpen()) {
        SocketClose(m_Handle);
        m_Handle = InvalidSocket;
        m_LocalPort = 0;
    }
    return 0;
}

unsigned CKVX_HdwUdpSocket::EnableBroadcast(bool on)
{
    if (!IsOpen())
        return HDW_ERR_WRONG_STATE;
    return hdw::links::ToResult(SocketEnableBroadcast(m_Handle, on));
}

unsigned CKVX_HdwUdpSocket::SendTo(
    const void* data, unsigned length, const CKVX_IpAddress& address, unsigned short port)
{
    if (!IsOpen())
        return HDW_ERR_WRONG_STATE;
    if (!data && length)
        return HDW_ERR_ARGUMENT;
    return hdw::links::ToResult(SocketSendTo(m_Handle, data, length, address.GetHostOrder(), port));
}

unsigned CKVX_HdwUdpSocket::WaitReadable(unsigned timeoutMs)
{
    if (!IsOpen())
        return HDW_ERR_WRONG_STATE;
    return hdw::links::ToResult(SocketWait(m_Handle, false, timeoutMs));
}

unsigned CKVX_HdwUdpSocket::ReceiveFrom(void* buffer, unsigned capacity, unsigned& received, CKVX_IpAddress& address,
    unsigned short& port, unsigned timeoutMs)
{
    received = 0;
    if (!IsOpen())
        return HDW_ERR_WRONG_STATE;
    if (!buffer && capacity)
        return HDW_ERR_ARGUMENT;
    SocketStatus st = SocketWait(m_Handle, false, timeoutMs);
    if (st != SocketStatus::Ok)
        return hdw::links::ToResult(st);
    uint32_t from = 0;
    uint16_t fromPort = 0;
    st = SocketRecvFrom(m_Handle, buffer, capacity, received, from, fromPort);
    if (st == SocketStatus::Ok) {
        address.SetHostOrder(from);
        port = fromPort;
    } else {
        received = 0;
    }
    return hdw::links::ToResult(st);
}
