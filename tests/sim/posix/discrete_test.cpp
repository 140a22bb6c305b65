// The emulated discrete banks (Travin) driven directly, time stepped by the
// test: outputs wired to the inputs of the same number, debounce, pulses,
// read answers, refused records and the injected faults.

#include "TestHost.h"

#include <hdwsim/UnitEngine.h>

#include <gtest/gtest.h>

using namespace simtest;

namespace {

constexpr unsigned EvEcho = 0, EvIn = 11, EvOut = 12;
constexpr uint64_t Us = 1000; // ns

// Decoded discrete event.
struct Discrete {
    unsigned Bank;
    uint32_t Time, State, Changed;
    unsigned Sequence, Cause;
};

std::vector<Discrete> Of(const UnitStream& s, unsigned type)
{
    std::vector<Discrete> r;
    for (const Event& e : s.OfType(type)) {
        EXPECT_EQ(e.Params.size(), 15u);
        r.push_back({e.Sub, e.Time(), GetLe32(e.Params.data() + 4), GetLe32(e.Params.data() + 8),
            unsigned(e.Params[12] | e.Params[13] << 8), e.Params[14]});
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

TEST(TravinSim, AWrittenOutputReachesItsInputAfterTheDebounce)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 1, true, 0, 0xFF, 500), OutConfig(4, 1, true, 0, 0)}));
    h.At(10 * Us);
    h.Send(Frame({OutWrite(5, 1, 1, 0x05)})); // set lines 0 and 2
    auto out = Of(h.Stream, EvOut);
    ASSERT_EQ(out.size(), 2u); // bank switched on, then the write
    EXPECT_EQ(out[0].Cause, 3u);
    EXPECT_EQ(out[0].Sequence, 1u);
    EXPECT_EQ(out[1].Bank, 1u);
    EXPECT_EQ(out[1].State, 0x05u);
    EXPECT_EQ(out[1].Changed, 0x05u);
    EXPECT_EQ(out[1].Sequence, 2u);
    EXPECT_EQ(out[1].Time, 10u);
    EXPECT_TRUE(Of(h.Stream, EvIn).empty());
    h.At(509 * Us);
    EXPECT_TRUE(Of(h.Stream, EvIn).empty());
    h.At(2000 * Us);
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 1u);
    EXPECT_EQ(in[0].Bank, 1u);
    EXPECT_EQ(in[0].Time, 510u); // stamped when the debounce accepted it
    EXPECT_EQ(in[0].State, 0x05u);
    EXPECT_EQ(in[0].Changed, 0x05u);
    EXPECT_EQ(in[0].Sequence, 1u);
    EXPECT_EQ(in[0].Cause, 0u);
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
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 1u);
    EXPECT_EQ(in[0].Changed, 0x02u);
    EXPECT_EQ(in[0].State, 0x01u); // line 0 reads 1, line 1 reads 0
}

TEST(TravinSim, PulsesLongerThanTheDebounceShowTwiceShorterOnesNever)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 2, true, 0, 0xFF, 1000), OutConfig(4, 2, true, 0, 0)}));
    h.Send(Frame({OutPulse(5, 2, 0x80, 5000)}));
    h.At(20000 * Us);
    auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 2u);
    // The pulse record acts at 2 µs, after the two configuration records.
    EXPECT_EQ(in[0].Time, 1002u);
    EXPECT_EQ(in[1].Time, 6002u);
    EXPECT_EQ(in[1].State, 0u);
    auto out = Of(h.Stream, EvOut);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[2].Cause, 1u); // end of the pulse
    EXPECT_EQ(out[2].Time, 5002u);

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
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), inBefore + 2);
    EXPECT_EQ(in[inBefore].Bank, 0u);
    EXPECT_EQ(in[inBefore].Cause, 1u);
    EXPECT_EQ(in[inBefore].State, 0x30u);
    EXPECT_EQ(in[inBefore].Changed, 0u);
    EXPECT_EQ(in[inBefore].Sequence, 1u); // the bank-on change was the first
    EXPECT_EQ(in[inBefore + 1].Bank, 3u);
    const auto out = Of(h.Stream, EvOut);
    EXPECT_EQ(out.back().Cause, 2u);
    EXPECT_EQ(out.back().State, 0x30u);
    EXPECT_EQ(out.back().Sequence, 1u);
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
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 1u);
    EXPECT_EQ(in[0].Changed, 0x08u);
    EXPECT_EQ(in[0].Time, 1500u); // last edge at 500 µs
    EXPECT_EQ(h.Engine.GetCounters().DiscreteFiltered, 2u);
    EXPECT_FALSE(h.Engine.BounceInput(4, 0, 1, 100, h.Now));
}

TEST(TravinSim, RecordsOfOneFrameActOneMicrosecondApart)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 0), OutConfig(4, 0, true, 0, 0)}));
    h.At(100 * Us);
    h.Send(Frame({OutWrite(5, 0, 3, 0x01), OutWrite(6, 0, 3, 0x01), OutWrite(7, 0, 3, 0x01)}));
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 3u); // switching on at 0 changed no line
    EXPECT_EQ(in[0].Time, 100u);
    EXPECT_EQ(in[1].Time, 101u);
    EXPECT_EQ(in[2].Time, 102u);
    EXPECT_EQ(in[2].State, 0x01u);
}

TEST(TravinSim, DroppedChangeEventsStillAdvanceTheSequence)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 0)}));
    h.Engine.DropNextDiscreteEvents(2);
    for (unsigned i = 0; i < 3; ++i) {
        h.At(h.Now + 100 * Us);
        ASSERT_TRUE(h.Engine.DriveInput(0, 0x01, i % 2 == 0 ? 0x01 : 0x00, h.Now));
        h.Pump();
    }
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 1u);
    EXPECT_EQ(in[0].Sequence, 3u);
    EXPECT_EQ(h.Engine.GetCounters().DiscreteDropped, 2u);
}

TEST(TravinSim, WritesOfOneFrameSettleAsSeparateChanges)
{
    TravinHost h;
    h.Send(Frame({InConfig(3, 0, true, 0, 0xFF, 1000), OutConfig(4, 0, true, 0, 0)}));
    h.At(100 * Us);
    h.Send(Frame({OutWrite(5, 0, 1, 0x05), OutPulse(6, 0, 0x80, 20000)}));
    h.At(100000 * Us);
    const auto in = Of(h.Stream, EvIn);
    ASSERT_EQ(in.size(), 3u);
    EXPECT_EQ(in[0].Changed, 0x05u);
    EXPECT_EQ(in[0].Time, 1100u);
    EXPECT_EQ(in[1].Changed, 0x80u);
    EXPECT_EQ(in[1].Time, 1101u);
    EXPECT_EQ(in[2].Changed, 0x80u);
    EXPECT_EQ(in[2].Time, 21101u);
}
