#include "HoePacket.h"

#include "Crc16.h"

#include <cstring>

namespace hdwsim::hoe {

namespace {

void Put16(uint8_t* p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
void Put32(uint8_t* p, uint32_t v)
{
    Put16(p, v);
    Put16(p + 2, v >> 16);
}
uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Get32(const uint8_t* p) { return uint32_t(Get16(p)) | (uint32_t(Get16(p + 2)) << 16); }

} // namespace

std::vector<uint8_t> Build(const Header& h, const uint8_t* payload, size_t size)
{
    std::vector<uint8_t> d(HeaderSize + size, 0);
    Put32(&d[0], Signature);
    Put16(&d[4], 1);
    Put32(&d[6], h.ClientId);
    Put32(&d[10], h.Second);
    Put32(&d[14], h.First);
    Put32(&d[22], h.PacketNumber);
    Put16(&d[26], h.PortType);
    Put16(&d[28], h.Channel);
    Put32(&d[32], h.Code);
    Put16(&d[36], static_cast<uint32_t>(size));
    if (size > 0)
        std::memcpy(&d[HeaderSize], payload, size);
    Put16(&d[62], Crc16(d.data(), d.size()));
    return d;
}

bool Parse(const uint8_t* data, size_t size, Header& h, const uint8_t*& payload, size_t& payloadSize)
{
    if (size < HeaderSize || Get32(data) != Signature)
        return false;
    const size_t length = Get16(data + 36);
    if (length > MaxPayload || length + HeaderSize != size)
        return false;
    const uint16_t crc = Get16(data + 62);
    const uint8_t zero[2] = {0, 0};
    uint16_t computed = Crc16(data, 62);
    computed = Crc16(zero, 2, computed);
    computed = Crc16(data + HeaderSize, length, computed);
    if (computed != crc)
        return false;
    h.ClientId = Get32(data + 6);
    h.Second = Get32(data + 10);
    h.First = Get32(data + 14);
    h.PacketNumber = Get32(data + 22);
    h.PortType = Get16(data + 26);
    h.Channel = Get16(data + 28);
    h.Code = Get32(data + 32);
    payload = data + HeaderSize;
    payloadSize = length;
    return true;
}

} // namespace hdwsim::hoe
