#pragma once
// One HOE session between the host and a unit: detection, connection from a
// socket on a port of the manager's pool, the receive thread with packet
// validation, keep-alive both ways every 250 ms, the link time-out message
// and disconnection. Used by every Ethernet-capable device instance
// (CKVX_HdwHoeLink); the instance handles what the session accepts.

#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwUdpSocket.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

class CKVX_HdwManager;

namespace hdw::links {

// What a unit says about itself in its Detect reply.
struct HoeDetectReply {
    uint32_t DeviceKind = 0;
    CKVX_String ModelName;
    CKVX_String SerialNumber;
    CKVX_String Revision;
    CKVX_IpAddress Address;
    unsigned short Port = 0;
};

// Receives, on the receive thread, every packet that passed the checks.
class CHoeSessionSink {
public:
    virtual ~CHoeSessionSink() = default;
    virtual void OnSessionPacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size) = 0;
};

class CHoeSession {
public:
    static constexpr unsigned KeepAlivePeriodMs = 250;
    static constexpr unsigned DefaultLinkTimeoutMs = 1000;
    static constexpr unsigned ConnectTimeoutMs = 1000;
    static constexpr unsigned DisconnectTimeoutMs = 500;
    // Longest wait of the receive thread, so that it notices a stop request.
    static constexpr unsigned ReceiveSliceMs = 50;

    CHoeSession() = default;
    ~CHoeSession();
    CHoeSession(const CHoeSession&) = delete;
    CHoeSession& operator=(const CHoeSession&) = delete;

    // A Detect to one address; 0 and the reply, or 14 when none came in time.
    static unsigned Detect(const CKVX_HdwHoe& hoe, const CKVX_IpAddress& address, unsigned short port,
        unsigned timeoutMs, HoeDetectReply& reply);
    // A broadcast Detect on the unit port; every unit that answered in time.
    static unsigned DetectBroadcast(
        const CKVX_HdwHoe& hoe, unsigned short port, unsigned timeoutMs, std::vector<HoeDetectReply>& replies);
    // Parses "udp:HOST:PORT"; false when malformed or HOST cannot be resolved.
    static bool ParseLink(const CKVX_String& link, CKVX_IpAddress& address, unsigned short& port);
    // A fresh non-zero request tag.
    static uint32_t NewTag();

    // Connects with `clientId` to the unit: 0, 21 when no local port could
    // be had, 14 when the unit did not answer or refused, 13 on a socket
    // failure. Without a manager the socket takes any free port.
    unsigned Connect(unsigned clientId, CKVX_HdwManager* manager, const CKVX_IpAddress& address, unsigned short port,
        unsigned linkTimeoutMs);
    // Runs the receive loop on a new thread until Disconnect.
    unsigned StartReceiveThread(unsigned (*entry)(void*), void* argument);
    // The loop itself, called on the receive thread.
    void ReceiveLoop(CHoeSessionSink& sink);
    // Sends Disconnect, waits briefly for the reply, stops the thread,
    // closes the socket and gives the local port back. 0 also when idle.
    unsigned Disconnect();

    bool IsConnected() const { return m_Connected.load(std::memory_order_acquire); }
    unsigned SendPacket(CKVX_HdwHoe::t_HoePacket_Union& packet);
    unsigned SendCmd(unsigned char* data, unsigned short length);

    uint32_t GetTag() const { return m_Tag; }
    uint32_t GetSessionId() const { return m_SessionId; }
    unsigned short GetLocalPort() const { return m_LocalPort; }

private:
    unsigned OpenPoolSocket(CKVX_HdwManager* manager);
    void ClosePoolSocket();
    void HandleDatagram(CKVX_HdwHoe::t_HoePacket_Union& packet, int size, CHoeSessionSink& sink);
    void SendKeepAlive();

    CKVX_HdwHoe m_Hoe;
    CKVX_HdwUdpSocket m_Socket;
    CKVX_HdwManager* m_Manager = nullptr;
    unsigned short m_PoolPort = 0; // 0 when the port is not from the pool
    unsigned short m_LocalPort = 0;
    CKVX_IpAddress m_UnitAddress;
    unsigned short m_UnitPort = 0;
    uint32_t m_Tag = 0;
    uint32_t m_SessionId = 0;
    unsigned m_LinkTimeoutMs = DefaultLinkTimeoutMs;
    uint32_t m_KeepAliveNumber = 0;

    std::atomic<bool> m_Connected{false};
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
    std::mutex m_SendMutex; // socket sends against closing
    std::mutex m_StateMutex; // the disconnect reply
    std::condition_variable m_StateCond;
    bool m_DisconnectAnswered = false;
};

} // namespace hdw::links
