#pragma once
// The host's side of the unit protocol, written from the byte tables and not from the emulator's code.

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
inline uint32_t GetLe32(const uint8_t* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

// Little-endian fields, each {value, width in bytes}.
inline Bytes Pack(std::initializer_list<std::pair<uint32_t, unsigned>> fields)
{
    Bytes b;
    for (const auto& [value, width] : fields)
        for (unsigned i = 0; i < width; ++i)
            b.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return b;
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
inline Bytes Frame(const std::vector<Bytes>& records)
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

inline Bytes Session(unsigned number, bool open)
{
    return Record(1, number, {static_cast<uint8_t>(open ? 1 : 0), 0, 0});
}
// ARINC 429 transmitter configuration: enable and speed, the word gap setting
// minus 1, both half bits' dividers; 299 is 100 kbit/s (high speed), 2399 12.5 kbit/s.
inline Bytes AtxConfig(unsigned number, unsigned ch, bool enable, unsigned divider)
{
    const unsigned flags = (enable ? 1u : 0u) | 2 | (divider < 2000 ? 4 : 0);
    return Record(20 + ch, number, Pack({{flags, 1}, {318, 2}, {0, 1}, {divider, 2}, {divider, 2}, {0, 4}}));
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
    return Record(17, number, Pack({{ch, 1}, {word & 0xFF, 1}, {word, 4}}));
}
// CAN configuration: byte 4 bit 0 starts the controller; bytes 19-21 the
// prescaler index and segments (1, 11, 1: 4 x 15 clocks, 1 Mbit/s).
inline Bytes CanConfig(unsigned number, unsigned ch)
{
    Bytes p{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 11, 1};
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

// The events of whole unit frames: start byte, length of the records, event count, records, CRC.
struct UnitStream {
    std::vector<Event> Events;

    void Feed(const uint8_t* b, size_t size)
    {
        for (size_t at = 0; at < size;) {
            ASSERT_TRUE(size - at >= 7 && b[at] == 0xA5) << "no unit frame at byte " << at;
            const size_t len = b[at + 1] | b[at + 2] << 8, count = b[at + 3] | (b[at + 4] & 0x0F) << 8;
            ASSERT_LE(at + 7 + len, size) << "a unit frame cut short";
            const size_t end = at + 5 + len, before = Events.size();
            for (size_t pos = at + 5; pos < end; pos += 1 + b[pos])
                Events.push_back(
                    {unsigned(b[pos + 1]) >> 3, b[pos + 1] & 7u, Bytes(b + pos + 2, b + pos + 1 + b[pos])});
            // The unit never sends a damaged or empty frame.
            EXPECT_TRUE(count > 0 && Events.size() - before == count);
            EXPECT_EQ(b[end] | b[end + 1] << 8, BitwiseCrc16(b + at, end - at));
            at = end + 2;
        }
    }
    std::vector<Event> OfType(unsigned type) const
    {
        std::vector<Event> r;
        std::copy_if(
            Events.begin(), Events.end(), std::back_inserter(r), [&](const Event& e) { return e.Type == type; });
        return r;
    }
};

// The unit model driven directly, its time stepped by the test.
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
        Stream.Feed(out.data(), out.size());
    }
    hdwsim::UnitEngine Engine;
    uint64_t Now = 0;
    Bytes Raw;
    UnitStream Stream;
};

} // namespace simtest
