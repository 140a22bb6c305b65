// The tool's parsing and formatting core: the syntaxes people type and the
// columns other programs read.
#include "Channel.h"
#include "Cli.h"
#include "Format.h"
#include "Ports.h"
#include "Session.h"
#include "StatusLine.h"
#include "UnitClock.h"
#include "Values.h"

#include <gtest/gtest.h>

using namespace hdwtool;

namespace {

CKVX_HdwCanMessage Can(const std::string& text)
{
    CKVX_HdwCanMessage f;
    std::string error;
    EXPECT_TRUE(ParseCanFrame(text, f, error)) << text << ": " << error;
    return f;
}

} // namespace

TEST(CanSyntax, FramesParseIntoTheirFieldsAndFormatBack)
{
    const struct {
        const char* Text;
        bool Extended;
        uint32_t Id;
        unsigned Dlc;
        bool Rtr;
        std::vector<uint8_t> Data;
        const char* Formatted;
    } cases[] = {
        {"123#DEADBEEF", false, 0x123, 4, false, {0xDE, 0xAD, 0xBE, 0xEF}, "123#DEADBEEF"},
        {"1F334455#R", true, 0x1F334455, 0, true, {}, "1F334455#R"},
        {"7FF#R3", false, 0x7FF, 3, true, {}, "7FF#R3"},
        {"123#", false, 0x123, 0, false, {}, "123#"},
        {"000#00", false, 0, 1, false, {0}, "000#00"},
        // Dotted or lower-case bytes; an extended identifier written with leading zeros.
        {"123#de.ad", false, 0x123, 2, false, {0xDE, 0xAD}, "123#DEAD"},
        {"00000123#11.22.33.44.55.66.77.88", true, 0x123, 8, false, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88},
            "00000123#1122334455667788"},
        // Standard identifiers take 3 digits, extended 8, whatever their value.
        {"005#0A", false, 5, 1, false, {0x0A}, "005#0A"},
        {"00000005#0A", true, 5, 1, false, {0x0A}, "00000005#0A"},
    };
    for (const auto& c : cases) {
        const CKVX_HdwCanMessage f = Can(c.Text);
        EXPECT_EQ(f.Extended, c.Extended) << c.Text;
        EXPECT_EQ(f.Identifier, c.Id) << c.Text;
        EXPECT_EQ(f.Dlc, c.Dlc) << c.Text;
        EXPECT_EQ(f.Rtr, c.Rtr) << c.Text;
        EXPECT_EQ(std::vector<uint8_t>(f.Data, f.Data + (f.Rtr ? 0 : f.Dlc)), c.Data) << c.Text;
        EXPECT_EQ(FormatCanFrame(f), c.Formatted);
    }
}

TEST(Arinc429Syntax, HexWordsAndFieldsWithOctalLabelsAndOddParity)
{
    // Raw words worked out by hand: label | SDI << 8 | data << 10 | SSM << 29 | parity << 31.
    const struct {
        const char* Text;
        unsigned Label, Sdi, Data, Ssm;
        uint32_t Raw;
    } cases[] = {
        {"0x6048D183", 0x83, 1, 0x1234, 3, 0x6048D183},
        {"FFFFFFFF", 0xFF, 3, 0x7FFFF, 3, 0xFFFFFFFF},
        {"83", 0x83, 0, 0, 0, 0x83},
        {"label=203,sdi=1,data=0x1234,ssm=3", 0x83, 1, 0x1234, 3, 0x6048D183}, // odd parity by default
        {"label=203,sdi=1,data=0x1234,ssm=3,parity=even", 0x83, 1, 0x1234, 3, 0xE048D183},
        {"label=0o203", 0x83, 0, 0, 0, 0x83},
        {"label=0x83", 0x83, 0, 0, 0, 0x83},
        {"label=0d131", 0x83, 0, 0, 0, 0x83},
        {"label=377,data=524287", 0xFF, 0, 0x7FFFF, 0, 0x1FFFFCFF},
        {"label=1,parity=1", 1, 0, 0, 0, 0x80000001},
    };
    for (const auto& c : cases) {
        CKVX_HdwArinc429Message w;
        std::string error;
        ASSERT_TRUE(ParseArinc429(c.Text, w, error)) << c.Text << ": " << error;
        EXPECT_EQ(w.Label, c.Label) << c.Text;
        EXPECT_EQ(w.Sdi, c.Sdi) << c.Text;
        EXPECT_EQ(w.Data, c.Data) << c.Text;
        EXPECT_EQ(w.Ssm, c.Ssm) << c.Text;
        EXPECT_EQ(w.GetToUint32(), c.Raw) << c.Text;
    }
}

