// Command records of the command-protocol units, byte for byte, and the
// conversions of bit rates into divider settings. The expected bytes are
// written out from the record tables.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace unittest;
using Bytes = std::vector<uint8_t>;

namespace {

class CommandRecords : public ::testing::Test {
protected:
    void SetUp() override { dev.AddInstance(); }
    Base::CDeviceInstance* inst() { return dev.Inst(); }
    std::vector<Bytes> records() { return QueuedRecords(inst()); }

    TestUnit dev;
};

// ---- rate conversions ----------------------------------------------------------------

TEST(RateConversion, Arinc429TransmitDividers)
{
    // 60 MHz / rate / 2 - 1, truncated; high speed above 15000; 149..4094 only.
    struct Case {
        unsigned rate, rc, high, divider;
    };
    const Case cases[] = {
        {100000, 0, 1, 299},
        {12500, 0, 0, 2399},
        {15000, 0, 0, 1999},
        {15001, 0, 1, 1998},
        {200000, 0, 1, 149},
        {7325, 0, 0, 4094},
        {200001, 2, 0, 0},
        {7324, 2, 0, 0},
        {0, 2, 0, 0},
    };
    for (const Case& c : cases) {
        unsigned char high = 9;
        unsigned short hi = 0, lo = 0;
        ASSERT_EQ(Base::ExtractArinc429TxBaudRateParameters(c.rate, high, hi, lo), c.rc) << c.rate;
        if (c.rc == 0) {
            EXPECT_EQ(high, c.high) << c.rate;
            EXPECT_EQ(hi, c.divider) << c.rate;
            EXPECT_EQ(lo, c.divider) << c.rate;
        }
    }
}

TEST(RateConversion, CanTiming)
{
    // The smallest exact prescaler wins (1 Mbit/s: index 1, 15 quanta);
    // s = trunc(quanta * point + 0.5) clamped to 7..15 (NaN too), segment 1 = s - 2,
    // segment 2 = quanta - segment 1 - 3, wrapping as it stands when quanta are few.
    struct Case {
        unsigned rate;
        double point;
        unsigned rc, index, s1, s2;
    };
    const Case cases[] = {
        {1000000, 0.5, 0, 1, 6, 6},
        {1000000, 0.75, 0, 1, 9, 3},
        {500000, 0.875, 0, 2, 13, 4},
        {500000, 0.1, 0, 2, 5, 12},
        {7500000, 0.5, 0, 0, 5, 0xFC},
        {1000000, std::nan(""), 0, 1, 5, 7},
        {10000000, 0.5, 2, 0, 0, 0},
        {1000, 0.5, 2, 0, 0, 0},
        {0, 0.5, 2, 0, 0, 0},
    };
    for (const Case& c : cases) {
        unsigned char index = 9, s1 = 0, s2 = 0;
        ASSERT_EQ(Base::ExtractCanTimingParameters(c.rate, c.point, index, s1, s2), c.rc) << c.rate << " " << c.point;
        if (c.rc == 0) {
            EXPECT_EQ(index, c.index) << c.rate << " " << c.point;
            EXPECT_EQ(s1, c.s1) << c.rate << " " << c.point;
            EXPECT_EQ(s2, c.s2) << c.rate << " " << c.point;
        }
    }
}

TEST(RateConversion, UartDividers)
{
    // The factor whose rounded divider comes closest wins, the largest factor on
    // a tie; the divider is sent less one (7000 bit/s: factor 12, 439). 10 % off,
    // or no divider in 1..4096, is refused.
    struct Case {
        unsigned rate, rc, index, divider;
    };
    const Case cases[] = {
        {115200, 0, 3, 15},
        {9600, 0, 3, 191},
        {7000, 0, 1, 438},
        {500, 0, 3, 3685},
        {3000000, 0, 1, 0},
        {2600000, 2, 0, 0},
        {4000000, 2, 0, 0},
        {300, 2, 0, 0},
        {0, 2, 0, 0},
    };
    for (const Case& c : cases) {
        unsigned char index = 9;
        unsigned short divider = 9;
        ASSERT_EQ(Base::ExtractUartBaudRateParameters(c.rate, index, divider), c.rc) << c.rate;
        if (c.rc == 0) {
            EXPECT_EQ(index, c.index) << c.rate;
            EXPECT_EQ(divider, c.divider) << c.rate;
        }
    }
}

// ---- ARINC 429 word ------------------------------------------------------------------------

TEST(Arinc429Word, PacksAndUnpacksTheFields)
{
    CKVX_HdwArinc429Message m;
    m.Label = 0x31;
    m.Sdi = 2;
    m.Data = 0x12345;
    m.Ssm = 3;
    m.Parity = 1;
    EXPECT_EQ(Base::PackArinc429Word(m), 0xE48D1631u);
    m.Parity = 0;
    EXPECT_EQ(Base::PackArinc429Word(m), 0x648D1631u);

    CKVX_HdwArinc429Message out;
    out.TimeStamp = 77;
    Base::UnpackArinc429Word(0xE48D1631u, out);
    EXPECT_EQ(out.Label, 0x31);
    EXPECT_EQ(out.Sdi, 2);
    EXPECT_EQ(out.Data, 0x12345u);
    EXPECT_EQ(out.Ssm, 3);
    EXPECT_EQ(out.Parity, 1);
    EXPECT_EQ(out.TimeStamp, 77u);
}

// ---- records ----------------------------------------------------------------------------------

TEST_F(CommandRecords, KeepAliveAndLabelReset)
{
    ASSERT_EQ(dev.AttachKeepAliveCommand(0), 0u);
    ASSERT_EQ(dev.AttachAtxCtxResetCommand(0, 3), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0], (Bytes{0x05, 0x84, 0x00, 0x00, 0x00}));
    EXPECT_EQ(r[1], (Bytes{0x05, 0x92, 0x01, 0x00, 0x03}));
}

