// BSD sockets on Linux. Every socket is non-blocking and close-on-exec;
// waiting is done with poll so that receive threads can time out.
#include <HdwLib/links/internal/PlatformSocket.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace hdw::platform {
namespace {

int Fd(SocketHandle s)
{
    return static_cast<int>(s);
}

sockaddr_in MakeAddress(uint32_t address, uint16_t port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(address);
    a.sin_port = htons(port);
    return a;
}

SocketHandle OpenSocket(int type)
{
    const int fd = ::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    return fd < 0 ? InvalidSocket : SocketHandle(fd);
}

SocketStatus FromErrno(int e)
{
    if (e == EAGAIN || e == EWOULDBLOCK || e == EINPROGRESS)
        return SocketStatus::WouldBlock;
    if (e == EADDRINUSE)
        return SocketStatus::AddressInUse;
    if (e == ECONNRESET || e == EPIPE)
        return SocketStatus::Closed;
    return SocketStatus::Failed;
}

} // namespace

SocketHandle SocketOpenUdp()
{
    return OpenSocket(SOCK_DGRAM);
}
SocketHandle SocketOpenTcp()
{
    return OpenSocket(SOCK_STREAM);
}

void SocketClose(SocketHandle s)
{
    if (s != InvalidSocket)
        ::close(Fd(s));
}

SocketStatus SocketBind(SocketHandle s, uint32_t address, uint16_t port, bool reuseAddress)
{
    if (reuseAddress) {
        const int one = 1;
        ::setsockopt(Fd(s), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    }
    const sockaddr_in a = MakeAddress(address, port);
    if (::bind(Fd(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0)
        return SocketStatus::Ok;
    return errno == EADDRINUSE ? SocketStatus::AddressInUse : SocketStatus::Failed;
}

SocketStatus SocketEnableBroadcast(SocketHandle s, bool on)
{
    const int v = on ? 1 : 0;
    return ::setsockopt(Fd(s), SOL_SOCKET, SO_BROADCAST, &v, sizeof v) == 0 ? SocketStatus::Ok : SocketStatus::Failed;
}

uint16_t SocketLocalPort(SocketHandle s)
{
    sockaddr_in a{};
    socklen_t len = sizeof a;
    if (::getsockname(Fd(s), reinterpret_cast<sockaddr*>(&a), &len) != 0)
        return 0;
    return ntohs(a.sin_port);
}

SocketStatus SocketWait(SocketHandle s, bool write, unsigned timeoutMs)
{
    pollfd p{};
    p.fd = Fd(s);
    p.events = write ? POLLOUT : POLLIN;
    for (;;) {
        const int rc = ::poll(&p, 1, static_cast<int>(timeoutMs));
        if (rc > 0)
            return SocketStatus::Ok; // errors and hang-ups show on the next call
        if (rc == 0)
            return SocketStatus::WouldBlock;
        if (errno != EINTR)
            return SocketStatus::Failed;
    }
}

SocketStatus SocketSendTo(SocketHandle s, const void* data, unsigned length, uint32_t address, uint16_t port)
{
    const sockaddr_in a = MakeAddress(address, port);
    const ssize_t n = ::sendto(Fd(s), data, length, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&a), sizeof a);
    if (n == static_cast<ssize_t>(length))
        return SocketStatus::Ok;
    return n < 0 ? FromErrno(errno) : SocketStatus::Failed;
}

SocketStatus SocketRecvFrom(
    SocketHandle s, void* buffer, unsigned capacity, unsigned& received, uint32_t& address, uint16_t& port)
{
    received = 0;
    sockaddr_in a{};
    socklen_t len = sizeof a;
    for (;;) {
        // MSG_TRUNC makes the call report the datagram's real size.
        const ssize_t n = ::recvfrom(Fd(s), buffer, capacity, MSG_TRUNC, reinterpret_cast<sockaddr*>(&a), &len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            // A refused earlier send shows up here on Linux; it is not a read error.
            if (errno == ECONNREFUSED)
                return SocketStatus::WouldBlock;
            return FromErrno(errno);
        }
        address = ntohl(a.sin_addr.s_addr);
        port = ntohs(a.sin_port);
        if (static_cast<size_t>(n) > capacity) {
            received = capacity;
            return SocketStatus::Truncated;
        }
        received = static_cast<unsigned>(n);
        return SocketStatus::Ok;
    }
}

SocketStatus SocketListen(SocketHandle s, int backlog)
{
    return ::listen(Fd(s), backlog) == 0 ? SocketStatus::Ok : SocketStatus::Failed;
}

SocketStatus SocketAccept(SocketHandle s, SocketHandle& client, uint32_t& address, uint16_t& port)
{
    sockaddr_in a{};
    socklen_t len = sizeof a;
    const int fd = ::accept4(Fd(s), reinterpret_cast<sockaddr*>(&a), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        client = InvalidSocket;
        return FromErrno(errno);
    }
    client = fd;
    address = ntohl(a.sin_addr.s_addr);
    port = ntohs(a.sin_port);
    return SocketStatus::Ok;
}

SocketStatus SocketConnect(SocketHandle s, uint32_t address, uint16_t port)
{
    const sockaddr_in a = MakeAddress(address, port);
    if (::connect(Fd(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0)
        return SocketStatus::Ok;
    return FromErrno(errno);
}

SocketStatus SocketConnectResult(SocketHandle s)
{
    int err = 0;
    socklen_t len = sizeof err;
    if (::getsockopt(Fd(s), SOL_SOCKET, SO_ERROR, &err, &len) != 0 || err != 0)
        return SocketStatus::Failed;
    return SocketStatus::Ok;
}

SocketStatus SocketSend(SocketHandle s, const void* data, unsigned length, unsigned& sent)
{
    sent = 0;
    for (;;) {
        const ssize_t n = ::send(Fd(s), data, length, MSG_NOSIGNAL);
        if (n >= 0) {
            sent = static_cast<unsigned>(n);
            return SocketStatus::Ok;
        }
        if (errno != EINTR)
            return FromErrno(errno);
    }
}

SocketStatus SocketRecv(SocketHandle s, void* buffer, unsigned capacity, unsigned& received)
{
    received = 0;
    for (;;) {
        const ssize_t n = ::recv(Fd(s), buffer, capacity, 0);
        if (n > 0) {
            received = static_cast<unsigned>(n);
            return SocketStatus::Ok;
        }
        if (n == 0)
            return capacity == 0 ? SocketStatus::Ok : SocketStatus::Closed;
        if (errno != EINTR)
            return FromErrno(errno);
    }
}

bool SocketResolve(const char* host, uint32_t& address)
{
    in_addr a{};
    if (::inet_pton(AF_INET, host, &a) == 1) {
        address = ntohl(a.s_addr);
        return true;
    }
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
