#pragma once
// The unit's side of the HOE datagrams: a 64-byte little-endian header
// (signature, version, client identifier, the two address words, packet
// number, port type and channel, code, payload length, CRC) and a payload of
// at most 1350 bytes. The CRC covers header and payload with the CRC field 0.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace hdwsim::hoe {

constexpr size_t HeaderSize = 64;
constexpr size_t MaxPayload = 1350;
constexpr uint32_t Signature = 0xFE0000A1;

enum Code : uint32_t {
    Detect = 0xF0000001,
    DetectReply = 0xF0000002,
    Connect = 0xC0000001,
    ConnectReply = 0xC0000002,
    Disconnect = 0xC0000003,
    DisconnectReply = 0xC0000004,
    SendCommand = 0xC0000005,
    EventData = 0xC0000006,
    // Port packets; a reply is its request plus one.
    OpenPort = 0xA0000001,
    OpenPortReply = 0xA0000002,
    ClosePort = 0xA0000003,
    ClosePortReply = 0xA0000004,
    KeepAlive = 0xA0000005,
    DataBuf = 0xA0000006,
    DataBufReply = 0xA0000007,
    Cctx = 0xA0000008,
    CctxReply = 0xA0000009,
    RstTx = 0xA000000A,
    RstTxReply = 0xA000000B,
    RstRx = 0xA000000C,
    RstRxReply = 0xA000000D,
    Dctx = 0xA000000E,
    DctxReply = 0xA000000F,
    CfgPort = 0xA0000010,
    CfgPortReply = 0xA0000011,
};

struct Header {
    uint32_t ClientId = 0;
    uint32_t Second = 0;
    uint32_t First = 0;
    uint32_t PacketNumber = 0;
    uint16_t PortType = 0;
    uint16_t Channel = 0;
    uint32_t Code = 0;
};

// A whole datagram: header with its CRC, then the payload.
std::vector<uint8_t> Build(const Header& h, const uint8_t* payload, size_t size);

// Checks a received datagram (size, signature, payload length, CRC) and
// fills `h` and the payload span. False when any check fails.
bool Parse(const uint8_t* data, size_t size, Header& h, const uint8_t*& payload, size_t& payloadSize);

} // namespace hdwsim::hoe
