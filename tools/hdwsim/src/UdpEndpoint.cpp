#include "UdpEndpoint.h"

#include "HoePacket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace hdwsim {

UdpEndpoint::~UdpEndpoint()
{
    Close();
}

bool UdpEndpoint::Open(const Settings& settings, std::string& error)
{
    Close();
    m_Settings = settings;
    m_Random.seed(settings.Seed);
    // Session ids start at a seed-dependent value so that two emulators differ.
    m_NextSessionId = (settings.Seed * 2654435761u) | 1u;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::string("socket: ") + std::strerror(errno);
        return false;
    }
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(settings.Port);
    socklen_t len = sizeof addr;
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        error = "bind 127.0.0.1:" + std::to_string(settings.Port) + ": " + std::strerror(errno);
        close(fd);
        return false;
    }
    m_Fd = fd;
    m_Port = ntohs(addr.sin_port);
    return true;
}

void UdpEndpoint::Close()
{
    if (m_Fd >= 0)
        close(m_Fd);
    m_Fd = -1;
    m_SessionId = 0;
}

bool UdpEndpoint::OnReadable(uint64_t nowNs, UnitEngine& engine, bool silent)
{
    bool commands = false;
    uint8_t buf[2048];
    for (;;) {
        sockaddr_in from{};
        socklen_t len = sizeof from;
        const ssize_t n = recvfrom(m_Fd, buf, sizeof buf, MSG_TRUNC, reinterpret_cast<sockaddr*>(&from), &len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            break; // EAGAIN: all taken
        }
        if (silent)
            continue;
        if (static_cast<size_t>(n) > sizeof buf) {
            ++engine.MutableCounters().UdpPacketsRejected;
            continue;
        }
        Handle(buf, static_cast<size_t>(n), from, nowNs, engine, commands);
    }
    return commands;
}

void UdpEndpoint::Handle(
    const uint8_t* data, size_t size, const sockaddr_in& from, uint64_t nowNs, UnitEngine& engine, bool& commands)
{
    Counters& count = engine.MutableCounters();
    hoe::Header h;
    const uint8_t* payload = nullptr;
    size_t payloadSize = 0;
    if (!hoe::Parse(data, size, h, payload, payloadSize)) {
        ++count.UdpPacketsRejected;
        return;
    }
    const bool fromSessionHost = m_SessionId != 0 && h.ClientId == m_ClientId;

    if (m_Ports && (h.Code & 0xF0000000u) == 0xA0000000u && h.PortType != 0) {
        if (!fromSessionHost || h.Second != m_SessionId || h.First != m_Tag) {
            ++count.UdpPacketsRejected;
            return;
        }
        ++count.UdpPacketsReceived;
        m_LastHeardNs = nowNs;
        m_Ports->OnPortPacket(h, payload, payloadSize, nowNs);
        return;
    }

    hoe::Header reply;
    reply.ClientId = h.ClientId;
    reply.First = h.First;
    switch (h.Code) {
    case hoe::Detect: {
        ++count.UdpPacketsReceived;
        const UnitModel& model = engine.Model();
        uint8_t info[84] = {};
        for (unsigned i = 0; i < 4; ++i)
            info[i] = static_cast<uint8_t>(model.KindNumber >> (8 * i));
        std::memcpy(info + 4, model.ModelWord.data(), std::min<size_t>(model.ModelWord.size(), 31));
        std::memcpy(info + 36, m_Settings.SerialNumber.data(), std::min<size_t>(m_Settings.SerialNumber.size(), 31));
        std::memcpy(info + 68, model.Revision.data(), std::min<size_t>(model.Revision.size(), 15));
        reply.Code = hoe::DetectReply;
        Send(hoe::Build(reply, info, sizeof info), from, count);
        return;
    }
    case hoe::Connect: {
        ++count.UdpPacketsReceived;
        reply.Code = hoe::ConnectReply;
        if (m_SessionId != 0 && h.ClientId != m_ClientId) {
            ++count.SessionsRefused; // the unit serves one session
            reply.Second = 0;
            Send(hoe::Build(reply, nullptr, 0), from, count);
            return;
        }
        // A new session (or the same host connecting again) starts clean.
        engine.ResetLink(UnitEngine::LinkUdp);
        if (m_Ports)
            m_Ports->OnSessionEnd();
        m_SessionId = m_NextSessionId++;
        if (m_SessionId == 0)
            m_SessionId = m_NextSessionId++;
        m_ClientId = h.ClientId;
        m_Tag = h.First;
        m_Host = from;
        m_LastHeardNs = nowNs;
        m_NextKeepAliveNs = nowNs + m_Settings.KeepAliveNs;
        m_EventPacketNumber = 0;
        m_KeepAliveNumber = 0;
        reply.Second = m_SessionId;
        Send(hoe::Build(reply, nullptr, 0), from, count);
        return;
    }
    case hoe::Disconnect:
        if (!fromSessionHost || h.Second != m_SessionId)
            break;
        ++count.UdpPacketsReceived;
        reply.Code = hoe::DisconnectReply;
        reply.Second = m_SessionId;
        Send(hoe::Build(reply, nullptr, 0), from, count);
        EndSession(engine);
        return;
    case hoe::SendCommand:
        if (!fromSessionHost || h.Second != m_SessionId)
            break;
        ++count.UdpPacketsReceived;
        m_LastHeardNs = nowNs;
        engine.OnHostBytes(UnitEngine::LinkUdp, payload, payloadSize, nowNs);
        commands = true;
        return;
    case hoe::KeepAlive:
        if (!fromSessionHost)
            break;
        ++count.UdpPacketsReceived;
        m_LastHeardNs = nowNs;
        return;
    default: break;
    }
    ++count.UdpPacketsRejected;
}

