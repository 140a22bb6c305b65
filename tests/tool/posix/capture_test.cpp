// The capture formats of hdwtool: candump log lines of every writer parsed
// and written back, malformed lines refused with a reason, the
// pcapng block structure and the SocketCAN and ARINC 429 records.
#include "CandumpLog.h"
#include "Format.h"
#include "PcapWriter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace hdwtool;

namespace {

CKVX_HdwCanMessage Frame(uint32_t id, bool extended, bool rtr, std::vector<uint8_t> data, uint8_t dlc = 0xFF)
{
    CKVX_HdwCanMessage f;
    f.Identifier = id;
    f.Extended = extended;
    f.Rtr = rtr;
    f.Dlc = dlc != 0xFF ? dlc : uint8_t(data.size());
    for (size_t i = 0; i < data.size(); ++i)
        f.Data[i] = data[i];
    return f;
}

uint32_t Le32(const std::vector<uint8_t>& b, size_t at)
{
    return uint32_t(b.at(at)) | uint32_t(b.at(at + 1)) << 8 | uint32_t(b.at(at + 2)) << 16 |
        uint32_t(b.at(at + 3)) << 24;
}

} // namespace

// Lines of candump and other writers (fewer decimals, a direction column,
// blanks around) parse; written back they read as monitor --log writes them:
// seconds zero-padded to ten digits, microseconds to six. (The round trip of
// every line that parses is fuzz_candump_log's.)
TEST(CandumpLog, LinesOfEveryWriterParseAndFormatAsCandumpDoes)
{
    EXPECT_EQ(FormatCandumpLine(5, CandumpInterface("can:12"), Frame(0x1F334455, true, true, {}, 3)),
        "(0000000000.000005) can12 1F334455#R3");
    const struct {
        const char* Line;
        const char* Written; // "": an error frame
    } cases[] = {
        {"(1700000000.000042) can0 123#DEADBEEF", "(1700000000.000042) can0 123#DEADBEEF"},
        {"(1.0) can3 00000001#0102030405060708", "(0000000001.000000) can3 00000001#0102030405060708"},
        {"(1.0) can3 7FF#", "(0000000001.000000) can3 7FF#"},
        {"  (12.5) vcan0 001#8D R ", "(0000000012.500000) vcan0 001#8D"},
        {"(1.000001) slcan0 00000123#R T", "(0000000001.000001) slcan0 00000123#R"},
        {"(1.0) can0 20000080#0000000000000000", ""}, // CAN_ERR_FLAG in an 8-digit id
    };
    for (const auto& c : cases) {
        CandumpRecord r;
        std::string error;
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
        {"(1.0 can0 123#00", "time stamp"},
        {"(1.x) can0 123#00", "time stamp"},
        {"(-1.0) can0 123#00", "time stamp"},
        {"(1.1234567) can0 123#00", "time stamp"},
        {"(1.0) can0", "INTERFACE ID#DATA"},
        {"(1.0) can0 123#00 extra", "INTERFACE ID#DATA"},
        {"(1.0) can0 12#00", "3 hex digits"},
        {"(1.0) can0 800#00", "above 7FF"},
        {"(1.0) can0 123#DEADBEE", ""},
        {"(1.0) can0 123#0102030405060708090A", ""},
        {"(1.0) can0 123##1DEAD", "CAN FD"},
        {"(1.0) can0 123#R9", "length digit"},
        {"(1.0) can0 123#DE.AD", "separator"},
        {"(1.0) can0 123", "not a CAN frame"},
    };
    for (const auto& c : cases) {
        CandumpRecord r;
        std::string error;
        EXPECT_FALSE(ParseCandumpLine(c.Line, r, error)) << c.Line;
        EXPECT_FALSE(error.empty()) << c.Line;
        EXPECT_NE(error.find(c.Says), std::string::npos) << c.Line << ": " << error;
    }
}

