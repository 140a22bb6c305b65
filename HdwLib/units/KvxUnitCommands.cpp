#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/internal/KvxCommandRecord.h>

#include <cstring>
// The command builders of the command-protocol units and the conversions of
// bit rates into the units' divider settings. Every builder checks first
// (instance, command taken by the unit, channel, parameters) and only then
// attaches, so that a refused call leaves the command list as it was.

#include <cmath>

namespace kvx_commands {

// The CAN frame part of a push record (record bytes 4..16): flags, the
// identifier most significant part first, then the eight data bytes.
inline void PutCanFrame(uint8_t* p, const CKVX_HdwCanMessage& m)
{
    p[0] = uint8_t((m.Dlc & 0x0F) | (m.Rtr ? 0x40 : 0) | (m.Extended ? 0x80 : 0));
    unsigned data = 3;
    if (m.Extended) {
        p[1] = uint8_t(m.Identifier >> 21);
        p[2] = uint8_t(m.Identifier >> 13);
        p[3] = uint8_t(m.Identifier >> 5);
        p[4] = uint8_t((m.Identifier << 3) & 0xFF);
        data = 5;
    } else {
        p[1] = uint8_t(m.Identifier >> 3);
        p[2] = uint8_t((m.Identifier << 5) & 0xFF);
    }
    std::memcpy(p + data, m.Data, 8);
}

constexpr unsigned kUartChunk = 240;
constexpr unsigned kSramWordsPerRecord = 100;

} // namespace kvx_commands

// ---- ARINC 429 word -----------------------------------------------------------

uint32_t CKVX_HdwKvxCommandUnit::PackArinc429Word(const CKVX_HdwArinc429Message& m)
{
    return uint32_t(m.Label) | (uint32_t(m.Sdi & 3u) << 8) | ((m.Data & 0x7FFFFu) << 10) |
        (uint32_t(m.Ssm & 3u) << 29) | (m.Parity ? 0x80000000u : 0u);
}

void CKVX_HdwKvxCommandUnit::UnpackArinc429Word(uint32_t word, CKVX_HdwArinc429Message& message)
{
    message.SetFromUint32(word);
}

// ---- rate conversions ---------------------------------------------------------

