// Telling units with the same USB identity apart, Pellor's keep-alive and
// critical failure, and finding a port again by its key after the units
// came in another order.
#include "UnitRig.h"

using namespace unit_test;

namespace {

UnitCase Find(const char* sim)
{
    for (const UnitCase& u : AllUnits())
        if (std::string(u.Sim) == sim)
            return u;
    ADD_FAILURE() << "no unit " << sim;
    return {};
}

// Probes the emulator playing `played` with the driver of `driver`.
unsigned Probe(const char* played, const char* driver, hdwsim::Counters* counters = nullptr)
{
    UnitRig rig(Find(played), false);
    rig.StartSim();
    std::unique_ptr<CKVX_HdwDevice> probe(Find(driver).Make());
    unsigned rc = 99;
    if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>*>(probe.get()))
        rc = d->CheckUartLink(rig.Sim.PtyPath());
    else if (auto* h = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>*>(probe.get()))
        rc = h->CheckUartLink(rig.Sim.PtyPath());
    if (counters)
        *counters = rig.Sim.GetCounters();
    return rc;
}

// True when the driver of `driver` recognises the emulator playing `played`.
// A probe waits only 200 ms for the answer, which a busy machine can take to
// carry it over the pseudo-terminal: the probe is tried again, with a fresh
// unit, until it succeeds or 10 s pass.
bool Recognised(const char* played, const char* driver)
{
    return WaitUntil([&] { return Probe(played, driver) == 0; });
}

TEST(UnitKindProbe, MirrowAndQuillanShareTheirUsbIdentityButNotTheirProbeAnswer)
{
    CKVX_HdwKvxMirrowDevice mirrow;
    CKVX_HdwKvxQuillanDevice quillan;
    EXPECT_EQ(mirrow.GetUsbVendorId(), quillan.GetUsbVendorId());
    EXPECT_EQ(mirrow.GetUsbProductId(), quillan.GetUsbProductId());
    EXPECT_EQ(mirrow.GetUsbDescription(), quillan.GetUsbDescription());

    EXPECT_TRUE(Recognised("mirrow", "mirrow"));
    EXPECT_TRUE(Recognised("quillan", "quillan"));
    EXPECT_NE(Probe("quillan", "mirrow"), 0u);
    EXPECT_NE(Probe("mirrow", "quillan"), 0u);
}

TEST(UnitKindProbe, AUnitWithBothBusesIsNeitherOfTheSingleBusKinds)
{
    EXPECT_TRUE(Recognised("haldensmall", "haldensmall"));
    EXPECT_NE(Probe("haldensmall", "mirrow"), 0u);
    EXPECT_NE(Probe("haldensmall", "quillan"), 0u);
    EXPECT_NE(Probe("mirrow", "haldensmall"), 0u);
    EXPECT_NE(Probe("quillan", "haldensmall"), 0u);
}

TEST(UnitKindProbe, EveryUnitAnswersTheProbeOfItsOwnDriver)
{
    for (const UnitCase& u : AllUnits())
        EXPECT_TRUE(Recognised(u.Sim, u.Sim)) << u.Sim;
}

TEST(UnitKindProbe, AProbeOfTheWrongKindLeavesTheUnitUntouched)
{
    // Only the closing session and a status request reach the unit: it
    // understands both, opens no session and changes no channel.
    // (Counted once the unit has read the probe's frame: a late one is
    // probed again.)
    hdwsim::Counters c;
    ASSERT_TRUE(WaitUntil([&] { return Probe("quillan", "mirrow", &c) != 0 && c.FramesReceived > 0; }));
    EXPECT_EQ(c.CommandsByCode[1], 1u);
    EXPECT_EQ(c.CommandsByCode[2], 1u);
    EXPECT_EQ(c.CommandsReceived, 2u);
    EXPECT_EQ(c.CommandsUnknown, 0u);
    EXPECT_EQ(c.SessionOpens, 0u);
    ASSERT_TRUE(WaitUntil([&] { return Probe("mirrow", "quillan", &c) != 0 && c.FramesReceived > 0; }));
    EXPECT_EQ(c.CommandsReceived, 2u);
    EXPECT_EQ(c.CommandsUnknown, 0u);
    EXPECT_EQ(c.SessionOpens, 0u);
}

