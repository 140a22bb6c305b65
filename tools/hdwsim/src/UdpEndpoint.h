#pragma once
// The Ethernet side of the emulated unit: a UDP socket on 127.0.0.1 that
// answers Detect, serves one HOE session (connect, commands, event data,
// keep-alives both ways, disconnect) and drops a session that has been
// silent for the session time-out.

#include <hdwsim/Counters.h>
#include <hdwsim/UnitEngine.h>

#include "HoePacket.h"

#include <cstdint>
#include <netinet/in.h>
#include <random>
#include <string>
#include <vector>

namespace hdwsim {

// Takes the port packets (class 0xA, port type not 0) of the session's host.
class PortPacketHandler {
public:
    virtual ~PortPacketHandler() = default;
    virtual void OnPortPacket(const hoe::Header& h, const uint8_t* payload, size_t size, uint64_t nowNs) = 0;
    // The session ended (disconnect, time-out, unplugged).
    virtual void OnSessionEnd() = 0;
};

class UdpEndpoint {
public:
    struct Settings {
        uint16_t Port = 0;
        std::string SerialNumber;
        uint64_t SessionTimeoutNs = 3'000'000'000ull;
        uint64_t KeepAliveNs = 250'000'000ull;
        uint32_t Seed = 1;
    };

    UdpEndpoint() = default;
    ~UdpEndpoint();
    UdpEndpoint(const UdpEndpoint&) = delete;
    UdpEndpoint& operator=(const UdpEndpoint&) = delete;

    bool Open(const Settings& settings, std::string& error);
    void Close();
    int Fd() const { return m_Fd; }
    uint16_t Port() const { return m_Port; }

    // Takes every waiting datagram. Commands go to `engine`; while `silent`
    // everything is read and ignored. Returns true when a session's commands arrived.
    bool OnReadable(uint64_t nowNs, UnitEngine& engine, bool silent);
    // Keep-alives and the session time-out.
    void Tick(uint64_t nowNs, UnitEngine& engine, bool silent);
    uint64_t NextWakeNs() const;

    bool HasSession() const { return m_SessionId != 0; }
    // As a unit restarting: the session is gone without a word to its host.
    void ForgetSession(UnitEngine& engine) { EndSession(engine); }
    uint32_t SessionId() const { return m_SessionId; }
    // Sends unit frames to the session's host as one event-data packet.
    void SendEventData(const std::vector<uint8_t>& frames, Counters& counters);
    // Sends one port packet to the session's host (nothing without a session).
    void SendPortPacket(uint16_t portType, uint16_t channel, uint32_t code, uint32_t number, const uint8_t* payload,
        size_t size, Counters& counters);
    // Port packets go to `handler` (null: they are rejected).
    void SetPortHandler(PortPacketHandler* handler) { m_Ports = handler; }

    void DropNext(unsigned packets) { m_DropNext += packets; }
    void SetDropFraction(double fraction) { m_DropFraction = fraction; }
    void SetSessionTimeoutNs(uint64_t ns) { m_Settings.SessionTimeoutNs = ns; }

private:
    void Handle(
        const uint8_t* data, size_t size, const sockaddr_in& from, uint64_t nowNs, UnitEngine& engine, bool& commands);
    void Send(const std::vector<uint8_t>& datagram, const sockaddr_in& to, Counters& counters);
    void EndSession(UnitEngine& engine);
    // Header of a packet the unit sends in its session.
    hoe::Header SessionHeader(uint32_t code, uint32_t number) const;

    Settings m_Settings;
    int m_Fd = -1;
    uint16_t m_Port = 0;

    uint32_t m_SessionId = 0;
    uint32_t m_NextSessionId = 1;
    uint32_t m_ClientId = 0;
    uint32_t m_Tag = 0;
    sockaddr_in m_Host{};
    uint64_t m_LastHeardNs = 0;
    uint64_t m_NextKeepAliveNs = 0;
    uint32_t m_EventPacketNumber = 0;
    uint32_t m_KeepAliveNumber = 0;

    PortPacketHandler* m_Ports = nullptr;
    unsigned m_DropNext = 0;
    double m_DropFraction = 0.0;
    std::mt19937 m_Random;
};

} // namespace hdwsim
