// The unit's ARINC 429 label table (label control 16, label data 17, label
// reset 18), driven with the time stepped by the test: cyclic labels leave
// at their period in the unit's time, with or without pacing.

#include "TestHost.h"

#include <hdwsim/UnitEngine.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace simtest;
using hdwsim::UnitEngine;

namespace {

constexpr uint64_t Ms = 1000000;

// Label control: period in ms (1..1024), flags, offset in ms, repeat count.
Bytes LabelCtrl(unsigned number, unsigned ch, unsigned label, unsigned periodMs, bool enabled = true, bool once = false,
    unsigned offsetMs = 0, unsigned repeat = 0)
{
    Bytes p{static_cast<uint8_t>(ch), static_cast<uint8_t>(label)};
    Le32(p, ((periodMs - 1) & 0x3FF) | (enabled ? 1u << 10 : 0) | (once ? 1u << 11 : 0));
    Le16(p, offsetMs);
    Le16(p, repeat);
    return Record(16, number, p);
}

// ARINC 429 transmit events of one label, in order.
std::vector<Event> TxOf(const EngineHost& h, unsigned label)
{
    std::vector<Event> r;
    for (const Event& e : h.Stream.OfType(EvA429Tx))
        if ((e.Word() & 0xFF) == label)
            r.push_back(e);
    return r;
}

class LabelTable : public ::testing::TestWithParam<bool> {};

} // namespace

// With pacing, labels due together leave one word time (0.36 ms) apart: the
// times are compared in whole milliseconds, up to 99 ms.
TEST_P(LabelTable, EachLabelLeavesAtItsOwnTimesOnceItHasDataAndReachesTheWiredReceiver)
{
    // Label, period, enabled, once, offset, repeat, data pushed at (ms), and
    // the times (ms) its words leave within the first 100 ms.
    const struct {
        unsigned Label, PeriodMs;
        bool Enabled, Once;
        unsigned OffsetMs, Repeat;
        std::vector<unsigned> PushMs, SentMs;
    } labels[] = {
        {0x10, 20, true, false, 0, 0, {0}, {0, 20, 40, 60, 80}},
        {0x20, 50, true, false, 5, 0, {0}, {5, 55}}, // the offset delays the first
        {0x44, 10, true, false, 0, 0, {50}, {50, 60, 70, 80, 90}}, // waits for its data
        {0x45, 10, false, false, 0, 0, {0}, {}}, // disabled
        {0x61, 10, true, true, 0, 0, {0, 60}, {0, 60}}, // once per update
        {0x62, 10, true, false, 0, 3, {0}, {0, 10, 20}}, // stops after its repeat count
    };
    EngineHost h(GetParam());
    std::vector<Bytes> ctrls{AtxConfig(1, 0, true, 299), ArxConfig(1, 0, true, true, AllLabels())};
    for (const auto& l : labels)
        ctrls.push_back(LabelCtrl(2, 0, l.Label, l.PeriodMs, l.Enabled, l.Once, l.OffsetMs, l.Repeat));
    h.Send(FrameOf(ctrls));
    EXPECT_EQ(h.Engine.NextBusEventNs(), UnitEngine::Never); // no label has data yet
    for (unsigned ms : {0u, 50u, 60u}) {
        h.At(ms * Ms);
        for (const auto& l : labels)
            if (std::find(l.PushMs.begin(), l.PushMs.end(), ms) != l.PushMs.end())
                h.Send(Frame({AtxPush(3, 0, 0x400 * ms + l.Label)}));
    }
    h.At(99 * Ms);
    size_t words = 0;
    for (const auto& l : labels) {
        std::vector<unsigned> sent;
        for (const Event& e : TxOf(h, l.Label)) {
            sent.push_back(e.Time() / 1000);
            // Each word carries the label's latest data.
            const unsigned pushedMs = *std::prev(std::upper_bound(l.PushMs.begin(), l.PushMs.end(), sent.back()));
            EXPECT_EQ(e.Word(), 0x400 * pushedMs + l.Label) << "label " << l.Label;
        }
        EXPECT_EQ(sent, l.SentMs) << "label " << l.Label;
        words += sent.size();
    }
    // Table data, not the FIFO; every word also reached the receiver wired to channel 0.
    EXPECT_EQ(h.Engine.GetCounters().A429Pushed[0], 0u);
    EXPECT_EQ(h.Engine.GetCounters().A429LabelWords[0], words);
    EXPECT_EQ(h.Stream.OfType(EvA429Rx).size(), words);
    // Events of one channel come in time order across labels.
    const auto tx = h.Stream.OfType(EvA429Tx);
    EXPECT_TRUE(
        std::is_sorted(tx.begin(), tx.end(), [](const Event& a, const Event& b) { return a.Time() < b.Time(); }));
}

INSTANTIATE_TEST_SUITE_P(PacingOrNot, LabelTable, ::testing::Bool());

TEST(LabelTableData, BadRecordsAreRefusedAndCounted)
{
    EngineHost h;
    h.Send(Frame({Record(16, 1, {9, 0x10, 0, 0, 0, 0, 0, 0, 0, 0}), Record(18, 2, {0, 0})}));
    EXPECT_EQ(h.Engine.GetCounters().CommandsUnknown, 2u); // channel 9 does not exist; a reset is 5 bytes
    EXPECT_EQ(h.Engine.GetCounters().A429LabelCtrls[0], 0u);
}
