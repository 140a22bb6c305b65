// Command records byte for byte (written out from the record tables), the conversions of bit rates into divider
// settings, and the Halden's unit number in its hardware identifier.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <tuple>

using namespace unittest;
using Bytes = std::vector<uint8_t>;
using CLabelCtrl = CKVX_HdwArinc429OutLbloService::CLabelCtrl;

namespace {

// A rate (and CAN sample point), the result code and, when 0, the converter's output fields.
struct RateCase {
    unsigned Rate;
    double Point;
    unsigned Rc;
    std::vector<unsigned> Want;
};
using Converter = std::function<unsigned(unsigned, double, std::vector<unsigned>&)>;

void ExpectConversions(const Converter& convert, const std::vector<RateCase>& cases)
{
    for (const RateCase& c : cases) {
        std::vector<unsigned> got;
        ASSERT_EQ(convert(c.Rate, c.Point, got), c.Rc) << c.Rate << " " << c.Point;
        if (c.Rc == 0) {
            EXPECT_EQ(got, c.Want) << c.Rate << " " << c.Point;
        }
    }
}

TEST(RateConversion, Arinc429DividersCanTimingAndUartDividers)
{
    // 60 MHz / rate / 2 - 1, truncated; high speed above 15000; 149..4094 only. Fields: high speed, dividers high, low.
    ExpectConversions(
        [](unsigned rate, double, std::vector<unsigned>& got) {
            unsigned char high = 9;
            unsigned short hi = 0, lo = 0;
            const unsigned rc = Base::ExtractArinc429TxBaudRateParameters(rate, high, hi, lo);
            got = {high, hi, lo};
            return rc;
        },
        {{15000, 0, 0, {0, 1999, 1999}}, {15001, 0, 0, {1, 1998, 1998}}, {200000, 0, 0, {1, 149, 149}},
            {7325, 0, 0, {0, 4094, 4094}}, {200001, 0, 2, {}}, {7324, 0, 2, {}}});

    // The smallest exact prescaler wins (1 Mbit/s: index 1, 15 quanta); s = trunc(quanta * point + 0.5) clamped to
    // 7..15 (NaN too), segment 1 = s - 2, segment 2 = quanta - segment 1 - 3, wrapping as it stands when quanta are
    // few. Fields: prescaler index, segment 1, segment 2.
    ExpectConversions(
        [](unsigned rate, double point, std::vector<unsigned>& got) {
            unsigned char index = 9, s1 = 0, s2 = 0;
            const unsigned rc = Base::ExtractCanTimingParameters(rate, point, index, s1, s2);
            got = {index, s1, s2};
            return rc;
        },
        {{1000000, 0.75, 0, {1, 9, 3}}, {500000, 0.1, 0, {2, 5, 12}}, {7500000, 0.5, 0, {0, 5, 0xFC}},
            {1000000, std::nan(""), 0, {1, 5, 7}}, {10000000, 0.5, 2, {}}, {1000, 0.5, 2, {}}});

    // The factor whose rounded divider comes closest wins, the largest factor on a tie; the divider is sent less one
    // (7000 bit/s: factor 12, 439). 10 % off, or no divider in 1..4096, is refused. Fields: factor index, divider.
    ExpectConversions(
        [](unsigned rate, double, std::vector<unsigned>& got) {
            unsigned char index = 9;
            unsigned short divider = 9;
            const unsigned rc = Base::ExtractUartBaudRateParameters(rate, index, divider);
            got = {index, divider};
            return rc;
        },
        {{115200, 0, 0, {3, 15}}, {7000, 0, 0, {1, 438}}, {500, 0, 0, {3, 3685}}, {3000000, 0, 0, {1, 0}},
            {2600000, 0, 2, {}}, {300, 0, 2, {}}});
}

CLabelCtrl Ctrl(unsigned char label, unsigned short period, unsigned char enabled, unsigned char once,
    unsigned short offset, unsigned short repeat)
{
    CLabelCtrl c(label, period);
    std::tie(c.Enabled, c.TransmitOnce, c.Offset, c.RepeatCount) = std::tuple(enabled, once, offset, repeat);
    return c;
}

// Attach calls on a fresh unit and the records its command list then holds.
struct RecordCase {
    const char* What;
    std::function<void(TestUnit&, Base::CDeviceInstance*)> Attach;
    std::vector<Bytes> Records;
    Base::CUnitProfile Profile = FullProfile();
};

std::vector<RecordCase> RecordCases()
{
    return {
        // Label data and push carry label and word, parity bit as set (1, then 0); a push of nothing: one empty record.
        {"label data and push",
            [](TestUnit& d, auto*) {
                // Word 0xE48D1631: label 0x31, SDI 2, data 0x12345, SSM 3, parity 1.
                CKVX_HdwArinc429Message m[2];
                std::tie(m[0].Label, m[0].Sdi, m[0].Data, m[0].Ssm, m[0].Parity) = std::tuple(0x31, 2, 0x12345, 3, 1);
                m[1].Label = 0xFF;
                EXPECT_EQ(d.AttachAtxCtxDataCommand(0, 2, m[0]), 0u);
                EXPECT_EQ(d.AttachAtxPushCommand(0, 1, m, 2), 0u);
                EXPECT_EQ(d.AttachAtxPushCommand(0, 1, nullptr, 0), 0u);
            },
            {{0x0A, 0x91, 0x00, 0x00, 0x02, 0x31, 0x31, 0x16, 0x8D, 0xE4},
                {0x0A, 0x91, 0x01, 0x00, 0x01, 0x31, 0x31, 0x16, 0x8D, 0xE4},
                {0x0A, 0x91, 0x02, 0x00, 0x01, 0xFF, 0xFF, 0x00, 0x00, 0x00}}},
        // 14 bytes: period less one and flags in the control word.
        {"label control",
            [](TestUnit& d, auto*) {
                EXPECT_EQ(d.AttachAtxCtxCtrlCommand(0, 3, Ctrl(0x31, 100, 1, 0, 0x0102, 0x0304)), 0u);
                EXPECT_EQ(d.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0xFE, 1024, 0, 1, 0, 0)), 0u);
                EXPECT_EQ(d.AttachAtxCtxCtrlCommand(0, 1, Ctrl(0x00, 1, 1, 1, 0xFFFF, 0xFFFF)), 0u);
            },
            {{0x0E, 0x90, 0x00, 0x00, 0x03, 0x31, 0x63, 0x04, 0x00, 0x00, 0x02, 0x01, 0x04, 0x03},
                {0x0E, 0x90, 0x01, 0x00, 0x00, 0xFE, 0xFF, 0x0B, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                {0x0E, 0x90, 0x02, 0x00, 0x01, 0x00, 0x00, 0x0C, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}}},
        {"ARINC 429 transmit configuration",
            [](TestUnit& d, Base::CDeviceInstance* inst) {
                Base::CArinc429TxCtrlStatus& c = inst->AtxCtrl[1];
                std::tie(c.Enabled, c.Option1, c.Option5, c.Option6, c.Setting7, c.Option15) =
                    std::tuple(1, 1, 0, 1, 0x5A, 1);
                std::tie(c.Settings12[0], c.Settings12[1], c.Settings12[2]) = std::tuple(1, 2, 3);
                CKVX_HdwArinc429TxPort::CParameters p;
                std::tie(p.BaudRate, p.Parity, p.WordIntergap) = std::tuple(100000, 1, 319);
                EXPECT_EQ(d.AttachAtxConfigCommand(0, 1, p), 0u);
                // Channel 0 as it is by default, low speed, parity mode 2.
                std::tie(p.BaudRate, p.Parity, p.WordIntergap) = std::tuple(12500, 2, 1);
                EXPECT_EQ(d.AttachAtxConfigCommand(0, 0, p), 0u);
            },
            // flags 0x4F: enabled, option 1, high speed, parity 1 in bits 4..3, option 6.
            {{0x10, 0x95, 0x00, 0x00, 0x4F, 0x3E, 0x01, 0x5A, 0x2B, 0x01, 0x2B, 0x01, 0x01, 0x02, 0x03, 0x01},
                // flags 0x12: option 1 (default 1), parity 2; dividers 2399 = 0x95F.
                {0x10, 0x94, 0x01, 0x00, 0x12, 0x00, 0x00, 0x00, 0x5F, 0x09, 0x5F, 0x09, 0x00, 0x00, 0x00, 0x00}}},
        {"UART configuration",
            [](TestUnit& d, Base::CDeviceInstance* inst) {
                Base::CUartCtrlStatus& c = inst->UartCtrl[1];
                std::tie(c.Enabled, c.Option5, c.Setting8) = std::tuple(1, 1, 0x77);
                CKVX_HdwUartPort::CParameters p;
                std::tie(p.BaudRate, p.Parity, p.StopBits) = std::tuple(115200, 1, 2);
                EXPECT_EQ(d.AttachUartConfigCommand(0, 1, p), 0u);
                std::tie(p.BaudRate, p.Parity, p.StopBits, p.DataBits) = std::tuple(9600, 2, 0, 3);
                EXPECT_EQ(d.AttachUartConfigCommand(0, 0, p), 0u);
            },
            {{0x09, 0xA3, 0x00, 0x00, 0x2F, 0x03, 0x0F, 0x00, 0x77},
                {0x09, 0xA2, 0x01, 0x00, 0x44, 0x03, 0xBF, 0x00, 0x00}}},
        {"CAN configuration from the channel record",
            [](TestUnit& d, Base::CDeviceInstance* inst) {
                Base::CCanCtrlStatus& c = inst->CanCtrl[1];
                std::tie(c.Enabled, c.ModeFlagA, c.ModeFlagB, c.PrescalerIndex, c.Segment1, c.Segment2) =
                    std::tuple(1, 0, 1, 1, 6, 6);
                for (int i = 0; i < 4; ++i)
                    c.FilterA[i] = uint8_t(0xA0 + i);
                for (int i = 0; i < 8; ++i)
                    c.FilterB[i] = uint8_t(0xB0 + i);
                c.FaultState = 0x12345678; // status only, not sent
                EXPECT_EQ(d.AttachCanConfigCommand(0, 1), 0u);
                EXPECT_EQ(d.AttachCanConfigCommand(0, 2), 2u);
            },
            {{0x16, 0xB1, 0x00, 0x00, 0x01, 0x00, 0x01, 0xA0, 0xA1, 0xA2, 0xA3, 0xB0, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5,
                0xB6, 0xB7, 0x01, 0x06, 0x06}}},
        {"session and status request",
            [](TestUnit& d, auto*) {
                EXPECT_EQ(d.AttachSessionCommand(0u, 0), 0u);
                d.SetSessionWatchdog(25000); // 2500 -> 1023, enabled
                EXPECT_EQ(d.AttachSessionCommand(0u, 1), 0u);
                d.SetSessionWatchdog(1230);
                EXPECT_EQ(d.AttachSessionCommand(0u, 0), 0u);
                for (unsigned kind : {1u, 2u, 3u, 9u})
                    EXPECT_EQ(d.AttachStatusRequestCommand(0, kind == 1 ? 3 : 1, kind), 0u);
            },
            {{0x07, 0x81, 0x00, 0x00, 0x01, 0x00, 0x00}, {0x07, 0x81, 0x01, 0x00, 0x00, 0xFF, 0x83},
                {0x07, 0x81, 0x02, 0x00, 0x01, 0x7B, 0x80}, {0x07, 0x82, 0x03, 0x00, 0x00, 0x08, 0x00},
                {0x07, 0x82, 0x04, 0x00, 0x00, 0x00, 0x02}, {0x07, 0x82, 0x05, 0x00, 0x00, 0x00, 0x08},
                {0x07, 0x82, 0x06, 0x00, 0x00, 0x00, 0x00}}},
        // The discrete bank records of the Travin.
        {"discrete banks",
            [](TestUnit& d, auto*) {
                CKVX_HdwDiscreteInPort::CParameters in;
                // Lines beyond the bank are not sent.
                std::tie(in.DebounceUs, in.InvertMask, in.ChangeMask) = std::tuple(1230, 0x81, 0xFFFF00F0);
                EXPECT_EQ(d.AttachDiscreteInConfigCommand(0, 2, in, true), 0u);
                CKVX_HdwDiscreteOutPort::CParameters out;
                std::tie(out.InvertMask, out.InitialState) = std::tuple(0x0F, 0xA5);
                EXPECT_EQ(d.AttachDiscreteOutConfigCommand(0, 3, out, false), 0u);
                EXPECT_EQ(d.AttachDiscreteOutWriteCommand(0, 1, Base::DiscreteWrite, 0xFF, 0x3C), 0u);
                EXPECT_EQ(d.AttachDiscreteOutWriteCommand(0, 0, Base::DiscreteToggle, 0x80, 0x11), 0u); // no value
                EXPECT_EQ(d.AttachDiscreteOutPulseCommand(0, 2, 0x02, 10000000), 0u);
                EXPECT_EQ(d.AttachDiscreteReadCommand(0, 0x09, 0x02), 0u);
            },
            {{0x0F, 0xA6, 0x00, 0x00, 0x01, 0x81, 0x00, 0x00, 0x00, 0xF0, 0x00, 0x00, 0x00, 0x7B, 0x00},
                {0x0D, 0xAB, 0x01, 0x00, 0x00, 0x0F, 0x00, 0x00, 0x00, 0xA5, 0x00, 0x00, 0x00},
                {0x0E, 0xAC, 0x02, 0x00, 0x01, 0x00, 0xFF, 0x00, 0x00, 0x00, 0x3C, 0x00, 0x00, 0x00},
                {0x0E, 0xAC, 0x03, 0x00, 0x00, 0x03, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
                {0x0D, 0xAD, 0x04, 0x00, 0x02, 0x02, 0x00, 0x00, 0x00, 0x80, 0x96, 0x98, 0x00},
                {0x07, 0xAE, 0x05, 0x00, 0x09, 0x02, 0x00}},
            *CKVX_HdwKvxUnitProfile::Of(5)}, // the Travin's
    };
}

TEST(CommandRecords, EachRecordByteForByte)
{
    for (const RecordCase& c : RecordCases()) {
        SCOPED_TRACE(c.What);
        TestUnit dev(c.Profile);
        dev.AddInstance();
        c.Attach(dev, dev.Inst());
        EXPECT_EQ(QueuedRecords(dev.Inst()), c.Records);
    }
}

// Settings a record cannot carry, missing channels and units, commands outside the unit's profile: 2, nothing attached,
// no number used.
TEST(CommandRecords, RefusalsAttachNothing)
{
    TestUnit dev;
    dev.AddInstance();
    CKVX_HdwArinc429TxPort::CParameters atx;
    atx.WordIntergap = 0;
    EXPECT_EQ(dev.AttachAtxConfigCommand(0, 0, atx), 2u);
    atx.WordIntergap = 319;
    EXPECT_EQ(dev.AttachAtxConfigCommand(0, 4, atx), 2u); // no fifth transmitter
    EXPECT_EQ(dev.AttachAtxConfigCommand(1, 0, atx), 2u); // no second unit
    CKVX_HdwArinc429RxPort::CParameters arx;
    EXPECT_EQ(dev.AttachArxConfigCommand(0, 4, arx, true, nullptr), 2u);
    CKVX_HdwUartPort::CParameters uart;
    uart.Parity = 3;
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 0, uart), 2u);
    std::tie(uart.Parity, uart.StopBits) = std::tuple(0, 1);
    EXPECT_EQ(dev.AttachUartConfigCommand(0, 0, uart), 2u);
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0x10, 0, 1, 0, 0, 0)), 2u);
    EXPECT_EQ(dev.AttachAtxCtxCtrlCommand(0, 0, Ctrl(0x10, 1025, 1, 0, 0, 0)), 2u);
    const uint8_t param = 0;
    EXPECT_EQ(dev.AttachCommand(1u, 9, &param, 1), 2u); // no such unit
    EXPECT_TRUE(dev.Inst()->CommandList.IsEmpty());
    ASSERT_EQ(dev.AttachAtxConfigCommand(0, 0, atx), 0u);
    EXPECT_EQ(QueuedRecords(dev.Inst())[0][2], 0x00) << "the refusals took no number";

    // Discrete settings and banks of the Travin.
    TestUnit travin(*CKVX_HdwKvxUnitProfile::Of(5));
    travin.AddInstance();
    CKVX_HdwDiscreteInPort::CParameters in;
    CKVX_HdwDiscreteOutPort::CParameters out;
    EXPECT_EQ(travin.AttachDiscreteInConfigCommand(0, 4, in, true), 2u); // banks 0..3
    in.DebounceUs = 15;
    EXPECT_EQ(travin.AttachDiscreteInConfigCommand(0, 0, in, true), 2u);
    out.InitialState = 0x100;
    EXPECT_EQ(travin.AttachDiscreteOutConfigCommand(0, 0, out, true), 2u);
    EXPECT_EQ(travin.AttachDiscreteOutWriteCommand(0, 0, 4, 0x01, 0), 2u); // operation 4
    EXPECT_EQ(travin.AttachDiscreteOutWriteCommand(0, 0, Base::DiscreteWrite, 0xFF, 0x100), 2u);
    EXPECT_EQ(travin.AttachDiscreteOutPulseCommand(0, 0, 0x01, 9), 2u);
    EXPECT_EQ(travin.AttachDiscreteReadCommand(0, 0, 0), 2u); // no bank asked
    EXPECT_EQ(travin.AttachDiscreteReadCommand(0, 0x10, 0), 2u); // bank 4
    EXPECT_EQ(travin.AttachCanConfigCommand(0, 0), 2u); // the other units' channel commands
    EXPECT_TRUE(travin.Inst()->CommandList.IsEmpty());

    // Only the commands of the unit's profile are taken: channels alone do not make them.
    Base::CUnitProfile p = FullProfile();
    p.Commands = Base::CmdSession | Base::CmdStatusRequest | Base::CmdCanConfig | Base::CmdCanPush;
    p.DiscreteInBanks = p.DiscreteOutBanks = 4;
    TestUnit some(p);
    some.AddInstance();
    CKVX_HdwArinc429Message word;
    EXPECT_EQ(some.AttachKeepAliveCommand(0), 2u);
    EXPECT_EQ(some.AttachAtxPushCommand(0, 0, &word, 1), 2u);
    EXPECT_EQ(some.Attach1553ConfigCommand(0, 0), 2u);
    EXPECT_EQ(some.AttachDiscreteInConfigCommand(0, 0, CKVX_HdwDiscreteInPort::CParameters(), true), 2u);
    EXPECT_EQ(some.AttachDiscreteReadCommand(0, 1, 0), 2u);
    EXPECT_TRUE(some.Inst()->CommandList.IsEmpty());
    CKVX_HdwCanMessage frame;
    EXPECT_EQ(some.AttachCanPushCommand(0, 1, &frame, 1), 0u);
    EXPECT_EQ(some.AttachCanConfigCommand(0, 0), 0u);
    EXPECT_EQ(some.Inst()->CommandList.GetLength(), 2u);
}

TEST(HaldenDevice, HardwareIdGivesTheUnitNumber)
{
    CKVX_HdwKvxHaldenDevice d;
    const std::pair<std::vector<const char*>, unsigned> cases[] = {{{"USB", "  halden unit 07  "}, 7},
        {{"x", "HDW42"}, 42}, {{"x", "unit 4a"}, 0}, {{"x", "5"}, 0}, {{"HDW42"}, 0}, {{"a", "HDW42", "c"}, 0}};
    for (const auto& [texts, unit] : cases) {
        CKVX_List<CKVX_String> ids;
        for (const char* t : texts)
            ids += CKVX_String(t);
        EXPECT_EQ(d.ProcessHardwareID(ids), unit) << texts.back();
    }
}

} // namespace
