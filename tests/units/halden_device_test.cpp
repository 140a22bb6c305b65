// The Halden driver without a unit: the reset of its instance and the unit
// number in its hardware identifier. Its channel map, port classes and
// command set show end to end (posix/units_end_to_end_test).
#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(HaldenDevice, ResetTurnsEveryChannelOff)
{
    CKVX_HdwKvxHaldenDevice d;
    std::unique_ptr<CKVX_HdwKvxHaldenDevice::CDeviceInstance> inst(d.CreateDeviceInstance());
    inst->AtxCtrl[2].Enabled = 1;
    inst->CanCtrl[1].Enabled = 1;
    inst->CanCtrl[1].FaultState = 0;
    inst->UartCtrl[0].ChunkCounter = 9;
    inst->RxState = CKVX_HdwKvxUnitEngine::ERxState::RecordBody;
    inst->CommandList += CKVX_HdwKvxHaldenDevice::CCommand();
    inst->Reset();
    EXPECT_EQ(inst->AtxCtrl[2].Enabled, 0u);
    EXPECT_EQ(inst->CanCtrl[1].Enabled, 0u);
    EXPECT_EQ(inst->CanCtrl[1].FaultState, 3u);
    EXPECT_EQ(inst->UartCtrl[0].ChunkCounter, 0u);
    EXPECT_EQ(inst->RxState, CKVX_HdwKvxUnitEngine::ERxState::Hunting);
    EXPECT_TRUE(inst->CommandList.IsEmpty());
}

TEST(HaldenDevice, HardwareIdGivesTheUnitNumber)
{
    CKVX_HdwKvxHaldenDevice d;
    auto ids = [](std::initializer_list<const char*> texts) {
        CKVX_List<CKVX_String> l;
        for (const char* t : texts)
            l += CKVX_String(t);
        return l;
    };
    EXPECT_EQ(d.ProcessHardwareID(ids({"USB", "  halden unit 07  "})), 7u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"x", "HDW42"})), 42u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"x", "unit 4a"})), 0u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"x", "5"})), 0u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"HDW42"})), 0u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"a", "HDW42", "c"})), 0u);
}

} // namespace
