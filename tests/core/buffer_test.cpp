#include <HdwLib/core/KvxBuffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

TEST(Buffer, ValuesAreStoredLittleEndianAndReadBackAsWritten)
{
    CKVX_Buffer b;
    b << uint8_t(0xA1) << uint16_t(0x0201) << uint32_t(0x06050403) << uint64_t(0x0E0D0C0B0A090807ull) << int16_t(-2)
      << int32_t(-70000) << true << CKVX_String("AB") << CKVX_String("");
    const std::vector<uint8_t> expected{0xA1, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C,
        0x0D, 0x0E, 0xFE, 0xFF, 0x90, 0xEE, 0xFE, 0xFF, 0x01, 2, 0, 0, 0, 'A', 'B', 0, 0, 0, 0};
    EXPECT_EQ(std::vector<uint8_t>(b.GetData(), b.GetData() + b.GetLength()), expected);

    std::tuple<uint8_t, uint16_t, uint32_t, uint64_t, int16_t, int32_t, bool, CKVX_String, CKVX_String> got;
    auto& [u8, u16, u32, u64, i16, i32, flag, text, empty] = got;
    empty = "x";
    b >> u8 >> u16 >> u32 >> u64 >> i16 >> i32 >> flag >> text >> empty;
    EXPECT_FALSE(b.Fail());
    EXPECT_EQ(got,
        std::tuple(uint8_t(0xA1), uint16_t(0x0201), uint32_t(0x06050403), uint64_t(0x0E0D0C0B0A090807ull), int16_t(-2),
            int32_t(-70000), true, CKVX_String("AB"), CKVX_String("")));
    EXPECT_EQ(b.GetRemaining(), 0u);
}

TEST(Buffer, ShortReadsFailCopyNothingAndStayFailedUntilCleared)
{
    const uint8_t four[] = {9, 8, 7, 6};
    CKVX_Buffer b(four, 4);
    uint8_t out[8];
    std::memset(out, 0x55, sizeof out);
    b.SetReadPos(1);
    EXPECT_FALSE(b.Read(out, 4));
    EXPECT_TRUE(b.Fail());
    EXPECT_EQ(out[0], 0x55);
    EXPECT_EQ(b.GetReadPos(), 1u);
    b.ClearFail();
    EXPECT_TRUE(b.Read(out, 3));
    EXPECT_EQ(out[0], 8);
    EXPECT_EQ(out[2], 6);

    // A value read past the end yields zero and moves to the end; the buffer stays failed.
    b.SetReadPos(1);
    uint32_t v = 0xDEADBEEF;
    b >> v;
    EXPECT_TRUE(b.Fail());
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(b.GetRemaining(), 0u);
    b.ClearFail();
    b.SetReadPos(100);
    EXPECT_EQ(b.GetReadPos(), 4u) << "the read position is clamped to the data";
    b.Write(nullptr, 5);
    EXPECT_EQ(b.GetLength(), 4u);
    b.Clear();
    EXPECT_EQ(b.GetReadPos(), 0u);
}

TEST(Buffer, StringWhoseLengthExceedsTheDataFailsAndLeavesTheTarget)
{
    CKVX_Buffer b;
    b << uint32_t(10);
    b.Write("abc", 3);
    CKVX_String s("keep");
    b >> s;
    EXPECT_TRUE(b.Fail());
    EXPECT_EQ(s, "keep");

    CKVX_Buffer shortLength;
    shortLength << uint16_t(1);
    shortLength >> s;
    EXPECT_TRUE(shortLength.Fail());
    EXPECT_EQ(s, "keep");
}
