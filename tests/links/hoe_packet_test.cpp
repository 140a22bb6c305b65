#include <HdwLib/links/HdwHoe.h>

#include "support/BitwiseCrc.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace {

using Packet = CKVX_HdwHoe::t_HoePacket_Union;

using testsupport::BitwiseCrc16;

Packet Filled(unsigned char value)
{
    Packet p;
    std::memset(p.Bytes, value, sizeof p.Bytes);
    return p;
}

} // namespace

TEST(HoePacket, DetectIsByteForByteTheKnownPacket)
{
    CKVX_HdwHoe hoe(0x12345678);
    Packet p = Filled(0xEE); // the builder must clear everything
    hoe.BuildDetectPacket(7, p);

    std::array<unsigned char, 64> expected{};
    const unsigned char head[] = {
        0xA1, 0x00, 0x00, 0xFE, 0x01, 0x00, 0x78, 0x56, 0x34, 0x12, 0x00, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00};
    std::memcpy(expected.data(), head, sizeof head);
    expected[32] = 0x01;
    expected[35] = 0xF0;
    // CRC computed outside this library for exactly these 64 bytes.
    expected[62] = 0x25;
    expected[63] = 0x43;
    for (unsigned i = 0; i < 64; ++i)
        EXPECT_EQ(p.Bytes[i], expected[i]) << "byte " << i;
    EXPECT_EQ(CKVX_HdwHoe::GetPacketSize(p), 64u);
    for (unsigned i = 64; i < CKVX_HdwHoe::PacketSize; ++i)
        ASSERT_EQ(p.Bytes[i], 0) << "byte " << i;
}

TEST(HoePacket, PortBuilderCoversTheLengthTheCallerSet)
{
    using Builder = void (CKVX_HdwHoe::*)(unsigned, unsigned, unsigned, unsigned, Packet&);
    const std::pair<Builder, uint32_t> cases[] = {{&CKVX_HdwHoe::BuildOpenPortPacket, 0xA0000001u},
        {&CKVX_HdwHoe::BuildClosePortPacket, 0xA0000003u}, {&CKVX_HdwHoe::BuildKeepAlivePortPacket, 0xA0000005u},
        {&CKVX_HdwHoe::BuildDataBufPortPacket, 0xA0000006u}, {&CKVX_HdwHoe::BuildCctxPortPacket, 0xA0000008u},
        {&CKVX_HdwHoe::BuildRstTxPortPacket, 0xA000000Au}, {&CKVX_HdwHoe::BuildRstRxPortPacket, 0xA000000Cu},
        {&CKVX_HdwHoe::BuildDctxPortPacket, 0xA000000Eu}, {&CKVX_HdwHoe::BuildCfgPortPacket, 0xA0000010u}};
    CKVX_HdwHoe hoe(0xCAFE);
    for (const auto& [build, code] : cases) {
        Packet p = Filled(0);
        CKVX_HdwHoe::SetPacketNumber(p, 41);
        CKVX_HdwHoe::SetPayloadLength(p, 10);
        for (unsigned i = 0; i < 20; ++i)
            p.Bytes[64 + i] = static_cast<unsigned char>(i + 1);
        p.Bytes[62] = 0x77; // stale CRC must not count
        (hoe.*build)(3, 0x10002, 0x30004, 9, p);

        EXPECT_EQ(CKVX_HdwHoe::GetCode(p), code);
        EXPECT_EQ(CKVX_HdwHoe::GetFirstWord(p), 3u);
        EXPECT_EQ(CKVX_HdwHoe::GetSecondWord(p), 9u);
        EXPECT_EQ(CKVX_HdwHoe::GetPacketNumber(p), 41u);
        EXPECT_EQ(CKVX_HdwHoe::GetU16(p, 26), 2u); // port type kept to 16 bits
        EXPECT_EQ(CKVX_HdwHoe::GetU16(p, 28), 4u); // channel kept to 16 bits
        EXPECT_EQ(CKVX_HdwHoe::GetPayloadLength(p), 10u);
        Packet zeroed = p;
        zeroed.Bytes[62] = zeroed.Bytes[63] = 0;
        EXPECT_EQ(CKVX_HdwHoe::GetU16(p, 62), BitwiseCrc16(zeroed.Bytes, 74));
        EXPECT_NE(CKVX_HdwHoe::GetU16(p, 62), BitwiseCrc16(zeroed.Bytes, 75));
    }
}

