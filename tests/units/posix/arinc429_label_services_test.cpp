// Label-oriented ARINC 429 services and the data generator end to end.
#include "UnitRig.h"

#include <cmath>
#include <map>
#include <numeric>
#include <tuple>

using namespace unit_test;
using CLabelCtrl = CKVX_HdwArinc429OutLbloService::CLabelCtrl;

namespace {

// Label-oriented output on transmitter `ch`, an input buffer on receiver `ch`.
struct LabelLoop {
    LabelLoop(UnitRig& rig, unsigned ch)
        : In(rig.OpenWith<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_IN_BUFFER)),
          Out(rig.OpenWith<CKVX_HdwArinc429OutLbloService>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_ARINC429_LABEL_OUT))
    {}
    std::vector<CKVX_HdwArinc429Message> OfLabel(unsigned label) const
    {
        std::vector<CKVX_HdwArinc429Message> r;
        std::copy_if(Got.begin(), Got.end(), std::back_inserter(r), [&](const auto& m) { return m.Label == label; });
        return r;
    }
    bool WaitLabel(unsigned label, size_t count)
    {
        return WaitUntil([&] { return TakeAll(In, Got), OfLabel(label).size() >= count; });
    }
    CKVX_HdwArinc429InBufferService* In;
    CKVX_HdwArinc429OutLbloService* Out;
    std::vector<CKVX_HdwArinc429Message> Got;
};

} // namespace

// A label on transmitter 1 is the clock that shows none came on 0.
TEST(LabelOutput, HaldenLabelsComeRoundAtTheirPeriodsAndFollowTheSwitches)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    LabelLoop loop(rig, 0), clock(rig, 1);
    ASSERT_TRUE(loop.In && loop.Out && clock.In && clock.Out);

    CLabelCtrl ctrls[2] = {CLabelCtrl(0x31, 10), CLabelCtrl(0x32, 30)};
    ASSERT_EQ(loop.Out->SetLabelsCtrl(ctrls, 2), 0u);
    CKVX_HdwArinc429Message words[2] = {Word(0x31, 0x111), Word(0x32, 0x222, 2, 1)};
    ASSERT_EQ(loop.Out->UpdateMessages(words, 2), 0u);
    CLabelCtrl tick(0x77, 5);
    ASSERT_EQ(clock.Out->SetLabelsCtrl(&tick, 1), 0u);
    CKVX_HdwArinc429Message tickWord = Word(0x77, 1);
    ASSERT_EQ(clock.Out->UpdateMessages(&tickWord, 1), 0u);

    ASSERT_TRUE(loop.WaitLabel(0x31, 9));
    ASSERT_TRUE(loop.WaitLabel(0x32, 3));
    const auto a = loop.OfLabel(0x31);
    for (size_t i = 1; i < a.size(); ++i) // unit microseconds apart
        EXPECT_EQ(std::tuple(a[i].TimeStamp - a[i - 1].TimeStamp, a[i].Data), std::tuple(10000u, 0x111u)) << i;
    const auto b = loop.OfLabel(0x32);
    EXPECT_EQ(
        std::tuple(b[1].TimeStamp - b[0].TimeStamp, b[0].Sdi, b[0].Ssm, b[0].Data), std::tuple(30000u, 2, 1, 0x222u));

    // Words of the clock label received on 1 since `mark`.
    auto waitClock = [&](size_t more) {
        const size_t mark = clock.OfLabel(0x77).size();
        return clock.WaitLabel(0x77, mark + more);
    };
    auto sent = [&] { return rig.Sim.GetCounters().A429LabelWords[0]; };

    // DisableTx: once the unit has the controls, no word for 100 ms.
    const uint64_t ctrlsBefore = rig.Sim.GetCounters().A429LabelCtrls[0];
    ASSERT_EQ(loop.Out->DisableTx(), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429LabelCtrls[0] == ctrlsBefore + 2; }));
    const uint64_t stopped = sent();
    ASSERT_TRUE(waitClock(20));
    EXPECT_EQ(sent(), stopped);
    EXPECT_EQ(loop.Out->GetDefinedLabelsCount(), 2u);

    ASSERT_EQ(loop.Out->EnableTx(), 0u);
    ASSERT_TRUE(WaitUntil([&] { return sent() >= stopped + 5; }));

    // ResetTx: the table is gone on both sides.
    ASSERT_EQ(loop.Out->ResetTx(), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429LabelResets[0] >= 2; })); // Start's and this one
    const uint64_t reset = sent();
    ASSERT_TRUE(waitClock(20));
    EXPECT_EQ(sent(), reset);
    EXPECT_EQ(loop.Out->GetDefinedLabelsCount(), 0u);
    EXPECT_EQ(loop.Out->UpdateMessages(words, 1), 2u);

    // Every word the unit sent from the table reached the wired receiver.
    ASSERT_TRUE(WaitUntil([&] {
        TakeAll(loop.In, loop.Got);
        return loop.Got.size() == sent();
    }));
}

