// A channel of the unit as a remote terminal, answered by a controller on
// the other channel of the same bus: its tables, status word, the records
// it reports, and RT-to-RT transfers. Its
// response time is set to 12 µs, so its answers are told apart from a
// simulated terminal's 8 µs.

#include "Mil1553Host.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace simtest;

namespace {

constexpr unsigned Rt = 7;
constexpr uint16_t Status7 = Rt << 11;
constexpr uint16_t StatusMessageError = 1 << 10;
constexpr uint16_t Legal = 1, Report = 2, BroadcastLegal = 4;

// Channel 1 as terminal 7: receive subaddress 3 (reported), receive 8
// (broadcast legal), transmit 4 with three words, mode code 17 (reported)
// and 19 with the BIT word.
void LoadTerminal(MilBench& b, uint8_t flags = CfgRun | CfgBusA | CfgBusB, uint8_t status = 0)
{
    Words sa(128, 0);
    const auto entry = [&](bool transmit, unsigned s, uint16_t bits) {
        sa[2 * (32 * transmit + s)] = bits;
        sa[2 * (32 * transmit + s) + 1] = static_cast<uint16_t>((transmit ? 0x2400 : 0x2000) + 32 * s);
    };
    entry(false, 3, Legal | Report);
    entry(false, 8, Legal | BroadcastLegal);
    entry(true, 4, Legal);
    b.Write(1, 0x0000, sa);
    Words mode(64, 0);
    mode[2 * 17] = Legal | Report;
    mode[2 * 19] = Legal;
    mode[2 * 19 + 1] = 0xB17E;
    b.Write(1, 0x0100, mode);
    b.Write(1, 0x2400 + 32 * 4, {0xA1, 0xA2, 0xA3});
    b.Configure(1, {2, flags, Rt, status, 14, 0, 0, 12});
}

// The terminal's and monitors' records (kind 2) as "channel@time address.subaddress
// letters command1/command2 status1 flags/header-flags data...", hex but the time;
// the letters: Transmit, Mode code, Monitor, bus B.
std::vector<std::string> Records(const UnitStream& s)
{
    std::vector<std::string> r;
    char text[96];
    for (const MilEvent& e : MilEvents(s, 2)) {
        std::snprintf(text, sizeof text, "%u@%u %u.%u %s%s%s%s %X/%X %X %X/%X", e.Channel, e.Time, e.Address,
            e.Subaddress, e.Transmit ? "T" : "", e.ModeCode ? "C" : "", e.Monitor ? "M" : "", e.BusB ? "B" : "",
            e.Command1, e.Command2, e.Status1, e.Flags, e.HeaderFlags);
        r.push_back(text);
        for (uint16_t w : e.Data) {
            std::snprintf(text, sizeof text, " %X", w);
            r.back() += text;
        }
    }
    return r;
}

} // namespace

TEST(Mil1553Rt, AChannelAnswersFromItsTablesAndReportsWhatIsMarked)
{
    MilBench b(std::vector<unsigned>{});
    LoadTerminal(b);
    b.Describe(0, 32, {0, Cmd(Rt, false, 3, 2), 0, 1}, {0x10, 0x20});
    b.Describe(0, 33, {0, Cmd(Rt, true, 4, 3), 0, 2});
    b.Describe(0, 34, {0, Cmd(Rt, false, 5, 1), 0, 3}, {0x99}); // subaddress 5 is not legal
    b.Describe(0, 35, {0, Cmd(Rt, true, 0, 19), 0, 4});
    b.Describe(0, 36, {0, Cmd(Rt, false, 31, 17), 0, 5}, {0x1234});
    b.Write(0, 0x1000, MajorFrameTable({{100, {32, 33, 34, 35, 36}}}));
    b.Configure(0, {1, CfgRun | CfgBusA, 0, 0, 14, 0x10, 1});
    b.RunToUs(2000);

    const auto done = MilEvents(b.Stream, 1);
    ASSERT_EQ(done.size(), 5u);
    const struct {
        uint32_t Time;
        Words Data;
        uint16_t Status;
        uint16_t Flags;
    } expected[] = {
        {0, {0x10, 0x20}, Status7, 0}, // 3 words, 12 µs, status
        {96, {0xA1, 0xA2, 0xA3}, Status7, 0}, // command, 12 µs, status, 3 words
        {212, {0x99}, Status7 | StatusMessageError, MessageError},
        {288, {0xB17E}, Status7, ModeCodeFlag}, // the error is not carried on
        {364, {0x1234}, Status7, ModeCodeFlag},
    };
    for (size_t i = 0; i < done.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(done[i].Channel, 0u);
        EXPECT_EQ(done[i].TransferId, i + 1);
        EXPECT_EQ(done[i].Time, expected[i].Time);
        EXPECT_EQ(done[i].Data, expected[i].Data);
        EXPECT_EQ(done[i].Status1, expected[i].Status);
        EXPECT_EQ(done[i].Flags, expected[i].Flags);
    }

    // Reported: receive subaddress 3 and mode code 17 only, with the trailer.
    EXPECT_EQ(Records(b.Stream),
        (std::vector<std::string>{"1@0 7.3  3862/0 3800 0/0 10 20", "1@364 7.17 C 3BF1/0 3800 400/0 1234"}));

    // Received words are in the terminal's buffers; the illegal ones nowhere.
    EXPECT_EQ(b.Engine.MilStd1553SramWord(1, 0x2000 + 96), 0x10u);
    EXPECT_EQ(b.Engine.MilStd1553SramWord(1, 0x2000 + 97), 0x20u);
    EXPECT_EQ(b.Engine.MilStd1553SramWord(1, 0x2000 + 160), 0u);
    EXPECT_EQ(b.Engine.MilStd1553SramWord(1, 0x100 + 2 * 17 + 1), 0x1234u);
}

TEST(Mil1553Rt, RtToRtRunsBetweenTheChannelAndASimulatedTerminal)
{
    MilBench b({5});
    LoadTerminal(b);
    const MilEvent e = b.OneShot({RtToRtControl, Cmd(5, false, 2, 2), Cmd(Rt, true, 4, 2), 9}, {}, 1000);
    EXPECT_EQ(e.Flags, RtToRt);
    EXPECT_EQ(e.Data, (Words{0xA1, 0xA2}));
    EXPECT_EQ(e.Status1, Status7) << "the transmitter's";
    EXPECT_EQ(e.Status2, uint16_t(5 << 11)) << "the receiver's";
    // The receiver stored them: it transmits them back.
    EXPECT_EQ(b.OneShot({0, Cmd(5, true, 2, 2), 0, 10}, {}, 3000).Data, (Words{0xA1, 0xA2}));

    // Two commands, 12 µs, status and two words, 8 µs, status, then the gap.
    b.Describe(0, 0, {RtToRtControl, Cmd(5, false, 2, 2), Cmd(Rt, true, 4, 2), 11});
    b.Describe(0, 1, {0, Cmd(5, true, 2, 2), 0, 12});
    b.At(5'000'000);
    b.Configure(0, {1, CfgBusA | CfgOneShots, 2});
    b.RunToUs(6000);
    const auto done = MilEvents(b.Stream, 1);
    ASSERT_GE(done.size(), 2u);
    EXPECT_EQ(done[done.size() - 1].Time - done[done.size() - 2].Time, 144u);
}
