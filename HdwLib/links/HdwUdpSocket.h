#pragma once
// A UDP socket on IPv4, non-blocking; receives wait at most a given time so
// that a receive thread can notice a stop request.
//
//     CKVX_HdwUdpSocket s;
//     s.Open(0, CKVX_IpAddress(127, 0, 0, 1));        // any free port
//     s.SendTo(data, n, CKVX_IpAddress(127, 0, 0, 1), 55003);
//     s.ReceiveFrom(buf, sizeof buf, got, from, fromPort, 100);   // 4 after 100 ms of silence
//
// Results: 0; 4 nothing arrived within the time-out; 10 not open / already
// open; 13 a socket call failed (also a datagram larger than the buffer,
// which is dropped); 21 the local port is held by another socket.

#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwUdpSocket : public CKVX_Object {
public:
    CKVX_HdwUdpSocket();
    ~CKVX_HdwUdpSocket() override;
    CKVX_HdwUdpSocket(const CKVX_HdwUdpSocket&) = delete;
    CKVX_HdwUdpSocket& operator=(const CKVX_HdwUdpSocket&) = delete;

    // Binds to `localAddress`:`localPort` (port 0: any free port; address 0: all interfaces).
    unsigned Open(unsigned short localPort = 0, const CKVX_IpAddress& localAddress = CKVX_IpAddress());
    unsigned Close();
    bool IsOpen() const;
    unsigned short GetLocalPort() const { return m_LocalPort; }

    unsigned EnableBroadcast(bool on);
    unsigned SendTo(const void* data, unsigned length, const CKVX_IpAddress& address, unsigned short port);
    // Takes one datagram, waiting up to `timeoutMs` (0: only what is there).
    unsigned ReceiveFrom(void* buffer, unsigned capacity, unsigned& received, CKVX_IpAddress& address,
        unsigned short& port, unsigned timeoutMs);
    // Waits up to `timeoutMs` for a datagram without taking it: 0 or 4.
    unsigned WaitReadable(unsigned timeoutMs);

private:
    intptr_t m_Handle;
    unsigned short m_LocalPort = 0;
};
