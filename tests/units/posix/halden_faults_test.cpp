// What the driver makes of a unit that stops echoing, goes silent or away
// (noise and damaged frames: halden_reopen_test and protocol_link_test; a
// critical failure: units_end_to_end_test).
#include "UnitRig.h"

using namespace halden_test;

namespace {

using Pair = UnitRig::Arinc429Pair;

std::vector<CKVX_HdwArinc429Message> Words(unsigned count, unsigned label)
{
    std::vector<CKVX_HdwArinc429Message> w;
    for (unsigned i = 0; i < count; ++i)
        w.push_back(Word(label, i));
    return w;
}

// A unit that stops echoing (while still sending its events) or falls
// silent altogether: once the driver's echo time-out passes, every service of
// the unit fails; while the fault lasts a new open is refused; after it the
// ports reopen and carry words again.
TEST(HaldenFaults, AUnitThatStopsEchoingFailsItsServicesAndReopensCleanly)
{
    for (const bool silent : {false, true}) {
        SCOPED_TRACE(silent ? "silent" : "no echoes");
        UnitRig rig(UnitNamed("halden"), false);
        rig.Start();
        Pair p = rig.OpenArinc429Pair(3);
        auto* can =
            rig.Enable<CKVX_HdwKvxHaldenDevice::CCanInBufferService>(HDW_PORT_CAN, 1, HDW_SERVICE_CAN_IN_BUFFER);
        ASSERT_EQ(rig.Open(HDW_PORT_CAN, 1), 0u);
        rig.SetEchoTimeout(500); // the driver's own
        auto fault = [&](bool on) { silent ? rig.Sim.SetHungUp(on) : rig.Sim.SetEchoEnabled(!on); };
        fault(true);
        CKVX_HdwArinc429Message w = Word(9, 9);
        ASSERT_EQ(p.Out->Write(&w, 1, 0), 0u);
        CKVX_HdwArinc429Message buf[8];
        unsigned n = 0;
        ASSERT_TRUE(WaitUntil([&] { return p.In->Read(buf, 8, n) == 15; }));
        EXPECT_EQ(p.In->GetStatus(), unsigned(HDW_SERVICE_FAILED));
        EXPECT_EQ(p.Out->GetStatus(), unsigned(HDW_SERVICE_FAILED));
        EXPECT_EQ(p.Out->Write(&w, 1, 0), 15u);
        // Every service of that unit, not only those that sent something.
        CKVX_HdwCanMessage f[2];
        EXPECT_EQ(can->Read(f, 2, n), 15u);

        ASSERT_EQ(rig.Port(HDW_PORT_CAN, 1)->Close(), 0u);
        ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_RX, 3)->Close(), 0u);
        ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_TX, 3)->Close(), 0u);
        EXPECT_EQ(rig.Open(HDW_PORT_ARINC429_RX, 3, CKVX_HdwArinc429RxPort::CParameters(), 1000), 14u);
        EXPECT_FALSE(rig.Port(HDW_PORT_ARINC429_RX, 3)->IsOpen());

        fault(false);
        rig.SetEchoTimeout(kEchoTimeoutMs);
        ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_RX, 3), 0u);
        ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 3), 0u);
        EXPECT_EQ(p.In->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
        const auto sent = Words(50, 0x46);
        ASSERT_EQ(p.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
        EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(p.In, sent.size()), sent);
    }
}

TEST(HaldenFaults, HungUpLinkGivesResultCodesAndANewLinkWorks)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    Pair p = rig.OpenArinc429Pair(0);
    rig.Sim.ClosePty();
    CKVX_HdwArinc429Message w = Word(3, 3);
    ASSERT_TRUE(WaitUntil([&] {
        p.Out->Write(&w, 1, 0);
        CKVX_HdwArinc429Message buf[2];
        unsigned n = 0;
        return p.In->Read(buf, 2, n) == 15;
    }));
    EXPECT_EQ(p.Out->Write(&w, 1, 0), 15u);

    // The application starts over on the unit's new link.
    std::string error;
    ASSERT_TRUE(rig.Sim.ReopenPty(&error)) << error;
    ASSERT_EQ(rig.Manager.Stop(), 0u);
    ASSERT_NO_FATAL_FAILURE(rig.Enumerate());
    ASSERT_EQ(rig.Manager.Run(), 0u);
    Pair q = rig.OpenArinc429Pair(0);
    const auto sent = Words(20, 0x47);
    ASSERT_EQ(q.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(q.In, sent.size()), sent);
}

} // namespace
