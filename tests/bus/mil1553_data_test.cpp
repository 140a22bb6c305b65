// MIL-STD-1553 data classes and the remote terminal service: checks and bus time.

#include "TestBusDevice.h"

#include "support/Mil1553Messages.h"

using namespace bustest;
using namespace mil1553test;

TEST(MilStd1553Message, CheckRefusesWhatTheBusCannotCarry)
{
    struct Case {
        const char* What;
        Msg M;
        unsigned Expected;
    };
    auto withData = [](Msg m, std::vector<uint16_t> d) {
        m.Data = std::move(d);
        return m;
    };
    auto set = [](Msg m, auto field, unsigned v) {
        m.*field = uint8_t(v);
        return m;
    };
    const Msg rr = RtToRt(7, 2, 9, 1, 4);
    const std::vector<Case> cases = {
        {"BC-to-RT 32 words", BcToRt(1, 1, Words(32)), 0},
        {"33 data words", BcToRt(1, 1, Words(33)), 2},
        {"RT-to-BC with data given", withData(RtToBc(1, 1, 2), {1, 2}), 2},
        {"transmit to broadcast", RtToBc(31, 1, 2), 2},
        {"broadcast mode code without data", ModeCode(31, true, 1), 0},
        {"receive mode code missing its word", ModeCode(1, false, 17), 2},
        {"transmit mode code with data to broadcast", ModeCode(31, true, 19), 2},
        {"RT-to-RT to the same terminal", set(rr, &Msg::TxTerminalAddress, 7), 2},
        {"RT-to-RT broadcast receive", set(rr, &Msg::TerminalAddress, 31), 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.M.Check(), c.Expected) << c.What;
    // Synchronize with its data word, broadcast: taken, and encoded as on the bus.
    const Msg mc = withData(ModeCode(31, false, 17), {0xBEEF});
    EXPECT_EQ(mc.Check(), 0u);
    EXPECT_EQ(mc.GetCommandWord(), 0xF811);
}

TEST(MilStd1553Message, BusTimeFollowsTheTimingRule)
{
    const unsigned rt = 14;
    EXPECT_EQ(BcToRt(1, 1, Words(4)).GetBusTimeUs(rt), 5 * 20 + 14 + 20 + 4u);
    EXPECT_EQ(BcToRt(31, 1, Words(4)).GetBusTimeUs(rt), 5 * 20 + 4u); // broadcast: nobody answers
    EXPECT_EQ(RtToBc(1, 1, 0).GetBusTimeUs(rt), 20 + 14 + 33 * 20 + 4u);
    Msg mc = ModeCode(1, true, 2);
    mc.GapUs = 10;
    EXPECT_EQ(mc.GetBusTimeUs(rt), 20 + 14 + 20 + 10u);
    EXPECT_EQ(ModeCode(1, true, 19).GetBusTimeUs(rt), 20 + 14 + 20 + 20 + 4u);
    Msg rr = RtToRt(7, 2, 9, 1, 2);
    EXPECT_EQ(rr.GetBusTimeUs(rt), 40 + 34 + 40 + 34 + 4u);
    rr.Retry = Msg::RetryOtherBus;
    EXPECT_EQ(rr.GetBusTimeUs(rt), 2 * (40 + 34 + 40 + 34 + 4u));
}

TEST(MilStd1553MajorFrame, CheckRefusesBadSchedules)
{
    CKVX_HdwMilStd1553MajorFrame f;
    f.Messages = {BcToRt(1, 1, Words(32)), RtToBc(2, 3, 32)};
    f.MinorFrames = {Minor(2000, {0, 1}), Minor(20000, {1, 1, 0})};
    EXPECT_EQ(f.Check(14), 0u);
    EXPECT_EQ(f.GetTableWords(), 1 + 4 + 5u);

    auto bad = [&](auto change) {
        CKVX_HdwMilStd1553MajorFrame g = f;
        change(g);
        return g.Check(14);
    };
    // 3 x 698 µs of messages do not fit a 2 ms minor frame.
    EXPECT_EQ(bad([](auto& g) { g.MinorFrames[0].Messages = {0, 1, 0}; }), 2u);
    // The period rounded up to the next 10 µs is room enough.
    EXPECT_EQ(bad([&](auto& g) { g.MinorFrames[0].PeriodUs = f.GetMinorFrameTimeUs(0, 14) / 10 * 10 + 10; }), 0u);
    EXPECT_EQ(bad([](auto& g) { g.MinorFrames[0].PeriodUs = 2005; }), 2u);
    EXPECT_EQ(bad([](auto& g) { g.MinorFrames[1].Messages.push_back(2); }), 2u);
    EXPECT_EQ(bad([](auto& g) { g.MinorFrames.resize(65, g.MinorFrames[1]); }), 2u);
    EXPECT_EQ(bad([](auto& g) { g.Messages.resize(241, g.Messages[0]); }), 2u);
    // 60 minor frames of 34 indexes: 1 + 60 * 36 = 2161 table words.
    EXPECT_EQ(bad([](auto& g) {
        g.Messages = {ModeCode(31, true, 1)};
        g.MinorFrames.assign(60, Minor(100000, std::vector<uint16_t>(34, 0)));
    }),
        2u);
}

TEST(MilStd1553RemoteTerminal, DefaultsAreLegalChecksRefuseTheRestAndTheServiceChecksItsInput)
{
    CKVX_HdwMilStd1553RemoteTerminal rt;
    EXPECT_EQ(rt.Check(), 0u);
    auto bad = [&](auto change) {
        CKVX_HdwMilStd1553RemoteTerminal r = rt;
        change(r);
        return r.Check();
    };
    EXPECT_EQ(bad([](auto& r) { r.TerminalAddress = 31; }), 2u);
    EXPECT_EQ(bad([](auto& r) { r.TerminalAddress = CKVX_HdwMilStd1553RemoteTerminal::NoTerminal; }), 0u);
    EXPECT_EQ(bad([](auto& r) { r.ResponseTimeUs = 12; }), 0u);
    EXPECT_EQ(bad([](auto& r) { r.Receive[31].Legal = 1; }), 2u);
    EXPECT_EQ(bad([](auto& r) { r.Transmit[4].BroadcastLegal = 1; }), 2u);

    CBusRig rig;
    auto* service = Enable<CKVX_HdwMilStd1553SingleRtService>(rig.Mil(), HDW_SERVICE_MIL1553_RT);
    ASSERT_NE(service, nullptr);
    ASSERT_EQ(rig.Mil()->Open(nullptr), 0u);
    CKVX_HdwMilStd1553RemoteTerminal broadcast;
    broadcast.TerminalAddress = 31;
    EXPECT_EQ(service->BuildBufferInit(broadcast), 2u);
    EXPECT_EQ(service->BuildSubaddressConfiguration(broadcast), 2u);
    EXPECT_EQ(service->BuildBufferInit(rt), 0u);
    EXPECT_EQ(service->UpdateTransmitData(0, {1}), 2u); // mode code subaddress
    EXPECT_EQ(service->UpdateTransmitData(5, std::vector<uint16_t>(33)), 2u);
    EXPECT_EQ(service->UpdateTransmitData(5, {1, 2}), 0u);
    EXPECT_EQ(service->SetStatusBits(0x20), 2u);
    EXPECT_EQ(service->SetStatusBits(CKVX_HdwMilStd1553RemoteTerminal::StatusBusy), 0u);
    CKVX_HdwMilStd1553Message m;
    EXPECT_EQ(service->ReadSubaddress(5, m), 4u); // nothing received yet
    EXPECT_EQ(service->ReadSubaddress(32, m), 2u);
    ASSERT_EQ(rig.Mil()->Close(), 0u);
    EXPECT_EQ(service->ReadSubaddress(5, m), 29u);
}
