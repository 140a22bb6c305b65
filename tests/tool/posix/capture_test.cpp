// The capture formats of hdwtool: candump log lines of every writer parsed
// and written back, malformed lines refused with a reason, and the ARINC 429
// record (the pcapng file and its SocketCAN records: capture/test_pcap.py).
#include "CandumpLog.h"
#include "Format.h"
#include "PcapWriter.h"
#include "Values.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hdwtool;

// Lines of candump and other writers (fewer decimals, a direction column,
// blanks around) parse; written back they read as monitor --log writes them:
// seconds zero-padded to ten digits, microseconds to six.
TEST(CandumpLog, LinesOfEveryWriterParseAndFormatAsCandumpDoes)
{
    CKVX_HdwCanMessage f;
    std::string error;
    ASSERT_TRUE(ParseCanFrame("1F334455#R3", f, error));
    EXPECT_EQ(FormatCandumpLine(5, CandumpInterface("can:12"), f), "(0000000000.000005) can12 1F334455#R3");
    const struct {
        const char* Line;
        const char* Written; // "": an error frame
    } cases[] = {
        {"(1700000000.000042) can0 123#DEADBEEF", "(1700000000.000042) can0 123#DEADBEEF"},
        {"(1.0) can3 00000001#0102030405060708", "(0000000001.000000) can3 00000001#0102030405060708"},
        {"  (12.5) vcan0 001#8D R ", "(0000000012.500000) vcan0 001#8D"},
        {"(1.000001) slcan0 00000123#R T", "(0000000001.000001) slcan0 00000123#R"},
        {"(1.0) can0 20000080#0000000000000000", ""}, // CAN_ERR_FLAG in an 8-digit id
    };
    for (const auto& c : cases) {
        CandumpRecord r;
        ASSERT_TRUE(ParseCandumpLine(c.Line, r, error)) << c.Line << ": " << error;
        EXPECT_EQ(r.ErrorFrame, *c.Written == 0) << c.Line;
        if (*c.Written) {
            EXPECT_EQ(FormatCandumpLine(r.TimeUs, r.Interface, r.Frame), c.Written);
        }
    }
}

TEST(CandumpLog, MalformedLinesAreRefusedWithAReason)
{
    const struct {
        const char* Line;
        const char* Says;
    } cases[] = {
        {"1.0 can0 123#00", "time stamp"},
        {"(1.1234567) can0 123#00", "time stamp"},
        {"(1.0) can0", "INTERFACE ID#DATA"},
        {"(1.0) can0 12#00", "3 hex digits"},
        {"(1.0) can0 123##1DEAD", "CAN FD"},
        {"(1.0) can0 123#DE.AD", "separator"},
        {"(1.0) can0 123", "not a CAN frame"},
    };
    for (const auto& c : cases) {
        CandumpRecord r;
        std::string error;
        EXPECT_FALSE(ParseCandumpLine(c.Line, r, error)) << c.Line;
        EXPECT_NE(error.find(c.Says), std::string::npos) << c.Line << ": " << error;
    }
}

// Version, flags, channel, a spare byte and the word in network byte order.
TEST(CaptureRecords, Arinc429RecordInNetworkByteOrder)
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
}

TEST(CaptureRecords, LabelOrderReversesTheLabelByteOnlyForWireOrder)
{
    EXPECT_EQ(LabelNumber(0x83, LabelOrder::Reversed), 0x83);
    EXPECT_EQ(LabelNumber(0xC1, LabelOrder::Wire), 0x83); // 203 octal
    EXPECT_EQ(LabelNumber(0x01, LabelOrder::Wire), 0x80);
    for (unsigned b = 0; b < 256; ++b)
        EXPECT_EQ(LabelNumber(LabelNumber(uint8_t(b), LabelOrder::Wire), LabelOrder::Wire), b);
    LabelOrder order;
    std::string error;
    EXPECT_TRUE(ParseLabelOrder("wire", order, error) && order == LabelOrder::Wire);
    EXPECT_FALSE(ParseLabelOrder("msb", order, error));
    EXPECT_NE(error.find("reversed or wire"), std::string::npos);
}
