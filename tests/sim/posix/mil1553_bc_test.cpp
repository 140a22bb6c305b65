// The unit's MIL-STD-1553 bus driven with raw command records on a stepped
// clock: the controller's schedule, its timing on the bus, retries and
// injected faults, checked on the type-8 events and their time stamps.
// Timing (µs): 20 per word, 8 for a simulated terminal's answer, the
// response time-out (14 here) when nobody answers, 4 between messages.

#include "Mil1553Host.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace simtest;
using hdwsim::MilStd1553Fault;

namespace {

const uint16_t Ta5 = 5 << 11;
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
    b.Configure(0, {1, CfgRun | CfgBusA | CfgBusB, 0, 0, 14, 0x10, 2});
    b.RunToUs(6000);

    // Three words, 8 µs, the status word, then the 4 µs gap; the terminal
    // sends what it last received; minor frame 1 starts 1 ms after minor
    // frame 0; stopped after two cycles, at the boundary.
    EXPECT_EQ(Bc(b.Stream),
        (Texts{"1:0@1000 2800/0 1111 2222", "1:1@1092 2800/0 1111 2222", "1:2@2000 2800/0 ABCD",
            "1:0@2500 2800/0 1111 2222", "1:1@2592 2800/0 1111 2222", "1:2@3500 2800/0 ABCD", "4:0@4000 0/0"}));
    EXPECT_EQ(b.Engine.GetCounters().Mil1553Transfers[0], 6u);
}

TEST(Mil1553Bc, AnAbsentTerminalTimesOutAndTheScheduleGoesOn)
{
    MilBench b;
    b.Describe(0, 32, {0, Cmd(9, false, 1, 1), 0, 10}, {0x0909});
    b.Describe(0, 33, {0, Cmd(5, true, 1, 1), 0, 11});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32, 33}}}));
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10, 3});
    b.RunToUs(4000);
    // Two words and the 14 µs time-out, then the gap; the schedule goes on.
    EXPECT_EQ(Bc(b.Stream, 1),
        (Texts{"1:A@0 0/1 909", "1:B@58 2800/0 0", "1:A@1000 0/1 909", "1:B@1058 2800/0 0", "1:A@2000 0/1 909",
            "1:B@2058 2800/0 0"}));
}

TEST(Mil1553Bc, AFailedMessageIsRetriedOnceOnTheOtherBusWhenAsked)
{
    MilBench b;
    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::NoResponse));
    const MilEvent same = b.OneShot({Retry, Cmd(5, true, 1, 2), 0, 1}, {}, 1000);
    EXPECT_EQ(same.Flags, NoResponse | Retried) << "bus A stays faulted";
    const MilEvent other = b.OneShot({Retry | RetryOtherBus, Cmd(5, true, 1, 2), 0, 2}, {}, 3000);
    EXPECT_EQ(other.Flags, OnBusB | Retried);
    EXPECT_EQ(other.Status1, Ta5);
    EXPECT_EQ(other.Data.size(), 2u);
    EXPECT_EQ(other.Time, 3000u) << "time stamp of the first attempt";
    EXPECT_EQ(b.Engine.GetCounters().Mil1553Attempts, 4u);

    const MilEvent busB = b.OneShot({1, Cmd(5, true, 1, 2), 0, 3}, {}, 5000);
    EXPECT_EQ(busB.Flags, OnBusB) << "bus B is not faulted";
    ASSERT_TRUE(b.Engine.SetMilStd1553Fault(5, 0, MilStd1553Fault::None));
    EXPECT_EQ(b.OneShot({0, Cmd(5, true, 1, 2), 0, 4}, {}, 7000).Flags, 0u);
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

TEST(Mil1553Bc, AMajorFrameSwitchTakesPlaceAtAMinorFrameBoundary)
{
    MilBench b;
    b.Describe(0, 32, {0, Cmd(5, true, 1, 1), 0, 0x0000});
    b.Describe(0, 272, {0, Cmd(5, true, 2, 1), 0, 0x4000});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}, {100, {32}}}));
    b.Write(0, 0x1800, MajorFrameTable({{200, {272}}}));
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(1500);
    b.Configure(0, {1, CfgRun | CfgBusA | CfgSwitch, 0, 0, 14, 0x18});
    b.RunToUs(6000);

    // The switch (kind 3) on the grid, table B's 2 ms minor frame from then on.
    EXPECT_EQ(Bc(b.Stream),
        (Texts{"1:0@0 2800/0 0", "1:0@1000 2800/0 0", "3:0@2000 0/0", "1:4000@2000 2800/0 0", "1:4000@4000 2800/0 0"}));
}

TEST(Mil1553Bc, StopEndsAfterTheMessageInProgress)
{
    MilBench b;
    for (unsigned i = 0; i < 3; ++i)
        b.Describe(0, 32 + i, {0, Cmd(5, true, 1, 2), 0, static_cast<uint16_t>(i)});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32, 33, 34}}}));
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(100); // message 33 runs from 92 to 180
    b.Configure(0, {1, CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(3000);
    EXPECT_EQ(Bc(b.Stream), (Texts{"1:0@0 2800/0 0 0", "1:1@92 2800/0 0 0", "4:0@180 0/0"}));

    // Run again: from minor frame 0 of the table.
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10, 1});
    b.RunToUs(5000);
    const auto again = Bc(b.Stream);
    EXPECT_EQ(Texts(again.begin() + 3, again.end()),
        (Texts{"1:0@3000 2800/0 0 0", "1:1@3092 2800/0 0 0", "1:2@3184 2800/0 0 0", "4:0@4000 0/0"}));
}

