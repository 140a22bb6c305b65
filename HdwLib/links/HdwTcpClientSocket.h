#pragma once
// A TCP connection on IPv4, non-blocking: Connect waits at most a given time,
// Receive takes what has arrived (waiting up to a time-out), Send writes what
// the system takes now.
//
// Results: 0; 4 nothing arrived (or nothing could be sent) within the
// time-out; 10 not connected / already connected; 13 a socket call failed or
// the peer closed the connection (IsConnected() then turns false); 14 the
// connection could not be made within the time-out.

#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class CKVX_HdwTcpServerSocket;

class HDWLIB_EXPORT CKVX_HdwTcpClientSocket : public CKVX_Object {
public:
    CKVX_HdwTcpClientSocket();
    ~CKVX_HdwTcpClientSocket() override;
    CKVX_HdwTcpClientSocket(const CKVX_HdwTcpClientSocket&) = delete;
    CKVX_HdwTcpClientSocket& operator=(const CKVX_HdwTcpClientSocket&) = delete;

    unsigned Connect(const CKVX_IpAddress& address, unsigned short port, unsigned timeoutMs);
    unsigned Close();
    bool IsConnected() const;

    // Writes up to `length` bytes, waiting up to `timeoutMs` for room; `sent` says how many went.
    unsigned Send(const void* data, unsigned length, unsigned& sent, unsigned timeoutMs = 0);
    // Reads what has arrived, up to `capacity`, waiting up to `timeoutMs`.
    unsigned Receive(void* buffer, unsigned capacity, unsigned& received, unsigned timeoutMs);

    const CKVX_IpAddress& GetPeerAddress() const { return m_PeerAddress; }
    unsigned short GetPeerPort() const { return m_PeerPort; }
    unsigned short GetLocalPort() const { return m_LocalPort; }

private:
    friend class CKVX_HdwTcpServerSocket;
    void Adopt(intptr_t handle, const CKVX_IpAddress& peer, unsigned short peerPort);

    intptr_t m_Handle;
    CKVX_IpAddress m_PeerAddress;
    unsigned short m_PeerPort = 0;
    unsigned short m_LocalPort = 0;
};