TEST_F(CommandRecords, LabelDataAndPushCarryLabelAndWord)
{
    CKVX_HdwArinc429Message m[2];
    m[0].Label = 0x31;
    m[0].Sdi = 2;
    m[0].Data = 0x12345;
    m[0].Ssm = 3;
    m[0].Parity = 1;
    m[1].Label = 0xFF;
    ASSERT_EQ(dev.AttachAtxCtxDataCommand(0, 2, m[0]), 0u);
    ASSERT_EQ(dev.AttachAtxPushCommand(0, 1, m, 2), 0u);
    ASSERT_EQ(dev.AttachAtxPushCommand(0, 1, nullptr, 0), 0u); // nothing to push
    const auto r = records();
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(r[0], (Bytes{0x0A, 0x91, 0x00, 0x00, 0x02, 0x31, 0x31, 0x16, 0x8D, 0xE4}));
    EXPECT_EQ(r[1], (Bytes{0x0A, 0x91, 0x01, 0x00, 0x01, 0x31, 0x31, 0x16, 0x8D, 0xE4}));
    EXPECT_EQ(r[2], (Bytes{0x0A, 0x91, 0x02, 0x00, 0x01, 0xFF, 0xFF, 0x00, 0x00, 0x00}));
}

TEST_F(CommandRecords, Arinc429TransmitConfiguration)
{
    Base::CArinc429TxCtrlStatus& c = inst()->AtxCtrl[1];
    c.Enabled = 1;
    c.Option1 = 1;
    c.Option5 = 0;
    c.Option6 = 1;
    c.Setting7 = 0x5A;
    c.Settings12[0] = 1;
    c.Settings12[1] = 2;
    c.Settings12[2] = 3;
    c.Option15 = 1;
    CKVX_HdwArinc429TxPort::CParameters p;
    p.BaudRate = 100000;
    p.Parity = 1;
    p.WordIntergap = 319;
    ASSERT_EQ(dev.AttachAtxConfigCommand(0, 1, p), 0u);

    // Channel 0 as it is by default, low speed, parity mode 2.
    p.BaudRate = 12500;
    p.Parity = 2;
    p.WordIntergap = 1;
    ASSERT_EQ(dev.AttachAtxConfigCommand(0, 0, p), 0u);

    const auto r = records();
    ASSERT_EQ(r.size(), 2u);
    // flags 0x4F: enabled, option 1, high speed, parity 1 in bits 4..3, option 6.
    EXPECT_EQ(
        r[0], (Bytes{0x10, 0x95, 0x00, 0x00, 0x4F, 0x3E, 0x01, 0x5A, 0x2B, 0x01, 0x2B, 0x01, 0x01, 0x02, 0x03, 0x01}));
    // flags 0x12: option 1 (default 1), parity 2; dividers 2399 = 0x95F.
    EXPECT_EQ(
        r[1], (Bytes{0x10, 0x94, 0x01, 0x00, 0x12, 0x00, 0x00, 0x00, 0x5F, 0x09, 0x5F, 0x09, 0x00, 0x00, 0x00, 0x00}));
}

