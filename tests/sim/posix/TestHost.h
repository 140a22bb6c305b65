#pragma once
// The host's side of the unit protocol, written out in the tests from the
// byte tables: command records and host frames are built here byte by byte,
// and unit frames are taken apart here, independently of the emulator's code.

#include <hdwsim/UnitEngine.h>
#include "support/BitwiseCrc.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <utility>
#include <vector>

namespace simtest {

using Bytes = std::vector<uint8_t>;
using testsupport::BitwiseCrc16;
using testsupport::WaitUntil;

inline void Le16(Bytes& b, uint32_t v)
{
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
}
inline void Le32(Bytes& b, uint32_t v)
{
    Le16(b, v);
    Le16(b, v >> 16);
}
inline uint32_t GetLe32(const uint8_t* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

// One command record: length, code with the echo bit, number, parameters.
inline Bytes Record(unsigned code, unsigned number, const Bytes& params)
{
    Bytes r{static_cast<uint8_t>(params.size() + 4), static_cast<uint8_t>(code | 0x80)};
    Le16(r, number);
    r.insert(r.end(), params.begin(), params.end());
    return r;
}

// A host frame holding the records in order.
inline Bytes FrameOf(const std::vector<Bytes>& records)
{
    Bytes payload;
    for (const Bytes& r : records)
        payload.insert(payload.end(), r.begin(), r.end());
    Bytes f{0xA5};
    Le16(f, static_cast<uint32_t>(payload.size()));
    f.insert(f.end(), payload.begin(), payload.end());
    Le16(f, BitwiseCrc16(f.data(), f.size()));
    return f;
}
inline Bytes Frame(std::initializer_list<Bytes> records)
{
    return FrameOf(std::vector<Bytes>(records));
}

inline Bytes Session(unsigned number, bool open)
{
    return Record(1, number, {static_cast<uint8_t>(open ? 1 : 0), 0, 0});
}
// ARINC 429 transmitter configuration; `divider` 299 is 100 kbit/s (high speed), 2399 12.5 kbit/s.
inline Bytes AtxConfig(unsigned number, unsigned ch, bool enable, unsigned divider)
{
    const bool high = divider < 2000;
    Bytes p{static_cast<uint8_t>((enable ? 1 : 0) | 2 | (high ? 4 : 0))};
    Le16(p, 318); // word gap setting minus 1
    p.push_back(0);
    Le16(p, divider);
    Le16(p, divider);
    p.insert(p.end(), {0, 0, 0, 0});
    return Record(20 + ch, number, p);
}
inline Bytes ArxConfig(unsigned number, unsigned ch, bool enable, bool highSpeed, const Bytes& filter32)
{
    Bytes p{static_cast<uint8_t>((enable ? 0x21 : 0) | 4 | (highSpeed ? 0 : 0x10))};
    p.insert(p.end(), filter32.begin(), filter32.end());
    return Record(24 + ch, number, p);
}
inline Bytes AllLabels()
{
    return Bytes(32, 0xFF);
}
inline Bytes AtxPush(unsigned number, unsigned ch, uint32_t word)
{
    Bytes p{static_cast<uint8_t>(ch), static_cast<uint8_t>(word & 0xFF)};
    Le32(p, word);
    return Record(17, number, p);
}
// CAN configuration: byte 4 bit 0 starts the controller; bytes 19-21 the
// prescaler index and segments (1, 11, 1: 4 x 15 clocks, 1 Mbit/s).
inline Bytes CanConfig(
    unsigned number, unsigned ch, bool start, uint8_t prescaler = 1, uint8_t seg1 = 11, uint8_t seg2 = 1)
{
    Bytes p(18, 0);
    p[0] = start ? 1 : 0;
    p[15] = prescaler;
    p[16] = seg1;
    p[17] = seg2;
    return Record(48 + ch, number, p);
}
// A standard data frame.
inline Bytes CanPush(unsigned number, unsigned ch, uint32_t id, const Bytes& data)
{
    Bytes p{static_cast<uint8_t>(data.size() & 0x0F), static_cast<uint8_t>(id >> 3),
        static_cast<uint8_t>((id << 5) & 0xFF)};
    p.insert(p.end(), data.begin(), data.end());
    p.resize(13, 0);
    return Record(50 + ch, number, p);
}
// Event types of unit frames.
constexpr unsigned EvEcho = 0, EvA429Rx = 2, EvA429Tx = 3, EvCanTx = 7, EvMil1553 = 8, EvIn = 11, EvOut = 12;

// One event record of a unit frame.
struct Event {
    unsigned Type = 0;
    unsigned Sub = 0;
    Bytes Params; // after the type byte
    uint32_t Time() const { return GetLe32(Params.data()); }
    unsigned EchoNumber() const { return Params[4] | (Params[5] << 8); }
    uint32_t Word() const { return GetLe32(Params.data() + 4); }
};

// Takes unit frames apart from a byte stream that may arrive in pieces.
class UnitStream {
public:
    std::vector<Event> Events;

    void Feed(const Bytes& data) { Feed(data.data(), data.size()); }
    void Feed(const uint8_t* data, size_t size)
    {
        m_Buf.insert(m_Buf.end(), data, data + size);
        for (;;) {
            size_t start = 0;
            while (start < m_Buf.size() && m_Buf[start] != 0xA5)
                ++start;
            m_Buf.erase(m_Buf.begin(), m_Buf.begin() + static_cast<std::ptrdiff_t>(start));
            if (m_Buf.size() < 5)
                return;
            const unsigned count = m_Buf[3] | ((m_Buf[4] & 0x0F) << 8);
            size_t pos = 5;
            std::vector<Event> events;
            // Records until the count is reached or the bytes run out.
            while (events.size() < count && pos < m_Buf.size() && pos + 1 + m_Buf[pos] <= m_Buf.size()) {
                const auto at = m_Buf.begin() + static_cast<std::ptrdiff_t>(pos);
                events.push_back({static_cast<unsigned>(at[1] >> 3), static_cast<unsigned>(at[1] & 7),
                    Bytes(at + 2, at + 1 + m_Buf[pos])});
                pos += 1 + m_Buf[pos];
            }
            if (events.size() < count || pos + 2 > m_Buf.size())
                return; // incomplete: wait for more bytes
            const uint16_t crc = static_cast<uint16_t>(m_Buf[pos] | (m_Buf[pos + 1] << 8));
            const bool good = count > 0 && crc == BitwiseCrc16(m_Buf.data(), pos);
            // The unit never sends a damaged or empty frame.
            EXPECT_TRUE(good) << "unit frame of " << count << " events with a bad CRC or none";
            Events.insert(Events.end(), events.begin(), events.end());
            m_Buf.erase(m_Buf.begin(), m_Buf.begin() + static_cast<std::ptrdiff_t>(pos + 2));
        }
    }

    std::vector<Event> OfType(unsigned type) const
    {
        std::vector<Event> r;
        std::copy_if(
            Events.begin(), Events.end(), std::back_inserter(r), [&](const Event& e) { return e.Type == type; });
        return r;
    }

private:
    Bytes m_Buf;
};

// The unit model driven directly, its time stepped by the test; what it
// sends is taken apart by a UnitStream.
struct EngineHost {
    explicit EngineHost(bool pacing = false, uint32_t clockStart = 0, std::vector<unsigned> milTerminals = {},
        const hdwsim::UnitModel& model = hdwsim::HaldenModel())
        : Engine(model, hdwsim::UnitEngine::Options{pacing, 1280, clockStart, std::move(milTerminals)})
    {}
    void Send(const Bytes& bytes)
    {
        Engine.OnHostBytes(hdwsim::UnitEngine::LinkSerial, bytes.data(), bytes.size(), Now);
        Pump();
    }
    void At(uint64_t ns)
    {
        Now = ns;
        Engine.Advance(Now);
        Pump();
    }
    void Pump()
    {
        Bytes out;
        Engine.TakeOutput(Now, SIZE_MAX, out);
        Raw.insert(Raw.end(), out.begin(), out.end());
        Stream.Feed(out);
    }
    hdwsim::UnitEngine Engine;
    uint64_t Now = 0;
    Bytes Raw;
    UnitStream Stream;
};

} // namespace simtest
