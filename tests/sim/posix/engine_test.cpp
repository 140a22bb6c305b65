// The unit model on a stepped clock, every answer checked on the bytes the unit would send.

#include "TestHost.h"

#include <hdwsim/UnitEngine.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

using namespace simtest;
using hdwsim::UnitEngine;

// The bytes themselves, known by hand.
TEST(UnitFraming, KnownAnswerSessionFrameFedByteByByteIsEchoedWithKnownBytes)
{
    EngineHost h;
    // Session open, command number 0, written out with its CRC.
    for (uint8_t b : {0xA5, 0x07, 0x00, 0x07, 0x81, 0x00, 0x00, 0x01, 0x00, 0x00, 0x2F, 0xF0})
        h.Send({b});
    // Echo at clock 0: start, length 8, one event, L 7, type 0, time 0, number 0, CRC.
    const Bytes expected{0xA5, 0x08, 0x00, 0x01, 0x00, 0x07, 0x00, 0, 0, 0, 0, 0x00, 0x00, 0xFF, 0x43};
    EXPECT_EQ(h.Raw, expected);
    EXPECT_EQ(h.Engine.GetCounters().SessionOpens, 1u);
    EXPECT_EQ(h.Engine.GetCounters().FramesReceived, 1u);
}

TEST(UnitFraming, InputThatIsNoFrameIsCountedAndTheNextFrameServed)
{
    Bytes badCrc = Frame({Session(1, true)});
    badCrc.back() ^= 0x01;
    Bytes overlong = Session(1, true);
    overlong[0] = 9; // claims two bytes more than the frame holds
    const struct {
        const char* What;
        Bytes Input;
        uint64_t hdwsim::Counters::*Counter;
    } cases[] = {
        {"bad CRC", badCrc, &hdwsim::Counters::FramesBadCrc},
        {"records that do not add up", Frame({overlong}), &hdwsim::Counters::FramesMalformed},
        // A start byte with a zero length is noise too.
        {"noise", {0x00, 0x13, 0xA5, 0x00, 0x00}, &hdwsim::Counters::BytesDiscarded},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.What);
        EngineHost h;
        h.Send(c.Input);
        EXPECT_TRUE(h.Stream.Events.empty());
        EXPECT_GE(h.Engine.GetCounters().*c.Counter, 1u);
        h.Send(Frame({Session(2, true)}));
        ASSERT_EQ(h.Stream.OfType(EvEcho).size(), 1u);
        EXPECT_EQ(h.Stream.OfType(EvEcho)[0].EchoNumber(), 2u);
    }
}

TEST(Arinc429Loop, AnAllZeroFilterADisabledReceiverAndTheOtherSpeedStopWordsAndBadLabelRecordsAreRefused)
{
    EngineHost h;
    // 1: receiver off; 2: all-zero filter; 3: transmitter at low speed.
    h.Send(Frame({AtxConfig(3, 1, true, 299), ArxConfig(4, 1, false, true, AllLabels()), AtxConfig(5, 2, true, 299),
        ArxConfig(6, 2, true, true, Bytes(32, 0)), AtxConfig(7, 3, true, 2399),
        ArxConfig(8, 3, true, true, AllLabels())}));
    h.Send(Frame({AtxPush(14, 1, 0x22), AtxPush(15, 2, 0x11), AtxPush(16, 3, 0x33)}));
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 3u);
    EXPECT_TRUE(h.Stream.OfType(EvA429Rx).empty());
    const hdwsim::Counters c = h.Engine.GetCounters();
    EXPECT_EQ(c.A429RxDisabled[1], 1u);
    EXPECT_EQ(c.A429FilterDropped[2], 1u);
    EXPECT_EQ(c.A429SpeedMismatch[3], 1u);
    // Label-table records it cannot take: channel 9 does not exist; a reset is 5 bytes.
    h.Send(Frame({Record(16, 20, {9, 0x10, 0, 0, 0, 0, 0, 0, 0, 0}), Record(18, 21, {0, 0})}));
    EXPECT_EQ(h.Engine.GetCounters().CommandsUnknown, 2u);
    EXPECT_EQ(h.Engine.GetCounters().A429LabelCtrls[0], 0u);
}

