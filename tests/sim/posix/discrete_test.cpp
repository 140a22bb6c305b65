// The emulated discrete banks (Travin) driven directly, time stepped by the
// test: outputs wired to the inputs of the same number, debounce, pulses,
// read answers, refused records and the injected faults.

#include "TestHost.h"

#include <hdwsim/UnitEngine.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace simtest;

namespace {

constexpr unsigned EvEcho = 0, EvIn = 11, EvOut = 12;
constexpr uint64_t Us = 1000; // ns

// The discrete events of a type as "bank@time state/changed #sequence cause",
// state and changed in hex.
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
    Bytes p{uint8_t(on ? 1 : 0)};
    Le32(p, invert);
    Le32(p, changeMask);
    Le16(p, debounceUs / 10);
    return Record(36 + bank, number, p);
}

Bytes OutConfig(unsigned number, unsigned bank, bool on, uint32_t invert, uint32_t initial)
{
    Bytes p{uint8_t(on ? 1 : 0)};
    Le32(p, invert);
    Le32(p, initial);
    return Record(40 + bank, number, p);
}

Bytes OutWrite(unsigned number, unsigned bank, unsigned op, uint32_t mask, uint32_t value = 0)
{
    Bytes p{uint8_t(bank), uint8_t(op)};
    Le32(p, mask);
    Le32(p, value);
    return Record(44, number, p);
}

Bytes OutPulse(unsigned number, unsigned bank, uint32_t mask, uint32_t lengthUs)
{
    Bytes p{uint8_t(bank)};
    Le32(p, mask);
    Le32(p, lengthUs);
    return Record(45, number, p);
}

Bytes Read(unsigned number, uint8_t inBanks, uint8_t outBanks)
{
    return Record(46, number, {inBanks, outBanks, 0});
}

struct TravinHost : EngineHost {
    TravinHost() : EngineHost(false, 0, {}, *hdwsim::FindUnitModel("travin"))
    {
        Send(Frame({Session(1, false), Session(2, true)}));
    }
};

} // namespace

using Texts = std::vector<std::string>;

TEST(TravinSim, AWrittenOutputReachesItsInputAfterTheDebounce)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 1, true, 0, 0xFF, 500), OutConfig(4, 1, true, 0, 0)}));
    h.At(10 * Us);
    h.Send(Frame({OutWrite(5, 1, 1, 0x05)})); // set lines 0 and 2
    // The bank switched on (cause 3), then the write.
    EXPECT_EQ(Of(h.Stream, EvOut), (Texts{"1@1 0/0 #1 3", "1@10 5/5 #2 0"}));
    EXPECT_TRUE(Of(h.Stream, EvIn).empty());
    h.At(509 * Us);
    EXPECT_TRUE(Of(h.Stream, EvIn).empty());
    h.At(2000 * Us);
    // Stamped when the debounce accepted it.
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"1@510 5/5 #1 0"}));
}

TEST(TravinSim, PolarityOnBothSidesAndTheChangeMask)
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
}

TEST(TravinSim, PulsesLongerThanTheDebounceShowTwiceShorterOnesNever)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 2, true, 0, 0xFF, 1000), OutConfig(4, 2, true, 0, 0)}));
    h.Send(Frame({OutPulse(5, 2, 0x80, 5000)}));
    h.At(20000 * Us);
    // The pulse record acts at 2 µs, after the two configuration records; its end is cause 1.
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"2@1002 80/80 #1 0", "2@6002 0/80 #2 0"}));
    EXPECT_EQ(Of(h.Stream, EvOut), (Texts{"2@1 0/0 #1 3", "2@2 80/80 #2 0", "2@5002 0/80 #3 1"}));

    h.Send(Frame({OutPulse(6, 2, 0x80, 500)}));
    h.At(40000 * Us);
    EXPECT_EQ(Of(h.Stream, EvIn).size(), 2u);
    EXPECT_EQ(h.Engine.GetCounters().DiscreteFiltered, 1u);
    EXPECT_EQ(h.Engine.GetCounters().DiscretePulses, 2u);
}

