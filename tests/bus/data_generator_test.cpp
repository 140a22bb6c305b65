// The ARINC 429 data generator's engine, its clock stepped by the tests.

#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <tuple>
#include <vector>

namespace {

using Gen = CKVX_HdwDataGeneratorService;
using Def = Gen::CLabelDef;

constexpr uint64_t kSecond = 1000000;

class Generator : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(gen.Start(), 0u); }
    std::vector<CKVX_HdwArinc429Message> At(uint64_t nowUs)
    {
        gen.Generate(nowUs);
        std::vector<CKVX_HdwArinc429Message> words(Gen::BacklogWords);
        words.resize(gen.TakeWords(words.data(), unsigned(words.size())));
        return words;
    }
    std::vector<CKVX_HdwArinc429Message> Run(uint64_t fromUs, uint64_t toUs, uint64_t stepUs)
    {
        std::vector<CKVX_HdwArinc429Message> all;
        for (uint64_t t = fromUs; t <= toUs; t += stepUs) {
            const auto w = At(t);
            all.insert(all.end(), w.begin(), w.end());
        }
        return all;
    }
    static std::vector<uint32_t> Data(const std::vector<CKVX_HdwArinc429Message>& words, unsigned label)
    {
        std::vector<uint32_t> d;
        for (const auto& w : words)
            if (w.Label == label)
                d.push_back(w.Data);
        return d;
    }

    Gen gen{nullptr};
};

Def Constant(unsigned char label, double rate, uint32_t data)
{
    Def d(label, rate);
    d.Data = data;
    return d;
}

Def Bnr(unsigned char label, double range, double res, double low, double high, unsigned char wave, double period)
{
    Def d(label, 10.0);
    std::tie(d.Pattern, d.Range, d.Resolution, d.Low, d.High, d.Wave, d.Period) =
        std::tuple(Gen::PatternBnr, range, res, low, high, wave, period);
    return d;
}

} // namespace

TEST_F(Generator, WordsOfSeveralLabelsComeInTheOrderOfTheirNominalTimes)
{
    Def defs[2] = {Constant(0x20, 4.0, 1), Constant(0x10, 10.0, 2)};
    ASSERT_EQ(gen.SetLabels(defs, 2), 0u);
    // Both at 0 s (the lower label first), then one late tick after 1 s:
    // 0.1, 0.2, 0.25 (the 4 Hz label), 0.3, 0.4, 0.5 (both) ...
    std::vector<unsigned> labels;
    for (const auto& m : Run(0, kSecond, kSecond))
        labels.push_back(m.Label);
    const std::vector<unsigned> expected = {
        0x10, 0x20, 0x10, 0x10, 0x20, 0x10, 0x10, 0x10, 0x20, 0x10, 0x10, 0x20, 0x10, 0x10, 0x10, 0x20};
    EXPECT_EQ(labels, expected);
}

TEST_F(Generator, AFullBacklogSkipsTransmissionsAndCountsThem)
{
    Def d = Constant(0x44, 1000.0, 7);
    ASSERT_EQ(gen.SetLabels(&d, 1), 0u);
    gen.Generate(0);
    gen.Generate(kSecond); // 1001 due, 512 fit
    EXPECT_EQ(gen.GetPendingCount(), Gen::BacklogWords);
    EXPECT_EQ(gen.GetGeneratedCount(), 512u);
    EXPECT_EQ(gen.GetMissedCount(), 1001u - 512u);
    // Nothing skipped is made up later: the next transmission is at 1.001 s.
    CKVX_HdwArinc429Message words[Gen::BacklogWords];
    EXPECT_EQ(gen.TakeWords(words, Gen::BacklogWords), Gen::BacklogWords);
    gen.Generate(kSecond + 999);
    EXPECT_EQ(gen.GetPendingCount(), 0u);
    gen.Generate(kSecond + 1000);
    EXPECT_EQ(gen.GetPendingCount(), 1u);
}

TEST_F(Generator, ARedefinitionShowsAtTheNextTransmissionAndADisabledLabelStaysDefined)
{
    Def d = Constant(0x31, 10.0, 0x111);
    ASSERT_EQ(gen.SetLabels(&d, 1), 0u);
    ASSERT_EQ(At(0).size(), 1u);
    d.Data = 0x222;
    d.Rate = 2.0; // from the transmission due at 0.1 s on, one every 0.5 s
    ASSERT_EQ(gen.SetLabels(&d, 1), 0u);
    EXPECT_EQ(At(99999).size(), 0u);
    EXPECT_EQ(Data(At(100000), 0x31), (std::vector<uint32_t>{0x222}));
    EXPECT_EQ(At(599999).size(), 0u);
    EXPECT_EQ(At(600000).size(), 1u);
    d.Enabled = 0;
    ASSERT_EQ(gen.SetLabels(&d, 1), 0u);
    EXPECT_TRUE(Run(610000, 2 * kSecond, 10000).empty());
    Def got;
    ASSERT_EQ(gen.GetLabel(0x31, got), 0u);
    EXPECT_EQ(got.Enabled, 0);
    EXPECT_EQ(gen.GetDefinedLabelsCount(), 1u);
    d.Enabled = 1;
    ASSERT_EQ(gen.SetLabels(&d, 1), 0u);
    EXPECT_EQ(At(2 * kSecond + 105000).size(), 1u);
}

