// The Halden driver's identity, channel map and hardware identifier, without a unit.
#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(HaldenDevice, IdentityAndDefaults)
{
    CKVX_HdwKvxHaldenDevice d;
    EXPECT_EQ(d.GetDeviceCode(), 3u);
    EXPECT_EQ(d.GetManufacturer(), "Kalvionix Engineering");
    EXPECT_EQ(d.GetModelName(), "Halden");
    EXPECT_EQ(d.GetUsbDescription(), "Kalvionix Halden Link");
    EXPECT_EQ(d.GetUsbVendorId(), "5A3C");
    EXPECT_EQ(d.GetUsbProductId(), "000A");
    EXPECT_EQ(d.GetHoeUdpPort(), 55003u);
    EXPECT_EQ(d.GetLinkParameters().BaudRate, 6000000u);
    EXPECT_EQ(d.GetLinkParameters().DataBits, 8u);
    EXPECT_EQ(d.GetLinkTimeout(), 500u);
    EXPECT_EQ(d.GetEchoTimeout(), 500u);
    const auto& profile = d.GetUnitProfile();
    EXPECT_EQ(profile.UartChannels, 2u);
    EXPECT_EQ(profile.AtxChannels, 4u);
    EXPECT_EQ(profile.ArxChannels, 4u);
    EXPECT_EQ(profile.CanChannels, 2u);
    EXPECT_EQ(profile.MilStd1553Channels, 2u);
    EXPECT_EQ(profile.EthernetPayloadLimit, 1345u);
    // Halden takes no keep-alive; it takes every other command.
    EXPECT_EQ(profile.Commands & CKVX_HdwKvxHaldenDevice::CmdKeepAlive, 0u);
    EXPECT_NE(profile.Commands & CKVX_HdwKvxHaldenDevice::CmdCanPush, 0u);
    EXPECT_NE(profile.Commands & CKVX_HdwKvxHaldenDevice::Cmd1553Config, 0u);
}

TEST(HaldenDevice, CreatePortFollowsTheChannelMap)
{
    CKVX_HdwKvxHaldenDevice d;
    struct Case {
        unsigned Kind;
        unsigned PortType;
    } cases[] = {{0, HDW_PORT_UART}, {1, HDW_PORT_ARINC429_TX}, {2, HDW_PORT_ARINC429_RX}, {3, HDW_PORT_CAN},
        {5, HDW_PORT_MILSTD1553}};
    for (const Case& c : cases) {
        std::unique_ptr<CKVX_HdwPort> port(d.CreatePort(c.Kind, &d, 0, "1"));
        ASSERT_NE(port, nullptr) << c.Kind;
        EXPECT_EQ(port->GetPortType(), c.PortType);
        EXPECT_EQ(port->GetChannelId(), "1");
        EXPECT_EQ(port->GetDevice(), &d);
    }
    EXPECT_NE(dynamic_cast<CKVX_HdwKvxHaldenDevice::CCanPort*>(
                  std::unique_ptr<CKVX_HdwPort>(d.CreatePort(3, &d, 0, "0")).get()),
        nullptr);
    EXPECT_NE(dynamic_cast<CKVX_HdwKvxHaldenDevice::CMilStd1553Port*>(
                  std::unique_ptr<CKVX_HdwPort>(d.CreatePort(5, &d, 0, "1")).get()),
        nullptr);
    EXPECT_EQ(d.CreatePort(5, &d, 0, "2"), nullptr); // two channels
    for (unsigned kind : {4u, 6u, 100u})
        EXPECT_EQ(d.CreatePort(kind, &d, 0, "0"), nullptr) << kind;
    std::unique_ptr<CKVX_HdwKvxHaldenDevice::CDeviceInstance> inst(d.CreateDeviceInstance());
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(inst->AtxCtrl.size(), 4u);
    EXPECT_EQ(inst->UartCtrl.size(), 2u);
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
    EXPECT_EQ(inst->AtxCtrl.size(), 4u);
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