TEST_F(CommandRecords, Arinc429TransmitConfigurationRefusals)
{
    CKVX_HdwArinc429TxPort::CParameters p;
    p.WordIntergap = 0;
    EXPECT_EQ(dev.AttachAtxConfigCommand(0, 0, p), 2u);
    p.WordIntergap = 319;
    p.BaudRate = 250000;
    EXPECT_EQ(dev.AttachAtxConfigCommand(0, 0, p), 2u);
    p.BaudRate = 12500;
    EXPECT_EQ(dev.AttachAtxConfigCommand(0, 4, p), 2u); // no fifth transmitter
    EXPECT_EQ(dev.AttachAtxConfigCommand(1, 0, p), 2u); // no second unit
    EXPECT_TRUE(inst()->CommandList.IsEmpty());
    // Nothing was numbered either: the next command gets number 0.
    ASSERT_EQ(dev.AttachAtxConfigCommand(0, 0, p), 0u);
    EXPECT_EQ(records()[0][2], 0x00);
}

TEST_F(CommandRecords, Arinc429ReceiveConfiguration)
{
    CKVX_HdwArinc429RxPort::CParameters p;
    p.Parity = 1;
    p.BaudRate = 12500;
    uint8_t labels[256] = {};
    labels[0] = 1;
    labels[9] = 1;
    labels[255] = 1;
    ASSERT_EQ(dev.AttachArxConfigCommand(0, 2, p, true, labels), 0u);
    p.Parity = 2;
    p.BaudRate = 100000;
    ASSERT_EQ(dev.AttachArxConfigCommand(0, 3, p, false, nullptr), 0u);
    p.Parity = 0;
    ASSERT_EQ(dev.AttachArxConfigCommand(0, 0, p, false, nullptr), 0u);

    const auto r = records();
    ASSERT_EQ(r.size(), 3u);
    Bytes first = {0x25, 0x9A, 0x00, 0x00, 0x37, 0x01, 0x02};
    first.resize(37, 0);
    first[36] = 0x80;
    EXPECT_EQ(r[0], first);
    Bytes second = {0x25, 0x9B, 0x01, 0x00, 0x00};
    second.resize(37, 0);
    EXPECT_EQ(r[1], second);
    EXPECT_EQ(r[2][4], 0x04); // parity mode 0: only "not 2"
    EXPECT_EQ(dev.AttachArxConfigCommand(0, 4, p, true, nullptr), 2u);
}

TEST_F(CommandRecords, UartConfiguration)
{
    Base::CUartCtrlStatus& c = inst()->UartCtrl[1];
    c.Enabled = 1;
    c.Option5 = 1;
    c.Setting8 = 0x77;
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = 115200;
    p.Parity = 1;
    p.StopBits = 2;
    ASSERT_EQ(dev.AttachUartConfigCommand(0, 1, p), 0u);
    p.BaudRate = 9600;
    p.Parity = 2;
    p.StopBits = 0;
    p.DataBits = 3;
    ASSERT_EQ(dev.AttachUartConfigCommand(0, 0, p), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0], (Bytes{0x09, 0xA3, 0x00, 0x00, 0x2F, 0x03, 0x0F, 0x00, 0x77}));
    EXPECT_EQ(r[1], (Bytes{0x09, 0xA2, 0x01, 0x00, 0x44, 0x03, 0xBF, 0x00, 0x00}));
}

TEST_F(CommandRecords, UartConfigurationRefusals)
{
    CKVX_HdwUartPort::CParameters p;
    p.Parity = 3;
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 0, p), 2u);
    p.Parity = 0;
    p.StopBits = 1;
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 0, p), 2u);
    p.StopBits = 0;
    p.BaudRate = 2600000;
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 0, p), 2u);
    p.BaudRate = 9600;
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 2, p), 2u);
    EXPECT_TRUE(inst()->CommandList.IsEmpty());
}

TEST_F(CommandRecords, UartTransmitIsCutInto240ByteChunks)
{
    Bytes data(241);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = uint8_t(i * 7 + 1);
    ASSERT_EQ(dev.AttachUartTxPushCommand(0, 1, data.data(), unsigned(data.size())), 0u);
    ASSERT_EQ(dev.AttachUartTxPushCommand(0, 1, data.data(), 0), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 2u);
    Bytes first = {249, 0xA1, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00};
    first.insert(first.end(), data.begin(), data.begin() + 240);
    EXPECT_EQ(r[0], first);
    EXPECT_EQ(r[1], (Bytes{10, 0xA1, 0x01, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, data[240]}));
    EXPECT_EQ(inst()->UartCtrl[1].ChunkCounter, 2u);
    EXPECT_EQ(inst()->UartCtrl[0].ChunkCounter, 0u);
}