// Each refusal of the CAN frame and ARINC 429 word syntaxes with the words of
// its message ("" where any message will do).
TEST(ValueSyntax, RefusesWhatCannotBeAFrameOrAWord)
{
    const struct {
        bool Can;
        const char *Text, *Says;
    } cases[] = {
        {true, "12#34", "3 hex digits"},
        {true, "800#00", "above 7FF"},
        {true, "20000000#00", "above 1FFFFFFF"},
        {true, "123#010203040506070809", "longer than 8"},
        {true, "123#ABC", "whole hex bytes"},
        {true, "123##1", "CAN FD"},
        {true, "123#R9", "length digit"},
        {true, "123DEAD", ""},
        {true, "12G#00", ""},
        {false, "label=400", "out of range"},
        {false, "label=208", "not a number"}, // 8 is no octal digit
        {false, "label=1,sdi=4", "sdi"},
        {false, "label=1,ssm=4", "ssm"},
        {false, "label=1,data=0x80000", "19-bit"},
        {false, "sdi=1", "needs a label"},
        {false, "label=1,speed=3", "unknown"},
        {false, "label=1,parity=maybe", "parity"},
        {false, "label=1,,sdi=1", ""},
        {false, "123456789", ""},
        {false, "0xZZ", ""},
    };
    for (const auto& c : cases) {
        CKVX_HdwCanMessage f;
        CKVX_HdwArinc429Message w;
        std::string error;
        EXPECT_FALSE(c.Can ? ParseCanFrame(c.Text, f, error) : ParseArinc429(c.Text, w, error)) << c.Text;
        EXPECT_NE(error.find(c.Says), std::string::npos) << c.Text << ": " << error;
    }
}

TEST(Arinc429Syntax, LabelFiltersSelectSdiAndSsm)
{
    LabelAccept a;
    std::string error;
    ASSERT_TRUE(ParseLabelAccept("203", a, error)) << error;
    EXPECT_EQ(a.Label, 0x83);
    EXPECT_EQ(a.Mask(), 0xFFFF);
    ASSERT_TRUE(ParseLabelAccept("203:1", a, error));
    EXPECT_EQ(a.Mask(), 0x2222); // SDI 1 with any SSM: bits 1, 5, 9, 13
    ASSERT_TRUE(ParseLabelAccept("0x10:0:3", a, error));
    EXPECT_EQ(a.Label, 0x10);
    EXPECT_EQ(a.Mask(), 0x1000); // bit 0 + 4 x 3
    for (const char* bad : {"203:4", "203:1:2:3", "999"})
        EXPECT_FALSE(ParseLabelAccept(bad, a, error)) << bad;
}

TEST(Numbers, RatesSamplePointsAndDurations)
{
    std::string error;
    // 0: refused.
    const std::pair<const char*, uint32_t> rates[] = {{"100k", 100000}, {"12.5k", 12500}, {"1M", 1000000},
        {"low", 12500}, {"high", 100000}, {"fast", 0}, {"1.5", 0}, {"0", 0}};
    for (const auto& [text, want] : rates) {
        uint32_t r = 0;
        const bool ok = ParseBitRate(text, r, error);
        EXPECT_EQ(ok, want != 0) << text;
        EXPECT_EQ(ok ? r : 0u, want) << text;
    }
    // A negative value: refused.
    const struct {
        bool (*Parse)(const std::string&, double&, std::string&);
        const char* Text;
        double Want;
    } reals[] = {{ParseSamplePoint, "87.5%", 0.875}, {ParseSamplePoint, "0.75", 0.75}, {ParseSamplePoint, "1.5", -1},
        {ParseSeconds, "250ms", 0.25}, {ParseSeconds, "2", 2}, {ParseSeconds, "-1", -1}};
    for (const auto& c : reals) {
        double d = 0;
        const bool ok = c.Parse(c.Text, d, error);
        EXPECT_EQ(ok, c.Want >= 0) << c.Text;
        EXPECT_DOUBLE_EQ(ok ? d : -1, c.Want) << c.Text;
    }
    uint64_t v = 0;
    EXPECT_TRUE(ParseNumber("0b101", v));
    EXPECT_EQ(v, 5u);
    EXPECT_TRUE(ParseNumber("17", v, 8));
    EXPECT_EQ(v, 15u);
    EXPECT_FALSE(ParseNumber("99999999999999999999999", v));
}

