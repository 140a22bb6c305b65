#pragma once
// HOE packets: the datagrams between the host and the Ethernet units. A
// packet is a 64-byte little-endian header followed by at most 1350 payload
// bytes; the header carries the client identifier of the CKVX_HdwHoe that
// built it, two address words, the packet code and a CRC-16 over header and
// payload (computed with the CRC field at 0).
//
//     CKVX_HdwHoe hoe(clientId);
//     CKVX_HdwHoe::t_HoePacket_Union packet;
//     hoe.BuildDetectPacket(tag, packet);
//     socket.SendTo(packet.Bytes, CKVX_HdwHoe::GetPacketSize(packet), address, port);

#include <HdwLib/HdwLibExport.h>
#include <HdwLib/core/KvxCrc.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwHoe {
public:
    static constexpr unsigned HeaderSize = 64;
    static constexpr unsigned MaxPayload = 1350;
    static constexpr unsigned PacketSize = HeaderSize + MaxPayload; // 1414
    static constexpr uint32_t Signature = 0xFE0000A1u;
    static constexpr uint16_t Version = 1;

    // Header field offsets (little-endian fields).
    static constexpr unsigned OffSignature = 0; // u32
    static constexpr unsigned OffVersion = 4; // u16
    static constexpr unsigned OffClientId = 6; // u32
    static constexpr unsigned OffSecondWord = 10; // u32
    static constexpr unsigned OffFirstWord = 14; // u32
    static constexpr unsigned OffReserved18 = 18; // u32
    static constexpr unsigned OffPacketNumber = 22; // u32
    static constexpr unsigned OffPortType = 26; // u16
    static constexpr unsigned OffChannel = 28; // u16
    static constexpr unsigned OffReserved30 = 30; // u16
    static constexpr unsigned OffCode = 32; // u32
    static constexpr unsigned OffPayloadLength = 36; // u16
    static constexpr unsigned OffCrc = 62; // u16

    // Packet codes; a reply is its request plus one.
    enum t_HoeCode : uint32_t {
        CodeDetect = 0xF0000001u,
        CodeDetectReply = 0xF0000002u,
        CodeConnect = 0xC0000001u,
        CodeConnectReply = 0xC0000002u,
        CodeDisconnect = 0xC0000003u,
        CodeDisconnectReply = 0xC0000004u,
        CodeSendCmd = 0xC0000005u,
        CodeEventData = 0xC0000006u, // the unit's frames (reply class of Send command)
        CodeOpenPort = 0xA0000001u,
        CodeOpenPortReply = 0xA0000002u,
        CodeClosePort = 0xA0000003u,
        CodeClosePortReply = 0xA0000004u,
        CodeKeepAlivePort = 0xA0000005u,
        CodeDataBuf = 0xA0000006u,
        CodeDataBufReply = 0xA0000007u,
        CodeCctx = 0xA0000008u,
        CodeCctxReply = 0xA0000009u,
        CodeRstTx = 0xA000000Au,
        CodeRstTxReply = 0xA000000Bu,
        CodeRstRx = 0xA000000Cu,
        CodeRstRxReply = 0xA000000Du,
        CodeDctx = 0xA000000Eu,
        CodeDctxReply = 0xA000000Fu,
        CodeCfgPort = 0xA0000010u,
        CodeCfgPortReply = 0xA0000011u,
    };

    // Which acceptance check a received datagram failed, in the order they
    // are applied (HoeAccepted when it passed all nine).
    enum t_HoeCheck : unsigned {
        HoeAccepted = 0,
        HoeCheckRead = 1, // read failed or empty datagram
        HoeCheckMinSize = 2, // shorter than the header
        HoeCheckSignature = 3,
        HoeCheckClientId = 4,
        HoeCheckFirstWord = 5, // not the first address word of the request
        HoeCheckPayloadMax = 6, // payload length above 1350
        HoeCheckLength = 7, // payload length + 64 is not the datagram size
        HoeCheckCrc = 8,
        HoeCheckCode = 9, // not a code that is awaited
    };

    // The whole packet buffer: raw bytes, or header and payload.
    union t_HoePacket_Union {
        unsigned char Bytes[PacketSize];
        struct t_Sections {
            unsigned char Header[HeaderSize];
            unsigned char Payload[MaxPayload];
        } Sections;
    };

    // Payload of Connect: the host's local UDP port, sent as 2 bytes.
    struct t_HoePacket_Connect_Field_Struct {
        unsigned short LocalPort = 0;
    };

    CKVX_HdwHoe() = default;
    explicit CKVX_HdwHoe(unsigned int clientId) : m_ClientId(clientId) {}
    CKVX_HdwHoe(const CKVX_HdwHoe&) = default;
    CKVX_HdwHoe& operator=(const CKVX_HdwHoe&) = default;
    virtual ~CKVX_HdwHoe();

    unsigned int GetClientId() const { return m_ClientId; }
    void SetClientId(unsigned int clientId) { m_ClientId = clientId; }
    // A fresh non-zero identifier, different on every call within the process.
    static unsigned int NewClientId();

    // Session and broadcast packets: these clear the whole buffer first.
    void BuildDetectPacket(unsigned int first, t_HoePacket_Union& packet);
    void BuildConnectPacket(
        unsigned int first, unsigned int second, t_HoePacket_Connect_Field_Struct& field, t_HoePacket_Union& packet);
    void BuildDisconnectPacket(unsigned int first, unsigned int second, t_HoePacket_Union& packet);
    // `length` must not exceed 1350; it is not checked here.
    void BuildSendCmdPacket(
        unsigned int first, unsigned int second, unsigned char* data, unsigned short length, t_HoePacket_Union& packet);

    // Port packets: the caller zero-fills the buffer and sets the packet
    // number, payload and payload length before calling these.
    void BuildOpenPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildClosePortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildKeepAlivePortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildDataBufPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildCctxPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildDctxPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildRstTxPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildRstRxPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);
    void BuildCfgPortPacket(unsigned int first, unsigned int portType, unsigned int channel, unsigned int second,
        t_HoePacket_Union& packet);

    // CRC over the first (payload length + 64) bytes, the CRC field counted
    // as 0 whatever it holds. A length field above 1350 counts as 1350.
    static unsigned short ComputeCrc(t_HoePacket_Union& packet);
    static bool IsBroadcastPacket(unsigned int code);

    // The acceptance checks for a received datagram of `size` bytes (negative
    // when the read failed), in order; returns the first that fails. The
    // packet must carry this object's client identifier and `first`, and one
    // of the `codeCount` codes at `codes`.
    t_HoeCheck CheckReceivedPacket(
        const t_HoePacket_Union& packet, int size, unsigned int first, const uint32_t* codes, unsigned codeCount) const;
    t_HoeCheck CheckReceivedPacket(const t_HoePacket_Union& packet, int size, unsigned int first, uint32_t code) const
    {
        return CheckReceivedPacket(packet, size, first, &code, 1);
    }

    // Little-endian field access.
    static uint32_t GetU32(const t_HoePacket_Union& packet, unsigned offset);
    static uint16_t GetU16(const t_HoePacket_Union& packet, unsigned offset);
    static void SetU32(t_HoePacket_Union& packet, unsigned offset, uint32_t value);
    static void SetU16(t_HoePacket_Union& packet, unsigned offset, uint16_t value);

    static uint32_t GetCode(const t_HoePacket_Union& p) { return GetU32(p, OffCode); }
    static uint32_t GetFirstWord(const t_HoePacket_Union& p) { return GetU32(p, OffFirstWord); }
    static uint32_t GetSecondWord(const t_HoePacket_Union& p) { return GetU32(p, OffSecondWord); }
    static uint32_t GetPacketClientId(const t_HoePacket_Union& p) { return GetU32(p, OffClientId); }
    static uint32_t GetPacketNumber(const t_HoePacket_Union& p) { return GetU32(p, OffPacketNumber); }
    static void SetPacketNumber(t_HoePacket_Union& p, uint32_t n) { SetU32(p, OffPacketNumber, n); }
    static uint16_t GetPayloadLength(const t_HoePacket_Union& p) { return GetU16(p, OffPayloadLength); }
    static void SetPayloadLength(t_HoePacket_Union& p, uint16_t n) { SetU16(p, OffPayloadLength, n); }
    // Header plus payload length, at most 1414.
    static unsigned GetPacketSize(const t_HoePacket_Union& p);

    // The CRC-16 of HOE packets (selector 0x1008).
    static CKVX_Crc s_Crc16;

private:
    void BuildSessionPacket(uint32_t code, unsigned int first, unsigned int second, t_HoePacket_Union& packet);
    void BuildPortPacket(uint32_t code, unsigned int first, unsigned int portType, unsigned int channel,
        unsigned int second, t_HoePacket_Union& packet);

    unsigned int m_ClientId = 0;
};

static_assert(sizeof(CKVX_HdwHoe::t_HoePacket_Union) == 1414, "HOE packet buffer is 1414 bytes");
static_assert(sizeof(CKVX_HdwHoe::t_HoePacket_Union::t_Sections) == 1414, "header and payload are contiguous");