unsigned CKVX_HdwKvxCommandUnit::ExtractArinc429TxBaudRateParameters(
    unsigned rate, unsigned char& highSpeed, unsigned short& highDivider, unsigned short& lowDivider)
{
    highSpeed = rate <= 15000 ? 0 : 1;
    // 60 MHz unit clock, two half-bits per bit; rate 0 gives infinity.
    const double d = 60000000.0 / double(rate) / 2.0 - 1.0;
    if (!(d <= 4095.0) || d < 149.0)
        return HDW_ERR_ARGUMENT;
    highDivider = lowDivider = (unsigned short)(d);
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::ExtractCanTimingParameters(
    unsigned rate, double samplePoint, unsigned char& prescalerIndex, unsigned char& segment1, unsigned char& segment2)
{
    if (rate == 0)
        return HDW_ERR_ARGUMENT;
    const double clock = 60000000.0;
    bool found = false;
    unsigned best = 0;
    double bestError = 0.0;
    for (unsigned i = 0; i < 256; ++i) {
        const double p = 2.0 * i + 2.0;
        const double q = clock / p / rate;
        if (q < 4.0 || q >= 26.0)
            continue;
        const unsigned n = unsigned(q);
        const double error = std::fabs(clock / p / n - rate);
        // On equal error the smaller index, found first, stays.
        if (!found || error < bestError) {
            found = true;
            best = i;
            bestError = error;
        }
    }
    if (!found)
        return HDW_ERR_ARGUMENT;
    const unsigned n = unsigned(clock / (2.0 * best + 2.0) / rate);
    const double rounded = n * samplePoint + 0.5;
    // Clamped to 7..15; the comparisons come before the conversion so that any
    // sample point (NaN included) gives a defined value.
    unsigned s = 7;
    if (rounded >= 15.0)
        s = 15;
    else if (rounded >= 7.0)
        s = unsigned(rounded);
    prescalerIndex = (unsigned char)best;
    segment1 = (unsigned char)(s - 2);
    // A small n with a large s wraps; the value is sent as it stands.
    segment2 = (unsigned char)(n - (s - 2) - 3);
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::ExtractUartBaudRateParameters(
    unsigned rate, unsigned char& oversamplingIndex, unsigned short& divider)
{
    static constexpr double kClock = 36864000.0;
    static constexpr unsigned kFactor[4] = {10, 12, 16, 20};
    if (rate == 0)
        return HDW_ERR_ARGUMENT;
    double bestError = 100000000.0;
    bool found = false;
    unsigned bestIndex = 0, bestDivider = 1;
    // From the largest factor down: on equal errors the larger factor wins.
    for (int k = 3; k >= 0; --k) {
        const double d = kClock / rate / kFactor[k];
        if (d > 4095.0 || d < 1.0)
            continue;
        unsigned t = unsigned(d);
        double error = std::fabs(kClock / t / kFactor[k] - rate);
        if (t + 1 < 4095) {
            const double next = std::fabs(kClock / (t + 1) / kFactor[k] - rate);
            if (next < error) {
                ++t;
                error = next;
            }
        }
        if (error < bestError) {
            found = true;
            bestError = error;
            bestIndex = unsigned(k);
            bestDivider = t;
        }
    }
    // No usable index at all (rates beyond the clock): nothing to output.
    if (!found)
        return HDW_ERR_ARGUMENT;
    oversamplingIndex = (unsigned char)bestIndex;
    divider = (unsigned short)(bestDivider - 1);
    return bestError / rate < 0.1 ? 0u : 2u;
}

// ---- builders -----------------------------------------------------------------

// Code 4, 5 bytes: byte 4 = 0.
unsigned CKVX_HdwKvxCommandUnit::AttachKeepAliveCommand(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdKeepAlive, 0, 1);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    const uint8_t p[1] = {0};
    return AttachCommand(inst, 4, p, 1);
}

// Code 4, one record per 100 words or fewer: 4..7 word address of the
// record's first word, then the words. The address belongs to the unit's
// memory as a whole; the channel is only checked.
unsigned CKVX_HdwKvxCommandUnit::AttachSramWriteCommand(
    unsigned instance, unsigned channel, uint32_t startAddress, const uint16_t* words, unsigned count)
{
    CKVX_HdwKvxUnitInstance* inst =
        KvxCommandTarget(this, instance, CmdSramWrite, channel, m_Profile.MilStd1553Channels);
    if (!inst || (count && !words))
        return HDW_ERR_ARGUMENT;
    uint8_t p[4 + 2 * kvx_commands::kSramWordsPerRecord];
    uint32_t address = startAddress;
    for (unsigned done = 0; done < count;) {
        const unsigned n = std::min(count - done, kvx_commands::kSramWordsPerRecord);
        kvx_commands::PutLe32(p, address);
        for (unsigned i = 0; i < n; ++i)
            kvx_commands::PutLe16(p + 4 + 2 * i, words[done + i]);
        if (const unsigned rc = AttachCommand(inst, 4, p, 4 + 2 * n))
            return rc;
        done += n;
        address += n;
    }
    return 0;
}

// Code 16, 14 bytes: 4 channel, 5 label, 6..9 control word (bits 0..9
// period - 1, bit 10 enabled, bit 11 transmit once), 10..11 offset,
// 12..13 repeat count.
unsigned CKVX_HdwKvxCommandUnit::AttachAtxCtxCtrlCommand(
    unsigned instance, unsigned channel, const CKVX_HdwArinc429OutLbloService::CLabelCtrl& ctrl)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdAtxCtxCtrl, channel, m_Profile.AtxChannels);
    if (!inst || !ctrl.IsValid())
        return HDW_ERR_ARGUMENT;
    uint8_t p[10];
    p[0] = uint8_t(channel);
    p[1] = ctrl.Label;
    kvx_commands::PutLe32(p + 2, ctrl.GetControlWord());
    kvx_commands::PutLe16(p + 6, ctrl.Offset);
    kvx_commands::PutLe16(p + 8, ctrl.RepeatCount);
    return AttachCommand(inst, 16, p, 10);
}

