#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/links/internal/HoeSession.h>
#include <HdwLib/links/internal/PlatformSocket.h>

#include <chrono>
#include <cstring>
#include <iterator>

namespace hdw::links {
namespace {

using Clock = std::chrono::steady_clock;
using Packet = CKVX_HdwHoe::t_HoePacket_Union;

constexpr unsigned kDetectReplyMinPayload = 4;

unsigned MsLeft(Clock::time_point deadline)
{
    const auto now = Clock::now();
    if (now >= deadline)
        return 0;
    return static_cast<unsigned>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count()) + 1;
}

CKVX_String FixedText(const unsigned char* at, unsigned width)
{
    unsigned n = 0;
    while (n < width && at[n])
        ++n;
    return CKVX_String(reinterpret_cast<const char*>(at), n);
}

void ParseDetectReply(const Packet& p, HoeDetectReply& reply)
{
    const unsigned length = CKVX_HdwHoe::GetPayloadLength(p);
    const unsigned char* payload = p.Sections.Payload;
    reply.DeviceKind = CKVX_HdwHoe::GetU32(p, CKVX_HdwHoe::HeaderSize);
    // Model word (32), serial number (32), revision (16), as far as present.
    reply.ModelName = length >= 36 ? FixedText(payload + 4, 32) : CKVX_String();
    reply.SerialNumber = length >= 68 ? FixedText(payload + 36, 32) : CKVX_String();
    reply.Revision = length >= 84 ? FixedText(payload + 68, 16) : CKVX_String();
}

// Waits for replies to a Detect sent from `socket`; calls `take` for each
// valid one until it returns false or the deadline passes.
template <typename Take>
void CollectDetectReplies(
    const CKVX_HdwHoe& hoe, CKVX_HdwUdpSocket& socket, uint32_t tag, Clock::time_point deadline, Take take)
{
    Packet p;
    for (;;) {
        const unsigned left = MsLeft(deadline);
        if (left == 0)
            return;
        unsigned got = 0;
        CKVX_IpAddress from;
        unsigned short fromPort = 0;
        const unsigned rc = socket.ReceiveFrom(p.Bytes, sizeof p.Bytes, got, from, fromPort, left);
        if (rc == HDW_ERR_NOTHING_TO_READ)
            return;
        if (rc != 0)
            continue;
        if (hoe.CheckReceivedPacket(p, static_cast<int>(got), tag, CKVX_HdwHoe::CodeDetectReply) !=
                CKVX_HdwHoe::HoeAccepted ||
            CKVX_HdwHoe::GetPayloadLength(p) < kDetectReplyMinPayload)
            continue;
        HoeDetectReply reply;
        ParseDetectReply(p, reply);
        reply.Address = from;
        reply.Port = fromPort;
        if (!take(reply))
            return;
    }
}

} // namespace

CHoeSession::~CHoeSession()
{
    Disconnect();
}

uint32_t CHoeSession::NewTag()
{
    static std::atomic<uint32_t> counter{CKVX_HdwHoe::NewClientId()};
    uint32_t tag = 0;
    while (tag == 0)
        tag = counter.fetch_add(0x9E3779B1u, std::memory_order_relaxed);
    return tag;
}

bool CHoeSession::ParseLink(const CKVX_String& link, CKVX_IpAddress& address, unsigned short& port)
{
    if (link.Left(4) != "udp:")
        return false;
    const CKVX_String rest = link.Mid(4);
    const int colon = rest.FindFromEnd(":");
    if (colon <= 0)
        return false;
    const CKVX_String host = rest.Left(static_cast<unsigned>(colon));
    const CKVX_String portText = rest.Mid(static_cast<unsigned>(colon) + 1);
    unsigned value = 0;
    if (portText.IsEmpty() || !portText.ToUnsigned(value, 10) || value == 0 || value > 0xFFFF)
        return false;
    uint32_t ip = 0;
    if (!hdw::platform::SocketResolve(host.c_str(), ip))
        return false;
    address.SetHostOrder(ip);
    port = static_cast<unsigned short>(value);
    return true;
}

unsigned CHoeSession::Detect(const CKVX_HdwHoe& hoe, const CKVX_IpAddress& address, unsigned short port,
    unsigned timeoutMs, HoeDetectReply& reply)
{
    CKVX_HdwUdpSocket socket;
    if (const unsigned rc = socket.Open())
        return rc;
    const uint32_t tag = NewTag();
    Packet p;
    CKVX_HdwHoe sender(hoe);
    sender.BuildDetectPacket(tag, p);
    if (socket.SendTo(p.Bytes, CKVX_HdwHoe::GetPacketSize(p), address, port) != 0)
        return HDW_ERR_LINK;
    bool found = false;
    CollectDetectReplies(
        hoe, socket, tag, Clock::now() + std::chrono::milliseconds(timeoutMs), [&](const HoeDetectReply& r) {
            reply = r;
            found = true;
            return false;
        });
    return found ? 0u : static_cast<unsigned>(HDW_ERR_LINK);
}