void UdpEndpoint::EndSession(UnitEngine& engine)
{
    if (m_Ports)
        m_Ports->OnSessionEnd();
    m_SessionId = 0;
    m_ClientId = 0;
    engine.ResetLink(UnitEngine::LinkUdp);
}

void UdpEndpoint::Tick(uint64_t nowNs, UnitEngine& engine, bool silent)
{
    if (m_SessionId == 0)
        return;
    if (nowNs - m_LastHeardNs >= m_Settings.SessionTimeoutNs) {
        ++engine.MutableCounters().SessionsTimedOut;
        EndSession(engine);
        return;
    }
    if (nowNs >= m_NextKeepAliveNs) {
        m_NextKeepAliveNs = nowNs + m_Settings.KeepAliveNs;
        if (silent)
            return;
        Send(hoe::Build(SessionHeader(hoe::KeepAlive, m_KeepAliveNumber++), nullptr, 0), m_Host,
            engine.MutableCounters());
    }
}

uint64_t UdpEndpoint::NextWakeNs() const
{
    if (m_SessionId == 0)
        return UnitEngine::Never;
    return std::min(m_NextKeepAliveNs, m_LastHeardNs + m_Settings.SessionTimeoutNs);
}

void UdpEndpoint::SendEventData(const std::vector<uint8_t>& frames, Counters& counters)
{
    if (m_SessionId == 0)
        return;
    Send(hoe::Build(SessionHeader(hoe::EventData, m_EventPacketNumber++), frames.data(), frames.size()), m_Host,
        counters);
}

void UdpEndpoint::SendPortPacket(uint16_t portType, uint16_t channel, uint32_t code, uint32_t number,
    const uint8_t* payload, size_t size, Counters& counters)
{
    if (m_SessionId == 0)
        return;
    hoe::Header h = SessionHeader(code, number);
    h.PortType = portType;
    h.Channel = channel;
    Send(hoe::Build(h, payload, size), m_Host, counters);
}

hoe::Header UdpEndpoint::SessionHeader(uint32_t code, uint32_t number) const
{
    hoe::Header h;
    h.ClientId = m_ClientId;
    h.First = m_Tag;
    h.Second = m_SessionId;
    h.PacketNumber = number;
    h.Code = code;
    return h;
}

void UdpEndpoint::Send(const std::vector<uint8_t>& datagram, const sockaddr_in& to, Counters& counters)
{
    if (m_DropNext > 0) {
        --m_DropNext;
        ++counters.UdpPacketsDropped;
        return;
    }
    if (m_DropFraction > 0.0 && std::uniform_real_distribution<double>(0.0, 1.0)(m_Random) < m_DropFraction) {
        ++counters.UdpPacketsDropped;
        return;
    }
    // Only ever to a loopback sender: the socket is bound to 127.0.0.1.
    if (sendto(m_Fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
        static_cast<ssize_t>(datagram.size()))
        ++counters.UdpPacketsSent;
}

} // namespace hdwsim
