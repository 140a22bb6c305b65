#include <HdwLib/links/HdwHoe.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>

CKVX_Crc CKVX_HdwHoe::s_Crc16(static_cast<CKVX_Crc::t_StdCrc>(0x1008));

CKVX_HdwHoe::~CKVX_HdwHoe() = default;

unsigned int CKVX_HdwHoe::NewClientId()
{
    // The high half comes from the clock at first use, so that two processes
    // on one host are unlikely to share identifiers; the low half counts.
    static const uint32_t base = [] {
        const auto t = std::chrono::system_clock::now().time_since_epoch().count() ^
            std::chrono::steady_clock::now().time_since_epoch().count();
        return static_cast<uint32_t>((t ^ (t >> 32)) & 0xFFFF0000u);
    }();
    static std::atomic<uint32_t> counter{0};
    uint32_t id = 0;
    while (id == 0)
        id = base + counter.fetch_add(1, std::memory_order_relaxed) + 1;
    return id;
}

uint32_t CKVX_HdwHoe::GetU32(const t_HoePacket_Union& p, unsigned offset)
{
    const unsigned char* b = p.Bytes + offset;
    return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
}

uint16_t CKVX_HdwHoe::GetU16(const t_HoePacket_Union& p, unsigned offset)
{
    const unsigned char* b = p.Bytes + offset;
    return static_cast<uint16_t>(b[0] | b[1] << 8);
}

void CKVX_HdwHoe::SetU32(t_HoePacket_Union& p, unsigned offset, uint32_t v)
{
    unsigned char* b = p.Bytes + offset;
    b[0] = static_cast<unsigned char>(v);
    b[1] = static_cast<unsigned char>(v >> 8);
    b[2] = static_cast<unsigned char>(v >> 16);
    b[3] = static_cast<unsigned char>(v >> 24);
}

void CKVX_HdwHoe::SetU16(t_HoePacket_Union& p, unsigned offset, uint16_t v)
{
    p.Bytes[offset] = static_cast<unsigned char>(v);
    p.Bytes[offset + 1] = static_cast<unsigned char>(v >> 8);
}

unsigned CKVX_HdwHoe::GetPacketSize(const t_HoePacket_Union& p)
{
    return HeaderSize + std::min<unsigned>(GetPayloadLength(p), MaxPayload);
}

unsigned short CKVX_HdwHoe::ComputeCrc(t_HoePacket_Union& packet)
{
    static const unsigned char zero[2] = {0, 0};
    const unsigned size = GetPacketSize(packet);
    unsigned short crc = s_Crc16.Update(s_Crc16.GetInitialValue(), packet.Bytes, OffCrc);
    crc = s_Crc16.Update(crc, zero, 2);
    return s_Crc16.Update(crc, packet.Bytes + HeaderSize, size - HeaderSize);
}

bool CKVX_HdwHoe::IsBroadcastPacket(unsigned int code)
{
    return (code & 0xF0000000u) == 0xF0000000u;
}

void CKVX_HdwHoe::BuildSessionPacket(uint32_t code, unsigned int first, unsigned int second, t_HoePacket_Union& packet)
{
    std::memset(packet.Bytes, 0, sizeof packet.Bytes);
    SetU32(packet, OffSignature, Signature);
    SetU16(packet, OffVersion, Version);
    SetU32(packet, OffClientId, m_ClientId);
    SetU32(packet, OffSecondWord, second);
    SetU32(packet, OffFirstWord, first);
    SetU32(packet, OffCode, code);
}

void CKVX_HdwHoe::BuildDetectPacket(unsigned int first, t_HoePacket_Union& packet)
{
    BuildSessionPacket(CodeDetect, first, 0, packet);
    SetU16(packet, OffCrc, ComputeCrc(packet));
}

