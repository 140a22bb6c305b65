// hdwtool's core: syntaxes people type, columns other programs read, capture formats (pcapng: capture/test_pcap.py).
#include "CandumpLog.h"
#include "Channel.h"
#include "Cli.h"
#include "Format.h"
#include "GeneratorLabels.h"
#include "MasterSend.h"
#include "PcapWriter.h"
#include "Ports.h"
#include "Session.h"
#include "StatusLine.h"
#include "TimeColumn.h"
#include "Values.h"

#include <gtest/gtest.h>

#include <tuple>

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

// Each syntax: a table of what it takes (and makes of it) and what it refuses (with words of its message).
TEST(CanSyntax, FramesParseAndFormatBackOrAreRefused)
{
    // Dotted or lower-case bytes, an extended identifier with leading zeros; standard ids take 3 digits.
    const struct {
        const char* Text;
        const char* Formatted; // nullptr: refused
        const char* Says = "";
    } cases[] = {{"123#DEADBEEF", "123#DEADBEEF"}, {"1F334455#R", "1F334455#R"}, {"7FF#R3", "7FF#R3"}, {"123#", "123#"},
        {"123#de.ad", "123#DEAD"}, {"00000123#11.22.33.44.55.66.77.88", "00000123#1122334455667788"},
        {"005#0A", "005#0A"}, {"12#34", nullptr, "3 hex digits"}, {"800#00", nullptr, "above 7FF"},
        {"123#010203040506070809", nullptr, "longer than 8"}, {"123#ABC", nullptr, "whole hex bytes"},
        {"123##1", nullptr, "CAN FD"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Text);
        CKVX_HdwCanMessage f;
        std::string error;
        ASSERT_EQ(ParseCanFrame(c.Text, f, error), c.Formatted != nullptr) << error;
        if (c.Formatted)
            EXPECT_EQ(FormatCanFrame(f), c.Formatted);
        else
            EXPECT_NE(error.find(c.Says), std::string::npos) << error;
    }
    // The fields themselves, once (the formatter could mirror a parser's fault).
    CKVX_HdwCanMessage f;
    std::string error;
    ASSERT_TRUE(ParseCanFrame("1F334455#R3", f, error));
    EXPECT_TRUE(f.Extended && f.Rtr);
    EXPECT_EQ(f.Identifier, 0x1F334455u);
    EXPECT_EQ(f.Dlc, 3);
}

// Raw words by hand: label | SDI << 8 | data << 10 | SSM << 29 | parity << 31.
TEST(Arinc429Syntax, HexWordsAndFieldsWithOctalLabelsAndOddParityOrARefusalAndLabelFilters)
{
    // Odd parity unless told (a default word and a hex word: ToolMonitor's label filter test).
    const struct {
        const char* Text;
        uint32_t Raw;
        const char* Says = nullptr; // refused with these words
    } cases[] = {{"83", 0x83}, {"label=203,sdi=1,data=0x1234,ssm=3,parity=even", 0xE048D183}, {"label=0o203", 0x83},
        {"label=377,data=524287", 0x1FFFFCFF}, {"label=400", 0, "out of range"},
        {"label=208", 0, "not a number"}, // 8 is no octal digit
        {"label=1,sdi=4", 0, "sdi"}, {"label=1,data=0x80000", 0, "19-bit"}, {"sdi=1", 0, "needs a label"},
        {"123456789", 0, ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Text);
        CKVX_HdwArinc429Message w;
        std::string error;
        ASSERT_EQ(ParseArinc429(c.Text, w, error), c.Says == nullptr) << error;
        if (c.Says)
            EXPECT_NE(error.find(c.Says), std::string::npos) << error;
        else
            EXPECT_EQ(w.GetToUint32(), c.Raw);
    }
    // Label filters: mask bit SDI + 4 x SSM for each SDI and SSM taken.
    LabelAccept a;
    std::string error;
    const std::tuple<const char*, int, int> good[] = {
        {"203", 0x83, 0xFFFF}, {"203:1", 0x83, 0x2222}, {"0x10:0:3", 0x10, 0x1000}};
    for (const auto& [text, label, mask] : good) {
        ASSERT_TRUE(ParseLabelAccept(text, a, error)) << error;
        EXPECT_EQ(std::tuple(int(a.Label), int(a.Mask())), std::tuple(label, mask)) << text;
    }
    for (const char* bad : {"203:4", "203:1:2:3", "999"})
        EXPECT_FALSE(ParseLabelAccept(bad, a, error)) << bad;
}