TEST(CaptureRecords, SocketCanAndArinc429RecordsInNetworkByteOrder)
{
    const auto ext = SocketCanRecord(Frame(0x1F334455, true, true, {}, 3));
    EXPECT_EQ(std::vector<uint8_t>(ext.begin(), ext.end()),
        (std::vector<uint8_t>{0xDF, 0x33, 0x44, 0x55, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const auto standard = SocketCanRecord(Frame(0x123, false, false, {0xDE, 0xAD}));
    EXPECT_EQ(std::vector<uint8_t>(standard.begin(), standard.end()),
        (std::vector<uint8_t>{0, 0, 1, 0x23, 2, 0, 0, 0, 0xDE, 0xAD, 0, 0, 0, 0, 0, 0}));

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

// The file's blocks: each length a multiple of 4 and repeated at its end,
// a section header, the interfaces with their link types and names, and the
// packets with their interface, microsecond time and data.
TEST(CaptureRecords, PcapngBlocksCarryInterfacesTimesAndData)
{
    char path[] = "/tmp/hdwtool_pcap_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    {
        PcapWriter w;
        std::string error;
        ASSERT_TRUE(w.Open(path, error)) << error;
        EXPECT_EQ(w.AddInterface(LinkTypeSocketCan, "can0"), 0u);
        EXPECT_EQ(w.AddInterface(LinkTypeArinc429, "a429rx12"), 1u);
        const uint8_t five[5] = {1, 2, 3, 4, 5};
        w.Write(1, 0x0000000123456789ull, five, 5);
        w.Write(0, 7, five, 4);
        ASSERT_TRUE(w.Flush(error)) << error;
    }
    std::ifstream in(path, std::ios::binary);
    const std::vector<uint8_t> b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(path);
    struct Block {
        uint32_t Type;
        std::vector<uint8_t> Body;
    };
    std::vector<Block> blocks;
    for (size_t at = 0; at < b.size();) {
        const uint32_t len = Le32(b, at + 4);
        ASSERT_EQ(len % 4, 0u);
        ASSERT_LE(at + len, b.size());
        ASSERT_EQ(Le32(b, at + len - 4), len);
        blocks.push_back({Le32(b, at), std::vector<uint8_t>(b.begin() + long(at) + 8, b.begin() + long(at + len) - 4)});
        at += len;
    }
    ASSERT_EQ(blocks.size(), 5u);
    EXPECT_EQ(blocks[0].Type, 0x0A0D0D0Au);
    EXPECT_EQ(Le32(blocks[0].Body, 0), 0x1A2B3C4Du);
    const struct {
        uint16_t LinkType;
        std::string Name;
    } interfaces[] = {{227, "can0"}, {147, "a429rx12"}};
    for (int i = 0; i < 2; ++i) {
        const auto& body = blocks[1 + i].Body;
        EXPECT_EQ(blocks[1 + i].Type, 1u);
        EXPECT_EQ(body[0] | body[1] << 8, interfaces[i].LinkType);
        // Option if_name (2), then if_tsresol (9) = 6.
        EXPECT_EQ(body[8] | body[9] << 8, 2);
        const size_t nameLen = size_t(body[10] | body[11] << 8);
        EXPECT_EQ(std::string(body.begin() + 12, body.begin() + 12 + long(nameLen)), interfaces[i].Name);
        const size_t next = 12 + (nameLen + 3) / 4 * 4;
        EXPECT_EQ(body[next] | body[next + 1] << 8, 9);
        EXPECT_EQ(body[next + 4], 6);
    }
    const auto& p = blocks[3].Body;
    EXPECT_EQ(blocks[3].Type, 6u);
    EXPECT_EQ(Le32(p, 0), 1u);
    EXPECT_EQ(Le32(p, 4), 0x1u);
    EXPECT_EQ(Le32(p, 8), 0x23456789u);
    EXPECT_EQ(Le32(p, 12), 5u);
    EXPECT_EQ(Le32(p, 16), 5u);
    EXPECT_EQ(std::vector<uint8_t>(p.begin() + 20, p.begin() + 25), (std::vector<uint8_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(p.size(), 28u); // data padded to 4
    EXPECT_EQ(Le32(blocks[4].Body, 0), 0u);
    EXPECT_EQ(Le32(blocks[4].Body, 8), 7u);
}
