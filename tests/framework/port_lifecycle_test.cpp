#include "TestDevice.h"

using namespace fwtest;

namespace {

class PortLifecycle : public RunningDevice {};

TEST_F(PortLifecycle, OpenAndCloseTakeTheirStepsInOrderAndWrongStatesChangeNothing)
{
    EXPECT_EQ(port->Open(nullptr), 15u) << "no service";
    EXPECT_TRUE(device.log.Take().empty()) << "the device must not be touched";
    TestService* s0 = Enable(port);
    TestService* s1 = Enable(port);
    CKVX_HdwPort::CParameters params;
    params.PortNum = 17;
    ASSERT_EQ(port->Open(&params), 0u);
    EXPECT_TRUE(port->IsOpen());
    EXPECT_EQ(port->GetPortNum(), 17u);
    // Link, channel, then the services, before the port counts as open.
    const std::vector<std::string> opened = {
        "dev.Open(0)", "inst0.OpenPort:0", "port00.svc0.Start(port closed)", "port00.svc1.Start(port closed)"};
    EXPECT_EQ(device.log.Take(), opened);
    // Attached to the tick only after it counts as open.
    EXPECT_EQ(device.GetDeviceInstance(0)->GetPortList().GetLength(), 1u);
    EXPECT_EQ(s0->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    EXPECT_EQ(port->Open(nullptr), 18u);
    CKVX_HdwService::CParameters sp;
    EXPECT_EQ(s0->SetParameters(&sp), 10u);
    EXPECT_EQ(port->DisableService(s0), 1u);
    EXPECT_EQ(port->DisableAllServices(), 0u);
    EXPECT_EQ(port->GetServiceCount(), 2u) << "DisableAllServices leaves an open port alone";

    EXPECT_EQ(port->Close(), 0u);
    EXPECT_FALSE(port->IsOpen());
    const std::vector<std::string> closed = {
        "inst0.ClosePort:0", "port00.svc0.Stop", "port00.svc1.Stop", "dev.Close(0)"};
    EXPECT_EQ(device.log.Take(), closed);
    EXPECT_EQ(port->GetServiceCount(), 2u) << "services stay enabled";
    EXPECT_FALSE(device.GetDeviceInstance(0)->IsOpen());
    EXPECT_EQ(device.GetDeviceInstance(0)->GetPortList().GetLength(), 0u);
    EXPECT_EQ(port->Close(), 0u) << "closing a closed port is a no-op";
    EXPECT_EQ(s0->SetParameters(&sp), 0u);
    EXPECT_EQ(port->DisableService(s0), 0u);
    EXPECT_EQ(port->GetServiceCount(), 1u);
    EXPECT_EQ(port->DisableService(nullptr), 0u) << "an unknown service is not an error";
    // A later Open starts them again.
    EXPECT_EQ(port->Open(nullptr), 0u);
    EXPECT_EQ(s1->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
}

TEST_F(PortLifecycle, FailuresWhileOpeningAreReportedAndLeaveThePortClosed)
{
    Enable(port);
    device.OpenResult = 5;
    EXPECT_EQ(port->Open(nullptr), 14u) << "the unit link did not open";
    device.OpenResult = 0;
    auto* instance = static_cast<TestInstance*>(device.GetDeviceInstance(0));
    instance->OpenPortResult = 2;
    EXPECT_EQ(port->Open(nullptr), 2u) << "OnOpening's own code comes back";
    EXPECT_FALSE(port->IsOpen());
    EXPECT_EQ(port->GetServiceCount(), 1u) << "a channel refusal keeps the services";

    instance->OpenPortResult = 0;
    Enable(port)->StartResult = 3;
    device.log.Take();
    EXPECT_EQ(port->Open(nullptr), 15u);
    EXPECT_FALSE(port->IsOpen());
    EXPECT_EQ(port->GetServiceCount(), 0u);
    EXPECT_TRUE(instance->IsOpen());
    EXPECT_EQ(instance->GetPortList().GetLength(), 0u) << "not attached to the tick";
    const auto log = device.log.Take();
    EXPECT_NE(std::find(log.begin(), log.end(), "port00.svc0.deleted"), log.end());
    EXPECT_NE(std::find(log.begin(), log.end(), "port00.svc1.deleted"), log.end());
}

TEST_F(PortLifecycle, UnitLinkClosesWithItsLastPortAStoppedManagerRefusesChangesAndStopClosesOpenPorts)
{
    TestPort* other = device.Port(0, 1);
    TestService* idle = Enable(other);
    Enable(port);
    ASSERT_EQ(port->Open(nullptr), 0u);
    ASSERT_EQ(other->Open(nullptr), 0u);
    EXPECT_FALSE(device.CanClose(0));
    ASSERT_EQ(other->Close(), 0u);
    EXPECT_TRUE(device.GetDeviceInstance(0)->IsOpen()) << "another port of the unit is still open";

    device.SkipBaseStop = true; // the base Stop would close the port and disable the services itself
    manager.Stop();
    EXPECT_EQ(other->Open(nullptr), 10u);
    EXPECT_EQ(other->DisableService(idle), 10u);
    EXPECT_EQ(other->GetServiceCount(), 1u);
    device.log.Take();
    EXPECT_EQ(port->Close(), 10u);
    EXPECT_TRUE(port->IsOpen());
    EXPECT_EQ(device.log.Take(), std::vector<std::string>{"inst0.ClosePort:0"});
    device.SkipBaseStop = false;
    ASSERT_EQ(manager.Run(), 0u);
    EXPECT_EQ(port->Close(), 0u) << "running again, the close completes";
    ASSERT_EQ(port->Open(nullptr), 0u);

    manager.Stop();
    EXPECT_FALSE(port->IsOpen());
    EXPECT_EQ(port->GetServiceCount(), 1u) << "services of a port open at Stop stay enabled";
    EXPECT_EQ(other->GetServiceCount(), 0u) << "services of a closed port are disabled";
    EXPECT_FALSE(device.GetDeviceInstance(0)->IsOpen());
    EXPECT_TRUE(device.CanClose(0));
}

} // namespace