void CKVX_HdwHoe::BuildConnectPacket(
    unsigned int first, unsigned int second, t_HoePacket_Connect_Field_Struct& field, t_HoePacket_Union& packet)
{
    BuildSessionPacket(CodeConnect, first, second, packet);
    SetPayloadLength(packet, 2);
    SetU16(packet, HeaderSize, field.LocalPort);
    SetU16(packet, OffCrc, ComputeCrc(packet));
}

void CKVX_HdwHoe::BuildDisconnectPacket(unsigned int first, unsigned int second, t_HoePacket_Union& packet)
{
    BuildSessionPacket(CodeDisconnect, first, second, packet);
    SetU16(packet, OffCrc, ComputeCrc(packet));
}

void CKVX_HdwHoe::BuildSendCmdPacket(
    unsigned int first, unsigned int second, unsigned char* data, unsigned short length, t_HoePacket_Union& packet)
{
    BuildSessionPacket(CodeSendCmd, first, second, packet);
    SetPayloadLength(packet, length);
    if (data && length)
        std::memcpy(packet.Sections.Payload, data, length);
    SetU16(packet, OffCrc, ComputeCrc(packet));
}

void CKVX_HdwHoe::BuildPortPacket(uint32_t code, unsigned int first, unsigned int portType, unsigned int channel,
    unsigned int second, t_HoePacket_Union& packet)
{
    SetU32(packet, OffSignature, Signature);
    SetU16(packet, OffVersion, Version);
    SetU32(packet, OffClientId, m_ClientId);
    SetU32(packet, OffSecondWord, second);
    SetU32(packet, OffFirstWord, first);
    SetU32(packet, OffReserved18, 0);
    SetU16(packet, OffPortType, static_cast<uint16_t>(portType));
    SetU16(packet, OffChannel, static_cast<uint16_t>(channel));
    SetU16(packet, OffReserved30, 0);
    SetU32(packet, OffCode, code);
    SetU16(packet, OffCrc, 0);
    SetU16(packet, OffCrc, ComputeCrc(packet));
}

void CKVX_HdwHoe::BuildOpenPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeOpenPort, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildClosePortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeClosePort, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildKeepAlivePortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeKeepAlivePort, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildDataBufPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeDataBuf, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildCctxPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeCctx, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildDctxPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeDctx, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildRstTxPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeRstTx, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildRstRxPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeRstRx, first, portType, channel, second, packet);
}

void CKVX_HdwHoe::BuildCfgPortPacket(
    unsigned int first, unsigned int portType, unsigned int channel, unsigned int second, t_HoePacket_Union& packet)
{
    BuildPortPacket(CodeCfgPort, first, portType, channel, second, packet);
}

CKVX_HdwHoe::t_HoeCheck CKVX_HdwHoe::CheckReceivedPacket(
    const t_HoePacket_Union& packet, int size, unsigned int first, const uint32_t* codes, unsigned codeCount) const
{
    if (size <= 0 || static_cast<unsigned>(size) > PacketSize)
        return HoeCheckRead;
    if (static_cast<unsigned>(size) < HeaderSize)
        return HoeCheckMinSize;
    if (GetU32(packet, OffSignature) != Signature)
        return HoeCheckSignature;
    if (GetU32(packet, OffClientId) != m_ClientId)
        return HoeCheckClientId;
    if (GetU32(packet, OffFirstWord) != first)
        return HoeCheckFirstWord;
    const unsigned length = GetPayloadLength(packet);
    if (length > MaxPayload)
        return HoeCheckPayloadMax;
    if (length + HeaderSize != static_cast<unsigned>(size))
        return HoeCheckLength;
    // ComputeCrc counts the CRC field as 0, so the packet is left untouched.
    if (ComputeCrc(const_cast<t_HoePacket_Union&>(packet)) != GetU16(packet, OffCrc))
        return HoeCheckCrc;
    const uint32_t code = GetCode(packet);
    for (unsigned i = 0; i < codeCount; ++i)
        if (codes[i] == code)
            return HoeAccepted;
    return HoeCheckCode;
}
