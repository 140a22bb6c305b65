#include <HdwLib/core/KvxBuffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {
std::vector<uint8_t> Bytes(const CKVX_Buffer& b)
{
    return std::vector<uint8_t>(b.GetData(), b.GetData() + b.GetLength());
}
} // namespace

TEST(Buffer, MultiByteValuesAreStoredLittleEndian)
{
    CKVX_Buffer b;
    b << uint8_t(0xA1) << uint16_t(0x0201) << uint32_t(0x06050403) << uint64_t(0x0E0D0C0B0A090807ull);
    EXPECT_EQ(Bytes(b), (std::vector<uint8_t>{0xA1, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A,
                                              0x0B, 0x0C, 0x0D, 0x0E}));
    CKVX_Buffer s;
    s << int16_t(-2) << int32_t(-1) << true << CKVX_String("AB");
    EXPECT_EQ(Bytes(s), (std::vector<uint8_t>{0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 2, 0, 0, 0, 'A', 'B'}));
}

TEST(Buffer, ValuesReadBackAsWritten)
{
    CKVX_Buffer b;
    b << int8_t(-5) << int16_t(-300) << int32_t(-70000) << int64_t(-5000000000ll) << uint64_t(~0ull) << false
      << CKVX_String("hello") << CKVX_String("");
    int8_t i8 = 0;
    int16_t i16 = 0;
    int32_t i32 = 0;
    int64_t i64 = 0;
    uint64_t u64 = 0;
    bool flag = true;
    CKVX_String text, empty("x");
    b >> i8 >> i16 >> i32 >> i64 >> u64 >> flag >> text >> empty;
    EXPECT_FALSE(b.Fail());
    EXPECT_EQ(i8, -5);
    EXPECT_EQ(i16, -300);
    EXPECT_EQ(i32, -70000);
    EXPECT_EQ(i64, -5000000000ll);
    EXPECT_EQ(u64, ~0ull);
    EXPECT_FALSE(flag);
    EXPECT_EQ(text, "hello");
    EXPECT_EQ(empty, "");
    EXPECT_EQ(b.GetRemaining(), 0u);
}

TEST(Buffer, ReadingPastTheEndFailsYieldsZeroAndStaysFailed)
{
    const uint8_t three[] = {1, 2, 3};
    CKVX_Buffer b(three, 3);
    uint32_t v = 0xDEADBEEF;
    b >> v;
    EXPECT_TRUE(b.Fail());
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(b.GetRemaining(), 0u);
    uint8_t next = 0xAA;
    b >> next;
    EXPECT_TRUE(b.Fail());
    EXPECT_EQ(next, 0u);

    b.ClearFail();
    b.SetReadPos(1);
    uint16_t tail = 0;
    b >> tail;
    EXPECT_FALSE(b.Fail());
    EXPECT_EQ(tail, 0x0302);
}

TEST(Buffer, ReadOfMoreThanRemainsCopiesNothing)
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
    EXPECT_TRUE(b.Read(out, 0));
    EXPECT_FALSE(b.Fail());
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

TEST(Buffer, SetReadPosClampsAndClearEmpties)
{
    CKVX_Buffer b;
    b << uint32_t(1);
    b.SetReadPos(100);
    EXPECT_EQ(b.GetReadPos(), 4u);
    EXPECT_EQ(b.GetRemaining(), 0u);
    b.Write(nullptr, 5);
    EXPECT_EQ(b.GetLength(), 4u);
    uint8_t x = 0;
    b >> x;
    EXPECT_TRUE(b.Fail());
    b.Clear();
    EXPECT_EQ(b.GetLength(), 0u);
    EXPECT_EQ(b.GetReadPos(), 0u);
    EXPECT_FALSE(b.Fail());
}
