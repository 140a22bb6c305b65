// The emulated discrete banks (Travin) driven directly, time stepped by the
// test: polarity and refused records.

#include "TestHost.h"

#include <hdwsim/UnitEngine.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace simtest;

namespace {

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

struct TravinHost : EngineHost {
    TravinHost() : EngineHost(false, 0, {}, *hdwsim::FindUnitModel("travin"))
    {
        Send(Frame({Session(1, false), Session(2, true)}));
    }
};

} // namespace

using Texts = std::vector<std::string>;

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