TEST(HoePacket, EachAcceptanceCheckRejectsWhatItShould)
{
    constexpr unsigned kClient = 0x51515151;
    constexpr unsigned kFirst = 0x1234;
    const auto recrc = [](Packet& p) { CKVX_HdwHoe::SetU16(p, 62, CKVX_HdwHoe::ComputeCrc(p)); };
    const auto reply = [&](unsigned payload) {
        std::vector<unsigned char> data(payload, 0x5A);
        Packet p;
        CKVX_HdwHoe(kClient).BuildSendCmdPacket(kFirst, 7, data.data(), static_cast<unsigned short>(payload), p);
        CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffCode, CKVX_HdwHoe::CodeEventData);
        recrc(p);
        return p;
    };
    using Edit = void (*)(Packet&);
    struct Case {
        const char* what;
        unsigned payload;
        int size;
        Edit edit;
        bool recrc;
        CKVX_HdwHoe::t_HoeCheck expected;
    };
    const Case cases[] = {
        {"good", 4, 68, [](Packet&) {}, false, CKVX_HdwHoe::HoeAccepted},
        {"largest payload", 1350, 1414, [](Packet&) {}, false, CKVX_HdwHoe::HoeAccepted},
        {"other version", 4, 68, [](Packet& p) { CKVX_HdwHoe::SetU16(p, CKVX_HdwHoe::OffVersion, 9); }, true,
            CKVX_HdwHoe::HoeAccepted},
        {"read failed", 4, -1, [](Packet&) {}, false, CKVX_HdwHoe::HoeCheckRead},
        {"shorter than a header", 4, 63, [](Packet&) {}, false, CKVX_HdwHoe::HoeCheckMinSize},
        {"signature", 4, 68, [](Packet& p) { p.Bytes[3] = 0xFF; }, true, CKVX_HdwHoe::HoeCheckSignature},
        {"client", 4, 68, [](Packet& p) { CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffClientId, kClient + 1); }, true,
            CKVX_HdwHoe::HoeCheckClientId},
        {"first word", 4, 68, [](Packet& p) { CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffFirstWord, kFirst + 1); }, true,
            CKVX_HdwHoe::HoeCheckFirstWord},
        {"payload over the maximum", 1350, 1414, [](Packet& p) { CKVX_HdwHoe::SetPayloadLength(p, 1351); }, false,
            CKVX_HdwHoe::HoeCheckPayloadMax},
        {"one byte longer than length + 64", 4, 69, [](Packet&) {}, false, CKVX_HdwHoe::HoeCheckLength},
        {"crc", 4, 68, [](Packet& p) { p.Bytes[65] ^= 0x01; }, false, CKVX_HdwHoe::HoeCheckCrc},
        {"code", 4, 68,
            [](Packet& p) { CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffCode, CKVX_HdwHoe::CodeDisconnectReply); }, true,
            CKVX_HdwHoe::HoeCheckCode},
    };
    CKVX_HdwHoe host(kClient);
    for (const Case& c : cases) {
        Packet p = reply(c.payload);
        c.edit(p);
        if (c.recrc)
            recrc(p);
        const Packet before = p;
        EXPECT_EQ(host.CheckReceivedPacket(p, c.size, kFirst, CKVX_HdwHoe::CodeEventData), c.expected) << c.what;
        EXPECT_EQ(0, std::memcmp(before.Bytes, p.Bytes, sizeof p.Bytes)) << "the check altered the packet";
    }
    // With a list of wanted codes, any of them passes.
    const uint32_t codes[] = {CKVX_HdwHoe::CodeKeepAlivePort, CKVX_HdwHoe::CodeEventData};
    EXPECT_EQ(host.CheckReceivedPacket(reply(4), 68, kFirst, codes, 2), CKVX_HdwHoe::HoeAccepted);
}
