// The generic label-oriented ARINC 429 services.
#include "TestBusDevice.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace bustest;
using CLabelCtrl = CKVX_HdwArinc429OutLbloService::CLabelCtrl;

namespace {

class Lblo : public CArinc429Rig<CTestArinc429InLbloService, CKVX_HdwArinc429OutLbloService> {
protected:
    void SetUp() override
    {
        in = Enable<CTestArinc429InLbloService>(rx, HDW_SERVICE_ARINC429_LABEL_IN);
        out = Enable<CKVX_HdwArinc429OutLbloService>(tx, HDW_SERVICE_ARINC429_LABEL_OUT);
        ASSERT_TRUE(in && out);
    }
    std::vector<CKVX_HdwArinc429Message> Changed()
    {
        std::vector<CKVX_HdwArinc429Message> changed(1024);
        unsigned n = 0;
        EXPECT_EQ(in->ReadChangedLabels(changed.data(), unsigned(changed.size()), n), 0u);
        changed.resize(n);
        return changed;
    }
};

} // namespace

TEST_F(Lblo, ChangedLabelsComeInLabelThenSdiOrderAndAShortArrayLeavesTheRestMarked)
{
    ASSERT_EQ(rx->Open(nullptr), 0u);
    rig.ReceiveWord(Word(0x50, 3, 0, 1), 1);
    rig.ReceiveWord(Word(0x20, 1, 0, 2), 2);
    rig.ReceiveWord(Word(0x50, 0, 0, 3), 3);
    rig.ReceiveWord(Word(0x20, 1, 0, 5), 4);
    auto c = Changed();
    ASSERT_EQ(c.size(), 3u);
    EXPECT_EQ(std::tuple(c[0].Label, c[0].Data, c[1].Label, c[1].Sdi, c[2].Sdi), std::tuple(0x20, 5u, 0x50, 0, 3));

    for (unsigned l = 1; l <= 5; ++l)
        rig.ReceiveWord(Word(l, 0, 0, l), 10 + l);
    CKVX_HdwArinc429Message two[2];
    unsigned n = 0;
    ASSERT_EQ(in->ReadChangedLabels(two, 2, n), 0u);
    ASSERT_EQ(n, 2u);
    EXPECT_EQ(two[1].Label, 2);
    EXPECT_EQ(Changed().size(), 3u);
    EXPECT_EQ(in->ReadChangedLabels(nullptr, 1, n), 2u);
}

TEST_F(Lblo, InputSwitchesResetAndStopWhileTheFilterStays)
{
    in->DiscardAllLabels();
    in->AcceptLabel(0x10, 0x03); // SDI 0 and 1
    ASSERT_EQ(rx->Open(nullptr), 0u);
    CKVX_HdwArinc429Message m;
    unsigned count = 0;
    rig.ReceiveWord(Word(0x10, 0, 0, 1), 1);
    ASSERT_EQ(in->DisableRx(), 0u);
    rig.ReceiveWord(Word(0x10, 0, 0, 2), 2);
    ASSERT_EQ(in->ReadLabel(0x10, 0, m, count), 0u);
    EXPECT_EQ(m.Data, 1u);
    ASSERT_EQ(in->EnableRx(), 0u);
    rig.ReceiveWord(Word(0x10, 0, 0, 3), 3);
    ASSERT_EQ(in->ReadLabel(0x10, 0, m, count), 0u);
    EXPECT_EQ(count, 2u);
    ASSERT_EQ(in->ResetRx(), 0u);
    EXPECT_EQ(in->ReadLabel(0x10, 0, m, count), 4u);
    rig.ReceiveWord(Word(0x10, 1, 0, 4), 4);
    ASSERT_EQ(rx->Close(), 0u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->ReadLabel(0x10, 1, m, count), 4u); // Stop and Start emptied the table
    rig.ReceiveWord(Word(0x10, 2, 0, 5), 5); // the filter still holds: SDI 2 is dropped
    rig.ReceiveWord(Word(0x11, 0, 0, 5), 5);
    rig.ReceiveWord(Word(0x10, 1, 0, 6), 6);
    EXPECT_EQ(Changed().size(), 1u);
    in->AcceptAllLabels();
    rig.ReceiveWord(Word(0x11, 2, 0, 7), 7);
    EXPECT_EQ(Changed().size(), 1u);
    rig.Fail(HDW_PORT_ARINC429_RX, "RX0");
    EXPECT_EQ(in->ReadLabel(0x10, 0, m, count), 15u);
}

TEST_F(Lblo, InputWithoutSdiKeyOneEntryPerLabelTakesEverySdi)
{
    CKVX_HdwArinc429InLbloService::CParameters p;
    p.KeyBySdi = 0;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->SetParameters(&p), 10u); // parameters change only while closed
    rig.ReceiveWord(Word(0x31, 1, 0, 1), 1);
    rig.ReceiveWord(Word(0x31, 3, 0, 2), 2);
    CKVX_HdwArinc429Message m;
    unsigned count = 0;
    ASSERT_EQ(in->ReadLabel(0x31, 2, m, count), 0u);
    EXPECT_EQ(std::tuple(m.Sdi, m.Data, count), std::tuple(3, 2u, 2u));
}

TEST_F(Lblo, OutputABadEntryRefusesTheWholeCallAndStopForgetsTheTable)
{
    CKVX_HdwArinc429OutLbloService::CParameters p;
    p.EnableOnStart = 0;
    ASSERT_EQ(out->SetParameters(&p), 0u);
    ASSERT_EQ(tx->Open(nullptr), 0u);
    EXPECT_FALSE(out->IsTxEnabled());
    ASSERT_EQ(out->EnableTx(), 0u);
    EXPECT_TRUE(out->IsTxEnabled());

    CLabelCtrl ctrls[3] = {CLabelCtrl(0x01, 10), CLabelCtrl(0x02, 0), CLabelCtrl(0x03, 10)};
    EXPECT_EQ(out->SetLabelsCtrl(ctrls, 3), 2u);
    ctrls[1].Period = 1025;
    EXPECT_EQ(out->SetLabelsCtrl(ctrls, 3), 2u);
    EXPECT_EQ(out->GetDefinedLabelsCount(), 0u);
    ctrls[1].Period = 1024;
    ASSERT_EQ(out->SetLabelsCtrl(ctrls, 2), 0u);
    CKVX_HdwArinc429Message words[2] = {Word(0x01, 0, 0, 1), Word(0x03, 0, 0, 3)};
    EXPECT_EQ(out->UpdateMessages(words, 2), 2u); // 0x03 has no control
    CKVX_HdwArinc429Message m;
    EXPECT_EQ(out->GetLabelMessage(0x01, m), 4u); // defined, and the refused call stored no data

    ASSERT_EQ(tx->Close(), 0u);
    ASSERT_EQ(tx->Open(nullptr), 0u);
    EXPECT_EQ(out->GetDefinedLabelsCount(), 0u);
    EXPECT_FALSE(out->IsTxEnabled()) << "EnableOnStart 0 holds for every Start";
    ASSERT_EQ(tx->Close(), 0u);
    EXPECT_EQ(out->ResetTx(), 29u);
}
