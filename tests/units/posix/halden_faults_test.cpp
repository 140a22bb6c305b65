// What the driver makes of a unit that misbehaves: sends noise or a damaged
// frame, stops echoing, goes silent or away (a critical failure:
// units_end_to_end_test).
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

// The emulator's injected faults (a corrupted CRC, stray bytes, each once)
// seen through the whole stack. The receive machine's handling of them in
// detail: protocol_link_test, receive_blocks_test.
TEST(HaldenFaults, StrayBytesOrABadCrcLoseOnlyOneFrame)
{
    for (const bool stray : {true, false}) {
        SCOPED_TRACE(stray ? "stray bytes" : "bad CRC");
        // Paced, so that bus events travel in frames of their own, without echoes.
        UnitRig rig(UnitNamed("halden"), EmulatorOptions(false, true));
        rig.Start();
        const unsigned ch = stray ? 1 : 2;
        Pair p = rig.OpenArinc429Pair(ch);
        const auto sent = Words(40, 0x44 + ch);
        ASSERT_EQ(p.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
        auto got = ReadAll<CKVX_HdwArinc429Message>(p.In, 3);
        ASSERT_GE(got.size(), 3u);
        const uint64_t framesBefore = rig.Sim.GetCounters().FramesSent;
        if (stray) // noise without a start byte: a start byte in it would begin a frame of its own
            rig.Sim.InsertStrayBytes({0x00, 0x13, 0x37, 0x5A, 0x02});
        else
            rig.Sim.CorruptNextFrameCrc(1);
        ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429Transmitted[ch] == sent.size(); }));
        const auto rest = ReadAll<CKVX_HdwArinc429Message>(p.In, sent.size() - got.size(), 1000);
        got.insert(got.end(), rest.begin(), rest.end());
        EXPECT_GT(rig.Sim.GetCounters().FramesSent, framesBefore + 1);
        // One frame lost (the receive machine counts stray bytes as a bad CRC
        // too; the frame held a word or a few), the rest in order, the last one too.
        rig.Device->DeviceLock(0);
        const uint32_t crcErrors =
            static_cast<CKVX_HdwKvxHaldenDevice*>(rig.Device.get())->GetProtocolInstance(0)->CrcErrors;
        rig.Device->DeviceUnlock(0);
        EXPECT_EQ(crcErrors, 1u);
        EXPECT_LT(got.size(), sent.size());
        EXPECT_GE(got.size(), sent.size() - 8);
        // Words() numbers its words by their data: each word came as it was
        // sent, in order.
        for (size_t i = 0; i < got.size(); ++i) {
            ASSERT_LT(got[i].Data, sent.size());
            EXPECT_EQ(got[i], sent[got[i].Data]);
            EXPECT_TRUE(i == 0 || got[i].Data > got[i - 1].Data) << i;
        }
        EXPECT_EQ(got.back(), sent.back());
        EXPECT_EQ(p.In->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    }
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