TEST(UartSyntax, TextEscapesAndHex)
{
    std::string error;
    const std::pair<const char*, std::vector<uint8_t>> good[] = {
        {"hi\\r\\n\\x00\\\\", {'h', 'i', '\r', '\n', 0, '\\'}},
        {"hex:01.02:ff 10", {1, 2, 0xFF, 0x10}},
        {"text:hex:", {'h', 'e', 'x', ':'}},
    };
    for (const auto& [text, want] : good) {
        std::vector<uint8_t> b;
        ASSERT_TRUE(ParseUartBytes(text, b, error)) << text << ": " << error;
        EXPECT_EQ(b, want) << text;
    }
    std::vector<uint8_t> b;
    for (const char* bad : {"hex:123", "bad\\q", "\\x4", ""})
        EXPECT_FALSE(ParseUartBytes(bad, b, error)) << bad;
    EXPECT_EQ(QuoteText({'a', '"', '\n', 0x7F}), "\"a\\\"\\n\\x7F\"");
}

TEST(PortNames, TypeAndNumberOrKey)
{
    PortSpec s;
    std::string error;
    const std::tuple<const char*, unsigned, unsigned> good[] = {{"a429rx:3", HDW_PORT_ARINC429_RX, 3},
        {"a429tx:0", HDW_PORT_ARINC429_TX, 0}, {"can:1", HDW_PORT_CAN, 1}, {"uart:1", HDW_PORT_UART, 1}};
    for (const auto& [text, type, num] : good) {
        ASSERT_TRUE(ParsePortSpec(text, s, error)) << text;
        EXPECT_EQ(s.PortType, type) << text;
        EXPECT_EQ(s.AbsNum, num) << text;
    }
    EXPECT_EQ(PortName(HDW_PORT_CAN, 1), "can:1");
    EXPECT_EQ(PortName(HDW_PORT_ARINC429_RX, 2), "a429rx:2");
    for (const char* bad : {"can", "can:", "can:x", "lin:0", "a429:0", ":1"})
        EXPECT_FALSE(ParsePortSpec(bad, s, error)) << bad;
    CKVX_HdwManager::CPortIdentifier id;
    ASSERT_EQ(id.Set(3, 0, "Maker", "Halden", "1.0", "SN 1", 2), 0u);
    const std::string key = id.GetKeyString().c_str();
    ASSERT_TRUE(ParsePortSpec(key, s, error)) << error;
    EXPECT_TRUE(s.ByKey);
    EXPECT_EQ(s.Key, key);
    std::string broken = key;
    broken.back() = broken.back() == '0' ? '1' : '0';
    EXPECT_FALSE(ParsePortSpec(broken, s, error));
    EXPECT_NE(error.find("checksum"), std::string::npos);
}

TEST(Links, CodeOrDriverNameThenLink)
{
    LinkSpec l;
    std::string error;
    ASSERT_TRUE(ParseLinkSpec("3:/dev/pts/5", l, error));
    EXPECT_EQ(l.DeviceCode, 3u);
    EXPECT_EQ(l.Link, "/dev/pts/5");
    ASSERT_TRUE(ParseLinkSpec("halden:udp:127.0.0.1:55003", l, error));
    EXPECT_EQ(l.DeviceCode, 3u);
    EXPECT_EQ(l.Link, "udp:127.0.0.1:55003");
    for (const char* bad : {"/dev/ttyUSB0", "x:/dev/ttyUSB0", "3:"})
        EXPECT_FALSE(ParseLinkSpec(bad, l, error)) << bad;
    EXPECT_NE(ResultText(14).find("result 14"), std::string::npos);
}

