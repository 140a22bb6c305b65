// The unit's MIL-STD-1553 controller driven with raw records on a stepped clock, checked on its type-8 events.
// Timing (µs): 20 per word, 8 for a simulated terminal's answer, the response time-out (14 here) when nobody
// answers, 4 between messages.

#include "TestHost.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

using namespace simtest;
using hdwsim::MilStd1553Fault;

namespace {

using Words = std::vector<uint16_t>;

// Command word: terminal address, transmit, subaddress, word count field.
inline uint16_t Cmd(unsigned ta, bool transmit, unsigned sa, unsigned wc)
{
    return static_cast<uint16_t>((ta << 11) | (transmit ? 0x400 : 0) | (sa << 5) | (wc & 31));
}

// A BC descriptor; descriptor i (8 words) lies at i x 8, its buffer at 0x2000 + 32 x i.
struct Descriptor {
    uint16_t Control = 0, Command1 = 0, Command2 = 0, TransferId = 0;
};

// A major frame table: per minor frame its period in 10 µs and its descriptor indexes.
inline Words MajorFrameTable(const std::vector<std::pair<uint16_t, Words>>& minors)
{
    Words t{static_cast<uint16_t>(minors.size())};
    for (const auto& [period10Us, descriptors] : minors) {
        t.insert(t.end(), {period10Us, static_cast<uint16_t>(descriptors.size())});
        t.insert(t.end(), descriptors.begin(), descriptors.end());
    }
    return t;
}

using Texts = std::vector<std::string>;

// The type-8 events as "kind:id@time status/flags data...", in hex but the time; only transfers (kind 1) have all.
Texts Bc(const UnitStream& s)
{
    Texts r;
    char text[64];
    for (const Event& e : s.OfType(EvMil1553)) {
        const Bytes& p = e.Params;
        auto le16 = [&](size_t at) { return unsigned(p.at(at) | (p.at(at + 1) << 8)); };
        const unsigned kind = p.at(4), n = kind == 1 ? le16(7) : 0;
        EXPECT_TRUE(kind == 2 || p.size() == (kind == 1 ? 15u + 2 * n : 11u)) << "kind " << kind << " record length";
        std::snprintf(text, sizeof text, "%u:%X@%u %X/%X", kind, kind == 1 ? le16(5) : 0, e.Time(),
            kind == 1 ? le16(9 + 2 * n) : 0, kind == 1 ? le16(13 + 2 * n) : 0);
        r.push_back(text);
        for (unsigned i = 0; i < n; ++i) {
            std::snprintf(text, sizeof text, " %X", le16(9 + 2 * i));
            r.back() += text;
        }
    }
    return r;
}

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
            Bytes p = Pack({{static_cast<uint32_t>(ch * 0x8000 + address + at), 4}});
            for (size_t i = at; i < words.size() && i < at + 100; ++i)
                Le16(p, words[i]);
            records.push_back(Record(4, Number++, p));
        }
        Send(Frame(records));
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
    // Runs one-shot descriptor 0 with the schedule stopped, from `atUs`: the one event it makes.
    std::string OneShot(const Descriptor& d, const Words& data, uint64_t atUs)
    {
        Describe(0, 0, d, data);
        At(atUs * 1000);
        const size_t before = Bc(Stream).size();
        Configure(0, 1, CfgBusA | CfgBusB | CfgOneShots, 1);
        RunToUs(atUs + 1000);
        const Texts done = Bc(Stream);
        EXPECT_EQ(done.size(), before + 1);
        return done.back();
    }

    unsigned Number = 1;
};

} // namespace