TEST(TransmitFifo, Arinc429WordsBeyond512AreDroppedAndCountedAndTheRestHeldUntilEnabled)
{
    EngineHost h;
    // Disabled: nothing drains, so the FIFO fills.
    for (unsigned i = 0; i < 520; i += 40) {
        std::vector<Bytes> recs;
        for (unsigned k = i; k < std::min(i + 40, 520u); ++k)
            recs.push_back(AtxPush(k, 1, k));
        h.Send(Frame(recs));
    }
    EXPECT_TRUE(h.Stream.OfType(EvA429Tx).empty());
    EXPECT_EQ(h.Engine.A429FifoLevel(1), 512u);
    EXPECT_EQ(h.Engine.GetCounters().A429Pushed[1], 512u);
    EXPECT_EQ(h.Engine.GetCounters().A429FifoDropped[1], 8u);
    // Every push is still echoed.
    EXPECT_EQ(h.Stream.OfType(EvEcho).size(), 520u);

    h.Send(Frame({AtxConfig(601, 1, true, 299)}));
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 512u);
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).back().Word(), 511u); // the first 512 went, in order
}

TEST(Pacing, Arinc429WordsTake36BitTimesAndCanFramesTheirStuffedLength)
{
    // A standard data frame of 8 zero bytes, id 0: 108 bits plus a stuff bit after every fifth.
    Bytes zero(13, 0);
    zero[0] = 8;
    const unsigned bits = UnitEngine::CanFrameBits(zero.data());
    EXPECT_GE(bits, 111u);
    EXPECT_LE(bits, 135u);
    Bytes ones(13, 0xFF);
    ones[0] = 0x88; // extended, 8 bytes
    EXPECT_GT(UnitEngine::CanFrameBits(ones.data()), UnitEngine::CanFrameBits(zero.data()));
    Bytes empty(13, 0);
    empty[1] = 0x55; // id 0x2A8: alternating bits need few stuff bits
    EXPECT_LT(UnitEngine::CanFrameBits(empty.data()), bits);

    // Divider 299: two half bits of 300 clocks at 60 MHz, 100 kbit/s, a word every 360 us.
    constexpr uint64_t us = 360;
    EngineHost h(true);
    h.Send(Frame(
        {AtxConfig(1, 0, true, 299), ArxConfig(2, 0, true, true, AllLabels()), CanConfig(3, 0), CanConfig(4, 1)}));
    std::vector<Bytes> recs;
    for (unsigned i = 0; i < 100; ++i)
        recs.push_back(AtxPush(10 + i, 0, i));
    h.Send(Frame(recs));
    for (unsigned i = 0; i < 10; ++i)
        h.Send(Frame({CanPush(200 + i, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0})}));
    EXPECT_TRUE(h.Stream.OfType(EvA429Tx).empty());
    h.At(10 * us * 1000 - 1);
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 9u);
    h.At(10 * us * 1000);
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 10u);
    EXPECT_EQ(h.Engine.NextBusEventNs(), 11 * us * 1000);
    h.At(100 * us * 1000);
    const auto tx = h.Stream.OfType(EvA429Tx);
    ASSERT_EQ(tx.size(), 100u);
    for (size_t i = 1; i < tx.size(); ++i)
        EXPECT_EQ(tx[i].Time() - tx[i - 1].Time(), us);
    EXPECT_EQ(h.Stream.OfType(EvA429Rx).size(), 100u);
    // CAN at 1 Mbit/s: 1 us per bit.
    const auto can = h.Stream.OfType(EvCanTx);
    ASSERT_EQ(can.size(), 10u);
    EXPECT_EQ(can[9].Time() - can[0].Time(), 9u * bits);
}

// The ARINC 429 label table (control 16, data 17, reset 18): labels leave at their period in unit time.
namespace {

constexpr uint64_t Ms = 1000000;

// Label control: period in ms (1..1024), flags, offset in ms, repeat count.
Bytes LabelCtrl(unsigned number, unsigned ch, unsigned label, unsigned periodMs, bool enabled = true, bool once = false,
    unsigned offsetMs = 0, unsigned repeat = 0)
{
    const uint32_t flags = ((periodMs - 1) & 0x3FF) | (enabled ? 1u << 10 : 0) | (once ? 1u << 11 : 0);
    return Record(16, number, Pack({{ch, 1}, {label, 1}, {flags, 4}, {offsetMs, 2}, {repeat, 2}}));
}

class LabelTable : public ::testing::TestWithParam<bool> {};

} // namespace

