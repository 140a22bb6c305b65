// Winsock 2 on Windows. WSAStartup runs once, on the first socket made.
// Every socket is switched to non-blocking with ioctlsocket; waiting is done
// with select.
#include <HdwLib/links/internal/PlatformSocket.h>

#include <winsock2.h>
#include <ws2tcpip.h>

#include <mutex>

namespace hdw::platform {
namespace {

bool Startup()
{
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] {
        WSADATA data;
        ok = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    });
    return ok;
}

SOCKET Sock(SocketHandle s)
{
    return static_cast<SOCKET>(s);
}

sockaddr_in MakeAddress(uint32_t address, uint16_t port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(address);
    a.sin_port = htons(port);
    return a;
}

SocketHandle OpenSocket(int type, int protocol)
{
    if (!Startup())
        return InvalidSocket;
    SOCKET s = ::socket(AF_INET, type, protocol);
    if (s == INVALID_SOCKET)
        return InvalidSocket;
    u_long nonBlocking = 1;
    if (::ioctlsocket(s, FIONBIO, &nonBlocking) != 0) {
        ::closesocket(s);
        return InvalidSocket;
    }
    return static_cast<SocketHandle>(s);
}

SocketStatus FromError(int e)
{
    switch (e) {
    case WSAEWOULDBLOCK:
    case WSAEINPROGRESS:
    case WSAEALREADY: return SocketStatus::WouldBlock;
    case WSAEADDRINUSE: return SocketStatus::AddressInUse;
    case WSAEMSGSIZE: return SocketStatus::Truncated;
    case WSAECONNRESET:
    case WSAECONNABORTED:
    case WSAESHUTDOWN: return SocketStatus::Closed;
    default: return SocketStatus::Failed;
    }
}

} // namespace

SocketHandle SocketOpenUdp()
{
    const SocketHandle s = OpenSocket(SOCK_DGRAM, IPPROTO_UDP);
    if (s != InvalidSocket) {
        // An ICMP port-unreachable must not turn into a read error on the next recvfrom.
        BOOL off = FALSE;
        DWORD bytes = 0;
        ::WSAIoctl(Sock(s), _WSAIOW(IOC_VENDOR, 12), &off, sizeof off, nullptr, 0, &bytes, nullptr, nullptr);
    }
    return s;
}

SocketHandle SocketOpenTcp()
{
    return OpenSocket(SOCK_STREAM, IPPROTO_TCP);
}

void SocketClose(SocketHandle s)
{
    if (s != InvalidSocket)
        ::closesocket(Sock(s));
}

SocketStatus SocketBind(SocketHandle s, uint32_t address, uint16_t port, bool reuseAddress)
{
    if (reuseAddress) {
        const BOOL one = TRUE;
        ::setsockopt(Sock(s), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&one), sizeof one);
    } else {
        // Without this another process could bind the same port over ours.
        const BOOL one = TRUE;
        ::setsockopt(Sock(s), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&one), sizeof one);
    }
    const sockaddr_in a = MakeAddress(address, port);
    if (::bind(Sock(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0)
        return SocketStatus::Ok;
    const int e = ::WSAGetLastError();
    return e == WSAEADDRINUSE || e == WSAEACCES ? SocketStatus::AddressInUse : SocketStatus::Failed;
}

SocketStatus SocketEnableBroadcast(SocketHandle s, bool on)
{
    const BOOL v = on ? TRUE : FALSE;
    return ::setsockopt(Sock(s), SOL_SOCKET, SO_BROADCAST, reinterpret_cast<const char*>(&v), sizeof v) == 0
        ? SocketStatus::Ok
        : SocketStatus::Failed;
}

uint16_t SocketLocalPort(SocketHandle s)
{
    sockaddr_in a{};
    int len = sizeof a;
    if (::getsockname(Sock(s), reinterpret_cast<sockaddr*>(&a), &len) != 0)
        return 0;
    return ntohs(a.sin_port);
}

SocketStatus SocketWait(SocketHandle s, bool write, unsigned timeoutMs)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(Sock(s), &set);
    fd_set except;
    FD_ZERO(&except);
    FD_SET(Sock(s), &except); // a failed non-blocking connect shows here
    timeval tv;
    tv.tv_sec = static_cast<long>(timeoutMs / 1000);
    tv.tv_usec = static_cast<long>((timeoutMs % 1000) * 1000);
    const int rc = ::select(0, write ? nullptr : &set, write ? &set : nullptr, &except, &tv);
    if (rc > 0)
        return SocketStatus::Ok;
    return rc == 0 ? SocketStatus::WouldBlock : SocketStatus::Failed;
}

