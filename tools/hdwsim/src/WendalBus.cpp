#include "WendalBus.h"

#include "LittleEndian.h"

#include <algorithm>

namespace hdwsim {

namespace {

// Result status of a transfer.
enum : uint8_t {
    StatusDone = 0,
    StatusAddressNack = 1,
    StatusDataNack = 2,
    StatusBusTimeout = 3,
    StatusRefused = 4,
    StatusArbitration = 5,
};

constexpr unsigned EepromAddress7 = 0x50, EepromAddress10 = 0x250, NoDataAckAddress = 0x20;
constexpr unsigned EepromPage = 16;
constexpr size_t SpiMemoryBytes = 4096;
constexpr uint8_t SpiWrite = 0x02, SpiRead = 0x03;
constexpr uint32_t SpiBaseClockHz = 30000000;
constexpr uint32_t I2cSpeeds[3] = {100000, 400000, 1000000};

uint64_t BitsNs(uint64_t bits, uint32_t hz)
{
    return bits * 1000000000ull / hz;
}

} // namespace

WendalBus::WendalBus(const UnitModel& model, Counters& counters, bool pacing)
    : m_Model(model),
      m_Count(counters),
      m_Pacing(pacing)
{
    for (auto& e : m_Eeprom)
        e.fill(0xFF);
    for (auto& m : m_SpiMemory)
        m.assign(SpiMemoryBytes, 0xFF);
}

bool WendalBus::Handles(unsigned code) const
{
    if (m_Model.I2cChannels == 0 && m_Model.SpiChannels == 0)
        return false;
    return code >= CodeI2cConfig && code <= CodeSpiTransfer;
}

void WendalBus::Reset()
{
    for (I2cMaster& m : m_I2c) {
        m.Enabled = false;
        m.Queue.clear();
    }
    for (SpiMaster& m : m_Spi) {
        m.Enabled = false;
        m.Queue.clear();
    }
}

bool WendalBus::Execute(const uint8_t* rec, size_t len, uint64_t nowNs)
{
    const unsigned code = rec[1] & 0x7F;
    if (code >= CodeI2cConfig && code < CodeI2cConfig + 2)
        return I2cConfig(code - CodeI2cConfig, rec, len);
    if (code >= CodeSpiConfig && code < CodeSpiConfig + 2)
        return SpiConfig(code - CodeSpiConfig, rec, len);
    if (code == CodeI2cTransfer)
        return I2cTransfer(rec, len, nowNs);
    if (code == CodeSpiTransfer)
        return SpiTransfer(rec, len, nowNs);
    return false;
}

// 4 flags (bit 0 on), 5 speed code, 6..7 bus time-out, 8 zero.
bool WendalBus::I2cConfig(unsigned ch, const uint8_t* rec, size_t len)
{
    if (len != 9 || ch >= m_Model.I2cChannels || rec[5] > 2)
        return false;
    I2cMaster& m = m_I2c[ch];
    m.Enabled = (rec[4] & 1) != 0;
    m.SpeedHz = I2cSpeeds[rec[5]];
    if (!m.Enabled)
        m.Queue.clear();
    return true;
}

// 4 flags (bit 0 on), 5 word bits, 6..7 clock divider, 8 default chip select.
bool WendalBus::SpiConfig(unsigned ch, const uint8_t* rec, size_t len)
{
    if (len != 9 || ch >= m_Model.SpiChannels || rec[5] < 4 || rec[5] > 16 || rec[8] > 3)
        return false;
    SpiMaster& m = m_Spi[ch];
    m.Enabled = (rec[4] & 1) != 0;
    m.WordBits = rec[5];
    m.ClockHz = SpiBaseClockHz / (uint32_t(le::Get16(rec + 6)) + 1);
    if (!m.Enabled)
        m.Queue.clear();
    return true;
}

void WendalBus::Queue(std::deque<Result>& queue, uint64_t& busFreeNs, uint64_t nowNs, uint64_t durationNs,
    unsigned type, std::vector<uint8_t> body)
{
    const uint64_t start = queue.empty() ? nowNs : std::max(nowNs, busFreeNs);
    busFreeNs = start + (m_Pacing ? durationNs : 0);
    queue.push_back(Result{busFreeNs, type, std::move(body)});
}

// 4 channel, 5..8 tag, 9 flags (bit 0 10-bit, bit 1 write, bit 2 read),
// 10..11 address, 12 read length, 13.. the bytes to write.
bool WendalBus::I2cTransfer(const uint8_t* rec, size_t len, uint64_t nowNs)
{
    if (len < 13 || rec[4] >= m_Model.I2cChannels)
        return false;
    const unsigned ch = rec[4];
    I2cMaster& m = m_I2c[ch];
    const uint8_t flags = rec[9];
    const bool tenBit = flags & 1, write = flags & 2, read = flags & 4;
    const unsigned address = le::Get16(rec + 10);
    const unsigned readLength = rec[12];
    const size_t n = len - 13;
    const bool valid = (write || n == 0) && (read == (readLength != 0)) && (write || read) && (flags & 0xF8) == 0 &&
        address <= (tenBit ? 0x3FFu : 0x7Fu) && m.Enabled && m.Queue.size() < QueueLimit;
    uint8_t status = StatusRefused;
    uint16_t acked = 0;
    std::vector<uint8_t> data;
    if (valid)
        status = RunI2c(ch, tenBit, address, rec + 13, n, readLength, nowNs, acked, data);
    if (status != StatusDone)
        data.clear();
    ++m_Count.I2cTransfers[ch];
    m_Count.I2cBytes[ch] += acked + data.size();
    if (status == StatusAddressNack || status == StatusDataNack)
        ++m_Count.I2cNacks[ch];
    if (status == StatusBusTimeout || status == StatusArbitration)
        ++m_Count.I2cFaults[ch];
    std::vector<uint8_t> body(9 + data.size());
    std::copy(rec + 5, rec + 9, body.begin());
    body[4] = status;
    le::Put16(body.data() + 5, acked);
    le::Put16(body.data() + 7, uint32_t(data.size()));
    std::copy(data.begin(), data.end(), body.begin() + 9);
    // Start, address byte(s), data bytes and acknowledges, repeated start, stop.
    const uint64_t addressBytes = tenBit ? 2 : 1;
    const uint64_t bits = 9 * (addressBytes + n + (read ? 1 + readLength : 0)) + 3;
    Queue(m.Queue, m.BusFreeNs, nowNs, BitsNs(bits, m.SpeedHz), EventI2cResult, std::move(body));
    return true;
}

uint8_t WendalBus::RunI2c(unsigned ch, bool tenBit, unsigned address, const uint8_t* write, size_t n,
    unsigned readLength, uint64_t nowNs, uint16_t& acked, std::vector<uint8_t>& read)
{
    I2cMaster& m = m_I2c[ch];
    const int nackIndex = m.NackIndex;
    m.NackIndex = -1;
    if (m.LoseArbitration) {
        m.LoseArbitration = false;
        return StatusArbitration;
    }
    if (nowNs < m.HeldUntilNs)
        return StatusBusTimeout;
    const bool eeprom = tenBit ? address == EepromAddress10 : address == EepromAddress7;
    const bool mute = !tenBit && address == NoDataAckAddress;
    if (!eeprom && !mute)
        return StatusAddressNack;
    for (size_t i = 0; i < n; ++i) {
        if (mute || int(i) == nackIndex)
            return StatusDataNack;
        // The first byte sets the word address; the rest are stored, wrapping within the page.
        uint8_t& a = m_EepromAddress[ch];
        if (i == 0) {
            a = write[0];
        } else {
            m_Eeprom[ch][a] = write[i];
            a = uint8_t((a & ~(EepromPage - 1)) | ((a + 1) & (EepromPage - 1)));
        }
        ++acked;
    }
    for (unsigned i = 0; i < readLength; ++i)
        read.push_back(mute ? 0xFF : m_Eeprom[ch][m_EepromAddress[ch]++]);
    return StatusDone;
}

// 4 channel, 5..8 tag, 9 chip select, 10 flags (bit 0 keep selected), 11.. the bytes.
bool WendalBus::SpiTransfer(const uint8_t* rec, size_t len, uint64_t nowNs)
{
    if (len < 12 || rec[4] >= m_Model.SpiChannels)
        return false;
    const unsigned ch = rec[4];
    SpiMaster& m = m_Spi[ch];
    const size_t n = len - 11;
    const bool valid = rec[9] <= 3 && (rec[10] & 0xFE) == 0 && (m.WordBits <= 8 || n % 2 == 0) && m.Enabled &&
        m.Queue.size() < QueueLimit;
    std::vector<uint8_t> in;
    if (valid)
        RunSpi(ch, rec[9], rec + 11, n, in);
    ++m_Count.SpiTransfers[ch];
    m_Count.SpiBytes[ch] += in.size();
    std::vector<uint8_t> body(7 + in.size());
    std::copy(rec + 5, rec + 9, body.begin());
    body[4] = valid ? StatusDone : StatusRefused;
    le::Put16(body.data() + 5, uint32_t(in.size()));
    std::copy(in.begin(), in.end(), body.begin() + 7);
    const uint64_t words = m.WordBits <= 8 ? n : n / 2;
    Queue(m.Queue, m.BusFreeNs, nowNs, BitsNs(words * m.WordBits, m.ClockHz), EventSpiResult, std::move(body));
    return true;
}

void WendalBus::RunSpi(unsigned ch, unsigned chipSelect, const uint8_t* out, size_t n, std::vector<uint8_t>& in)
{
    const unsigned bits = m_Spi[ch].WordBits;
    in.assign(n, 0xFF);
    if (chipSelect == 0) {
        // Loopback: each word comes back as it went out, the unused bits 0.
        for (size_t i = 0; i < n; ++i) {
            const bool high = bits > 8 && i % 2 == 1;
            const unsigned used = bits <= 8 ? bits : (high ? bits - 8 : 8);
            in[i] = uint8_t(out[i] & ((1u << used) - 1));
        }
    } else if (chipSelect == 1 && n >= 3 && bits == 8) {
        // Memory: command, 16-bit address most significant byte first, data.
        std::vector<uint8_t>& mem = m_SpiMemory[ch];
        const size_t address = (size_t(out[1]) << 8 | out[2]) % SpiMemoryBytes;
        for (size_t i = 3; i < n; ++i) {
            const size_t at = (address + i - 3) % SpiMemoryBytes;
            if (out[0] == SpiWrite)
                mem[at] = out[i];
            else if (out[0] == SpiRead)
                in[i] = mem[at];
        }
    }
}

void WendalBus::Advance(uint64_t nowNs, const Emit& emit)
{
    for (unsigned ch = 0; ch < Masters; ++ch) {
        for (auto* q : {&m_I2c[ch].Queue, &m_Spi[ch].Queue})
            while (!q->empty() && q->front().DoneNs <= nowNs) {
                emit(q->front().Type, ch, q->front().Body, q->front().DoneNs);
                q->pop_front();
            }
    }
}

uint64_t WendalBus::NextEventNs() const
{
    uint64_t next = Never;
    for (unsigned ch = 0; ch < Masters; ++ch) {
        if (!m_I2c[ch].Queue.empty())
            next = std::min(next, m_I2c[ch].Queue.front().DoneNs);
        if (!m_Spi[ch].Queue.empty())
            next = std::min(next, m_Spi[ch].Queue.front().DoneNs);
    }
    return next;
}

bool WendalBus::HoldI2cBus(unsigned channel, unsigned ms, uint64_t nowNs)
{
    if (channel >= m_Model.I2cChannels)
        return false;
    m_I2c[channel].HeldUntilNs = nowNs + uint64_t(ms) * 1000000;
    return true;
}

bool WendalBus::NackNextI2c(unsigned channel, unsigned byteIndex)
{
    if (channel >= m_Model.I2cChannels)
        return false;
    m_I2c[channel].NackIndex = int(byteIndex);
    return true;
}

bool WendalBus::LoseI2cArbitration(unsigned channel)
{
    if (channel >= m_Model.I2cChannels)
        return false;
    m_I2c[channel].LoseArbitration = true;
    return true;
}

} // namespace hdwsim