unsigned CHoeSession::DetectBroadcast(
    const CKVX_HdwHoe& hoe, unsigned short port, unsigned timeoutMs, std::vector<HoeDetectReply>& replies)
{
    CKVX_HdwUdpSocket socket;
    if (const unsigned rc = socket.Open())
        return rc;
    if (const unsigned rc = socket.EnableBroadcast(true))
        return rc;
    const uint32_t tag = NewTag();
    Packet p;
    CKVX_HdwHoe sender(hoe);
    sender.BuildDetectPacket(tag, p);
    if (const unsigned rc = socket.SendTo(p.Bytes, CKVX_HdwHoe::GetPacketSize(p), CKVX_IpAddress(0xFFFFFFFFu), port))
        return rc;
    CollectDetectReplies(
        hoe, socket, tag, Clock::now() + std::chrono::milliseconds(timeoutMs), [&](const HoeDetectReply& r) {
            for (const HoeDetectReply& known : replies)
                if (known.Address == r.Address && known.Port == r.Port)
                    return true;
            replies.push_back(r);
            return true;
        });
    return 0;
}

unsigned CHoeSession::OpenPoolSocket(CKVX_HdwManager* manager)
{
    m_Manager = manager;
    m_PoolPort = 0;
    if (!manager)
        return m_Socket.Open();
    // A pool port that another process holds is skipped; the ones skipped
    // go back to the pool once a port was found (or none was).
    std::vector<unsigned short> held;
    unsigned result = HDW_ERR_NO_LOCAL_PORT;
    for (unsigned attempt = 0; attempt < CKVX_HdwManager::SysEthPortCount; ++attempt) {
        unsigned short port = 0;
        if (manager->GetSysEthPort(port) != 0)
            break;
        const unsigned rc = m_Socket.Open(port);
        if (rc == 0) {
            m_PoolPort = port;
            result = 0;
            break;
        }
        held.push_back(port);
        if (rc != HDW_ERR_NO_LOCAL_PORT) {
            result = rc;
            break;
        }
    }
    for (unsigned short port : held)
        manager->ReleaseSysEthPort(port);
    return result;
}

void CHoeSession::ClosePoolSocket()
{
    std::lock_guard<std::mutex> lock(m_SendMutex);
    m_Socket.Close();
    if (m_Manager && m_PoolPort)
        m_Manager->ReleaseSysEthPort(m_PoolPort);
    m_PoolPort = 0;
    m_LocalPort = 0;
}