TEST(GeneratorSyntax, LabelsWithEachPatternOrARefusal)
{
    using Gen = CKVX_HdwDataGeneratorService;
    Gen::CLabelDef d;
    std::string error;
    ASSERT_TRUE(ParseGeneratorLabel("label=203,rate=12.5,sdi=1,ssm=3,data=0x1234", d, error)) << error;
    EXPECT_EQ(std::tuple(int(d.Label), d.Rate, int(d.Sdi), int(d.Ssm), int(d.Pattern), d.Data),
        std::tuple(0203, 12.5, 1, 3, int(Gen::PatternConstant), 0x1234u));
    ASSERT_TRUE(ParseGeneratorLabel("label=0x88,rate=10,counter=5:0o17,step=3", d, error)) << error;
    EXPECT_EQ(std::tuple(int(d.Label), int(d.Pattern), d.Min, d.Max, d.Step),
        std::tuple(0x88, int(Gen::PatternCounter), 5u, 15u, 3u));
    ASSERT_TRUE(
        ParseGeneratorLabel("label=205,rate=50,bnr=triangle,range=512,res=0.25,low=-100,high=300,period=5", d, error))
        << error;
    EXPECT_EQ(std::tuple(int(d.Pattern), int(d.Wave), d.BnrBits(), d.Low, d.High, d.Period),
        std::tuple(int(Gen::PatternBnr), int(Gen::WaveTriangle), 11u, -100.0, 300.0, 5.0));
    ASSERT_TRUE(ParseGeneratorLabel("label=207,rate=5,discrete=0x40000,toggle=0x3,period=0.5", d, error)) << error;
    EXPECT_EQ(std::tuple(int(d.Pattern), d.Mask), std::tuple(int(Gen::PatternDiscrete), 3u));

    const struct {
        const char* Text;
        const char* Says;
    } refused[] = {{"label=203,rate=0", "rate"}, {"label=203", "needs label= and rate="},
        {"label=1,rate=5,bnr=sine,range=500,res=0.25", "power of two"},
        {"label=1,rate=5,bnr=sine,range=512,res=0.25,high=600", "within"},
        {"label=1,rate=5,bcd=sine,res=1,digits=2,high=100", "digits"}, {"label=1,rate=5,counter=9:3", "lower limit"},
        {"label=1,rate=5,counter=0:9,step=0", "step"}, {"label=1,rate=5,data=1,counter=0:3", "more than one pattern"},
        {"label=1,rate=5,colour=red", "unknown field"}};
    for (const auto& r : refused) {
        SCOPED_TRACE(r.Text);
        Gen::CLabelDef before = d;
        ASSERT_FALSE(ParseGeneratorLabel(r.Text, d, error));
        EXPECT_NE(error.find(r.Says), std::string::npos) << error;
        EXPECT_EQ(d.Label, before.Label); // a refusal leaves the definition as it was
    }
}

TEST(Numbers, RatesSamplePointsAndDurations)
{
    std::string error;
    // 0: refused.
    const std::pair<const char*, uint32_t> rates[] = {{"100k", 100000}, {"12.5k", 12500}, {"1M", 1000000},
        {"low", 12500}, {"high", 100000}, {"fast", 0}, {"1.5", 0}, {"0", 0}, {"3E-8", 0}, {"0.4", 0}, {"1e-6k", 0},
        {"", 0}};
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
    // Nothing may follow the number, not even a NUL inside the string.
    const std::string withNul("5\0x", 3);
    uint32_t r = 0;
    double d = 0;
    EXPECT_FALSE(ParseBitRate(withNul, r, error));
    EXPECT_FALSE(ParseSamplePoint(std::string("0.5\0", 4), d, error));
    EXPECT_FALSE(ParseSeconds(withNul, d, error));
    EXPECT_FALSE(ParseReal("2 ", d));
    EXPECT_TRUE(ParseReal("-2.5e1", d));
    EXPECT_EQ(d, -25.0);
    uint64_t v = 0;
    EXPECT_TRUE(ParseNumber("0b101", v));
    EXPECT_EQ(v, 5u);
    EXPECT_FALSE(ParseNumber("99999999999999999999999", v));
}