TEST_F(Generator, DisablePausesAndDropsTheBacklogEnableResumesWithoutCatchingUpResetForgetsTheLabels)
{
    Def defs[2] = {Def(0x60, 10.0), Constant(2, 100.0, 2)};
    defs[0].Pattern = Gen::PatternCounter;
    ASSERT_EQ(gen.SetLabels(defs, 2), 0u);
    EXPECT_EQ(Data(Run(0, 250000, 1000), 0x60), (std::vector<uint32_t>{0, 1, 2}));
    ASSERT_EQ(gen.Disable(), 0u);
    EXPECT_FALSE(gen.IsEnabled());
    EXPECT_TRUE(Run(251000, 5 * kSecond, 1000).empty());
    ASSERT_EQ(gen.Enable(), 0u);
    // At once on the next tick, the counter where it stopped, then every 0.1 s.
    EXPECT_EQ(Data(At(5 * kSecond + 1000), 0x60), (std::vector<uint32_t>{3}));
    EXPECT_TRUE(Data(At(5 * kSecond + 100999), 0x60).empty());
    EXPECT_EQ(Data(At(5 * kSecond + 101000), 0x60), (std::vector<uint32_t>{4}));

    // Words waiting in the backlog are dropped, and only what left it counts.
    const uint64_t generated = gen.GetGeneratedCount();
    gen.Generate(5 * kSecond + 151000); // label 2: 5 words since the last tick
    ASSERT_EQ(gen.GetPendingCount(), 5u);
    CKVX_HdwArinc429Message w[2];
    ASSERT_EQ(gen.TakeWords(w, 2), 2u);
    ASSERT_EQ(gen.Disable(), 0u);
    EXPECT_EQ(gen.GetPendingCount(), 0u);
    EXPECT_EQ(gen.GetGeneratedCount(), generated + 2);
    ASSERT_EQ(gen.Enable(), 0u);
    ASSERT_EQ(gen.Reset(), 0u);
    EXPECT_EQ(gen.GetDefinedLabelsCount(), 0u);
    Def got;
    EXPECT_EQ(gen.GetLabel(2, got), 4u);
    EXPECT_TRUE(At(10 * kSecond).empty());
    EXPECT_TRUE(gen.IsEnabled()); // Reset leaves the switch as it was
}

TEST_F(Generator, CounterWrapsWithinItsLimitsAndDiscreteBitsToggleEveryPeriod)
{
    Def defs[2] = {Def(0x22, 100.0), Def(0x23, 10.0)};
    std::tie(defs[0].Pattern, defs[0].Min, defs[0].Max, defs[0].Step) = std::tuple(Gen::PatternCounter, 10u, 13u, 3u);
    std::tie(defs[1].Pattern, defs[1].Data, defs[1].Mask, defs[1].Period) =
        std::tuple(Gen::PatternDiscrete, 0x100u, 0x3u, 0.5);
    ASSERT_EQ(gen.SetLabels(defs, 2), 0u);
    const auto words = Run(0, 1400000, 70000); // 7 counter words a tick
    const auto counter = Data(words, 0x22);
    ASSERT_EQ(counter.size(), 141u);
    EXPECT_EQ(std::vector<uint32_t>(counter.begin(), counter.begin() + 7),
        (std::vector<uint32_t>{10, 13, 12, 11, 10, 13, 12}));
    const auto discrete = Data(words, 0x23);
    ASSERT_EQ(discrete.size(), 15u);
    for (unsigned i = 0; i < discrete.size(); ++i)
        EXPECT_EQ(discrete[i], (i / 5) % 2 ? 0x103u : 0x100u) << i;
}

