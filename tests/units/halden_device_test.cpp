// The Halden driver's identity, channel map and hardware identifier, without a unit.
#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(HaldenDevice, IdentityAndDefaults)
{
    CKVX_HdwKvxHaldenDevice d;
    EXPECT_EQ(d.GetManufacturer(), "Kalvionix Engineering");
    EXPECT_EQ(d.GetUsbDescription(), "Kalvionix Halden Link");
    EXPECT_EQ(d.GetUsbVendorId(), "5A3C");
    EXPECT_EQ(d.GetUsbProductId(), "000A");
    EXPECT_EQ(d.GetHoeUdpPort(), 55003u);
    EXPECT_EQ(d.GetLinkParameters().BaudRate, 6000000u);
    EXPECT_EQ(d.GetLinkParameters().DataBits, 8u);
    EXPECT_EQ(d.GetLinkTimeout(), 500u);
    EXPECT_EQ(d.GetEchoTimeout(), 500u);
    // Device code, model name, channel counts, the Ethernet payload limit and
    // the commands it takes (no keep-alive) show end to end (units_end_to_end_test).
    EXPECT_NE(d.GetUnitProfile().Commands & CKVX_HdwKvxHaldenDevice::Cmd1553Config, 0u);
}

// The port class of each kind shows in the end-to-end tests; here the kinds
// and channels that make no port.
TEST(HaldenDevice, CreatePortMakesNoPortOutsideTheChannelMap)
{
    CKVX_HdwKvxHaldenDevice d;
    std::unique_ptr<CKVX_HdwPort> port(d.CreatePort(5, &d, 0, "1"));
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(d.CreatePort(5, &d, 0, "2"), nullptr); // two channels
    for (unsigned kind : {4u, 6u, 100u})
        EXPECT_EQ(d.CreatePort(kind, &d, 0, "0"), nullptr) << kind;
}

TEST(HaldenDevice, ResetTurnsEveryChannelOff)
{
    CKVX_HdwKvxHaldenDevice d;
    std::unique_ptr<CKVX_HdwKvxHaldenDevice::CDeviceInstance> inst(d.CreateDeviceInstance());
    inst->AtxCtrl[2].Enabled = 1;
    inst->CanCtrl[1].Enabled = 1;
    inst->CanCtrl[1].FaultState = 0;
    inst->UartCtrl[0].ChunkCounter = 9;
    inst->RxState = 6;
    inst->Reset();
    EXPECT_EQ(inst->AtxCtrl[2].Enabled, 0u);
    EXPECT_EQ(inst->CanCtrl[1].Enabled, 0u);
    EXPECT_EQ(inst->CanCtrl[1].FaultState, 3u);
    EXPECT_EQ(inst->UartCtrl[0].ChunkCounter, 0u);
    EXPECT_EQ(inst->RxState, 0u);
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
