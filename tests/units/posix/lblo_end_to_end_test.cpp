// Label-oriented ARINC 429 services end to end, the unit's label table
// sending each label cyclically in its own time.
#include "UnitRig.h"

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
    // Reads until `label` has come `count` times.
    bool WaitLabel(unsigned label, size_t count)
    {
        return WaitUntil([&] { return TakeAll(In, Got), OfLabel(label).size() >= count; });
    }
    CKVX_HdwArinc429InBufferService* In;
    CKVX_HdwArinc429OutLbloService* Out;
    std::vector<CKVX_HdwArinc429Message> Got;
};

} // namespace

// Two labels come round at their own periods; DisableTx, EnableTx and
// ResetTx switch them. A label on transmitter 1 is the clock that shows none
// came on 0.
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
    for (size_t i = 1; i < a.size(); ++i) {
        EXPECT_EQ(a[i].TimeStamp - a[i - 1].TimeStamp, 10000u) << i; // unit microseconds
        EXPECT_EQ(a[i].Data, 0x111u);
    }
    const auto b = loop.OfLabel(0x32);
    EXPECT_EQ(b[1].TimeStamp - b[0].TimeStamp, 30000u);
    EXPECT_EQ(b[0].Sdi, 2);
    EXPECT_EQ(b[0].Ssm, 1);
    EXPECT_EQ(b[0].Data, 0x222u);

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

// Pellor's label-oriented input (on a channel above 7): the latest word per
// label and SDI, receive counts, and the unit's filter set from what the
// service accepts.
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
    EXPECT_EQ(c.A429FilterDropped[ch], 30u);
    EXPECT_EQ(c.A429Received[ch], 60u);
}