// On a channel above 7; the unit's filter is set from what the service accepts.
TEST(PellorLabelInput, KeepsTheLatestWordPerLabelAndTheUnitFiltersTheRest)
{
    UnitRig rig(UnitNamed("pellor"), false);
    rig.Start();
    const unsigned ch = 12;
    auto* in = rig.Enable<CKVX_HdwArinc429InLbloService>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_LABEL_IN);
    auto* out = rig.Enable<CKVX_HdwArinc429OutBufferService>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_ARINC429_OUT_BUFFER);
    ASSERT_TRUE(in && out);
    ASSERT_EQ(in->DiscardAllLabels(), 0u);
    ASSERT_EQ(in->AcceptLabel(0x10, 0x0F), 0u);
    ASSERT_EQ(in->AcceptLabel(0x11, 0x01), 0u); // SDI 0 only: the unit passes the label, the service drops SDI 1
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_RX, ch), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_TX, ch), 0u);

    std::vector<CKVX_HdwArinc429Message> words;
    for (unsigned i = 0; i < 30; ++i) {
        words.push_back(Word(0x10, i, i % 2)); // SDI 0 and 1 alternating
        words.push_back(Word(0x11, 100 + i, i % 2));
        words.push_back(Word(0x12, 200 + i)); // filtered by the unit
    }
    ASSERT_EQ(out->Write(words.data(), unsigned(words.size()), 0), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429Transmitted[ch] == 90; }));

    CKVX_HdwArinc429Message m;
    unsigned count = 0;
    ASSERT_TRUE(WaitUntil([&] { return in->ReadLabel(0x10, 1, m, count) == 0 && count == 15; }));
    EXPECT_EQ(m.Data, 29u);
    EXPECT_NE(m.TimeStamp, 0u);
    ASSERT_TRUE(WaitUntil([&] { return in->ReadLabel(0x11, 0, m, count) == 0 && count == 15; }));
    EXPECT_EQ(m.Data, 128u);
    EXPECT_EQ(in->ReadLabel(0x11, 1, m, count), 4u);
    EXPECT_EQ(in->ReadLabel(0x12, 0, m, count), 4u);
    // The unit dropped label 0x12 in hardware; 0x11 with SDI 1 it passed.
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(std::tuple(c.A429FilterDropped[ch], c.A429Received[ch]), std::tuple(30u, 60u));
}

using Gen = CKVX_HdwDataGeneratorService;
using Def = Gen::CLabelDef;