TEST(UnitKindProbe, AListedLinkOfTheOtherKindIsNotTakenByEnumeration)
{
    UnitRig rig(Find("quillan"), false);
    rig.StartSim();
    CKVX_HdwKvxMirrowDevice mirrow;
    CKVX_HdwManager manager;
    ASSERT_EQ(manager.AttachDevice(&mirrow), 0u);
    CKVX_HdwManager::CInitPortDesc link(12, rig.Sim.PtyPath());
    manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);
    EXPECT_NE(link.Result, 0u);
    EXPECT_EQ(manager.GetPortCount(HDW_PORT_ARINC429_TX), 0u);
}

// ---- Pellor -------------------------------------------------------------------

TEST(PellorKeepAlive, AnIdleSessionHearsKeepAlivesAndTheWatchdogDoesNotFire)
{
    UnitRig rig(Find("pellor"), false);
    static_cast<CKVX_HdwKvxPellorDevice*>(rig.Device.get())->SetSessionWatchdog(2000);
    rig.Start();
    const auto got = Arinc429RoundTrip(rig, 12, 10);
    ASSERT_EQ(got.size(), 10u);
    // Idle now: at least a keep-alive per 250 ms, so 2.5 s of idling pass
    // without the 2 s watchdog expiring (long enough for a busy machine's
    // late bytes, short enough to expire when the keep-alives stop).
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().KeepAlives >= 10; }));
    EXPECT_EQ(rig.Sim.GetCounters().WatchdogExpiries, 0u);
    EXPECT_EQ(rig.Sim.GetCounters().CommandsUnknown, 0u);

    // A host that stops ticking falls silent: the unit's watchdog stops it.
    rig.Manager.Stop();
    EXPECT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().WatchdogExpiries == 1; }));
}

TEST(PellorKeepAlive, UnitsWithoutOneAreNeverSentOne)
{
    for (const char* sim : {"arvane", "mirrow", "quillan"}) {
        UnitRig rig(Find(sim), false);
        rig.Start();
        auto* device = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>*>(rig.Device.get());
        auto* dual = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>*>(rig.Device.get());
        if (rig.Unit.Atx)
            ASSERT_EQ(Arinc429RoundTrip(rig, 0, 5).size(), 5u);
        else
            ASSERT_EQ(CanRoundTrip(rig, 0, 1, 5).size(), 5u);
        // An observation window of four keep-alive periods, in which a Pellor
        // would have sent at least three.
        const uint64_t start = CKVX_HdwTimer::GetTickCount();
        WaitUntil([&] { return CKVX_HdwTimer::GetElapsedTicks(start) >= 4 * CKVX_HdwKvxPellorDevice::KeepAliveIdleMs; });
        EXPECT_GT(rig.Sim.GetCounters().CommandsReceived, 0u);
        EXPECT_EQ(rig.Sim.GetCounters().CommandsByCode[4], 0u) << sim;
        // And its builder refuses.
        EXPECT_EQ(device ? device->AttachKeepAliveCommand(0) : dual->AttachKeepAliveCommand(0), 2u) << sim;
    }
}