TEST(Mil1553Bc, OneShotsRunInTheIdleTimeOfAMinorFrameOnlyWhenTheyFit)
{
    MilBench b;
    b.Describe(0, 32, {0, Cmd(5, true, 1, 1), 0, 0x0000});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}}));
    // 32 words: 33 words, time-out, status, gap = 698 µs; with a retry twice that.
    b.Describe(0, 0, {0, Cmd(5, false, 4, 0), 0, 0x8000}, Words(32, 0x5555));
    b.Describe(0, 1, {Retry, Cmd(5, false, 4, 0), 0, 0x8001}, Words(32, 0x6666));
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(50);
    b.Configure(0, {1, CfgRun | CfgBusA | CfgOneShots, 2, 0, 14, 0x10});
    b.RunToUs(5000);
    auto events = MilEvents(b.Stream, 1);
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events[1].TransferId, 0x8000u);
    EXPECT_EQ(events[1].Time, 72u) << "right after the minor frame's message and its gap";
    for (size_t i = 2; i < events.size(); ++i)
        EXPECT_EQ(events[i].TransferId, 0x0000u) << "the one with a retry never fits 1 ms";

    // Stopped, the rest of the list runs at once.
    b.Configure(0, {1, CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(7000);
    events = MilEvents(b.Stream, 1);
    EXPECT_EQ(events.back().TransferId, 0x8001u);
}

TEST(Mil1553Bc, TwoControllersShareTheOneBus)
{
    MilBench b;
    b.Describe(0, 0, {0, Cmd(5, true, 1, 1), 0, 0x8000});
    b.Describe(1, 0, {0, Cmd(5, true, 1, 1), 0, 0x8100});
    b.Send(Frame(
        {MilConfigRecord(1, 0, {1, CfgBusA | CfgOneShots, 1}), MilConfigRecord(2, 1, {1, CfgBusA | CfgOneShots, 1})}));
    b.RunToUs(1000);
    const auto events = MilEvents(b.Stream, 1);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].Channel, 0u);
    EXPECT_EQ(events[1].Channel, 1u);
    EXPECT_EQ(events[1].Time, events[0].Time + 68) << "the second waits for the bus";
}

TEST(Mil1553Bc, RunAgainBeforeTheStopWasReportedStillReportsIt)
{
    MilBench b;
    b.Describe(0, 32, {0, Cmd(5, true, 1, 2), 0, 7});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}}));
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(1050); // the second message runs from 1000 to 1088
    b.Send(Frame({MilConfigRecord(b.Number++, 0, {1, CfgBusA, 0, 0, 14, 0x10}),
        MilConfigRecord(b.Number++, 0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10, 1})}));
    b.RunToUs(4000);
    // The new run starts after the message in progress and its gap.
    EXPECT_EQ(Bc(b.Stream),
        (Texts{"1:7@0 2800/0 0 0", "1:7@1000 2800/0 0 0", "4:0@1088 0/0", "1:7@1092 2800/0 0 0", "4:0@2092 0/0"}));
}

TEST(Mil1553Bc, ATableThatCannotRunStopsAtOnceAndAnotherModeWaitsForAStop)
{
    MilBench b;
    b.Write(0, 0x1000, {0}); // no minor frame
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(100);
    auto events = MilEvents(b.Stream);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].Kind, 4u);

    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}}));
    b.Describe(0, 32, {0, Cmd(5, true, 1, 1), 0, 1});
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.Configure(0, {2, CfgRun | CfgBusA, 5});
    EXPECT_EQ(b.Engine.GetCounters().Mil1553ConfigsRefused[0], 1u);
    b.RunToUs(2500);
    events = MilEvents(b.Stream, 1);
    EXPECT_EQ(events.size(), 3u) << "still the controller";
}

TEST(Mil1553Bc, ASessionOpenForgetsTheBusState)
{
    MilBench b;
    b.Describe(0, 32, {0, Cmd(5, true, 1, 1), 0, 1});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32}}}));
    b.OneShot({0, Cmd(5, false, 1, 1), 0, 2}, {0x7777}, 0);
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10});
    b.RunToUs(2500);
    const size_t before = MilEvents(b.Stream).size();
    b.Send(Frame({Session(b.Number++, true)}));
    b.RunToUs(5000);
    EXPECT_EQ(MilEvents(b.Stream).size(), before) << "no controller runs, none reports a stop";
    EXPECT_EQ(b.Engine.MilStd1553SramWord(0, 0x1000), 0u);
    // The simulated terminal's words are gone too.
    EXPECT_EQ(b.OneShot({0, Cmd(5, true, 1, 1), 0, 3}, {}, 6000).Data, (Words{0}));
}