// Code 17, 10 bytes: 4 channel, 5 label, 6..9 the word.
unsigned CKVX_HdwKvxCommandUnit::AttachAtxCtxDataCommand(
    unsigned instance, unsigned channel, const CKVX_HdwArinc429Message& message)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdAtxCtxData, channel, m_Profile.AtxChannels);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    uint8_t p[6];
    p[0] = uint8_t(channel);
    p[1] = message.Label;
    kvx_commands::PutLe32(p + 2, PackArinc429Word(message));
    return AttachCommand(inst, 17, p, 6);
}

// Code 17, one 10-byte record per word, laid out as the label data.
unsigned CKVX_HdwKvxCommandUnit::AttachAtxPushCommand(
    unsigned instance, unsigned channel, const CKVX_HdwArinc429Message* messages, unsigned count)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdAtxPush, channel, m_Profile.AtxChannels);
    if (!inst || (count && !messages))
        return HDW_ERR_ARGUMENT;
    uint8_t p[6];
    p[0] = uint8_t(channel);
    for (unsigned i = 0; i < count; ++i) {
        p[1] = messages[i].Label;
        kvx_commands::PutLe32(p + 2, PackArinc429Word(messages[i]));
        if (const unsigned rc = AttachCommand(inst, 17, p, 6))
            return rc;
    }
    return 0;
}

// Code 18, 5 bytes: 4 channel.
unsigned CKVX_HdwKvxCommandUnit::AttachAtxCtxResetCommand(unsigned instance, unsigned channel)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdAtxCtxReset, channel, m_Profile.AtxChannels);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    const uint8_t p[1] = {uint8_t(channel)};
    return AttachCommand(inst, 18, p, 1);
}

// Code AtxConfigBase + channel, 16 bytes:
//   4   flags: bit 0 AtxCtrl.Enabled, bit 1 AtxCtrl.Option1, bit 2 high speed,
//       bits 4..3 parity mode, bit 5 AtxCtrl.Option5, bit 6 AtxCtrl.Option6
//   5   word gap (WordIntergap) minus 1, 16 bits
//   7   AtxCtrl.Setting7
//   8   high half-bit divider, 12 bits; 10 low half-bit divider, 12 bits
//   12  AtxCtrl.Settings12[0..2]
//   15  bit 0 AtxCtrl.Option15
unsigned CKVX_HdwKvxCommandUnit::AttachAtxConfigCommand(
    unsigned instance, unsigned channel, const CKVX_HdwArinc429TxPort::CParameters& params)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdAtxConfig, channel, m_Profile.AtxChannels);
    if (!inst || channel >= inst->AtxCtrl.size() || params.WordIntergap == 0)
        return HDW_ERR_ARGUMENT;
    unsigned char highSpeed = 0;
    unsigned short high = 0, low = 0;
    if (ExtractArinc429TxBaudRateParameters(params.BaudRate, highSpeed, high, low) != 0)
        return HDW_ERR_ARGUMENT;
    const CArinc429TxCtrlStatus& c = inst->AtxCtrl[channel];
    uint8_t p[12] = {};
    p[0] = uint8_t((c.Enabled ? 0x01 : 0) | (c.Option1 ? 0x02 : 0) | (highSpeed ? 0x04 : 0) |
        ((params.Parity & 3u) << 3) | (c.Option5 ? 0x20 : 0) | (c.Option6 ? 0x40 : 0));
    kvx_commands::PutLe16(p + 1, unsigned(params.WordIntergap) - 1);
    p[3] = c.Setting7;
    kvx_commands::PutLe16(p + 4, high & 0x0FFFu);
    kvx_commands::PutLe16(p + 6, low & 0x0FFFu);
    p[8] = c.Settings12[0];
    p[9] = c.Settings12[1];
    p[10] = c.Settings12[2];
    p[11] = uint8_t(c.Option15 & 1u);
    return AttachCommand(inst, uint8_t(m_Profile.AtxConfigBase + channel), p, 12);
}

