#pragma once
// A listening TCP socket on IPv4; Accept hands each connection over to a
// CKVX_HdwTcpClientSocket.
//
// Results: 0; 4 no connection came within the time-out; 10 not listening /
// already listening / the client object is in use; 13 a socket call failed;
// 21 the local port is held by another socket.

#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class CKVX_HdwTcpClientSocket;

class HDWLIB_EXPORT CKVX_HdwTcpServerSocket : public CKVX_Object {
public:
    CKVX_HdwTcpServerSocket();
    ~CKVX_HdwTcpServerSocket() override;
    CKVX_HdwTcpServerSocket(const CKVX_HdwTcpServerSocket&) = delete;
    CKVX_HdwTcpServerSocket& operator=(const CKVX_HdwTcpServerSocket&) = delete;

    // Port 0: any free port (GetLocalPort tells which).
    unsigned Listen(
        unsigned short localPort, const CKVX_IpAddress& localAddress = CKVX_IpAddress(), unsigned backlog = 8);
    unsigned Close();
    bool IsListening() const;
    unsigned short GetLocalPort() const { return m_LocalPort; }

    unsigned Accept(CKVX_HdwTcpClientSocket& client, unsigned timeoutMs);

private:
    intptr_t m_Handle;
    unsigned short m_LocalPort = 0;
};