TEST_F(CommandRecords, CanConfigurationFromTheChannelRecord)
{
    Base::CCanCtrlStatus& c = inst()->CanCtrl[1];
    c.Enabled = 1;
    c.ModeFlagA = 0;
    c.ModeFlagB = 1;
    for (int i = 0; i < 4; ++i)
        c.FilterA[i] = uint8_t(0xA0 + i);
    for (int i = 0; i < 8; ++i)
        c.FilterB[i] = uint8_t(0xB0 + i);
    c.PrescalerIndex = 1;
    c.Segment1 = 6;
    c.Segment2 = 6;
    c.FaultState = 0x12345678; // status only, not sent
    ASSERT_EQ(dev.AttachCanConfigCommand(0, 1), 0u);
    EXPECT_EQ(dev.AttachCanConfigCommand(0, 2), 2u);
    const auto r = records();
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0],
        (Bytes{0x16, 0xB1, 0x00, 0x00, 0x01, 0x00, 0x01, 0xA0, 0xA1, 0xA2, 0xA3, 0xB0, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5,
            0xB6, 0xB7, 0x01, 0x06, 0x06}));
}

TEST_F(CommandRecords, CanPushPacksIdentifiersMostSignificantFirst)
{
    CKVX_HdwCanMessage m[3];
    m[0].Extended = 0;
    m[0].Identifier = 0x7FF;
    m[0].Dlc = 3;
    for (int i = 0; i < 8; ++i)
        m[0].Data[i] = uint8_t(0x11 * (i + 1));
    m[1].Extended = 1;
    m[1].Identifier = 0x1FFFFFFF;
    m[1].Dlc = 8;
    m[1].Rtr = 1;
    for (int i = 0; i < 8; ++i)
        m[1].Data[i] = uint8_t(i + 1);
    m[2].Extended = 1;
    m[2].Identifier = 0x12345678;
    m[2].Dlc = 0;
    ASSERT_EQ(dev.AttachCanPushCommand(0, 0, m, 3), 0u);
    ASSERT_EQ(dev.AttachCanPushCommand(0, 0, m, 0), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 3u);
    // Standard: identifier in 5..6, all eight data bytes in 7..14, 15..16 zero.
    EXPECT_EQ(r[0],
        (Bytes{0x11, 0xB2, 0x00, 0x00, 0x03, 0xFF, 0xE0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x00, 0x00}));
    EXPECT_EQ(r[1],
        (Bytes{0x11, 0xB2, 0x01, 0x00, 0xC8, 0xFF, 0xFF, 0xFF, 0xF8, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08}));
    EXPECT_EQ(r[2],
        (Bytes{0x11, 0xB2, 0x02, 0x00, 0x80, 0x91, 0xA2, 0xB3, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
}

TEST_F(CommandRecords, SramWriteIsCutInto100WordRecordsWithRunningAddresses)
{
    std::vector<uint16_t> words(250);
    for (size_t i = 0; i < words.size(); ++i)
        words[i] = uint16_t(0x0100 + i);
    ASSERT_EQ(dev.AttachSramWriteCommand(0, 1, 0x00011000, words.data(), 250), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 3u);
    const uint32_t addresses[3] = {0x11000, 0x11064, 0x110C8};
    const size_t counts[3] = {100, 100, 50};
    size_t w = 0;
    for (int k = 0; k < 3; ++k) {
        Bytes expected = {uint8_t(8 + 2 * counts[k]), 0x84, uint8_t(k), 0x00, uint8_t(addresses[k]),
            uint8_t(addresses[k] >> 8), uint8_t(addresses[k] >> 16), 0x00};
        for (size_t i = 0; i < counts[k]; ++i, ++w) {
            expected.push_back(uint8_t(words[w] & 0xFF));
            expected.push_back(uint8_t(words[w] >> 8));
        }
        EXPECT_EQ(r[k], expected) << "record " << k;
    }
    EXPECT_EQ(dev.AttachSramWriteCommand(0, 2, 0, words.data(), 1), 2u);
}

TEST_F(CommandRecords, MilStd1553Configuration)
{
    for (int i = 0; i < 9; ++i)
        inst()->MilStd1553Ctrl[1].Bytes[i] = uint8_t(0xC0 + i);
    ASSERT_EQ(dev.Attach1553ConfigCommand(0, 1), 0u);
    EXPECT_EQ(dev.Attach1553ConfigCommand(0, 2), 2u);
    const auto r = records();
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0], (Bytes{0x0D, 0xB5, 0x00, 0x00, 0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8}));
}

TEST_F(CommandRecords, SessionAndStatusRequest)
{
    ASSERT_EQ(dev.AttachSessionCommand(0u, 0), 0u);
    dev.SetSessionWatchdog(25000); // 2500 -> 1023, enabled
    ASSERT_EQ(dev.AttachSessionCommand(0u, 1), 0u);
    dev.SetSessionWatchdog(1230);
    ASSERT_EQ(dev.AttachSessionCommand(0u, 0), 0u);
    ASSERT_EQ(dev.AttachStatusRequestCommand(0, 3, 1), 0u);
    ASSERT_EQ(dev.AttachStatusRequestCommand(0, 1, 2), 0u);
    ASSERT_EQ(dev.AttachStatusRequestCommand(0, 1, 3), 0u);
    ASSERT_EQ(dev.AttachStatusRequestCommand(0, 1, 9), 0u);
    const auto r = records();
    ASSERT_EQ(r.size(), 7u);
    EXPECT_EQ(r[0], (Bytes{0x07, 0x81, 0x00, 0x00, 0x01, 0x00, 0x00}));
    EXPECT_EQ(r[1], (Bytes{0x07, 0x81, 0x01, 0x00, 0x00, 0xFF, 0x83}));
    EXPECT_EQ(r[2], (Bytes{0x07, 0x81, 0x02, 0x00, 0x01, 0x7B, 0x80}));
    EXPECT_EQ(r[3], (Bytes{0x07, 0x82, 0x03, 0x00, 0x00, 0x08, 0x00}));
    EXPECT_EQ(r[4], (Bytes{0x07, 0x82, 0x04, 0x00, 0x00, 0x00, 0x02}));
    EXPECT_EQ(r[5], (Bytes{0x07, 0x82, 0x05, 0x00, 0x00, 0x00, 0x08}));
    EXPECT_EQ(r[6], (Bytes{0x07, 0x82, 0x06, 0x00, 0x00, 0x00, 0x00}));
}

TEST(CommandProfile, CommandsTheUnitDoesNotTakeAnswer2)
{
    // Every channel kind present, but only the CAN and session commands taken.
    Base::CUnitProfile p = FullProfile();
    p.Commands = Base::CmdSession | Base::CmdStatusRequest | Base::CmdCanConfig | Base::CmdCanPush;
    TestUnit dev(p);
    dev.AddInstance();
    CKVX_HdwArinc429Message word;
    CKVX_HdwArinc429TxPort::CParameters tx;
    CKVX_HdwArinc429RxPort::CParameters rx;
    CKVX_HdwUartPort::CParameters uart;
    const uint8_t byte = 0x55;
    const uint16_t sram = 1;
    EXPECT_EQ(dev.AttachKeepAliveCommand(0), 2u);
    EXPECT_EQ(dev.AttachAtxPushCommand(0, 0, &word, 1), 2u);
    EXPECT_EQ(dev.AttachAtxCtxDataCommand(0, 0, word), 2u);
    EXPECT_EQ(dev.AttachAtxCtxResetCommand(0, 0), 2u);
    EXPECT_EQ(dev.AttachAtxConfigCommand(0, 0, tx), 2u);
    EXPECT_EQ(dev.AttachArxConfigCommand(0, 0, rx, true, nullptr), 2u);
    EXPECT_EQ(dev.AttachUartTxPushCommand(0, 0, &byte, 1), 2u);
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 0, uart), 2u);
    EXPECT_EQ(dev.AttachSramWriteCommand(0, 0, 0, &sram, 1), 2u);
    EXPECT_EQ(dev.Attach1553ConfigCommand(0, 0), 2u);
    EXPECT_TRUE(dev.Inst()->CommandList.IsEmpty());

    // The same builder on the commands it does take.
    CKVX_HdwCanMessage frame;
    EXPECT_EQ(dev.AttachCanPushCommand(0, 1, &frame, 1), 0u);
    EXPECT_EQ(dev.AttachCanConfigCommand(0, 0), 0u);
    EXPECT_EQ(dev.Inst()->CommandList.GetLength(), 2u);
}

TEST(CommandProfile, PerChannelCodesFollowTheProfileBases)
{
    Base::CUnitProfile p = FullProfile();
    p.AtxChannels = 8;
    p.AtxConfigBase = 60;
    p.CanPushBase = 80;
    TestUnit dev(p);
    dev.AddInstance();
    CKVX_HdwArinc429TxPort::CParameters tx;
    CKVX_HdwCanMessage frame;
    ASSERT_EQ(dev.AttachAtxConfigCommand(0, 7, tx), 0u);
    ASSERT_EQ(dev.AttachCanPushCommand(0, 1, &frame, 1), 0u);
    const auto r = QueuedRecords(dev.Inst());
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0][1], 0x80 | 67);
    EXPECT_EQ(r[1][1], 0x80 | 81);
}

} // namespace