namespace {

// Four labels of different patterns, at rates of whole-ms periods.
std::vector<Def> Labels()
{
    std::vector<Def> d = {Def(0101, 50.0), Def(0102, 20.0), Def(0103, 12.5), Def(0106, 5.0)};
    // BNR sine, 512 range in 0.25 steps; a counter; a BCD triangle; a constant.
    std::tie(d[0].Pattern, d[0].Range, d[0].Resolution, d[0].Low, d[0].High, d[0].Period, d[0].Sdi, d[0].Ssm) =
        std::tuple(Gen::PatternBnr, 512, 0.25, -100, 300, 1.0, 1, 3);
    std::tie(d[1].Pattern, d[1].Min, d[1].Max, d[1].Step) = std::tuple(Gen::PatternCounter, 1000, 1030, 7);
    std::tie(d[2].Pattern, d[2].Resolution, d[2].Low, d[2].High, d[2].Wave, d[2].Period, d[2].Digits) =
        std::tuple(Gen::PatternBcd, 0.1, -20, 359.9, Gen::WaveTriangle, 2.0, 4);
    std::tie(d[3].Data, d[3].Ssm) = std::tuple(0x5A5A5, 2);
    return d;
}

// Transmissions of a label whose first went at 0, by `ms`; of all `defs`.
uint64_t Due(const Def& d, uint64_t ms)
{
    return uint64_t(std::floor(double(ms) * d.Rate / 1000.0 + 1e-9)) + 1;
}
uint64_t DueAll(const std::vector<Def>& defs, uint64_t ms)
{
    return std::accumulate(
        defs.begin(), defs.end(), uint64_t(0), [&](uint64_t n, const Def& d) { return n + Due(d, ms); });
}

// A generator and an input buffer on pair `ch`, the unit clock frozen.
struct GenLoop {
    GenLoop(UnitRig& rig, unsigned ch) : Clock(ClockOf(rig))
    {
        CKVX_HdwArinc429RxPort::CParameters rp;
        CKVX_HdwArinc429TxPort::CParameters tp;
        rp.BaudRate = tp.BaudRate = 100000;
        In =
            rig.OpenWith<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_IN_BUFFER, rp);
        Gen_ = rig.OpenWith<Gen>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_DATA_GENERATOR, tp);
        Clock = Start = CKVX_HdwTimer::GetTickCount();
    }

    // Steps the clock to `ms`, at each step waiting for `due(t)` words.
    template <class F>
    bool StepTo(uint64_t ms, uint64_t stepMs, F&& due)
    {
        for (uint64_t t = Clock - Start; t < ms;) {
            t = std::min(ms, t + stepMs);
            Clock = Start + t;
            const uint64_t want = due(t);
            if (!WaitUntil([&] { return Gen_->GetGeneratedCount() >= want; }))
                return false;
            EXPECT_EQ(Gen_->GetGeneratedCount(), want) << "at " << t << " ms";
        }
        return true;
    }
    void Poll()
    {
        std::vector<CKVX_HdwArinc429Message> chunk;
        TakeAll(In, chunk);
        for (const auto& m : chunk)
            Got[m.Label].push_back(m);
        Received += chunk.size();
    }

    std::atomic<uint64_t>& Clock;
    Gen* Gen_ = nullptr;
    CKVX_HdwArinc429InBufferService* In = nullptr;
    uint64_t Start = 0;
    std::map<unsigned, std::vector<CKVX_HdwArinc429Message>> Got;
    size_t Received = 0;
};

} // namespace

// Over 4 s each label comes floor(4 s x rate) + 1 times with its nominal values.
TEST(DataGenerator, LabelsArriveAtTheirRatesWithTheirValues)
{
    const unsigned ch = 0;
    UnitRig rig(SteppedHalden(), EmulatorOptions(false, true));
    rig.Start();
    GenLoop loop(rig, ch);
    ASSERT_TRUE(loop.Gen_ && loop.In);
    const std::vector<Def> defs = Labels();

    ASSERT_EQ(loop.Gen_->SetLabels(defs.data(), unsigned(defs.size())), 0u);
    ASSERT_TRUE(WaitUntil([&] { return loop.Gen_->GetGeneratedCount() == defs.size(); }));
    ASSERT_TRUE(loop.StepTo(4000, 20, [&](uint64_t t) { return DueAll(defs, t); }));
    // Everything generated crossed the bus and was read.
    ASSERT_TRUE(WaitUntil(
        [&] {
            loop.Poll();
            return loop.Received == loop.Gen_->GetGeneratedCount() && loop.Gen_->GetPendingCount() == 0;
        },
        20000));

    for (const Def& d : defs) {
        const auto& got = loop.Got[d.Label];
        ASSERT_EQ(got.size(), Due(d, 4000)) << "label " << unsigned(d.Label);
        for (size_t k = 0; k < got.size(); ++k) {
            const auto want = Gen::ComputeWord(d, k, double(k) / d.Rate);
            ASSERT_EQ(got[k], want) << "label " << unsigned(d.Label) << " word " << k;
            ASSERT_EQ(got[k].Parity, want.Parity);
        }
    }
    EXPECT_EQ(loop.Gen_->GetMissedCount(), 0u);
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(std::tuple(c.A429FifoDropped[ch], c.A429Pushed[ch]), std::tuple(0u, loop.Gen_->GetGeneratedCount()));
}

