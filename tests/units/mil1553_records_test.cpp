// MIL-STD-1553 SRAM images word by word, and messages made of the unit's access records.

#include <HdwLib/HdwLib.h>
#include <HdwLib/units/internal/KvxMilStd1553Records.h>

#include <gtest/gtest.h>

#include <tuple>

#include "support/Mil1553Messages.h"

namespace {

namespace mil = hdw::units::mil1553;
using namespace mil1553test;

CKVX_HdwMilStd1553MajorFrame TwoMessageFrame()
{
    CKVX_HdwMilStd1553MajorFrame f;
    Msg rx = BcToRt(3, 1, {0xAAAA, 0x5555}); // bus B, retry on the other bus, gap 20
    std::tie(rx.Bus, rx.Retry, rx.GapUs) = std::tuple(1, Msg::RetryOtherBus, 20);
    f.Messages = {rx, RtToBc(4, 2, 32)};
    f.MinorFrames = {Minor(10000, {0, 1}), Minor(20000, {1})};
    return f;
}

} // namespace

TEST(MilStd1553Image, MajorFrameGivesDescriptorsBuffersAndTableInEitherTable)
{
    const mil::SramImage image = mil::MajorFrameImage(TwoMessageFrame(), 0);
    ASSERT_EQ(image.size(), 3u);
    // Descriptors 32 and 33, one block at word 0x100.
    EXPECT_EQ(image[0].Address, 0x100u);
    EXPECT_EQ(image[0].Words,
        (Words{0x1407, 0x1822, 0, 0x2400, 0x0000, 0, 0, 0, //
            0x0000, 0x2440, 0, 0x2420, 0x0001, 0, 0, 0}));
    // The send buffer of descriptor 32 only: the RT-to-BC message sends nothing.
    EXPECT_EQ(std::tuple(image[1].Address, image[1].Words), std::tuple(0x2400u, Words{0xAAAA, 0x5555}));
    // The table last: 2 minor frames, period in 10 µs, count, descriptor indexes.
    EXPECT_EQ(
        std::tuple(image[2].Address, image[2].Words), std::tuple(0x1000u, Words{2, 1000, 2, 32, 33, 2000, 1, 33}));

    // Table B: its own descriptors, buffers and identifiers (0x4000 + index).
    const mil::SramImage b = mil::MajorFrameImage(TwoMessageFrame(), 1);
    ASSERT_EQ(b.size(), 3u);
    EXPECT_EQ(std::tuple(b[0].Address, b[0].Words[3], b[0].Words[4], b[0].Words[12], b[1].Address, b[2].Address),
        std::tuple(272u * 8, 0x2000 + 32 * 272, 0x4000, 0x4001, 0x2000u + 32 * 272, 0x1800u));
    EXPECT_EQ(b[2].Words, (Words{2, 1000, 2, 272, 273, 2000, 1, 273}));
}

TEST(MilStd1553Image, OneShotSlotsJoinIntoOneDescriptorBlock)
{
    mil::SramImage image;
    mil::AddMessage(image, 0, ModeCode(31, true, 1), 0x8000); // broadcast synchronize
    mil::AddMessage(image, 1, RtToRt(5, 3, 6, 4, 1), 0x8001);
    mil::Compact(image);
    ASSERT_EQ(image.size(), 1u);
    EXPECT_EQ(image[0].Address, 0u);
    EXPECT_EQ(image[0].Words,
        (Words{0x0030, 0xFC01, 0, 0x2000, 0x8000, 0, 0, 0, //
            0x0008, 0x2861, 0x3481, 0x2020, 0x8001, 0, 0, 0}));
}

TEST(MilStd1553Image, RemoteTerminalTablesReportEveryLegalReceiveSubaddress)
{
    CKVX_HdwMilStd1553RemoteTerminal rt;
    rt.Receive[2].Legal = 0;
    rt.Receive[3].BroadcastLegal = 0;
    rt.Transmit[4].Report = 1;
    rt.Transmit[5].Legal = 0;
    rt.ModeCodes[16].DataWord = 0xBEEF;
    rt.ModeCodes[17].Report = 1;
    rt.Transmit[7].Data = {1, 2, 3};
    const Words t = mil::RtTables(rt);
    ASSERT_EQ(t.size(), 0x140u);
    // Word index, value: receive 1 legal, reported, broadcast legal, with its buffer; receive 2 and 3; the unused
    // mode-code entry; transmit 4, 5 and 6 (legal, not reported); mode codes 16, 17 and reserved 10.
    const std::pair<unsigned, uint16_t> want[] = {{2 * 1, 0x7}, {2 * 1 + 1, 0x2020}, {2 * 2, 0x0}, {2 * 3, 0x3},
        {2 * 0, 0x0}, {2 * (32 + 4), 0x3}, {2 * (32 + 4) + 1, 0x2480}, {2 * (32 + 5), 0x0}, {2 * (32 + 6), 0x1},
        {0x100 + 2 * 16, 0x1}, {0x100 + 2 * 16 + 1, 0xBEEF}, {0x100 + 2 * 17, 0x3}, {0x100 + 2 * 10, 0x0}};
    for (auto [index, value] : want)
        EXPECT_EQ(t[index], value) << "word " << index;
    const Words b = mil::RtBuffers(rt);
    ASSERT_EQ(b.size(), 0x800u);
    EXPECT_EQ(Words(b.begin() + 0x400 + 32 * 7, b.begin() + 0x400 + 32 * 7 + 4), (Words{1, 2, 3, 0}));
}

TEST(MilStd1553Image, AccessRecordBecomesAMessage)
{
    CKVX_HdwKvxMilStd1553Event e;
    // Command words 5 R 3 (1 word) and 6 T 4.
    std::tie(e.Kind, e.Field1, e.CommandWord1, e.CommandWord2, e.StatusWord1, e.StatusWord2, e.TransferFlags,
        e.TimeStamp) = std::tuple(2, mil::AccessBusB | mil::AccessMonitor, 0x2861, 0x3481, 0x3000, 0x2800,
        Msg::FlagRtToRt | Msg::FlagBusB, 777);
    e.Data = {0x1234};
    Msg m;
    mil::MessageFromAccess(e, m);
    EXPECT_EQ(m.Data, Words{0x1234});
    EXPECT_EQ(std::tuple(m.RtToRt, m.StatusWord2, m.Bus, m.TimeStamp), std::tuple(1, 0x2800, 1, uint64_t(777)));
    // The command fields encode back to the words on the bus.
    EXPECT_EQ(std::tuple(m.GetCommandWord(), m.GetCommandWord2()), std::tuple(0x2861, 0x3481));
}
