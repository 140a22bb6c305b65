// The generic MIL-STD-1553 services: what they check and keep before a unit
// driver sends anything.
// Against the emulated unit: tests/units/posix/mil1553_*.

#include "TestBusDevice.h"

#include <gtest/gtest.h>

using namespace bustest;

namespace {

using Msg = CKVX_HdwMilStd1553Message;

CKVX_HdwMilStd1553BusController Controller()
{
    CKVX_HdwMilStd1553BusController bc;
    Msg m;
    m.TerminalAddress = 2;
    m.Transmit = 1;
    m.Subaddress = 3;
    m.WordCount = 4;
    bc.MajorFrame.Messages = {m};
    bc.MajorFrame.MinorFrames.resize(1);
    bc.MajorFrame.MinorFrames[0].Messages = {0};
    return bc;
}

class MilStd1553Services : public ::testing::Test {
protected:
    CBusRig rig;
};

} // namespace

TEST_F(MilStd1553Services, BusControllerChecksItsInputAndLeavesTheUnitToTheDriver)
{
    auto* bc = Enable<CKVX_HdwMilStd1553BcService>(rig.Mil(), HDW_SERVICE_MIL1553_BC);
    ASSERT_NE(bc, nullptr);
    Msg one;
    // Not started: the data calls answer 29.
    EXPECT_EQ(bc->SendOneShot(one), 29u);
    CKVX_HdwMilStd1553Buffer buffer;
    unsigned n = 9;
    EXPECT_EQ(bc->Read(buffer, 10, n), 29u);
    EXPECT_EQ(n, 0u);
    ASSERT_EQ(rig.Mil()->Open(nullptr), 0u);

    // The controller's own checks (mil1553_data_test.cpp) decide.
    CKVX_HdwMilStd1553BusController bad = Controller();
    bad.MajorFrame.MinorFrames[0].PeriodUs = 100; // 4 words do not fit 100 µs
    EXPECT_EQ(bc->BuildConfiguration(bad), 2u);
    EXPECT_EQ(bc->BuildConfiguration(Controller()), 0u);

    one.Data = {1}; // BC-to-RT 1 word needs word count 1
    EXPECT_EQ(bc->SendOneShot(one), 2u);
    one.WordCount = 1;
    EXPECT_EQ(bc->SendOneShot(one), 0u);
    // Nothing loaded: no data update, no change of major frame.
    EXPECT_EQ(bc->UpdateData(0, {1}), 10u);
    EXPECT_EQ(bc->ChangeMajorFrame(Controller().MajorFrame), 10u);
    EXPECT_EQ(bc->DestroyConfiguration(), 0u);
}

TEST_F(MilStd1553Services, RemoteTerminalChecksItsInputAndLeavesTheUnitToTheDriver)
{
    auto* rt = Enable<CKVX_HdwMilStd1553SingleRtService>(rig.Mil(), HDW_SERVICE_MIL1553_RT);
    ASSERT_NE(rt, nullptr);
    ASSERT_EQ(rig.Mil()->Open(nullptr), 0u);
    CKVX_HdwMilStd1553RemoteTerminal bad;
    bad.TerminalAddress = 31;
    EXPECT_EQ(rt->BuildBufferInit(bad), 2u);
    EXPECT_EQ(rt->BuildSubaddressConfiguration(bad), 2u);
    EXPECT_EQ(rt->BuildBufferInit(CKVX_HdwMilStd1553RemoteTerminal()), 0u);
    EXPECT_EQ(rt->UpdateTransmitData(0, {1}), 2u); // mode code subaddress
    EXPECT_EQ(rt->UpdateTransmitData(5, std::vector<uint16_t>(33)), 2u);
    EXPECT_EQ(rt->UpdateTransmitData(5, {1, 2}), 0u);
    EXPECT_EQ(rt->SetStatusBits(0x20), 2u);
    EXPECT_EQ(rt->SetStatusBits(CKVX_HdwMilStd1553RemoteTerminal::StatusBusy), 0u);
    Msg m;
    EXPECT_EQ(rt->ReadSubaddress(5, m), 4u); // nothing received yet
    EXPECT_EQ(rt->ReadSubaddress(32, m), 2u);
    EXPECT_EQ(rt->DestroyConfiguration(), 0u);
    ASSERT_EQ(rig.Mil()->Close(), 0u);
    EXPECT_EQ(rt->ReadSubaddress(5, m), 29u);
}