// Label output beside the generator: its words do not count as generated.
TEST(DataGeneratorAdmission, RunsBesideLabelOutputExcludesTheBuffersAndNeverOverfillsTheFifo)
{
    UnitRig rig(SteppedHalden(), EmulatorOptions(false, true));
    rig.Start();
    auto* lblo = rig.Enable<CKVX_HdwArinc429OutLbloService>(HDW_PORT_ARINC429_TX, 1, HDW_SERVICE_ARINC429_LABEL_OUT);
    GenLoop loop(rig, 1);
    ASSERT_TRUE(lblo && loop.Gen_ && loop.In);
    CKVX_HdwService* s = nullptr;
    EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_TX, 1)->EnableService(HDW_SERVICE_ARINC429_OUT_BUFFER, &s, nullptr), 10u);

    CKVX_HdwArinc429OutLbloService::CLabelCtrl ctrl(0x77, 5);
    ASSERT_EQ(lblo->SetLabelsCtrl(&ctrl, 1), 0u);
    CKVX_HdwArinc429Message w = Word(0x77, 0x1234);
    ASSERT_EQ(lblo->UpdateMessages(&w, 1), 0u);
    Def d(0x20, 100.0);
    d.Pattern = Gen::PatternCounter;
    ASSERT_EQ(loop.Gen_->SetLabels(&d, 1), 0u);
    ASSERT_TRUE(WaitUntil([&] { return loop.Gen_->GetGeneratedCount() == 1; }));
    ASSERT_TRUE(loop.StepTo(500, 10, [](uint64_t t) { return t / 10 + 1; }));
    ASSERT_TRUE(WaitUntil([&] {
        loop.Poll();
        return loop.Got[0x20].size() == 51 && loop.Got[0x77].size() >= 20;
    }));
    for (size_t k = 0; k < 51; ++k)
        EXPECT_EQ(loop.Got[0x20][k].Data, k);
    EXPECT_EQ(loop.Got[0x77].back().Data, 0x1234u);
    // Every generated word confirmed, none of the table's taken for one.
    auto* unitGen = dynamic_cast<CKVX_HdwKvxArinc429TxDataGeneratorService*>(loop.Gen_);
    ASSERT_NE(unitGen, nullptr);
    EXPECT_TRUE(WaitUntil([&] { return unitGen->GetWordsInUnit() == 0; }));
    EXPECT_EQ(rig.Sim.GetCounters().A429Pushed[1], 51u);

    // More than a 12.5 kbit/s bus carries (347 words/s) on transmitter 2: the excess is counted, not lost in the unit.
    auto* gen = rig.OpenWith<CKVX_HdwKvxHaldenDevice::CArinc429TxDataGeneratorService>(
        HDW_PORT_ARINC429_TX, 2, HDW_SERVICE_DATA_GENERATOR); // 12.5 kbit/s
    ASSERT_NE(gen, nullptr);
    const uint64_t start = loop.Clock;
    std::vector<Def> defs;
    for (unsigned i = 0; i < 4; ++i)
        defs.push_back(Def(uint8_t(0x10 + i), 1000.0));
    ASSERT_EQ(gen->SetLabels(defs.data(), unsigned(defs.size())), 0u);
    ASSERT_TRUE(WaitUntil([&] { return gen->GetGeneratedCount() == defs.size(); }));
    // 4000 words a second for 3 s of the clock, in one step.
    loop.Clock = start + 3000;
    EXPECT_TRUE(WaitUntil([&] { return gen->GetGeneratedCount() + gen->GetMissedCount() >= DueAll(defs, 3000); }));
    EXPECT_GT(gen->GetMissedCount(), 0u);
    // The FIFO holds what it can; the rest waits in the generator.
    EXPECT_TRUE(WaitUntil([&] { return gen->GetWordsInUnit() > 400; }));
    EXPECT_LE(gen->GetWordsInUnit(), KvxArinc429TxFifoWords);
    ASSERT_EQ(gen->Disable(), 0u);
    EXPECT_TRUE(WaitUntil([&] { return gen->GetWordsInUnit() == 0; }, 20000));
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(c.A429FifoDropped[2], 0u);
    EXPECT_LE(c.A429FifoPeak[2], KvxArinc429TxFifoWords);
    EXPECT_EQ(c.A429Transmitted[2], c.A429Pushed[2]);
}
