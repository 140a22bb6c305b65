#pragma once
// The host's side of the unit's MIL-STD-1553 channels, written out from the
// design page's tables: SRAM write and configuration records, BC
// descriptors and major frame tables, and the controllers' type-8 event
// records taken apart.

#include "TestHost.h"

#include <cstdint>
#include <vector>

namespace simtest {

using Words = std::vector<uint16_t>;

constexpr unsigned EvMil1553 = 8;
constexpr uint32_t ChannelBase = 0x8000;

// Command word: terminal address, transmit, subaddress, word count field.
inline uint16_t Cmd(unsigned ta, bool transmit, unsigned sa, unsigned wc)
{
    return static_cast<uint16_t>((ta << 11) | (transmit ? 0x400 : 0) | (sa << 5) | (wc & 31));
}

// SRAM write records of at most 100 words with running addresses.
inline std::vector<Bytes> SramWrite(unsigned& number, uint32_t address, const Words& words)
{
    std::vector<Bytes> records;
    for (size_t at = 0; at < words.size(); at += 100) {
        Bytes p;
        Le32(p, static_cast<uint32_t>(address + at));
        for (size_t i = at; i < words.size() && i < at + 100; ++i)
            Le16(p, words[i]);
        records.push_back(Record(4, number++, p));
    }
    return records;
}

struct MilConfig {
    uint8_t Mode = 0; // 0 idle, 1 BC, 2 RT
    uint8_t Flags = 0; // 1 run, 2 bus A, 4 bus B, 8 monitor, 32 one-shots, 64 switch
    uint8_t Count = 0; // one-shot count or terminal address
    uint8_t RtStatus = 0;
    uint8_t ResponseTimeout = 14;
    uint8_t TablePage = 0;
    uint8_t StopAfter = 0;
    uint8_t ResponseTime = 0;
};
inline Bytes MilConfigRecord(unsigned number, unsigned ch, const MilConfig& c)
{
    return Record(52 + ch, number,
        {c.Mode, c.Flags, c.Count, c.RtStatus, c.ResponseTimeout, c.TablePage, c.StopAfter, c.ResponseTime, 0});
}

// BC descriptor i (8 words) at i x 8; its buffer at 0x2000 + 32 x i.
struct Descriptor {
    uint16_t Control = 0;
    uint16_t Command1 = 0;
    uint16_t Command2 = 0;
    uint16_t TransferId = 0;
};
inline Words DescriptorWords(unsigned index, const Descriptor& d)
{
    return {d.Control, d.Command1, d.Command2, static_cast<uint16_t>(0x2000 + 32 * index), d.TransferId, 0, 0, 0};
}

// A major frame table: per minor frame its period in 10 µs and its descriptor indexes.
struct MinorFrameEntry {
    uint16_t Period10Us;
    Words Descriptors;
};
inline Words MajorFrameTable(const std::vector<MinorFrameEntry>& minors)
{
    Words t{static_cast<uint16_t>(minors.size())};
    for (const MinorFrameEntry& m : minors) {
        t.push_back(m.Period10Us);
        t.push_back(static_cast<uint16_t>(m.Descriptors.size()));
        t.insert(t.end(), m.Descriptors.begin(), m.Descriptors.end());
    }
    return t;
}

// One type-8 event record taken apart.
struct MilEvent {
    unsigned Channel = 0;
    unsigned Kind = 0;
    uint32_t Time = 0;
    // Kind 1.
    uint16_t TransferId = 0;
    Words Data;
    uint16_t Status1 = 0, Status2 = 0, Flags = 0;
};

inline uint16_t GetLe16(const Bytes& b, size_t at)
{
    return static_cast<uint16_t>(b.at(at) | (b.at(at + 1) << 8));
}

inline MilEvent ParseMil(const Event& e)
{
    MilEvent m;
    const Bytes& p = e.Params;
    m.Channel = e.Sub;
    m.Time = e.Time();
    m.Kind = p.at(4);
    if (m.Kind == 1) {
        m.TransferId = GetLe16(p, 5);
        const unsigned n = GetLe16(p, 7);
        for (unsigned i = 0; i < n; ++i)
            m.Data.push_back(GetLe16(p, 9 + 2 * i));
        m.Status1 = GetLe16(p, 9 + 2 * n);
        m.Status2 = GetLe16(p, 11 + 2 * n);
        m.Flags = GetLe16(p, 13 + 2 * n);
        EXPECT_EQ(p.size(), 15u + 2 * n) << "kind-1 record length";
    } else if (m.Kind != 2) {
        EXPECT_EQ(p.size(), 11u) << "kind " << m.Kind << " record length";
    }
    return m;
}

inline std::vector<MilEvent> MilEvents(const UnitStream& s, unsigned kind = 0)
{
    std::vector<MilEvent> r;
    for (const Event& e : s.OfType(EvMil1553)) {
        MilEvent m = ParseMil(e);
        if (kind == 0 || m.Kind == kind)
            r.push_back(m);
    }
    return r;
}

// Transfer flags.
constexpr uint16_t NoResponse = 1, BadWordCount = 2, Parity = 4;
// Configuration flags.
constexpr uint8_t CfgRun = 1, CfgBusA = 2, CfgBusB = 4, CfgOneShots = 32;

// The unit driven by raw records on a stepped clock, with simulated
// terminals at `terminals`.
struct MilBench : EngineHost {
    explicit MilBench(std::vector<unsigned> terminals = {5}) : EngineHost(false, 0, std::move(terminals)) {}

    void Write(unsigned ch, uint32_t address, const Words& words)
    {
        Send(FrameOf(SramWrite(Number, ch * ChannelBase + address, words)));
    }
    void Configure(unsigned ch, const MilConfig& c) { Send(Frame({MilConfigRecord(Number++, ch, c)})); }
    void Describe(unsigned ch, unsigned index, const Descriptor& d, const Words& data = {})
    {
        Write(ch, index * 8, DescriptorWords(index, d));
        if (!data.empty())
            Write(ch, 0x2000 + 32 * index, data);
    }
    // Steps the clock to `us` in 50 µs steps, as the emulator wakes often.
    void RunToUs(uint64_t us)
    {
        for (uint64_t t = Now + 50'000; t < us * 1000; t += 50'000)
            At(t);
        At(us * 1000);
    }
    // Runs one-shot descriptor 0 with the schedule stopped, from `atUs`.
    MilEvent OneShot(const Descriptor& d, const Words& data, uint64_t atUs)
    {
        Describe(0, 0, d, data);
        At(atUs * 1000);
        const size_t before = MilEvents(Stream, 1).size();
        Configure(0, {1, CfgBusA | CfgBusB | CfgOneShots, 1});
        RunToUs(atUs + 1000);
        const auto done = MilEvents(Stream, 1);
        EXPECT_EQ(done.size(), before + 1);
        return done.back();
    }

    unsigned Number = 1;
};

} // namespace simtest