unsigned CHoeSession::Connect(unsigned clientId, CKVX_HdwManager* manager, const CKVX_IpAddress& address,
    unsigned short port, unsigned linkTimeoutMs)
{
    if (IsConnected() || m_Thread.joinable())
        return 0;
    m_Hoe.SetClientId(clientId);
    m_UnitAddress = address;
    m_UnitPort = port;
    m_LinkTimeoutMs = linkTimeoutMs ? linkTimeoutMs : DefaultLinkTimeoutMs;
    if (const unsigned rc = OpenPoolSocket(manager))
        return rc;
    m_LocalPort = m_Socket.GetLocalPort();
    m_Tag = NewTag();
    m_SessionId = 0;
    m_KeepAliveNumber = 0;

    Packet p;
    CKVX_HdwHoe::t_HoePacket_Connect_Field_Struct field;
    field.LocalPort = m_LocalPort;
    m_Hoe.BuildConnectPacket(m_Tag, 0, field, p);
    if (m_Socket.SendTo(p.Bytes, CKVX_HdwHoe::GetPacketSize(p), address, port) != 0) {
        ClosePoolSocket();
        return HDW_ERR_LINK;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(ConnectTimeoutMs);
    Packet reply;
    for (;;) {
        const unsigned left = MsLeft(deadline);
        unsigned got = 0;
        CKVX_IpAddress from;
        unsigned short fromPort = 0;
        const unsigned rc = left ? m_Socket.ReceiveFrom(reply.Bytes, sizeof reply.Bytes, got, from, fromPort, left)
                                 : HDW_ERR_NOTHING_TO_READ;
        if (rc == HDW_ERR_NOTHING_TO_READ) {
            ClosePoolSocket();
            return HDW_ERR_LINK;
        }
        if (rc == 0 &&
            m_Hoe.CheckReceivedPacket(reply, static_cast<int>(got), m_Tag, CKVX_HdwHoe::CodeConnectReply) ==
                CKVX_HdwHoe::HoeAccepted)
            break;
    }
    m_SessionId = CKVX_HdwHoe::GetSecondWord(reply);
    if (m_SessionId == 0) { // the unit serves another session
        ClosePoolSocket();
        return HDW_ERR_LINK;
    }
    {
        std::lock_guard<std::mutex> lock(m_StateMutex);
        m_DisconnectAnswered = false;
    }
    m_Stop.store(false, std::memory_order_release);
    m_Connected.store(true, std::memory_order_release);
    return 0;
}

unsigned CHoeSession::StartReceiveThread(unsigned (*entry)(void*), void* argument)
{
    if (!IsConnected())
        return HDW_ERR_WRONG_STATE;
    if (m_Thread.joinable())
        return 0;
    try {
        m_Thread = std::thread([entry, argument] { entry(argument); });
    } catch (...) {
        return HDW_ERR_RESOURCES;
    }
    return 0;
}

unsigned CHoeSession::SendPacket(Packet& packet)
{
    std::lock_guard<std::mutex> lock(m_SendMutex);
    if (!m_Socket.IsOpen())
        return HDW_ERR_LINK;
    return m_Socket.SendTo(packet.Bytes, CKVX_HdwHoe::GetPacketSize(packet), m_UnitAddress, m_UnitPort);
}

unsigned CHoeSession::SendCmd(unsigned char* data, unsigned short length)
{
    if (length > CKVX_HdwHoe::MaxPayload)
        return HDW_ERR_ARGUMENT;
    Packet p;
    m_Hoe.BuildSendCmdPacket(m_Tag, m_SessionId, data, length, p);
    SendPacket(p); // no reply is awaited; a lost frame shows as an echo time-out
    return 0;
}

void CHoeSession::SendKeepAlive()
{
    Packet p;
    std::memset(p.Bytes, 0, sizeof p.Bytes);
    CKVX_HdwHoe::SetPacketNumber(p, m_KeepAliveNumber++);
    m_Hoe.BuildKeepAlivePortPacket(m_Tag, 0, 0, m_SessionId, p);
    SendPacket(p);
}

void CHoeSession::ReceiveLoop(CHoeSessionSink& sink)
{
    // Besides the session's own packets, what a unit sends about its ports.
    static constexpr uint32_t kCodes[] = {CKVX_HdwHoe::CodeEventData, CKVX_HdwHoe::CodeKeepAlivePort,
        CKVX_HdwHoe::CodeDisconnectReply, CKVX_HdwHoe::CodeOpenPortReply, CKVX_HdwHoe::CodeClosePortReply,
        CKVX_HdwHoe::CodeDataBuf, CKVX_HdwHoe::CodeDataBufReply, CKVX_HdwHoe::CodeCctxReply,
        CKVX_HdwHoe::CodeRstTxReply, CKVX_HdwHoe::CodeRstRxReply, CKVX_HdwHoe::CodeDctxReply,
        CKVX_HdwHoe::CodeCfgPortReply};
    const auto period = std::chrono::milliseconds(KeepAlivePeriodMs);
    const auto linkTimeout = std::chrono::milliseconds(m_LinkTimeoutMs);
    auto nextKeepAlive = Clock::now() + period;
    auto lastHeard = Clock::now();
    bool timeoutReported = false;
    Packet p;

    while (!m_Stop.load(std::memory_order_acquire)) {
        const unsigned wait = std::min(ReceiveSliceMs, MsLeft(nextKeepAlive));
        unsigned got = 0;
        CKVX_IpAddress from;
        unsigned short fromPort = 0;
        const unsigned rc = m_Socket.ReceiveFrom(p.Bytes, sizeof p.Bytes, got, from, fromPort, wait);
        if (rc == 0 &&
            m_Hoe.CheckReceivedPacket(p, static_cast<int>(got), m_Tag, kCodes, std::size(kCodes)) ==
                CKVX_HdwHoe::HoeAccepted &&
            CKVX_HdwHoe::GetSecondWord(p) == m_SessionId) {
            lastHeard = Clock::now();
            timeoutReported = false;
            HandleDatagram(p, static_cast<int>(got), sink);
        }
        const auto now = Clock::now();
        if (now >= nextKeepAlive) {
            SendKeepAlive();
            nextKeepAlive += period;
            if (nextKeepAlive <= now)
                nextKeepAlive = now + period;
        }
        if (!timeoutReported && now - lastHeard >= linkTimeout) {
            timeoutReported = true;
            CKVX_HdwObject::DebugOutput("LINK TIMEOUT!!!\n");
        }
    }
}

void CHoeSession::HandleDatagram(Packet& packet, int size, CHoeSessionSink& sink)
{
    if (CKVX_HdwHoe::GetCode(packet) == CKVX_HdwHoe::CodeDisconnectReply) {
        {
            std::lock_guard<std::mutex> lock(m_StateMutex);
            m_DisconnectAnswered = true;
        }
        m_StateCond.notify_all();
    }
    sink.OnSessionPacket(packet, static_cast<unsigned>(size));
}

unsigned CHoeSession::Disconnect()
{
    if (IsConnected()) {
        Packet p;
        m_Hoe.BuildDisconnectPacket(m_Tag, m_SessionId, p);
        SendPacket(p);
        if (m_Thread.joinable()) {
            std::unique_lock<std::mutex> lock(m_StateMutex);
            m_StateCond.wait_for(
                lock, std::chrono::milliseconds(DisconnectTimeoutMs), [this] { return m_DisconnectAnswered; });
        }
    }
    m_Stop.store(true, std::memory_order_release);
    if (m_Thread.joinable()) {
        // From the receive thread itself (a handler that disconnects) the
        // loop ends on its own after this call returns.
        if (m_Thread.get_id() == std::this_thread::get_id())
            m_Thread.detach();
        else
            m_Thread.join();
    }
    m_Connected.store(false, std::memory_order_release);
    ClosePoolSocket();
    return 0;
}

} // namespace hdw::links