// With pacing, labels due together leave a word time (0.36 ms) apart: times compared in whole ms.
TEST_P(LabelTable, EachLabelLeavesAtItsOwnTimesOnceItHasDataAndReachesTheWiredReceiver)
{
    // Label, period, enabled, once, offset, repeat, data pushed at (ms), its words' times in the first 100 ms.
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
    h.Send(Frame(ctrls));
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
        for (const Event& e : h.Stream.OfType(EvA429Tx)) {
            if ((e.Word() & 0xFF) != l.Label)
                continue;
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

namespace {

// Discrete events as "bank@time state/changed #sequence cause", state and changed in hex.
std::vector<std::string> Of(const UnitStream& s, unsigned type)
{
    std::vector<std::string> r;
    char text[64];
    for (const Event& e : s.OfType(type)) {
        EXPECT_EQ(e.Params.size(), 15u);
        std::snprintf(text, sizeof text, "%u@%u %X/%X #%u %u", e.Sub, e.Time(), GetLe32(e.Params.data() + 4),
            GetLe32(e.Params.data() + 8), unsigned(e.Params[12] | e.Params[13] << 8), e.Params[14]);
        r.push_back(text);
    }
    return r;
}

Bytes InConfig(unsigned number, unsigned bank, bool on, uint32_t invert, uint32_t changeMask, unsigned debounceUs)
{
    return Record(36 + bank, number, Pack({{on, 1}, {invert, 4}, {changeMask, 4}, {debounceUs / 10, 2}}));
}
Bytes OutConfig(unsigned number, unsigned bank, bool on, uint32_t invert, uint32_t initial)
{
    return Record(40 + bank, number, Pack({{on, 1}, {invert, 4}, {initial, 4}}));
}
Bytes OutWrite(unsigned number, unsigned bank, unsigned op, uint32_t mask, uint32_t value = 0)
{
    return Record(44, number, Pack({{bank, 1}, {op, 1}, {mask, 4}, {value, 4}}));
}
Bytes OutPulse(unsigned number, unsigned bank, uint32_t mask, uint32_t lengthUs)
{
    return Record(45, number, Pack({{bank, 1}, {mask, 4}, {lengthUs, 4}}));
}

struct TravinHost : EngineHost {
    TravinHost() : EngineHost(false, 0, {}, *hdwsim::FindUnitModel("travin"))
    {
        Send(Frame({Session(1, false), Session(2, true)}));
    }
};

} // namespace

using Texts = std::vector<std::string>;

// Polarity and the change mask (an event names only lines of the mask); then records the unit cannot take (bank 4,
// operation 4, pulses too short and too long, a short input configuration) are echoed and ignored.
TEST(TravinSim, PolarityOnBothSidesTheChangeMaskAndRefusedRecords)
{
    TravinHost h;
    // Output inverts line 0, input inverts line 0 and 1; only line 1 reports.
    h.Send(Frame({InConfig(3, 0, true, 0x03, 0x02, 0), OutConfig(4, 0, true, 0x01, 0)}));
    // Switching on drives line 0 high (inverted 0): the input reads it inverted back as 0.
    EXPECT_TRUE(Of(h.Stream, EvIn).empty());
    h.Send(Frame({OutWrite(5, 0, 0, 0xFF, 0x01)})); // line 0 -> 1: wire low, input reads 1; not in the mask
    EXPECT_TRUE(Of(h.Stream, EvIn).empty());
    h.Send(Frame({OutWrite(6, 0, 3, 0x02)})); // toggle line 1: wire high, input reads 0
    // Line 0 reads 1, line 1 reads 0.
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"0@3 1/2 #1 0"}));
    // Lines 0 (outside the mask) and 1 settle in the same instant: the event
    // names line 1 alone, the state carries both.
    h.Send(Frame({OutWrite(7, 0, 0, 0x03, 0x00)}));
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"0@3 1/2 #1 0", "0@4 2/2 #2 0"}));

    const size_t events = h.Stream.Events.size();
    const uint32_t state = h.Engine.DiscreteOutputState(0);
    ASSERT_EQ(state & 0x04, 0u); // a record on line 2 taken by mistake would raise it
    h.Send(Frame({OutWrite(8, 4, 1, 0x04), OutWrite(9, 0, 4, 0x04), OutPulse(10, 0, 0x04, 5),
        OutPulse(11, 0, 0x04, 10000001), Record(36, 12, {1, 0, 0})}));
    EXPECT_EQ(h.Stream.Events.size(), events + 5);
    EXPECT_EQ(h.Stream.OfType(EvEcho).size(), 2u + 5 + 5); // sessions, 5 earlier records, five refused
    EXPECT_EQ(h.Engine.GetCounters().DiscreteRefused, 5u);
    EXPECT_EQ(h.Engine.DiscreteOutputState(0), state);
}
