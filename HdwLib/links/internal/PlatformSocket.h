#pragma once
// Platform half of the socket classes (posix/PlatformSocket.cpp with BSD
// sockets, win32/PlatformSocket.cpp with Winsock 2). Addresses are IPv4 in
// host order. Handles are opaque; InvalidSocket marks none.

#include <cstdint>

namespace hdw::platform {

using SocketHandle = intptr_t;
constexpr SocketHandle InvalidSocket = -1;

enum class SocketStatus {
    Ok,
    WouldBlock, // nothing now (non-blocking call or time-out)
    AddressInUse, // bind: the port is held by another socket
    Truncated, // datagram larger than the buffer
    Closed, // stream: the peer closed the connection
    Failed, // any other failure
};

// Datagram or stream socket, non-blocking from the start.
SocketHandle SocketOpenUdp();
SocketHandle SocketOpenTcp();
void SocketClose(SocketHandle s);

SocketStatus SocketBind(SocketHandle s, uint32_t address, uint16_t port, bool reuseAddress);
SocketStatus SocketEnableBroadcast(SocketHandle s, bool on);
// Port the socket is bound to, 0 when unknown.
uint16_t SocketLocalPort(SocketHandle s);

// Waits until the socket can be read (or, for `write`, written) or the
// time-out (milliseconds) elapses. Ok, WouldBlock on time-out, Failed.
SocketStatus SocketWait(SocketHandle s, bool write, unsigned timeoutMs);

SocketStatus SocketSendTo(SocketHandle s, const void* data, unsigned length, uint32_t address, uint16_t port);
SocketStatus SocketRecvFrom(
    SocketHandle s, void* buffer, unsigned capacity, unsigned& received, uint32_t& address, uint16_t& port);

SocketStatus SocketListen(SocketHandle s, int backlog);
SocketStatus SocketAccept(SocketHandle s, SocketHandle& client, uint32_t& address, uint16_t& port);
// Starts a connection; Ok when it completed at once, WouldBlock while it is
// in progress (wait for writability, then SocketConnectResult).
SocketStatus SocketConnect(SocketHandle s, uint32_t address, uint16_t port);
SocketStatus SocketConnectResult(SocketHandle s);
SocketStatus SocketSend(SocketHandle s, const void* data, unsigned length, unsigned& sent);
SocketStatus SocketRecv(SocketHandle s, void* buffer, unsigned capacity, unsigned& received);

// Resolves a host name or dotted address to an IPv4 address.
bool SocketResolve(const char* host, uint32_t& address);

} // namespace hdw::platform
