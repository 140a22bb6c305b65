// The generic MIL-STD-1553 remote terminal service: what it checks before a
// unit driver sends anything. The bus controller's checks and everything
// against the emulated unit: tests/units/posix/mil1553_*.

#include "TestBusDevice.h"

#include <gtest/gtest.h>

using namespace bustest;

TEST(MilStd1553Services, RemoteTerminalChecksItsInput)
{
    CBusRig rig;
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
    CKVX_HdwMilStd1553Message m;
    EXPECT_EQ(rt->ReadSubaddress(5, m), 4u); // nothing received yet
    EXPECT_EQ(rt->ReadSubaddress(32, m), 2u);
    ASSERT_EQ(rig.Mil()->Close(), 0u);
    EXPECT_EQ(rt->ReadSubaddress(5, m), 29u);
}