// Code ArxConfigBase + channel, 37 bytes:
//   4   flags: bit 0 enable, bit 1 parity mode 1, bit 2 parity mode not 2,
//       bit 4 rate not 100,000, bit 5 enable again
//   5   32 bytes of label flags, bit b of byte 5 + k for label 8k + b
unsigned CKVX_HdwKvxCommandUnit::AttachArxConfigCommand(unsigned instance, unsigned channel,
    const CKVX_HdwArinc429RxPort::CParameters& params, bool enable, const uint8_t* labelFlags)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdArxConfig, channel, m_Profile.ArxChannels);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    uint8_t p[33] = {};
    p[0] = uint8_t((enable ? 0x21 : 0) | (params.Parity == 1 ? 0x02 : 0) | (params.Parity != 2 ? 0x04 : 0) |
        (params.BaudRate != 100000 ? 0x10 : 0));
    if (labelFlags)
        for (unsigned label = 0; label < 256; ++label)
            if (labelFlags[label])
                p[1 + label / 8] |= uint8_t(1u << (label % 8));
    return AttachCommand(inst, uint8_t(m_Profile.ArxConfigBase + channel), p, 33);
}

// Code 33, one record per chunk of up to 240 bytes: 4 channel, 5..8 the
// channel's chunk counter (incremented before each record), 9.. the bytes.
unsigned CKVX_HdwKvxCommandUnit::AttachUartTxPushCommand(
    unsigned instance, unsigned channel, const uint8_t* data, unsigned count)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdUartTxPush, channel, m_Profile.UartChannels);
    if (!inst || channel >= inst->UartCtrl.size() || (count && !data))
        return HDW_ERR_ARGUMENT;
    CUartCtrlStatus& c = inst->UartCtrl[channel];
    uint8_t p[5 + kvx_commands::kUartChunk];
    p[0] = uint8_t(channel);
    for (unsigned done = 0; done < count;) {
        const unsigned n = std::min(count - done, kvx_commands::kUartChunk);
        ++c.ChunkCounter;
        kvx_commands::PutLe32(p + 1, c.ChunkCounter);
        std::memcpy(p + 5, data + done, n);
        if (const unsigned rc = AttachCommand(inst, 33, p, 5 + n))
            return rc;
        done += n;
    }
    return 0;
}

// Code UartConfigBase + channel, 9 bytes:
//   4   flags: bit 0 UartCtrl.Enabled; parity 1 bits 1 and 2, parity 2 bit 2;
//       two stop bits bit 3; bit 5 UartCtrl.Option5; bit 6 DataBits == 3
//   5   oversampling index; 6 divider minus 1, 16 bits; 8 UartCtrl.Setting8
unsigned CKVX_HdwKvxCommandUnit::AttachUartConfigCommand(
    unsigned instance, unsigned channel, const CKVX_HdwUartPort::CParameters& params)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdUartConfig, channel, m_Profile.UartChannels);
    if (!inst || channel >= inst->UartCtrl.size())
        return HDW_ERR_ARGUMENT;
    const CUartCtrlStatus& c = inst->UartCtrl[channel];
    uint8_t flags = c.Enabled ? 0x01 : 0;
    switch (params.Parity) {
    case 0: break;
    case 1: flags |= 0x06; break;
    case 2: flags |= 0x04; break;
    default: return HDW_ERR_ARGUMENT;
    }
    switch (params.StopBits) {
    case 0: break;
    case 2: flags |= 0x08; break;
    default: return HDW_ERR_ARGUMENT;
    }
    if (c.Option5)
        flags |= 0x20;
    if (params.DataBits == 3)
        flags |= 0x40;
    unsigned char index = 0;
    unsigned short divider = 0;
    if (ExtractUartBaudRateParameters(params.BaudRate, index, divider) != 0)
        return HDW_ERR_ARGUMENT;
    uint8_t p[5];
    p[0] = flags;
    p[1] = index;
    kvx_commands::PutLe16(p + 2, divider);
    p[4] = c.Setting8;
    return AttachCommand(inst, uint8_t(m_Profile.UartConfigBase + channel), p, 5);
}

