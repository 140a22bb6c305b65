// The command builders of the I2C and SPI masters (Wendal, docs/wendal.md):
// configuration 112 + channel (I2C) and 114 + channel (SPI), transfers 116
// (I2C) and 117 (SPI). Every multi-byte field little-endian. Each builder
// checks first and attaches nothing when it refuses.

#include <HdwLib/units/KvxCommandUnit.h>

#include <algorithm>

namespace {

constexpr unsigned kMaxTransferBytes = 240; // one record's data, each way

void PutLe16(uint8_t* p, uint32_t v)
{
    p[0] = uint8_t(v & 0xFF);
    p[1] = uint8_t((v >> 8) & 0xFF);
}

void PutLe32(uint8_t* p, uint32_t v)
{
    PutLe16(p, v);
    PutLe16(p + 2, v >> 16);
}

// The instance when the unit takes commands of `kind` and has `channel`.
CKVX_HdwKvxUnitInstance* Target(
    CKVX_HdwKvxCommandUnit& unit, unsigned instance, uint32_t kind, unsigned channel, unsigned channels)
{
    if (!(unit.GetUnitProfile().Commands & kind) || channel >= channels)
        return nullptr;
    return unit.GetUnitInstance(instance);
}

} // namespace

// 4 flags (bit 0 on, bit 1 pull-ups), 5 speed code, 6..7 bus time-out, 8 zero.
unsigned CKVX_HdwKvxCommandUnit::AttachI2cConfigCommand(
    unsigned instance, unsigned channel, const CKVX_HdwI2cPort::CParameters& params, bool enable)
{
    CKVX_HdwKvxUnitInstance* inst = Target(*this, instance, CmdI2cConfig, channel, m_Profile.I2cChannels);
    if (!inst || params.Check() != 0)
        return HDW_ERR_ARGUMENT;
    uint8_t p[5] = {};
    p[0] = uint8_t((enable ? 0x01 : 0) | (params.PullUps ? 0x02 : 0));
    p[1] = params.BusSpeed == 100000 ? 0 : params.BusSpeed == 400000 ? 1 : 2;
    PutLe16(p + 2, params.BusTimeoutMs);
    return AttachCommand(inst, uint8_t(m_Profile.I2cConfigBase + channel), p, sizeof p);
}

// 4 flags (bit 0 on, bit 1 CPHA, bit 2 CPOL, bit 3 LSB first, bit 4 chip
// selects active high), 5 word bits, 6..7 clock divider, 8 default chip select.
unsigned CKVX_HdwKvxCommandUnit::AttachSpiConfigCommand(
    unsigned instance, unsigned channel, const CKVX_HdwSpiPort::CParameters& params, uint16_t divider, bool enable)
{
    CKVX_HdwKvxUnitInstance* inst = Target(*this, instance, CmdSpiConfig, channel, m_Profile.SpiChannels);
    if (!inst || params.Check() != 0 || params.ChipSelect > 3)
        return HDW_ERR_ARGUMENT;
    uint8_t p[5] = {};
    p[0] = uint8_t((enable ? 0x01 : 0) | (params.Mode & 1 ? 0x02 : 0) | (params.Mode & 2 ? 0x04 : 0) |
        (params.LsbFirst ? 0x08 : 0) | (params.CsActiveHigh ? 0x10 : 0));
    p[1] = params.WordBits;
    PutLe16(p + 2, divider);
    p[4] = params.ChipSelect;
    return AttachCommand(inst, uint8_t(m_Profile.SpiConfigBase + channel), p, sizeof p);
}

// 4 channel, 5..8 wire tag, 9 flags (bit 0 10-bit, bit 1 write phase, bit 2
// read phase), 10..11 address, 12 read length, 13.. the bytes to write.
unsigned CKVX_HdwKvxCommandUnit::AttachI2cTransferCommand(
    unsigned instance, unsigned channel, uint32_t wireTag, const CKVX_HdwI2cTransfer& t)
{
    CKVX_HdwKvxUnitInstance* inst = Target(*this, instance, CmdI2cTransfer, channel, m_Profile.I2cChannels);
    const unsigned n = t.Write.GetLength();
    if (!inst || t.Check() != 0 || n > kMaxTransferBytes || t.ReadLength > kMaxTransferBytes)
        return HDW_ERR_ARGUMENT;
    uint8_t p[9 + kMaxTransferBytes] = {};
    p[0] = uint8_t(channel);
    PutLe32(p + 1, wireTag);
    const bool read = t.ReadLength != 0;
    const bool write = n != 0 || !read; // no read and no bytes: an address probe
    p[5] = uint8_t((t.TenBit ? 0x01 : 0) | (write ? 0x02 : 0) | (read ? 0x04 : 0));
    PutLe16(p + 6, t.Address);
    p[8] = uint8_t(t.ReadLength);
    std::copy_n(t.Write.GetData(), n, p + 9);
    return AttachCommand(inst, m_Profile.I2cTransferCode, p, 9 + n);
}

// 4 channel, 5..8 wire tag, 9 chip select, 10 flags (bit 0 keep selected),
// 11.. the bytes to shift out.
unsigned CKVX_HdwKvxCommandUnit::AttachSpiTransferCommand(
    unsigned instance, unsigned channel, uint32_t wireTag, uint8_t chipSelect, const CKVX_HdwSpiTransfer& t)
{
    CKVX_HdwKvxUnitInstance* inst = Target(*this, instance, CmdSpiTransfer, channel, m_Profile.SpiChannels);
    const unsigned n = t.Out.GetLength();
    if (!inst || n == 0 || n > kMaxTransferBytes || chipSelect > 3)
        return HDW_ERR_ARGUMENT;
    uint8_t p[7 + kMaxTransferBytes] = {};
    p[0] = uint8_t(channel);
    PutLe32(p + 1, wireTag);
    p[5] = chipSelect;
    p[6] = t.KeepSelected ? 0x01 : 0;
    std::copy_n(t.Out.GetData(), n, p + 7);
    return AttachCommand(inst, m_Profile.SpiTransferCode, p, 7 + n);
}
