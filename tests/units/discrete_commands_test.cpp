// The discrete bank records (codes 36-46) byte for byte, written out from
// their tables, and the refusals that attach nothing.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

using namespace unittest;
using Bytes = std::vector<uint8_t>;

namespace {

const Base::CUnitProfile& TravinProfile()
{
    return *CKVX_HdwKvxUnitProfile::Of(5);
}

TEST(DiscreteRecords, EachRecordByteForByte)
{
    TestUnit dev(TravinProfile());
    dev.AddInstance();
    CKVX_HdwDiscreteInPort::CParameters in;
    in.DebounceUs = 1230;
    in.InvertMask = 0x81;
    in.ChangeMask = 0xFFFF00F0; // lines beyond the bank are not sent
    ASSERT_EQ(dev.AttachDiscreteInConfigCommand(0, 2, in, true), 0u);
    CKVX_HdwDiscreteOutPort::CParameters out;
    out.InvertMask = 0x0F;
    out.InitialState = 0xA5;
    ASSERT_EQ(dev.AttachDiscreteOutConfigCommand(0, 3, out, false), 0u);
    ASSERT_EQ(dev.AttachDiscreteOutWriteCommand(0, 1, Base::DiscreteWrite, 0xFF, 0x3C), 0u);
    ASSERT_EQ(dev.AttachDiscreteOutWriteCommand(0, 0, Base::DiscreteToggle, 0x80, 0x11), 0u); // value only for write
    ASSERT_EQ(dev.AttachDiscreteOutPulseCommand(0, 2, 0x02, 10000000), 0u);
    ASSERT_EQ(dev.AttachDiscreteReadCommand(0, 0x09, 0x02), 0u);
    const std::vector<Bytes> want = {
        {0x0F, 0xA6, 0x00, 0x00, 0x01, 0x81, 0x00, 0x00, 0x00, 0xF0, 0x00, 0x00, 0x00, 0x7B, 0x00},
        {0x0D, 0xAB, 0x01, 0x00, 0x00, 0x0F, 0x00, 0x00, 0x00, 0xA5, 0x00, 0x00, 0x00},
        {0x0E, 0xAC, 0x02, 0x00, 0x01, 0x00, 0xFF, 0x00, 0x00, 0x00, 0x3C, 0x00, 0x00, 0x00},
        {0x0E, 0xAC, 0x03, 0x00, 0x00, 0x03, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
        {0x0D, 0xAD, 0x04, 0x00, 0x02, 0x02, 0x00, 0x00, 0x00, 0x80, 0x96, 0x98, 0x00},
        {0x07, 0xAE, 0x05, 0x00, 0x09, 0x02, 0x00},
    };
    EXPECT_EQ(QueuedRecords(dev.Inst()), want);
}

TEST(DiscreteRecords, RefusalsAttachNothing)
{
    TestUnit dev(TravinProfile());
    dev.AddInstance();
    CKVX_HdwDiscreteInPort::CParameters in;
    CKVX_HdwDiscreteOutPort::CParameters out;
    EXPECT_EQ(dev.AttachDiscreteInConfigCommand(0, 4, in, true), 2u); // banks 0..3
    in.DebounceUs = 15;
    EXPECT_EQ(dev.AttachDiscreteInConfigCommand(0, 0, in, true), 2u);
    out.InitialState = 0x100;
    EXPECT_EQ(dev.AttachDiscreteOutConfigCommand(0, 0, out, true), 2u);
    EXPECT_EQ(dev.AttachDiscreteOutWriteCommand(0, 0, 4, 0x01, 0), 2u); // operation 4
    EXPECT_EQ(dev.AttachDiscreteOutWriteCommand(0, 0, Base::DiscreteWrite, 0xFF, 0x100), 2u);
    EXPECT_EQ(dev.AttachDiscreteOutPulseCommand(0, 0, 0x01, 9), 2u);
    EXPECT_EQ(dev.AttachDiscreteReadCommand(0, 0, 0), 2u); // no bank asked
    EXPECT_EQ(dev.AttachDiscreteReadCommand(0, 0x10, 0), 2u); // bank 4
    EXPECT_TRUE(dev.Inst()->CommandList.IsEmpty());
}

// A unit whose row lacks the discrete commands (every other unit) refuses
// them, and the Travin refuses the other units' channel commands.
TEST(DiscreteRecords, OnlyTheUnitsThatHaveThemTakeThem)
{
    Base::CUnitProfile halden = FullProfile();
    halden.DiscreteInBanks = 4; // channels alone do not make the commands
    halden.DiscreteOutBanks = 4;
    TestUnit other(halden);
    other.AddInstance();
    CKVX_HdwDiscreteInPort::CParameters in;
    CKVX_HdwDiscreteOutPort::CParameters out;
    EXPECT_EQ(other.AttachDiscreteInConfigCommand(0, 0, in, true), 2u);
    EXPECT_EQ(other.AttachDiscreteOutConfigCommand(0, 0, out, true), 2u);
    EXPECT_EQ(other.AttachDiscreteReadCommand(0, 1, 0), 2u);
    EXPECT_TRUE(other.Inst()->CommandList.IsEmpty());

    TestUnit travin(TravinProfile());
    travin.AddInstance();
    EXPECT_EQ(travin.AttachCanConfigCommand(0, 0), 2u);
    EXPECT_TRUE(travin.Inst()->CommandList.IsEmpty());
}

} // namespace