// Code CanConfigBase + channel, 22 bytes: 4 CanCtrl.Enabled, 5 ModeFlagA,
// 6 ModeFlagB, 7..10 FilterA, 11..18 FilterB, 19 PrescalerIndex,
// 20 Segment1, 21 Segment2 (the record's fields in order, one per byte).
unsigned CKVX_HdwKvxCommandUnit::AttachCanConfigCommand(unsigned instance, unsigned channel)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdCanConfig, channel, m_Profile.CanChannels);
    if (!inst || channel >= inst->CanCtrl.size())
        return HDW_ERR_ARGUMENT;
    const CCanCtrlStatus& c = inst->CanCtrl[channel];
    uint8_t p[18];
    p[0] = c.Enabled;
    p[1] = c.ModeFlagA;
    p[2] = c.ModeFlagB;
    std::memcpy(p + 3, c.FilterA, sizeof c.FilterA);
    std::memcpy(p + 7, c.FilterB, sizeof c.FilterB);
    p[15] = c.PrescalerIndex;
    p[16] = c.Segment1;
    p[17] = c.Segment2;
    return AttachCommand(inst, uint8_t(m_Profile.CanConfigBase + channel), p, 18);
}

// Code CanPushBase + channel, 17 bytes per frame: 4 DLC (bits 3..0), remote
// (bit 6), extended (bit 7); standard: 5..6 identifier, 7..14 data, 15..16
// zero; extended: 5..8 identifier, 9..16 data.
unsigned CKVX_HdwKvxCommandUnit::AttachCanPushCommand(
    unsigned instance, unsigned channel, const CKVX_HdwCanMessage* messages, unsigned count)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdCanPush, channel, m_Profile.CanChannels);
    if (!inst || (count && !messages))
        return HDW_ERR_ARGUMENT;
    for (unsigned i = 0; i < count; ++i) {
        uint8_t p[13] = {};
        kvx_commands::PutCanFrame(p, messages[i]);
        if (const unsigned rc = AttachCommand(inst, uint8_t(m_Profile.CanPushBase + channel), p, 13))
            return rc;
    }
    return 0;
}

// Code MilStd1553ConfigBase + channel, 13 bytes: 4..12 the fields of
// MilStd1553Ctrl[channel] in their order.
unsigned CKVX_HdwKvxCommandUnit::Attach1553ConfigCommand(unsigned instance, unsigned channel)
{
    CKVX_HdwKvxUnitInstance* inst =
        KvxCommandTarget(this, instance, Cmd1553Config, channel, m_Profile.MilStd1553Channels);
    if (!inst || channel >= inst->MilStd1553Ctrl.size())
        return HDW_ERR_ARGUMENT;
    const CMilStd1553Config& c = inst->MilStd1553Ctrl[channel];
    const uint8_t p[9] = {
        c.Mode, c.Flags, c.Count, c.RtStatus, c.ResponseTimeout, c.TablePage, c.StopAfter, c.ResponseTime, c.Reserved};
    return AttachCommand(inst, uint8_t(m_Profile.MilStd1553ConfigBase + channel), p, sizeof p);
}