TEST(GeneratorState, OperationsAnswer29UntilStartedAndEnableOnStartZeroWaitsForEnable)
{
    Gen gen(nullptr);
    Def d = Constant(1, 10.0, 1);
    EXPECT_EQ(gen.SetLabels(&d, 1), 29u);
    EXPECT_EQ(gen.Enable(), 29u);

    Gen::CParameters p;
    p.EnableOnStart = 0;
    ASSERT_EQ(gen.SetParameters(&p), 0u);
    ASSERT_EQ(gen.Start(), 0u);
    ASSERT_EQ(gen.SetLabels(&d, 1), 0u);
    gen.Generate(kSecond);
    EXPECT_EQ(gen.GetPendingCount(), 0u);
    ASSERT_EQ(gen.Enable(), 0u);
    gen.Generate(kSecond);
    EXPECT_EQ(gen.GetPendingCount(), 1u);
    ASSERT_EQ(gen.Stop(), 0u);
    EXPECT_EQ(gen.GetDefinedLabelsCount(), 0u);
    EXPECT_EQ(gen.SetLabels(&d, 1), 29u);
}

TEST_F(Generator, AnInvalidDefinitionAnswers2AndChangesNothing)
{
    Def good = Constant(0x31, 10.0, 0x111);
    ASSERT_EQ(gen.SetLabels(&good, 1), 0u);

    std::vector<std::pair<const char*, Def>> bad;
    auto add = [&](const char* why, auto change) {
        Def d = Constant(0x31, 20.0, 0x222);
        change(d);
        bad.emplace_back(why, d);
    };
    add("rate above 1000", [](Def& d) { d.Rate = 1000.5; });
    add("rate NaN", [](Def& d) { d.Rate = std::nan(""); });
    add("SSM 4", [](Def& d) { d.Ssm = 4; });
    add("constant above 19 bits", [](Def& d) { d.Data = 0x80000; });
    add("counter step above the span",
        [](Def& d) { std::tie(d.Pattern, d.Min, d.Max, d.Step) = std::tuple(Gen::PatternCounter, 0u, 9u, 11u); });
    add("random min above max",
        [](Def& d) { std::tie(d.Pattern, d.Min, d.Max) = std::tuple(Gen::PatternRandom, 9u, 3u); });
    add("discrete period 0", [](Def& d) { std::tie(d.Pattern, d.Period) = std::tuple(Gen::PatternDiscrete, 0.0); });
    add("BNR more than 18 bits", [](Def& d) { d = Bnr(0x31, 1 << 20, 1, 0, 10, Gen::WaveSine, 1); });
    add("BNR high at the range", [](Def& d) { d = Bnr(0x31, 512, 0.25, 0, 512, Gen::WaveSine, 1); });
    add("BCD value beyond its 4 digits", [](Def& d) {
        d = Bnr(0x31, 512, 0.1, 0, 800.0, Gen::WaveSine, 1);
        std::tie(d.Pattern, d.Digits) = std::tuple(Gen::PatternBcd, 4); // 799.9 at most
    });
    for (const auto& [why, d] : bad) {
        EXPECT_FALSE(d.IsValid()) << why;
        // With a valid definition of another label before it: neither is taken.
        Def pair[2] = {Constant(0x40, 5.0, 1), d};
        EXPECT_EQ(gen.SetLabels(pair, 2), 2u) << why;
        EXPECT_EQ(gen.GetDefinedLabelsCount(), 1u) << why;
        Def kept;
        ASSERT_EQ(gen.GetLabel(0x31, kept), 0u);
        EXPECT_EQ(kept.Data, 0x111u) << why;
        EXPECT_EQ(kept.Rate, 10.0) << why;
    }
    EXPECT_EQ(gen.SetLabels(nullptr, 1), 2u);
    EXPECT_EQ(gen.SetLabels(nullptr, 0), 0u);
}

TEST(GeneratorValues, BnrIsTwosComplementBelowTheSignBitAndBcdDigitsHaveAThreeBitFirstDigit)
{
    // Value, resolution, bits, data: rounded to the nearest step and clamped.
    const std::tuple<double, double, unsigned, uint32_t> bnr[] = {{1.0, 0.25, 11, 4u << 7},
        {511.75, 0.25, 11, 0x7FFu << 7}, {-0.25, 0.25, 11, 0xFFFu << 7}, {-512.0, 0.25, 11, 0x800u << 7},
        {0.1, 0.25, 11, 0}, {0.13, 0.25, 11, 1u << 7}, {9999.0, 0.25, 11, 0x7FFu << 7}, {-1.0, 1.0, 18, 0x7FFFF},
        {1.0, 1.0, 18, 1}};
    for (auto [value, resolution, bits, data] : bnr)
        EXPECT_EQ(Gen::EncodeBnr(value, resolution, bits), data) << value << " in " << bits << " bits";
    // Value, resolution, digits, data: left-aligned, the sign in the SSM, clamped.
    const std::tuple<double, double, unsigned, uint32_t> bcd[] = {{123.4, 0.1, 5, 0x01234}, {79999, 1.0, 5, 0x79999},
        {-123.4, 0.1, 5, 0x01234}, {359.9, 0.1, 4, 0x35990}, {7, 1.0, 1, 0x70000}, {99999, 1.0, 5, 0x79999}};
    for (auto [value, resolution, digits, data] : bcd)
        EXPECT_EQ(Gen::EncodeBcd(value, resolution, digits), data) << value << " in " << digits << " digits";
}