SocketStatus SocketSendTo(SocketHandle s, const void* data, unsigned length, uint32_t address, uint16_t port)
{
    const sockaddr_in a = MakeAddress(address, port);
    const int n = ::sendto(Sock(s), static_cast<const char*>(data), static_cast<int>(length), 0,
        reinterpret_cast<const sockaddr*>(&a), sizeof a);
    if (n == static_cast<int>(length))
        return SocketStatus::Ok;
    return n == SOCKET_ERROR ? FromError(::WSAGetLastError()) : SocketStatus::Failed;
}

SocketStatus SocketRecvFrom(
    SocketHandle s, void* buffer, unsigned capacity, unsigned& received, uint32_t& address, uint16_t& port)
{
    received = 0;
    sockaddr_in a{};
    int len = sizeof a;
    const int n = ::recvfrom(
        Sock(s), static_cast<char*>(buffer), static_cast<int>(capacity), 0, reinterpret_cast<sockaddr*>(&a), &len);
    if (n == SOCKET_ERROR) {
        const int e = ::WSAGetLastError();
        if (e == WSAEMSGSIZE)
            received = capacity;
        if (e == WSAECONNRESET)
            return SocketStatus::WouldBlock;
        return FromError(e);
    }
    address = ntohl(a.sin_addr.s_addr);
    port = ntohs(a.sin_port);
    received = static_cast<unsigned>(n);
    return SocketStatus::Ok;
}

SocketStatus SocketListen(SocketHandle s, int backlog)
{
    return ::listen(Sock(s), backlog) == 0 ? SocketStatus::Ok : SocketStatus::Failed;
}

SocketStatus SocketAccept(SocketHandle s, SocketHandle& client, uint32_t& address, uint16_t& port)
{
    sockaddr_in a{};
    int len = sizeof a;
    const SOCKET c = ::accept(Sock(s), reinterpret_cast<sockaddr*>(&a), &len);
    if (c == INVALID_SOCKET) {
        client = InvalidSocket;
        return FromError(::WSAGetLastError());
    }
    u_long nonBlocking = 1;
    ::ioctlsocket(c, FIONBIO, &nonBlocking);
    client = static_cast<SocketHandle>(c);
    address = ntohl(a.sin_addr.s_addr);
    port = ntohs(a.sin_port);
    return SocketStatus::Ok;
}

SocketStatus SocketConnect(SocketHandle s, uint32_t address, uint16_t port)
{
    const sockaddr_in a = MakeAddress(address, port);
    if (::connect(Sock(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0)
        return SocketStatus::Ok;
    return FromError(::WSAGetLastError());
}

SocketStatus SocketConnectResult(SocketHandle s)
{
    int err = 0;
    int len = sizeof err;
    if (::getsockopt(Sock(s), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&err), &len) != 0 || err != 0)
        return SocketStatus::Failed;
    return SocketStatus::Ok;
}

SocketStatus SocketSend(SocketHandle s, const void* data, unsigned length, unsigned& sent)
{
    sent = 0;
    const int n = ::send(Sock(s), static_cast<const char*>(data), static_cast<int>(length), 0);
    if (n == SOCKET_ERROR)
        return FromError(::WSAGetLastError());
    sent = static_cast<unsigned>(n);
    return SocketStatus::Ok;
}

SocketStatus SocketRecv(SocketHandle s, void* buffer, unsigned capacity, unsigned& received)
{
    received = 0;
    const int n = ::recv(Sock(s), static_cast<char*>(buffer), static_cast<int>(capacity), 0);
    if (n == SOCKET_ERROR)
        return FromError(::WSAGetLastError());
    if (n == 0)
        return capacity == 0 ? SocketStatus::Ok : SocketStatus::Closed;
    received = static_cast<unsigned>(n);
    return SocketStatus::Ok;
}

bool SocketResolve(const char* host, uint32_t& address)
{
    if (!Startup())
        return false;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* res = nullptr;
    if (::getaddrinfo(host, nullptr, &hints, &res) != 0 || !res)
        return false;
    address = ntohl(reinterpret_cast<const sockaddr_in*>(res->ai_addr)->sin_addr.s_addr);
    ::freeaddrinfo(res);
    return true;
}

} // namespace hdw::platform