TEST(TravinSim, ReadAnswersInputsFirstAndKeepTheSequence)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 0), OutConfig(4, 0, true, 0, 0x30), InConfig(5, 3, true, 0, 0xFF, 0),
        OutConfig(6, 3, true, 0, 0)}));
    const size_t inBefore = Of(h.Stream, EvIn).size();
    h.Send(Frame({Read(7, 0x09, 0x01)}));
    // Answers (cause 1 and 2) keep the sequence: the bank-on change was the first.
    const auto in = Of(h.Stream, EvIn);
    EXPECT_EQ(Texts(in.begin() + long(inBefore), in.end()), (Texts{"0@4 30/0 #1 1", "3@4 0/0 #0 1"}));
    EXPECT_EQ(Of(h.Stream, EvOut).back(), "0@4 30/0 #1 2");
    // Input events come before the output answer in the stream.
    size_t lastIn = 0, outAnswer = 0;
    for (size_t i = 0; i < h.Stream.Events.size(); ++i) {
        const Event& e = h.Stream.Events[i];
        if (e.Type == EvIn && e.Params[14] == 1)
            lastIn = i;
        if (e.Type == EvOut && e.Params[14] == 2)
            outAnswer = i;
    }
    EXPECT_LT(lastIn, outAnswer);
}

TEST(TravinSim, RecordsTheUnitCannotTakeAreEchoedAndIgnored)
{
    TravinHost h;
    h.Send(Frame({OutConfig(3, 0, true, 0, 0)}));
    const size_t events = h.Stream.OfType(EvOut).size();
    h.Send(Frame({OutWrite(4, 4, 1, 0x01), OutWrite(5, 0, 4, 0x01), OutPulse(6, 0, 0x01, 5),
        OutPulse(7, 0, 0x01, 10000001), Record(36, 8, {1, 0, 0})}));
    EXPECT_EQ(h.Stream.OfType(EvEcho).size(), 2u + 1 + 5); // session, config, five refused
    EXPECT_EQ(h.Stream.OfType(EvOut).size(), events);
    EXPECT_EQ(h.Engine.GetCounters().DiscreteRefused, 5u);
    EXPECT_EQ(h.Engine.DiscreteOutputState(0), 0u);
}

TEST(TravinSim, ABouncingLineIsReportedOnceItSettles)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 1000)}));
    ASSERT_TRUE(h.Engine.BounceInput(0, 3, 5, 100, h.Now)); // odd: ends high
    h.At(10000 * Us);
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"0@1500 8/8 #1 0"})); // last edge at 500 µs
    EXPECT_EQ(h.Engine.GetCounters().DiscreteFiltered, 2u);
    EXPECT_FALSE(h.Engine.BounceInput(4, 0, 1, 100, h.Now));
}

// Records of one frame act one microsecond apart; dropped change events still
// advance the sequence.
TEST(TravinSim, RecordsOfOneFrameActOneMicrosecondApartAndDroppedEventsAdvanceTheSequence)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 0), OutConfig(4, 0, true, 0, 0)}));
    h.At(100 * Us);
    h.Send(Frame({OutWrite(5, 0, 3, 0x01), OutWrite(6, 0, 3, 0x01), OutWrite(7, 0, 3, 0x01)}));
    // Switching on at 0 changed no line.
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"0@100 1/1 #1 0", "0@101 0/1 #2 0", "0@102 1/1 #3 0"}));

    h.Engine.DropNextDiscreteEvents(2);
    for (unsigned i = 0; i < 3; ++i) {
        h.At(h.Now + 100 * Us);
        ASSERT_TRUE(h.Engine.DriveInput(0, 0x01, i % 2 == 0 ? 0x00 : 0x01, h.Now));
        h.Pump();
    }
    EXPECT_EQ(Of(h.Stream, EvIn).back(), "0@400 0/1 #6 0");
    EXPECT_EQ(Of(h.Stream, EvIn).size(), 4u);
    EXPECT_EQ(h.Engine.GetCounters().DiscreteDropped, 2u);
}

TEST(TravinSim, WritesOfOneFrameSettleAsSeparateChanges)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 1000), OutConfig(4, 0, true, 0, 0)}));
    h.At(100 * Us);
    h.Send(Frame({OutWrite(5, 0, 1, 0x05), OutPulse(6, 0, 0x80, 20000)}));
    h.At(100000 * Us);
    EXPECT_EQ(Of(h.Stream, EvIn), (Texts{"0@1100 5/5 #1 0", "0@1101 85/80 #2 0", "0@21101 5/80 #3 0"}));
}
