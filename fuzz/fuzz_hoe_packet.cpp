// libFuzzer target: received HOE datagrams through the acceptance checks and,
// when accepted, the link's processing chain (event data to the receive list).
// The checks are compared with a model written out here (its own bitwise
// CRC-16), a repaired datagram must pass, and any one byte changed in a
// passing datagram must fail.
#include <HdwLib/HdwLib.h>
#include <HdwLib/links/HdwHoeLink.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Hoe = CKVX_HdwHoe;
using Packet = Hoe::t_HoePacket_Union;

void Require(bool ok)
{
    if (!ok)
        std::abort();
}

// CRC-16/IBM-3740 bit by bit: polynomial 0x1021, initial 0xFFFF.
uint16_t BitwiseCrc(const uint8_t* p, size_t n)
{
    uint16_t c = 0xFFFF;
    for (size_t i = 0; i < n; ++i) {
        c = static_cast<uint16_t>(c ^ (p[i] << 8));
        for (int b = 0; b < 8; ++b)
            c = static_cast<uint16_t>(c & 0x8000 ? (c << 1) ^ 0x1021 : c << 1);
    }
    return c;
}

uint32_t U32(const Packet& p, unsigned o)
{
    return p.Bytes[o] | p.Bytes[o + 1] << 8 | p.Bytes[o + 2] << 16 | uint32_t(p.Bytes[o + 3]) << 24;
}

unsigned U16(const Packet& p, unsigned o)
{
    return p.Bytes[o] | p.Bytes[o + 1] << 8;
}

Hoe::t_HoeCheck Model(const Packet& p, int size, uint32_t client, uint32_t first, const std::vector<uint32_t>& codes)
{
    if (size <= 0 || size > 1414)
        return Hoe::HoeCheckRead;
    if (size < 64)
        return Hoe::HoeCheckMinSize;
    if (U32(p, 0) != 0xFE0000A1u)
        return Hoe::HoeCheckSignature;
    if (U32(p, 6) != client)
        return Hoe::HoeCheckClientId;
    if (U32(p, 14) != first)
        return Hoe::HoeCheckFirstWord;
    const unsigned length = U16(p, 36);
    if (length > 1350)
        return Hoe::HoeCheckPayloadMax;
    if (length + 64 != unsigned(size))
        return Hoe::HoeCheckLength;
    Packet copy = p;
    copy.Bytes[62] = copy.Bytes[63] = 0;
    if (BitwiseCrc(copy.Bytes, length + 64) != U16(p, 62))
        return Hoe::HoeCheckCrc;
    for (uint32_t c : codes)
        if (c == U32(p, 32))
            return Hoe::HoeAccepted;
    return Hoe::HoeCheckCode;
}

Hoe::t_HoeCheck Check(const Hoe& hoe, const Packet& p, int size, uint32_t first, const std::vector<uint32_t>& codes)
{
    const Packet before = p;
    const auto r = hoe.CheckReceivedPacket(p, size, first, codes.data(), unsigned(codes.size()));
    Require(std::memcmp(before.Bytes, p.Bytes, sizeof p.Bytes) == 0); // checking leaves the packet alone
    return r;
}

// The link as its receive thread drives it, without a session.
CKVX_HdwHoeLink& Link()
{
    static CKVX_HdwHoeLink* link = new CKVX_HdwHoeLink;
    return *link;
}

void Deliver(Packet& p, unsigned size)
{
    CKVX_HdwHoeLink& link = Link();
    const bool eventData = Hoe::GetCode(p) == Hoe::CodeEventData;
    const unsigned length = Hoe::GetPayloadLength(p);
    const std::vector<uint8_t> payload(p.Sections.Payload, p.Sections.Payload + length);
    link.EthProcessRxPacket(p, size);
    unsigned count = 0;
    link.EthGetReadBufferBytes(count);
    Require(count == (eventData ? length : 0));
    std::vector<uint8_t> got(count + 1);
    unsigned read = 0;
    Require(link.EthRead(got.data(), unsigned(got.size()), read) == 0 && read == count);
    got.resize(read);
    Require(!eventData || got == payload);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const uint8_t mode = in.ConsumeIntegral<uint8_t>();
    const uint32_t client = in.ConsumeIntegral<uint32_t>();
    const uint32_t first = in.ConsumeIntegral<uint32_t>();
    // The awaited codes: the receive loop's three, Detect's or Connect's reply, or fuzzed.
    std::vector<uint32_t> codes;
    switch (mode >> 4 & 3) {
    case 0: codes = {Hoe::CodeEventData, Hoe::CodeKeepAlivePort, Hoe::CodeDisconnectReply}; break;
    case 1: codes = {Hoe::CodeDetectReply}; break;
    case 2: codes = {Hoe::CodeConnectReply}; break;
    default: codes = {in.ConsumeIntegral<uint32_t>(), in.ConsumeIntegral<uint32_t>()}; break;
    }
    const size_t flip = in.ConsumeIntegral<uint16_t>();
    const uint8_t flipBits = in.ConsumeIntegral<uint8_t>();
    const std::vector<uint8_t> datagram = in.ConsumeRemainingBytes<uint8_t>();

    Packet p;
    // Bytes past the datagram hold whatever the buffer held before.
    std::memset(p.Bytes, 0xA5, sizeof p.Bytes);
    const size_t n = std::min(datagram.size(), sizeof p.Bytes);
    if (n > 0)
        std::memcpy(p.Bytes, datagram.data(), n);
    int dgSize = int(n);
    if (mode & 0x40)
        dgSize = -1 - int(mode & 3); // a failed read
    const Hoe hoe(client);

    if (!(mode & 0x80)) {
        const auto r = Check(hoe, p, dgSize, first, codes);
        Require(r == Model(p, dgSize, client, first, codes));
        if (r == Hoe::HoeAccepted)
            Deliver(p, unsigned(dgSize));
        return 0;
    }

    // Repaired: whatever the fuzzer gave, with every checked field put right.
    if (n < 64)
        return 0;
    Hoe::SetU32(p, Hoe::OffSignature, Hoe::Signature);
    Hoe::SetU32(p, Hoe::OffClientId, client);
    Hoe::SetU32(p, Hoe::OffFirstWord, first);
    Hoe::SetU16(p, Hoe::OffPayloadLength, uint16_t(n - 64));
    Hoe::SetU32(p, Hoe::OffCode, codes[mode & 1 ? codes.size() - 1 : 0]);
    Hoe::SetU16(p, Hoe::OffCrc, Hoe::ComputeCrc(p));
    Require(Hoe::GetPacketSize(p) == n);
    Require(Check(hoe, p, int(n), first, codes) == Hoe::HoeAccepted);
    Require(Model(p, int(n), client, first, codes) == Hoe::HoeAccepted);
    // Any single byte of the datagram changed: refused (the CRC catches
    // every burst of up to 16 bits that no earlier check caught).
    if (flipBits) {
        Packet bad = p;
        bad.Bytes[flip % n] ^= flipBits;
        const auto r = Check(hoe, bad, int(n), first, codes);
        Require(r != Hoe::HoeAccepted && r == Model(bad, int(n), client, first, codes));
    }
    Deliver(p, unsigned(n));
    return 0;
}
