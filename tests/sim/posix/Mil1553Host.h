#pragma once
// The host's side of the unit's MIL-STD-1553 channels, from the design page's
// tables: SRAM writes, configurations, BC descriptors, major frame tables and
// the type-8 event records.

#include "TestHost.h"

#include <cstdint>
#include <vector>

namespace simtest {

using Words = std::vector<uint16_t>;

// Command word: terminal address, transmit, subaddress, word count field.
inline uint16_t Cmd(unsigned ta, bool transmit, unsigned sa, unsigned wc)
{
    return static_cast<uint16_t>((ta << 11) | (transmit ? 0x400 : 0) | (sa << 5) | (wc & 31));
}

// A BC descriptor; descriptor i (8 words) lies at i x 8, its buffer at 0x2000 + 32 x i.
struct Descriptor {
    uint16_t Control = 0;
    uint16_t Command1 = 0;
    uint16_t Command2 = 0;
    uint16_t TransferId = 0;
};

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

// One type-8 event record taken apart; kind 1 (a transfer) has the fields after Time.
struct MilEvent {
    unsigned Kind = 0;
    uint32_t Time = 0;
    uint16_t TransferId = 0;
    Words Data;
    uint16_t Status1 = 0, Flags = 0;
};

inline std::vector<MilEvent> MilEvents(const UnitStream& s, unsigned kind = 0)
{
    std::vector<MilEvent> r;
    for (const Event& e : s.OfType(EvMil1553)) {
        const Bytes& p = e.Params;
        auto le16 = [&](size_t at) { return static_cast<uint16_t>(p.at(at) | (p.at(at + 1) << 8)); };
        MilEvent m;
        m.Kind = p.at(4);
        m.Time = e.Time();
        if (m.Kind == 1) {
            m.TransferId = le16(5);
            const unsigned n = le16(7);
            for (unsigned i = 0; i < n; ++i)
                m.Data.push_back(le16(9 + 2 * i));
            m.Status1 = le16(9 + 2 * n);
            m.Flags = le16(13 + 2 * n);
            EXPECT_EQ(p.size(), 15u + 2 * n) << "kind-1 record length";
        } else if (m.Kind != 2) {
            EXPECT_EQ(p.size(), 11u) << "kind " << m.Kind << " record length";
        }
        if (kind == 0 || m.Kind == kind)
            r.push_back(m);
    }
    return r;
}

// Transfer flags.
constexpr uint16_t NoResponse = 1, BadWordCount = 2, Parity = 4;
// Configuration flags.
constexpr uint8_t CfgRun = 1, CfgBusA = 2, CfgBusB = 4, CfgOneShots = 32;

// The unit driven by raw records on a stepped clock, with a simulated terminal 5.
struct MilBench : EngineHost {
    MilBench() : EngineHost(false, 0, {5}) {}

    // SRAM write records of at most 100 words with running addresses; channel ch at ch x 0x8000.
    void Write(unsigned ch, uint32_t address, const Words& words)
    {
        std::vector<Bytes> records;
        for (size_t at = 0; at < words.size(); at += 100) {
            Bytes p;
            Le32(p, static_cast<uint32_t>(ch * 0x8000 + address + at));
            for (size_t i = at; i < words.size() && i < at + 100; ++i)
                Le16(p, words[i]);
            records.push_back(Record(4, Number++, p));
        }
        Send(FrameOf(records));
    }
    // Mode 0 idle, 1 BC, 2 RT; flags (8 monitor, 64 switch); one-shot count or terminal
    // address; a 14 µs response time-out; table page; cycles after which to stop.
    void Configure(unsigned ch, uint8_t mode, uint8_t flags, uint8_t count, uint8_t page = 0, uint8_t stopAfter = 0)
    {
        Send(Frame({Record(52 + ch, Number++, {mode, flags, count, 0, 14, page, stopAfter, 0, 0})}));
    }
    void Describe(unsigned ch, unsigned index, const Descriptor& d, const Words& data = {})
    {
        const uint16_t buffer = static_cast<uint16_t>(0x2000 + 32 * index);
        Write(ch, index * 8, {d.Control, d.Command1, d.Command2, buffer, d.TransferId, 0, 0, 0});
        if (!data.empty())
            Write(ch, buffer, data);
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
        Configure(0, 1, CfgBusA | CfgBusB | CfgOneShots, 1);
        RunToUs(atUs + 1000);
        const auto done = MilEvents(Stream, 1);
        EXPECT_EQ(done.size(), before + 1);
        return done.back();
    }

    unsigned Number = 1;
};

} // namespace simtest
