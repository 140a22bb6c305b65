#pragma once
// A small HOE unit on 127.0.0.1 that records what the host did and sends keep-alives.

#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwUdpSocket.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class HoeTestPeer {
public:
    using Packet = CKVX_HdwHoe::t_HoePacket_Union;

    explicit HoeTestPeer(unsigned deviceKind) : m_DeviceKind(deviceKind)
    {
        m_Socket.Open(0, CKVX_IpAddress(127, 0, 0, 1));
        m_Thread = std::thread([this] { Run(); });
    }
    ~HoeTestPeer()
    {
        m_Stop = true;
        m_Thread.join();
    }

    std::string Link() const { return "udp:127.0.0.1:" + std::to_string(m_Socket.GetLocalPort()); }

    std::atomic<bool> AnswerDetect{true};
    std::atomic<uint32_t> SessionToGrant{0x5E55};

    struct Seen {
        unsigned Detects = 0, Connects = 0, Disconnects = 0;
        uint32_t ClientId = 0, Tag = 0, Session = 0;
        unsigned short HostPort = 0, ConnectField = 0;
    };
    template <typename Pred>
    bool WaitFor(Pred pred, unsigned ms = 10000)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Cond.wait_for(lock, std::chrono::milliseconds(ms), [&] { return pred(m_Seen); });
    }
    Seen Snapshot()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Seen;
    }

    Packet EventData(const std::vector<unsigned char>& payload, uint32_t number = 0)
    {
        const Seen s = Snapshot();
        CKVX_HdwHoe unit(s.ClientId);
        Packet p;
        unit.BuildSendCmdPacket(s.Tag, s.Session, const_cast<unsigned char*>(payload.data()),
            static_cast<unsigned short>(payload.size()), p);
        CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffCode, CKVX_HdwHoe::CodeEventData);
        CKVX_HdwHoe::SetPacketNumber(p, number);
        Recrc(p);
        return p;
    }
    static void Recrc(Packet& p) { CKVX_HdwHoe::SetU16(p, CKVX_HdwHoe::OffCrc, CKVX_HdwHoe::ComputeCrc(p)); }
    void SendToHost(const Packet& p)
    {
        m_Socket.SendTo(p.Bytes, CKVX_HdwHoe::GetPacketSize(p), CKVX_IpAddress(127, 0, 0, 1), Snapshot().HostPort);
    }

private:
    void Run()
    {
        auto nextKeepAlive = std::chrono::steady_clock::now();
        uint32_t kaNumber = 0;
        Packet p;
        while (!m_Stop) {
            unsigned got = 0;
            CKVX_IpAddress from;
            unsigned short fromPort = 0;
            if (m_Socket.ReceiveFrom(p.Bytes, sizeof p.Bytes, got, from, fromPort, 20) == 0 && got >= 64)
                Handle(p, fromPort);
            const Seen s = Snapshot();
            if (s.Session && std::chrono::steady_clock::now() >= nextKeepAlive) {
                nextKeepAlive = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
                Packet ka;
                std::memset(ka.Bytes, 0, sizeof ka.Bytes);
                CKVX_HdwHoe::SetPacketNumber(ka, kaNumber++);
                CKVX_HdwHoe(s.ClientId).BuildKeepAlivePortPacket(s.Tag, 0, 0, s.Session, ka);
                SendToHost(ka);
            }
        }
    }

    void Reply(const Packet& request, uint32_t code, uint32_t second, const unsigned char* payload, unsigned length,
        unsigned short port)
    {
        CKVX_HdwHoe unit(CKVX_HdwHoe::GetPacketClientId(request));
        Packet r;
        unit.BuildSendCmdPacket(CKVX_HdwHoe::GetFirstWord(request), second, const_cast<unsigned char*>(payload),
            static_cast<unsigned short>(length), r);
        CKVX_HdwHoe::SetU32(r, CKVX_HdwHoe::OffCode, code);
        Recrc(r);
        m_Socket.SendTo(r.Bytes, CKVX_HdwHoe::GetPacketSize(r), CKVX_IpAddress(127, 0, 0, 1), port);
    }

    void Handle(const Packet& p, unsigned short fromPort)
    {
        const uint32_t code = CKVX_HdwHoe::GetCode(p);
        std::unique_lock<std::mutex> lock(m_Mutex);
        switch (code) {
        case CKVX_HdwHoe::CodeDetect: {
            ++m_Seen.Detects;
            if (!AnswerDetect)
                break;
            // Kind (little-endian), model, serial number and revision, NUL-padded.
            unsigned char payload[84] = {
                uint8_t(m_DeviceKind), uint8_t(m_DeviceKind >> 8), 0, 0, 'T', 'E', 'S', 'T', 'U', 'N', 'I', 'T'};
            std::memcpy(payload + 36, "SN-0042", 7);
            std::memcpy(payload + 68, "R7", 2);
            Reply(p, CKVX_HdwHoe::CodeDetectReply, 0, payload, sizeof payload, fromPort);
            break;
        }
        case CKVX_HdwHoe::CodeConnect:
            ++m_Seen.Connects;
            m_Seen.ClientId = CKVX_HdwHoe::GetPacketClientId(p);
            m_Seen.Tag = CKVX_HdwHoe::GetFirstWord(p);
            m_Seen.Session = SessionToGrant;
            m_Seen.HostPort = fromPort;
            m_Seen.ConnectField = CKVX_HdwHoe::GetU16(p, 64);
            Reply(p, CKVX_HdwHoe::CodeConnectReply, SessionToGrant, nullptr, 0, fromPort);
            break;
        case CKVX_HdwHoe::CodeDisconnect:
            ++m_Seen.Disconnects;
            Reply(p, CKVX_HdwHoe::CodeDisconnectReply, CKVX_HdwHoe::GetSecondWord(p), nullptr, 0, fromPort);
            m_Seen.Session = 0;
            break;
        default: break;
        }
        lock.unlock();
        m_Cond.notify_all();
    }

    const unsigned m_DeviceKind;
    CKVX_HdwUdpSocket m_Socket;
    std::atomic<bool> m_Stop{false};
    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    Seen m_Seen;
    std::thread m_Thread;
};