TEST(Mil1553Bc, MessagesGoBackToBackWithTheirGapsAndMinorFramesKeepTheirGrid)
{
    MilBench b;
    b.Describe(0, 32, {0, Cmd(5, false, 1, 2), 0, 0x0000}, {0x1111, 0x2222});
    b.Describe(0, 33, {0, Cmd(5, true, 1, 2), 0, 0x0001});
    b.Describe(0, 34, {50 << 8, Cmd(5, false, 2, 1), 0, 0x0002}, {0xABCD});
    // Minor frame 0: 1 ms, messages 32 and 33; minor frame 1: 500 µs, message 34.
    b.Write(0, 0x1000, MajorFrameTable({{100, {32, 33}}, {50, {34}}}));
    b.At(1'000'000);
    b.Configure(0, 1, CfgRun | CfgBusA | CfgBusB, 0, 0x10, 2);
    b.RunToUs(6000);

    // Three words, 8 µs, the status word, the 4 µs gap; the terminal sends what it last received;
    // minor frame 1 starts 1 ms after minor frame 0; stopped after two cycles, at the boundary.
    EXPECT_EQ(Bc(b.Stream),
        (Texts{"1:0@1000 2800/0 1111 2222", "1:1@1092 2800/0 1111 2222", "1:2@2000 2800/0 ABCD",
            "1:0@2500 2800/0 1111 2222", "1:1@2592 2800/0 1111 2222", "1:2@3500 2800/0 ABCD", "4:0@4000 0/0"}));
    EXPECT_EQ(b.Engine.GetCounters().Mil1553Transfers[0], 6u);
}

// Terminal 5's status is 2800; flags 1: no response, 2: bad word count, 4: parity error.
TEST(Mil1553Bc, InjectedFaultsLastTheirCountAndShowInTheFlags)
{
    MilBench b;
    const Descriptor tx{0, Cmd(5, true, 3, 2), 0, 7};
    b.OneShot({0, Cmd(5, false, 3, 2), 0, 6}, {0x0A0A, 0x0B0B}, 1000);

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::BadWordCount, 1));
    EXPECT_EQ(b.OneShot(tx, {}, 3000), "1:7@3000 2800/2 A0A") << "one word short";
    EXPECT_EQ(b.OneShot(tx, {}, 5000), "1:7@5000 2800/0 A0A B0B") << "a fault for one transfer";

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::BadWordCount, 1));
    EXPECT_EQ(b.OneShot({0, Cmd(5, false, 3, 2), 0, 8}, {0x0A0A, 0x0B0B}, 7000), "1:8@7000 2800/2 A0A B0B")
        << "a word too many after the status word";

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::ParityError, 1));
    EXPECT_EQ(b.OneShot(tx, {}, 9000), "1:7@9000 0/4 A0A B0B") << "a status word with a parity error is not reported";

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::NoResponse, 2));
    EXPECT_EQ(b.OneShot(tx, {}, 11000), "1:7@11000 0/1");
    EXPECT_EQ(b.OneShot(tx, {}, 13000), "1:7@13000 0/1");
    EXPECT_EQ(b.OneShot(tx, {}, 15000), "1:7@15000 2800/0 A0A B0B");

    EXPECT_FALSE(b.Engine.SetMilStd1553Fault(31, 0, MilStd1553Fault::NoResponse));
    EXPECT_FALSE(b.Engine.SetMilStd1553Fault(5, 2, MilStd1553Fault::NoResponse));
}

TEST(Mil1553Bc, ATableThatCannotRunStopsAtOnceAndAnotherModeWaitsForAStop)
{
    MilBench b;
    b.Write(0, 0x1000, {0}); // no minor frame
    b.Configure(0, 1, CfgRun | CfgBusA, 0, 0x10);
    b.RunToUs(100);
    EXPECT_EQ(Bc(b.Stream), (Texts{"4:0@0 0/0"}));

    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}}));
    b.Describe(0, 32, {0, Cmd(5, true, 1, 1), 0, 1});
    b.Configure(0, 1, CfgRun | CfgBusA, 0, 0x10);
    b.Configure(0, 2, CfgRun | CfgBusA, 5);
    EXPECT_EQ(b.Engine.GetCounters().Mil1553ConfigsRefused[0], 1u);
    b.RunToUs(2500);
    EXPECT_EQ(Bc(b.Stream), (Texts{"4:0@0 0/0", "1:1@100 2800/0 0", "1:1@1100 2800/0 0", "1:1@2100 2800/0 0"}))
        << "still the controller";
}
