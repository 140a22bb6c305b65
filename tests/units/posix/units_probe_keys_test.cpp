// Telling units with the same USB identity apart, and finding a port again
// by its key after the units came in another order.
#include "UnitRig.h"

using namespace unit_test;

namespace {

// Probes the emulator playing `played` with the driver of `driver`, up to
// `attempts` times (a loaded machine can miss the probe's fixed 200 ms).
unsigned Probe(const char* played, const char* driver, int attempts, hdwsim::Counters* counters = nullptr)
{
    unsigned rc = 99;
    for (int attempt = 0; attempt < attempts && rc != 0; ++attempt) {
        UnitRig rig(UnitNamed(played), false);
        rig.StartSim();
        std::unique_ptr<CKVX_HdwDevice> probe(UnitNamed(driver).Make());
        EXPECT_TRUE(WithCommandDevice(probe.get(), [&](auto& d) { rc = d.CheckUartLink(rig.Sim.PtyPath()); }));
        if (counters) {
            WaitUntil([&] { return rig.Sim.GetCounters().CommandsReceived >= 2; }, 2000);
            *counters = rig.Sim.GetCounters();
        }
    }
    return rc;
}

TEST(UnitKindProbe, EachDriversProbeTakesItsOwnUnitOnlyAndLeavesOthersUntouched)
{
    // Mirrow and Quillan share their USB identity, not their probe answer; a
    // unit with both buses (Halden Small) is neither of the single-bus kinds.
    for (const UnitCase& u : AllUnits())
        EXPECT_EQ(Probe(u.Sim, u.Sim, 5), 0u) << u.Sim;
    // A probe of the wrong kind leaves the unit untouched: only the closing
    // session and a status request reach it, it understands both, opens no
    // session and changes no channel.
    const std::pair<const char*, const char*> strangers[] = {{"quillan", "mirrow"}, {"mirrow", "quillan"},
        {"haldensmall", "mirrow"}, {"haldensmall", "quillan"}, {"mirrow", "haldensmall"}, {"quillan", "haldensmall"}};
    for (const auto& [played, driver] : strangers) {
        SCOPED_TRACE(std::string(played) + " probed by " + driver);
        hdwsim::Counters c;
        EXPECT_NE(Probe(played, driver, 1, &c), 0u);
        EXPECT_EQ(c.CommandsByCode[1], 1u);
        EXPECT_EQ(c.CommandsByCode[2], 1u);
        EXPECT_EQ(c.CommandsReceived, 2u);
        EXPECT_EQ(c.CommandsUnknown, 0u);
        EXPECT_EQ(c.SessionOpens, 0u);
    }
}

TEST(UnitKeys, AStoredKeyFindsTheSamePhysicalPortAfterTheUnitsComeInAnotherOrder)
{
    hdwsim::Emulator first(*hdwsim::FindUnitModel("arvane"), EmulatorOptions(false));
    hdwsim::Emulator second(*hdwsim::FindUnitModel("arvane"), EmulatorOptions(false));
    ASSERT_TRUE(first.Start());
    ASSERT_TRUE(second.Start());

    // First run: first, then second; transmitter 5 of the second unit.
    CKVX_String key;
    {
        CKVX_HdwKvxArvaneDevice device;
        CKVX_HdwManager manager;
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        CKVX_HdwManager::CInitPortDesc links[2] = {{6, first.PtyPath()}, {6, second.PtyPath()}};
        ASSERT_NO_FATAL_FAILURE(EnumerateLinks(manager, links, 2));
        CKVX_HdwManager::CPortInfoVector list;
        ASSERT_EQ(manager.GetPortList(HDW_PORT_ARINC429_TX, list), 0u);
        for (const auto& info : list)
            if (info.AbsNum == 8 + 5)
                key = info.Key;
    }
    ASSERT_FALSE(key.IsEmpty());

    // Second run, the other order: the key finds the second unit's
    // transmitter 5, now absolute number 5.
    UnitRig rig(UnitNamed("arvane"), false);
    ASSERT_EQ(rig.Manager.AttachDevice(rig.Device.get()), 0u);
    CKVX_HdwManager::CInitPortDesc links[2] = {{6, second.PtyPath()}, {6, first.PtyPath()}};
    ASSERT_NO_FATAL_FAILURE(EnumerateLinks(rig.Manager, links, 2));
    unsigned absNum = 99;
    CKVX_HdwPort* port = rig.Manager.FindPort(key, &absNum);
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(absNum, 5u);
    EXPECT_EQ(port, rig.Port(HDW_PORT_ARINC429_TX, 5));
    ASSERT_EQ(rig.Manager.Run(), 0u);
    ASSERT_NO_FATAL_FAILURE(ExpectArinc429RoundTrip(rig, {{5, 10}}, &second));
    EXPECT_EQ(first.GetCounters().A429Transmitted[5], 0u);
}

} // namespace