TEST(PellorChannels, TheUpperEightChannelsAreTheirOwnPortsNotAliasesOfTheLowerOnes)
{
    UnitRig rig(Find("pellor"), false);
    rig.Start();
    // Receivers 1 and 9 share a sub-field; only the bank byte tells them apart.
    auto* low = rig.Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, 1, HDW_SERVICE_ARINC429_IN_BUFFER);
    CKVX_HdwArinc429RxPort::CParameters rp;
    rp.BaudRate = 100000;
    ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_RX, 1)->Open(&rp), 0u);
    const auto got = Arinc429RoundTrip(rig, 9, 25);
    ASSERT_EQ(got.size(), 25u);
    EXPECT_EQ(got[24], Word(0x20 + 9, 24 * 16 + 9, 24 & 3));
    unsigned n = 99;
    CKVX_HdwArinc429Message m;
    EXPECT_NE(low->Read(&m, 1, n) == 0 && n > 0, true) << "receiver 1 saw a word of receiver 9";
    EXPECT_EQ(rig.Sim.GetCounters().A429Received[9], 25u);
    EXPECT_EQ(rig.Sim.GetCounters().A429Received[1], 0u);
}

TEST(PellorChannels, ACriticalFailureFromTheUnitFailsItsRunningServices)
{
    UnitRig rig(Find("pellor"), false);
    rig.Start();
    ASSERT_EQ(Arinc429RoundTrip(rig, 3, 5).size(), 5u);
    CKVX_HdwService* out = rig.Port(HDW_PORT_ARINC429_TX, 3)->FindService(HDW_SERVICE_ARINC429_OUT_BUFFER);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    ASSERT_TRUE(rig.Sim.InjectCriticalFailure(2));
    EXPECT_TRUE(WaitUntil([&] { return out->GetStatus() == unsigned(HDW_SERVICE_FAILED); }));
}

// ---- keys -----------------------------------------------------------------------

TEST(UnitKeys, AStoredKeyFindsTheSamePhysicalPortAfterTheUnitsComeInAnotherOrder)
{
    UnitCase arvane = Find("arvane");
    hdwsim::Emulator first(*hdwsim::FindUnitModel("arvane"), SimOptions(false));
    hdwsim::Emulator second(*hdwsim::FindUnitModel("arvane"), SimOptions(false));
    ASSERT_TRUE(first.Start());
    ASSERT_TRUE(second.Start());

    // First run: first, then second; transmitter 5 of the second unit.
    CKVX_String key;
    {
        CKVX_HdwKvxArvaneDevice device;
        CKVX_HdwManager manager;
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        CKVX_HdwManager::CInitPortDesc links[2] = {{6, first.PtyPath()}, {6, second.PtyPath()}};
        ASSERT_EQ(manager.Enumerate(links, 2, CKVX_HdwManager::EnumerateNoScan), 0u);
        CKVX_HdwManager::CPortInfoVector list;
        ASSERT_EQ(manager.GetPortList(HDW_PORT_ARINC429_TX, list), 0u);
        for (const auto& info : list)
            if (info.AbsNum == 8 + 5)
                key = info.Key;
    }
    ASSERT_FALSE(key.IsEmpty());

    // Second run: the other order. The key names the second unit's
    // transmitter 5, now absolute number 5, and words sent through it come
    // out of the second emulator.
    UnitRig rig(arvane, false);
    ASSERT_EQ(rig.Manager.AttachDevice(rig.Device.get()), 0u);
    CKVX_HdwManager::CInitPortDesc links[2] = {{6, second.PtyPath()}, {6, first.PtyPath()}};
    ASSERT_EQ(rig.Manager.Enumerate(links, 2, CKVX_HdwManager::EnumerateNoScan), 0u);
    unsigned absNum = 99;
    CKVX_HdwPort* port = rig.Manager.FindPort(key, &absNum);
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(absNum, 5u);
    EXPECT_EQ(port, rig.Port(HDW_PORT_ARINC429_TX, 5));
    ASSERT_EQ(rig.Manager.Run(), 0u);
    const auto got = Arinc429RoundTrip(rig, 5, 10);
    ASSERT_EQ(got.size(), 10u);
    EXPECT_EQ(second.GetCounters().A429Transmitted[5], 10u);
    EXPECT_EQ(first.GetCounters().A429Transmitted[5], 0u);
    rig.Manager.Stop();
}

} // namespace