TEST(GeneratorValues, BnrWavesAtTheirQuarterPointsBcdSignInTheSsmAndOddParityUnlessEvenIsAsked)
{
    // -100 .. 100 over 4 s, 1/128 steps (range 256, 15 bits).
    const std::tuple<unsigned char, double, double> points[] = {{Gen::WaveSine, 0.0, 0}, {Gen::WaveSine, 1.0, 100},
        {Gen::WaveSine, 3.0, -100}, {Gen::WaveSine, 0.5, 100 * std::sqrt(0.5)}, {Gen::WaveTriangle, 0.0, -100},
        {Gen::WaveTriangle, 1.0, 0}, {Gen::WaveTriangle, 2.0, 100}, {Gen::WaveTriangle, 3.0, 0},
        {Gen::WaveTriangle, 4.0, -100}, {Gen::WaveRamp, 1.0, -50}, {Gen::WaveRamp, 3.0, 50},
        {Gen::WaveRamp, 4.0, -100}};
    for (auto [wave, s, value] : points) {
        const Def d = Bnr(0x11, 256, 1.0 / 128, -100, 100, wave, 4.0);
        EXPECT_TRUE(d.IsValid());
        EXPECT_EQ(Gen::ComputeWord(d, 0, s).Data, Gen::EncodeBnr(value, 1.0 / 128, 15)) << int(wave) << " at " << s;
    }
    Def bcd = Bnr(0x24, 1, 0.1, -50, 50, Gen::WaveSine, 4.0);
    std::tie(bcd.Pattern, bcd.Ssm) = std::tuple(Gen::PatternBcd, 0);
    ASSERT_TRUE(bcd.IsValid());
    // Seconds, data, SSM: zero is plus.
    for (auto [s, data, ssm] : {std::tuple(1.0, 0x500u, 0), std::tuple(3.0, 0x500u, 3), std::tuple(0.0, 0u, 0)}) {
        const auto w = Gen::ComputeWord(bcd, 0, s);
        EXPECT_EQ(std::tuple(w.Data, int(w.Ssm)), std::tuple(data, ssm)) << s;
    }
    const Def d = Constant(0x01, 10.0, 0x3);
    EXPECT_EQ(__builtin_popcount(Gen::ComputeWord(d, 0, 0).GetToUint32()) % 2, 1);
    EXPECT_EQ(__builtin_popcount(Gen::ComputeWord(d, 0, 0, true).GetToUint32()) % 2, 0);
}

// Repeatable across generators, not just across calls: a second generator with the same definition sends the same
// values, while another seed or another label gives other ones.
TEST(GeneratorValues, RandomStaysInRangeIsRepeatableAndCoversIt)
{
    // The data of 400 transmissions (40 s at 10 Hz) of a fresh generator.
    const auto run = [](const Def& d) {
        Gen gen(nullptr);
        EXPECT_EQ(gen.Start(), 0u);
        EXPECT_EQ(gen.SetLabels(&d, 1), 0u);
        std::vector<uint32_t> data;
        CKVX_HdwArinc429Message words[Gen::BacklogWords];
        for (uint64_t t = 0; data.size() < 400 && t <= 50 * kSecond; t += kSecond / 10) {
            gen.Generate(t);
            const unsigned n = gen.TakeWords(words, Gen::BacklogWords);
            for (unsigned k = 0; k < n; ++k)
                data.push_back(words[k].Data);
        }
        EXPECT_EQ(data.size(), 400u);
        return data;
    };
    Def d(0x25, 10.0);
    std::tie(d.Pattern, d.Min, d.Max, d.Seed) = std::tuple(Gen::PatternRandom, 100u, 107u, 42u);
    const std::vector<uint32_t> first = run(d);
    std::set<uint32_t> seen(first.begin(), first.end());
    EXPECT_EQ(seen, (std::set<uint32_t>{100, 101, 102, 103, 104, 105, 106, 107}));
    EXPECT_EQ(run(d), first);
    Def otherSeed = d;
    otherSeed.Seed = 43;
    EXPECT_NE(run(otherSeed), first);
    Def otherLabel = d;
    otherLabel.Label = 0x26;
    EXPECT_NE(run(otherLabel), first);
    EXPECT_EQ(Gen::RandomValue(7, 1, 0, 5, 5), 5u);
}
