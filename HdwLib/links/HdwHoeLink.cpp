#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/links/HdwHoeLink.h>
#include <HdwLib/links/internal/ByteQueue.h>
#include <HdwLib/links/internal/HoeEnumeration.h>
#include <HdwLib/links/internal/HoeSession.h>

namespace hdw::links {

// Hands what the session accepted to the link's processing chain.
class CHoeLinkSink : public CHoeSessionSink {
public:
    explicit CHoeLinkSink(CKVX_HdwHoeLink& link) : m_Link(link) {}
    void OnSessionPacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size) override
    {
        m_Link.EthProcessRxPacket(packet, size);
    }

private:
    CKVX_HdwHoeLink& m_Link;
};

} // namespace hdw::links

CKVX_HdwHoeLink::CDetectInfo::~CDetectInfo() = default;

CKVX_HdwHoeLink::CKVX_HdwHoeLink() : m_Session(new hdw::links::CHoeSession), m_Sink(new hdw::links::CHoeLinkSink(*this))
{}

CKVX_HdwHoeLink::~CKVX_HdwHoeLink()
{
    EthDisconnect();
    delete m_Session;
    delete m_Sink;
}

unsigned CKVX_HdwHoeLink::EthDetect(CDetectInfo& info, unsigned timeoutMs)
{
    hdw::links::HoeDetectReply reply;
    const unsigned rc = hdw::links::CHoeSession::Detect(CKVX_HdwHoe(ClientId), UnitAddress, UnitPort, timeoutMs, reply);
    if (rc != 0)
        return HDW_ERR_LINK;
    info = hdw::links::ToDetectInfo(reply);
    return 0;
}

unsigned CKVX_HdwHoeLink::EthConnect(CKVX_HdwManager* manager, unsigned short linkTimeoutMs)
{
    if (m_Session->IsConnected())
        return 0;
    const unsigned rc = m_Session->Connect(ClientId, manager, UnitAddress, UnitPort, linkTimeoutMs);
    if (rc == 0) {
        FirstWord = m_Session->GetTag();
        SecondWord = m_Session->GetSessionId();
    }
    return rc;
}

unsigned CKVX_HdwHoeLink::EthDisconnect()
{
    return m_Session->Disconnect();
}

unsigned CKVX_HdwHoeLink::CreateEthernetLink(CKVX_HdwManager* manager, unsigned short linkTimeoutMs)
{
    if (m_Session->IsConnected())
        return 0;
    {
        CKVX_MutexLocker lock(RxMutex);
        RxList.DeleteAll();
    }
    if (const unsigned rc = EthConnect(manager, linkTimeoutMs))
        return rc;
    if (const unsigned rc = m_Session->StartReceiveThread(&EthRxThreadFunction, this)) {
        m_Session->Disconnect();
        return rc;
    }
    return 0;
}

bool CKVX_HdwHoeLink::IsEthConnected() const
{
    return m_Session->IsConnected();
}

unsigned short CKVX_HdwHoeLink::GetEthLocalPort() const
{
    return m_Session->GetLocalPort();
}

unsigned CKVX_HdwHoeLink::EthSendCmd(unsigned char* data, unsigned short length)
{
    // Without a session the frame is dropped like a lost datagram; the unit
    // protocol's echo time-out notices either.
    if (!m_Session->IsConnected())
        return length > CKVX_HdwHoe::MaxPayload ? static_cast<unsigned>(HDW_ERR_ARGUMENT) : 0u;
    return m_Session->SendCmd(data, length);
}

unsigned CKVX_HdwHoeLink::SendPacket(CKVX_HdwHoe::t_HoePacket_Union& packet)
{
    return m_Session->SendPacket(packet);
}

unsigned CKVX_HdwHoeLink::EthRxThreadFunction(void* link)
{
    return static_cast<CKVX_HdwHoeLink*>(link)->EthRxProc();
}

unsigned CKVX_HdwHoeLink::EthRxProc()
{
    m_Session->ReceiveLoop(*m_Sink);
    return 0;
}

unsigned CKVX_HdwHoeLink::EthProcessRxPacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size)
{
    if (EthValidatePacket(packet, size) != 0)
        return 0;
    return EthProcessHoePacket(packet, size);
}

unsigned CKVX_HdwHoeLink::EthValidatePacket(CKVX_HdwHoe::t_HoePacket_Union&, unsigned)
{
    return 0;
}

unsigned CKVX_HdwHoeLink::EthProcessPortPacket(CKVX_HdwHoe::t_HoePacket_Union&, unsigned)
{
    return 0;
}

unsigned CKVX_HdwHoeLink::EthProcessHoePacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size)
{
    // The session keep-alive and the disconnect reply have done their work
    // in the session.
    const uint32_t code = CKVX_HdwHoe::GetCode(packet);
    if (code == CKVX_HdwHoe::CodeEventData)
        return EthProcessHoeEventDataPacket(packet);
    if ((code & 0xF0000000u) == 0xA0000000u && CKVX_HdwHoe::GetU16(packet, CKVX_HdwHoe::OffPortType) != 0)
        return EthProcessPortPacket(packet, size);
    return 0;
}

unsigned CKVX_HdwHoeLink::EthProcessHoeEventDataPacket(CKVX_HdwHoe::t_HoePacket_Union& packet)
{
    const unsigned length = CKVX_HdwHoe::GetPayloadLength(packet);
    const unsigned char* payload = packet.Sections.Payload;
    CKVX_MutexLocker lock(RxMutex);
    hdw::links::Append(RxList, payload, length);
    return 0;
}

unsigned CKVX_HdwHoeLink::EthRead(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    if (!buffer && maxBytes)
        return HDW_ERR_ARGUMENT;
    CKVX_MutexLocker lock(RxMutex);
    bytesRead = hdw::links::TakeFront(RxList, buffer, maxBytes);
    return 0;
}

unsigned CKVX_HdwHoeLink::EthGetReadBufferBytes(unsigned& count)
{
    CKVX_MutexLocker lock(RxMutex);
    count = RxList.GetLength();
    return 0;
}
