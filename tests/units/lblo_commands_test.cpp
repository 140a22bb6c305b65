// The label-control record (code 16) of the label-oriented ARINC 429 output,
// byte for byte (the label-data and label-reset records are in
// commands_test), and the label control's control word.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

using namespace unittest;
using Bytes = std::vector<uint8_t>;
using CLabelCtrl = CKVX_HdwArinc429OutLbloService::CLabelCtrl;

namespace {

class LabelCommands : public ::testing::Test {
protected:
    void SetUp() override { dev.AddInstance(); }
    std::vector<Bytes> records() { return QueuedRecords(dev.Inst()); }

    TestUnit dev;
};

CLabelCtrl Ctrl(unsigned char label, unsigned short period, unsigned char enabled, unsigned char once,
    unsigned short offset, unsigned short repeat)
{
    CLabelCtrl c(label, period);
    c.Enabled = enabled;
    c.TransmitOnce = once;
    c.Offset = offset;
    c.RepeatCount = repeat;
    return c;
}

} // namespace

TEST_F(LabelCommands, ControlRecordIs14BytesWithPeriodMinusOneAndFlags)
{
    ASSERT_EQ(dev.AttachAtxCtxCtrlCommand(0, 3, Ctrl(0x31, 100, 1, 0, 0x0102, 0x0304)), 0u);
    ASSERT_EQ(dev.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0xFE, 1024, 0, 1, 0, 0)), 0u);
    ASSERT_EQ(dev.AttachAtxCtxCtrlCommand(0, 1, Ctrl(0x00, 1, 1, 1, 0xFFFF, 0xFFFF)), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(r[0], (Bytes{0x0E, 0x90, 0x00, 0x00, 0x03, 0x31, 0x63, 0x04, 0x00, 0x00, 0x02, 0x01, 0x04, 0x03}));
    EXPECT_EQ(r[1], (Bytes{0x0E, 0x90, 0x01, 0x00, 0x00, 0xFE, 0xFF, 0x0B, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(r[2], (Bytes{0x0E, 0x90, 0x02, 0x00, 0x01, 0x00, 0x00, 0x0C, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST_F(LabelCommands, ControlOutsideTheUnitsRangeAttachesNothing)
{
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0x10, 0, 1, 0, 0, 0)), 2u);
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0x10, 1025, 1, 0, 0, 0)), 2u);
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(0, 4, Ctrl(0x10, 10, 1, 0, 0, 0)), 2u); // 4 transmitters: 0..3
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(7, 0, Ctrl(0x10, 10, 1, 0, 0, 0)), 2u); // no such instance
    EXPECT_TRUE(records().empty());
}

TEST(LabelCommandProfile, AUnitWithoutLabelControlRefusesIt)
{
    Base::CUnitProfile p = FullProfile();
    p.Commands &= ~uint32_t(Base::CmdAtxCtxCtrl);
    TestUnit dev(p);
    dev.AddInstance();
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0x10, 10, 1, 0, 0, 0)), 2u);
    EXPECT_TRUE(dev.Inst()->CommandList.IsEmpty());
}

TEST(LabelControlWord, RoundTripsPeriodAndFlagsAndKeepsHighBitsClear)
{
    for (unsigned period : {1u, 2u, 500u, 1023u, 1024u}) {
        for (unsigned flags = 0; flags < 4; ++flags) {
            const CLabelCtrl c = Ctrl(0x20, static_cast<unsigned short>(period), flags & 1, (flags >> 1) & 1, 7, 9);
            const uint32_t w = c.GetControlWord();
            EXPECT_EQ(w & 0x3FFu, period - 1);
            EXPECT_EQ(w >> 12, 0u);
            CLabelCtrl back;
            back.SetFromControlWord(w);
            EXPECT_EQ(back.Period, period);
            EXPECT_EQ(back.Enabled, flags & 1);
            EXPECT_EQ(back.TransmitOnce, (flags >> 1) & 1);
        }
    }
    EXPECT_FALSE(CLabelCtrl(0, 0).IsValid());
    EXPECT_FALSE(CLabelCtrl(0, 1025).IsValid());
}
