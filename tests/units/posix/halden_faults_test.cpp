// What the driver makes of a unit that misbehaves: stops echoing, sends
// noise or a damaged frame, goes silent or away (a critical failure: units_end_to_end_test).
#include "HaldenRig.h"

using namespace halden_test;

namespace {

using Pair = Rig::Arinc429Pair;

std::vector<CKVX_HdwArinc429Message> Words(unsigned count, unsigned label)
{
    std::vector<CKVX_HdwArinc429Message> w;
    for (unsigned i = 0; i < count; ++i)
        w.push_back(Word(label, i));
    return w;
}

// True when `got` is `sent` with some words left out, in order.
bool IsOrderedSubset(const std::vector<CKVX_HdwArinc429Message>& got, const std::vector<CKVX_HdwArinc429Message>& sent)
{
    size_t j = 0;
    for (const auto& w : got) {
        while (j < sent.size() && sent[j] != w)
            ++j;
        if (j == sent.size())
            return false;
        ++j;
    }
    return true;
}

TEST(HaldenFaults, EchoTimeOutFailsTheUnitsServices)
{
    Rig rig;
    rig.Start();
    Pair p = rig.OpenPair(0);
    auto* can = rig.Enable<CKVX_HdwKvxHaldenDevice::CCanInBufferService>(HDW_PORT_CAN, 1, HDW_SERVICE_CAN_IN_BUFFER);
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 1), 0u);
    rig.SetEchoTimeout(500); // the driver's own
    rig.Sim.SetEchoEnabled(false);
    CKVX_HdwArinc429Message w = Word(7, 7);
    ASSERT_EQ(p.Out->Write(&w, 1, 0), 0u);
    CKVX_HdwArinc429Message buf[4];
    unsigned n = 0;
    ASSERT_TRUE(WaitUntil([&] { return p.In->Read(buf, 4, n) == 15; }));
    EXPECT_EQ(p.In->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(p.Out->GetStatus(), unsigned(HDW_SERVICE_FAILED));
    EXPECT_EQ(p.Out->Write(&w, 1, 0), 15u);
    // Every service of that unit, not only those that sent something.
    CKVX_HdwCanMessage f[2];
    EXPECT_EQ(can->Read(f, 2, n), 15u);
}

TEST(HaldenFaults, StrayBytesOrABadCrcLoseOnlyOneFrame)
{
    for (const bool stray : {true, false}) {
        SCOPED_TRACE(stray ? "stray bytes" : "bad CRC");
        // Paced, so that bus events travel in frames of their own, without echoes.
        Rig rig(false, true);
        rig.Start();
        const unsigned ch = stray ? 1 : 2;
        Pair p = rig.OpenPair(ch);
        const auto sent = Words(40, 0x44 + ch);
        ASSERT_EQ(p.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
        auto got = ReadWords(p.In, 3);
        ASSERT_GE(got.size(), 3u);
        const uint64_t framesBefore = rig.Sim.GetCounters().FramesSent;
        if (stray) // noise without a start byte: a start byte in it would begin a frame of its own
            rig.Sim.InsertStrayBytes({0x00, 0x13, 0x37, 0x5A, 0x02});
        else
            rig.Sim.CorruptNextFrameCrc(1);
        ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429Transmitted[ch] == sent.size(); }));
        const auto rest = ReadWords(p.In, sent.size() - got.size(), 1000);
        got.insert(got.end(), rest.begin(), rest.end());
        EXPECT_GT(rig.Sim.GetCounters().FramesSent, framesBefore + 1);
        // One frame lost (the receive machine counts stray bytes as a bad CRC
        // too; the frame held a word or a few), the rest in order, the last one too.
        rig.Device->DeviceLock(0);
        const uint32_t crcErrors = rig.Device->GetProtocolInstance(0)->CrcErrors;
        rig.Device->DeviceUnlock(0);
        EXPECT_EQ(crcErrors, 1u);
        EXPECT_LT(got.size(), sent.size());
        EXPECT_GE(got.size(), sent.size() - 8);
        EXPECT_TRUE(IsOrderedSubset(got, sent));
        EXPECT_EQ(got.back(), sent.back());
        unsigned n = 0;
        EXPECT_EQ(p.In->GetReadMessagesNumber(n), 0u);
        EXPECT_EQ(p.In->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    }
}

TEST(HaldenFaults, SilentUnitGivesResultCodesAndReopensCleanly)
{
    Rig rig;
    rig.Start();
    Pair p = rig.OpenPair(3);
    rig.SetEchoTimeout(500); // the driver's own, for the silence
    rig.Sim.SetHungUp(true);
    CKVX_HdwArinc429Message w = Word(9, 9);
    ASSERT_EQ(p.Out->Write(&w, 1, 0), 0u);
    CKVX_HdwArinc429Message buf[8];
    unsigned n = 0;
    ASSERT_TRUE(WaitUntil([&] { return p.In->Read(buf, 8, n) == 15; }));
    // While it stays silent a new open is refused.
    ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_RX, 3)->Close(), 0u);
    ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_TX, 3)->Close(), 0u);
    EXPECT_EQ(rig.Open(HDW_PORT_ARINC429_RX, 3, CKVX_HdwArinc429RxPort::CParameters(), 1000), 14u);
    EXPECT_FALSE(rig.Port(HDW_PORT_ARINC429_RX, 3)->IsOpen());

    rig.Sim.SetHungUp(false);
    rig.SetEchoTimeout(kEchoTimeoutMs);
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_RX, 3), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 3), 0u);
    EXPECT_EQ(p.In->GetStatus(), unsigned(HDW_SERVICE_RUNNING));
    const auto sent = Words(50, 0x46);
    ASSERT_EQ(p.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
    const auto got = ReadWords(p.In, sent.size());
    ASSERT_EQ(got.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_EQ(got[i], sent[i]);
}

TEST(HaldenFaults, HungUpLinkGivesResultCodesAndANewLinkWorks)
{
    Rig rig;
    rig.Start();
    Pair p = rig.OpenPair(0);
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
    Pair q = rig.OpenPair(0);
    const auto sent = Words(20, 0x47);
    ASSERT_EQ(q.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
    const auto got = ReadWords(q.In, sent.size());
    ASSERT_EQ(got.size(), sent.size());
    EXPECT_EQ(got.back(), sent.back());
}

} // namespace