TEST(CommandLine, OptionsValuesAndPositionals)
{
    const std::vector<OptionSpec> specs = {
        {"count", 'n', true, false}, {"send", 's', true, true}, {"scan", 0, false, false}};
    ParsedArgs a;
    std::string error;
    ASSERT_TRUE(ParseArgs(specs, {"can:0", "-n", "5", "--send=a", "--send", "b", "--scan", "--", "--x"}, a, error))
        << error;
    EXPECT_EQ(a.Get("count"), "5");
    EXPECT_EQ(a.All("send"), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(a.Has("scan"));
    EXPECT_EQ(a.Positionals(), (std::vector<std::string>{"can:0", "--x"}));
    EXPECT_FALSE(ParseArgs(specs, {"--count"}, a, error));
    EXPECT_NE(error.find("needs a value"), std::string::npos);
    EXPECT_FALSE(ParseArgs(specs, {"--bogus"}, a, error));
    EXPECT_NE(error.find("unknown option"), std::string::npos);
    EXPECT_FALSE(ParseArgs(specs, {"-n", "1", "-n", "2"}, a, error));
    EXPECT_FALSE(ParseArgs(specs, {"--scan=1"}, a, error));
}

TEST(Columns, Arinc429CanAndUartRows)
{
    // The ARINC 429 columns are checked on the monitor's own output in
    // program_test (Arinc429WordsThroughALabelFilter...), the raw words in Arinc429Syntax.
    EXPECT_EQ(Arinc429Fields(12345678, "a429rx:0", CKVX_HdwArinc429Message())[0], "12.345678");
    const auto f = Can("1F334455#R");
    EXPECT_EQ(CanFields(5, "can:1", f), (Fields{"0.000005", "can:1", "1F334455", "0", "-", "R", "1F334455#R"}));
    EXPECT_EQ(CanFields(0, "can:1", Can("123#DE.AD"))[4], "DE.AD");
    EXPECT_EQ(UartFields(0, "uart:1", {'o', 'k'}), (Fields{"0.000000", "uart:1", "2", "6F.6B", "\"ok\""}));
    // Text rows keep their columns whatever the field lengths; CSV quotes.
    const Columns cols{{"A", "B", "C"}, {-4, 3, 0}};
    EXPECT_EQ(RenderRow({"1", "x", "tail end"}, cols, OutputFormat::Text), "   1  x    tail end");
    EXPECT_EQ(RenderRow({"1", "a,b", "say \"hi\""}, cols, OutputFormat::Csv), "1,\"a,b\",\"say \"\"hi\"\"\"");
    EXPECT_EQ(FormatLabel(0), "000");
    EXPECT_EQ(FormatLabel(0xFF), "377");
}

TEST(StatusText, CountsAndRatesPerPort)
{
    const std::string s = FormatStatus(3.04, {{"a429rx:0", 150, 49.6}, {"can:1", 7, 0}}, 0);
    EXPECT_EQ(s, "3.0 s  a429rx:0 150 (50/s)  can:1 7 (0/s)");
    EXPECT_EQ(FormatStatus(1, {{"a429rx:0", 1, 1}}, 10).size(), 9u);
    RateMeter m;
    m.Sample(0, 0);
    m.Sample(1, 100);
    EXPECT_DOUBLE_EQ(m.Rate(), 100);
    // 100/s for 3 s, then 50/s: after 3 s more the older rate has left the window.
    for (int i = 3; i <= 6; ++i)
        m.Sample(i * 0.5, uint64_t(i * 50));
    for (int i = 7; i <= 12; ++i)
        m.Sample(i * 0.5, uint64_t(300 + (i - 6) * 25));
    EXPECT_DOUBLE_EQ(m.Rate(), 50);
}

TEST(Values, ByPortType)
{
    Item it;
    std::string error;
    ASSERT_TRUE(ParseValueFor(HDW_PORT_CAN, "123#01", it, error));
    EXPECT_EQ(it.Frame.Identifier, 0x123u);
    ASSERT_TRUE(ParseValueFor(HDW_PORT_ARINC429_TX, "label=1", it, error));
    EXPECT_EQ(it.Word.Label, 1);
    EXPECT_FALSE(ParseValueFor(HDW_PORT_ARINC429_RX, "label=1", it, error));
    EXPECT_NE(error.find("a429tx"), std::string::npos);
}

TEST(UnitClock, CountsOnAcrossTheThirtyTwoBitWrap)
{
    constexpr uint64_t kWrap = uint64_t(1) << 32;
    UnitClock clock;
    // Stamps close together, then across the wrap.
    EXPECT_EQ(clock.Extend(0xFFFFFF00u, 1000), 0xFFFFFF00u);
    EXPECT_EQ(clock.Extend(0xFFFFFFF0u, 1100), 0xFFFFFFF0u);
    EXPECT_EQ(clock.Extend(0x00000010u, 1200), kWrap + 0x10);
    // A silent stretch of three wraps: the host clock tells how many passed.
    const uint64_t later = 1200 + 3 * kWrap + 500;
    EXPECT_EQ(clock.Extend(0x00000500u, later), 4 * kWrap + 0x500);
    // Words queued before the host read are older than the read, not a wrap older.
    EXPECT_EQ(clock.Extend(0x00000400u, later + 2000), 4 * kWrap + 0x400);
    EXPECT_EQ(clock.Extend(0x00000600u, later + 2000), 4 * kWrap + 0x600);
}
