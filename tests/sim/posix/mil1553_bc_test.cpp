// The unit's MIL-STD-1553 bus driven with raw records on a stepped clock: the controller's timing,
// injected faults and a table that cannot run, checked on the type-8 events and their time stamps.
// Timing (µs): 20 per word, 8 for a simulated terminal's answer, the response time-out (14 here)
// when nobody answers, 4 between messages.

#include "Mil1553Host.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace simtest;
using hdwsim::MilStd1553Fault;

namespace {

using Texts = std::vector<std::string>;

// The controller's events as "kind:id@time status/flags data...", in hex but the time.
Texts Bc(const UnitStream& s, unsigned kind = 0)
{
    Texts r;
    char text[64];
    for (const MilEvent& e : MilEvents(s, kind)) {
        std::snprintf(text, sizeof text, "%u:%X@%u %X/%X", e.Kind, e.TransferId, e.Time, e.Status1, e.Flags);
        r.push_back(text);
        for (uint16_t w : e.Data) {
            std::snprintf(text, sizeof text, " %X", w);
            r.back() += text;
        }
    }
    return r;
}

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

TEST(Mil1553Bc, InjectedFaultsLastTheirCountAndShowInTheFlags)
{
    MilBench b;
    const Descriptor tx{0, Cmd(5, true, 3, 2), 0, 7};
    b.OneShot({0, Cmd(5, false, 3, 2), 0, 6}, {0x0A0A, 0x0B0B}, 1000);

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::BadWordCount, 1));
    MilEvent e = b.OneShot(tx, {}, 3000);
    EXPECT_EQ(e.Flags, BadWordCount);
    EXPECT_EQ(e.Data, (Words{0x0A0A})) << "one word short";
    EXPECT_EQ(b.OneShot(tx, {}, 5000).Flags, 0u) << "a fault for one transfer";

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::BadWordCount, 1));
    e = b.OneShot({0, Cmd(5, false, 3, 2), 0, 8}, {0x0A0A, 0x0B0B}, 7000);
    EXPECT_EQ(e.Flags, BadWordCount) << "a word too many after the status word";

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::ParityError, 1));
    e = b.OneShot(tx, {}, 9000);
    EXPECT_EQ(e.Flags, Parity);
    EXPECT_EQ(e.Status1, 0u) << "a status word with a parity error is not reported";
    EXPECT_EQ(e.Data, (Words{0x0A0A, 0x0B0B}));

    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::NoResponse, 2));
    EXPECT_EQ(b.OneShot(tx, {}, 11000).Flags, NoResponse);
    EXPECT_EQ(b.OneShot(tx, {}, 13000).Flags, NoResponse);
    EXPECT_EQ(b.OneShot(tx, {}, 15000).Flags, 0u);

    EXPECT_FALSE(b.Engine.SetMilStd1553Fault(31, 0, MilStd1553Fault::NoResponse));
    EXPECT_FALSE(b.Engine.SetMilStd1553Fault(5, 2, MilStd1553Fault::NoResponse));
}

TEST(Mil1553Bc, ATableThatCannotRunStopsAtOnceAndAnotherModeWaitsForAStop)
{
    MilBench b;
    b.Write(0, 0x1000, {0}); // no minor frame
    b.Configure(0, 1, CfgRun | CfgBusA, 0, 0x10);
    b.RunToUs(100);
    auto events = MilEvents(b.Stream);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].Kind, 4u);

    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}}));
    b.Describe(0, 32, {0, Cmd(5, true, 1, 1), 0, 1});
    b.Configure(0, 1, CfgRun | CfgBusA, 0, 0x10);
    b.Configure(0, 2, CfgRun | CfgBusA, 5);
    EXPECT_EQ(b.Engine.GetCounters().Mil1553ConfigsRefused[0], 1u);
    b.RunToUs(2500);
    events = MilEvents(b.Stream, 1);
    EXPECT_EQ(events.size(), 3u) << "still the controller";
}