TEST(UartSyntax, TextEscapesAndHex)
{
    std::string error;
    const std::pair<const char*, std::vector<uint8_t>> good[] = {{"hi\\r\\n\\x00\\\\", {'h', 'i', '\r', '\n', 0, '\\'}},
        {"hex:01.02:ff 10", {1, 2, 0xFF, 0x10}}, {"text:hex:", {'h', 'e', 'x', ':'}}};
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

TEST(PortNames, MalformedNamesAndKeysWithABadChecksumAreRefused)
{
    PortSpec s;
    std::string error;
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
    EXPECT_FALSE(ParseArgs(specs, {"-n", "1", "-n", "2"}, a, error));
    EXPECT_FALSE(ParseArgs(specs, {"--scan=1"}, a, error));
}

TEST(Columns, Arinc429CanAndUartRows)
{
    EXPECT_EQ(Arinc429Fields(12345678, "a429rx:0", CKVX_HdwArinc429Message())[0], "12.345678");
    // A word failing its receiver's parity check has "!" after its parity bit.
    CKVX_HdwArinc429Message w;
    w.SetFromUint32(0x80000083); // label 203: three ones, parity bit 1: even
    EXPECT_FALSE(Arinc429ParityOk(w));
    EXPECT_TRUE(Arinc429ParityOk(w, true));
    EXPECT_EQ(Arinc429Fields(0, "a429rx:0", w, true)[6], "1!");
    EXPECT_EQ(Arinc429Fields(0, "a429rx:0", w)[6], "1");
    const auto f = Can("1F334455#R");
    EXPECT_EQ(CanFields(5, "can:1", f), (Fields{"0.000005", "can:1", "1F334455", "0", "-", "R", "1F334455#R"}));
    EXPECT_EQ(CanFields(0, "can:1", Can("123#DE.AD"))[4], "DE.AD");
    EXPECT_EQ(UartFields(0, "uart:1", {'o', 'k'}), (Fields{"0.000000", "uart:1", "2", "6F.6B", "\"ok\""}));
    // Text rows keep their columns whatever the field lengths; CSV quotes.
    const Columns cols{{"A", "B", "C"}, {-4, 3, 0}};
    EXPECT_EQ(RenderRow({"1", "x", "tail end"}, cols, OutputFormat::Text), "   1  x    tail end");
    EXPECT_EQ(RenderRow({"1", "a,b", "say \"hi\""}, cols, OutputFormat::Csv), "1,\"a,b\",\"say \"\"hi\"\"\"");
}

// Drops and link losses show once there are any; the summary always names them.
TEST(StatusText, CountsRatesAndLosses)
{
    std::vector<PortStatus> ports = {{"a429rx:0", 150, 49.6, 0}, {"can:1", 7, 0, 0}};
    EXPECT_EQ(FormatStatus(3.04, ports, 0), "3.0 s  a429rx:0 150 (50/s)  can:1 7 (0/s)");
    EXPECT_EQ(FormatStatus(1, {{"a429rx:0", 1, 1}}, 10).size(), 9u);
    EXPECT_EQ(FormatLosses(ports, {}), "dropped a429rx:0 0, can:1 0; link: 0 bad frames, 0 lost echoes");
    ports[1].Dropped = 3;
    EXPECT_EQ(FormatStatus(3.04, ports, 0), "3.0 s  a429rx:0 150 (50/s)  can:1 7 (0/s) dropped 3");
    EXPECT_EQ(FormatStatus(3.04, ports, 0, {1, 2}),
        "3.0 s  a429rx:0 150 (50/s)  can:1 7 (0/s) dropped 3  link: 1 bad frame, 2 lost echoes");
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

TEST(TimeColumnText, RelativeAbsoluteAndDeltaFromOneHostClock)
{
    // Host clock 5000 s, wall clock 1,764,000,000 s ahead of it.
    const uint64_t start = 5000000000;
    const int64_t wall = 1764000000000000;
    TimeColumn relative(TimeMode::Relative, start, wall);
    EXPECT_EQ(relative.Shown(start + 4294967296 + 7), 4294967296u + 7) << "past 32 bits, no wrap";
    EXPECT_EQ(relative.Shown(start - 5), 0u) << "before the start";
    TimeColumn absolute(TimeMode::Absolute, start, wall);
    EXPECT_EQ(FormatTime(absolute.Shown(start + 250)), "1764005000.000250");
    TimeColumn delta(TimeMode::Delta, start, wall);
    EXPECT_EQ(delta.Shown(start + 100), 0u);
    EXPECT_EQ(delta.Shown(start + 350), 250u);
    EXPECT_EQ(delta.Shown(start + 300), 0u) << "a line older than the one before";
    EXPECT_EQ(delta.Shown(start + 400), 100u);
}

// What the Wendal test in program_test sends no example of.
TEST(ToolMasterValues, I2cAndSpiTransferSyntax)
{
    CKVX_HdwI2cTransfer t, noAddress;
    CKVX_HdwSpiTransfer s;
    std::string error, spiError, i2cError;
    EXPECT_FALSE(hdwtool::ParseI2cValue("write=hex:01", noAddress, error));
    EXPECT_FALSE(error.empty());
    ASSERT_TRUE(hdwtool::ParseSpiValue("out=hex:01.02,cs=1,keep=1", s, spiError)) << spiError;
    EXPECT_EQ(
        std::tuple(s.Out.Items(), int(s.ChipSelect), s.KeepSelected), std::tuple(std::vector<uint8_t>{1, 2}, 1, true));
    ASSERT_TRUE(hdwtool::ParseI2cValue("addr=0x250,tenbit=1,write=hex:07.08,reg=6,read=3", t, i2cError)) << i2cError;
    EXPECT_EQ(t.Address, 0x250u);
    EXPECT_TRUE(t.TenBit);
    EXPECT_EQ(t.Write.Items(), (std::vector<uint8_t>{6, 7, 8})); // the register first
    EXPECT_EQ(t.ReadLength, 3u);
}

// Lines of candump and other writers (fewer decimals, a direction column, blanks around) parse, or are refused
// with a reason; written back as monitor --log writes them: seconds padded to ten digits, microseconds to six.
TEST(CandumpLog, LinesOfEveryWriterParseAndFormatAsCandumpDoesOrAreRefused)
{
    EXPECT_EQ(
        FormatCandumpLine(5, CandumpInterface("can:12"), Can("1F334455#R3")), "(0000000000.000005) can12 1F334455#R3");
    const struct {
        const char* Line;
        const char* Written; // "": an error frame; nullptr: refused, saying Says
        const char* Says = "";
    } cases[] = {
        {"(1700000000.000042) can0 123#DEADBEEF", "(1700000000.000042) can0 123#DEADBEEF"},
        {"(1.0) can3 00000001#0102030405060708", "(0000000001.000000) can3 00000001#0102030405060708"},
        {"  (12.5) vcan0 001#8D R ", "(0000000012.500000) vcan0 001#8D"},
        {"(1.000001) slcan0 00000123#R T", "(0000000001.000001) slcan0 00000123#R"},
        {"(1.0) can0 20000080#0000000000000000", ""}, // CAN_ERR_FLAG in an 8-digit id
        {"1.0 can0 123#00", nullptr, "time stamp"},
        {"(1.1234567) can0 123#00", nullptr, "time stamp"},
        {"(1.0) can0", nullptr, "INTERFACE ID#DATA"},
        {"(1.0) can0 123#DE.AD", nullptr, "separator"},
        {"(1.0) can0 123", nullptr, "not a CAN frame"},
    };
    for (const auto& c : cases) {
        CandumpRecord r;
        std::string error;
        ASSERT_EQ(ParseCandumpLine(c.Line, r, error), c.Written != nullptr) << c.Line << ": " << error;
        EXPECT_NE(error.find(c.Says), std::string::npos) << c.Line << ": " << error;
        if (!c.Written)
            continue;
        EXPECT_EQ(r.ErrorFrame, *c.Written == 0) << c.Line;
        if (*c.Written) {
            EXPECT_EQ(FormatCandumpLine(r.TimeUs, r.Interface, r.Frame), c.Written);
        }
    }
}

// Version, flags, channel, a spare byte and the word in network byte order.
TEST(CaptureRecords, Arinc429RecordInNetworkByteOrderAndLabelOrder)
{
    CKVX_HdwArinc429Message w;
    w.SetFromUint32(0x6048D183);
    Arinc429RecordInfo info;
    info.Transmitted = true;
    info.EvenParity = true;
    info.Channel = 3;
    const auto a = Arinc429Record(w, info);
    EXPECT_EQ(std::vector<uint8_t>(a.begin(), a.end()), (std::vector<uint8_t>{1, 0x09, 3, 0, 0x60, 0x48, 0xD1, 0x83}));
    info = {};
    info.WireOrder = true;
    info.ParityError = true;
    EXPECT_EQ(Arinc429Record(w, info)[1], 0x06);
    // The label byte reversed for wire order (label 203 in wire order: capture/test_pcap.py).
    EXPECT_EQ(LabelNumber(0x01, LabelOrder::Wire), 0x80);
    for (unsigned b = 0; b < 256; ++b)
        EXPECT_EQ(LabelNumber(LabelNumber(uint8_t(b), LabelOrder::Wire), LabelOrder::Wire), b);
    LabelOrder order;
    std::string error;
    EXPECT_TRUE(ParseLabelOrder("wire", order, error) && order == LabelOrder::Wire);
    EXPECT_FALSE(ParseLabelOrder("msb", order, error));
    EXPECT_NE(error.find("reversed or wire"), std::string::npos);
}
