#include <HdwLib/core/KvxString.h>

#include <gtest/gtest.h>

#include <string>

TEST(StringFormat, OutputLongerThanAnyInternalBufferIsComplete)
{
    for (unsigned n : {0u, 1u, 254u, 255u, 256u, 257u, 1000u, 70000u}) {
        const std::string payload(n, 'x');
        CKVX_String s;
        EXPECT_EQ(s.Format("[%s]", payload.c_str()), n + 2) << n;
        EXPECT_EQ(s.str(), "[" + payload + "]") << n;
    }
}

TEST(StringFormat, WideIntegersAndZeroPadding)
{
    CKVX_String s;
    s.Format("%llu", 18446744073709551615ull);
    EXPECT_EQ(s, "18446744073709551615");
    s.Format("%08d|%08d|%08X", 42, -42, 0xBEEFu);
    EXPECT_EQ(s, "00000042|-0000042|0000BEEF");
    s.Format("%llu %u", 1ull << 40, 7u);
    EXPECT_EQ(s, "1099511627776 7");
}

TEST(StringFormat, FormatReplacesAndAppendFormatAppends)
{
    CKVX_String s("old text");
    s.Format("%d", 1);
    EXPECT_EQ(s, "1");
    EXPECT_EQ(s.AppendFormat("-%s-%c", std::string(300, 'y').c_str(), 'z'), 1u + 1u + 300u + 2u);
    EXPECT_EQ(s.str(), "1-" + std::string(300, 'y') + "-z");
    EXPECT_EQ(s.Format(nullptr), 0u);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(StringSlicing, LeftRightAndMidClampToTheText)
{
    const CKVX_String s("ABCDEF");
    EXPECT_EQ(s.Left(0), "");
    EXPECT_EQ(s.Left(2), "AB");
    EXPECT_EQ(s.Left(6), "ABCDEF");
    EXPECT_EQ(s.Left(100), "ABCDEF");
    EXPECT_EQ(s.Right(2), "EF");
    EXPECT_EQ(s.Right(100), "ABCDEF");
    EXPECT_EQ(s.Mid(2), "CDEF");
    EXPECT_EQ(s.Mid(2, 3), "CDE");
    EXPECT_EQ(s.Mid(4, 100), "EF");
    EXPECT_EQ(s.Mid(5, ~0u), "F");
    EXPECT_EQ(s.Mid(6), "");
    EXPECT_EQ(s.Mid(1000, 2), "");
    EXPECT_EQ(s.Mid(0, 0), "");
    EXPECT_EQ(CKVX_String().Mid(0), "");
}

TEST(StringSlicing, ResizeRightCutsOrPadsAtTheRightEnd)
{
    CKVX_String s("ABCDEF");
    s.ResizeRight(3);
    EXPECT_EQ(s, "ABC");
    s.ResizeRight(5);
    EXPECT_EQ(s, "ABC  ");
    s.ResizeRight(7, '0');
    EXPECT_EQ(s, "ABC  00");
    s.ResizeRight(0);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(StringSearch, FindFromBeginHonoursTheStartIndex)
{
    const CKVX_String s("a@b@c");
    EXPECT_EQ(s.FindFromBegin("@"), 1);
    EXPECT_EQ(s.FindFromBegin("@", 1), 1);
    EXPECT_EQ(s.FindFromBegin("@", 2), 3);
    EXPECT_EQ(s.FindFromBegin("@", 4), -1);
    EXPECT_EQ(s.FindFromBegin("@", 5), -1);
    EXPECT_EQ(s.FindFromBegin("@", 1000), -1);
    EXPECT_EQ(s.FindFromBegin('c'), 4);
    EXPECT_EQ(s.FindFromBegin('c', 5), -1);
    EXPECT_EQ(s.FindFromBegin("b@c"), 2);
    EXPECT_EQ(s.FindFromBegin("c@"), -1);
    EXPECT_EQ(s.FindFromEnd("@"), 3);
    EXPECT_EQ(s.GetChar(4), 'c');
    EXPECT_EQ(s.GetChar(5), '\0');
}

TEST(StringConversion, ToUnsignedInEveryRadix)
{
    struct Case {
        const char* text;
        unsigned radix;
        unsigned expected;
    };
    const Case cases[] = {
        {"0", 10, 0u},          {"4294967295", 10, 4294967295u}, {"FFFFFFFF", 16, 0xFFFFFFFFu},
        {"29b1", 16, 0x29B1u},  {"00000007", 10, 7u},            {"101", 2, 5u},
        {"777", 8, 511u},       {"zZ", 36, 35u * 36u + 35u},
    };
    for (const Case& c : cases) {
        unsigned v = 12345;
        EXPECT_TRUE(CKVX_String(c.text).ToUnsigned(v, c.radix)) << c.text << " radix " << c.radix;
        EXPECT_EQ(v, c.expected) << c.text << " radix " << c.radix;
    }
}

TEST(StringConversion, ToUnsignedRejectsBadTextAndOverflowAndLeavesTheValue)
{
    const char* bad10[] = {"", "4294967296", "99999999999", "12a", "-1", "+1", " 1", "1 ", "1.0"};
    for (const char* text : bad10) {
        unsigned v = 1234;
        EXPECT_FALSE(CKVX_String(text).ToUnsigned(v)) << '"' << text << '"';
        EXPECT_EQ(v, 1234u) << '"' << text << '"';
    }
    unsigned v = 1234;
    EXPECT_FALSE(CKVX_String("100000000").ToUnsigned(v, 16));
    EXPECT_FALSE(CKVX_String("2").ToUnsigned(v, 2));
    EXPECT_FALSE(CKVX_String("8").ToUnsigned(v, 8));
    EXPECT_FALSE(CKVX_String("g").ToUnsigned(v, 16));
    EXPECT_FALSE(CKVX_String("1").ToUnsigned(v, 1));
    EXPECT_FALSE(CKVX_String("1").ToUnsigned(v, 37));
    EXPECT_EQ(v, 1234u);
    EXPECT_EQ(CKVX_String("x").ToUnsignedOr(77), 77u);
    EXPECT_EQ(CKVX_String("10").ToUnsignedOr(77, 16), 16u);
}

TEST(StringConversion, ToUint64OverflowsOnlyPast64Bits)
{
    unsigned long long v = 5;
    EXPECT_TRUE(CKVX_String("18446744073709551615").ToUint64(v));
    EXPECT_EQ(v, 18446744073709551615ull);
    v = 5;
    EXPECT_FALSE(CKVX_String("18446744073709551616").ToUint64(v));
    EXPECT_FALSE(CKVX_String("10000000000000000").ToUint64(v, 16));
    EXPECT_EQ(v, 5ull);
    EXPECT_TRUE(CKVX_String("FFFFFFFFFFFFFFFF").ToUint64(v, 16));
    EXPECT_EQ(v, ~0ull);
}

TEST(StringValue, ConstructionComparisonAndConcatenation)
{
    EXPECT_EQ(CKVX_String(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(CKVX_String("abcdef", 3), "abc");
    EXPECT_EQ(CKVX_String(std::string("x\0y", 3)).GetLength(), 3u);
    CKVX_String s("a");
    s += CKVX_String("b");
    s += "c";
    s += 'd';
    s += static_cast<const char*>(nullptr);
    EXPECT_EQ(s, "abcd");
    EXPECT_EQ(s + CKVX_String("e"), "abcde");
    EXPECT_NE(s, "abc");
    EXPECT_TRUE(CKVX_String("a") < CKVX_String("b"));
    EXPECT_STREQ(s.c_str(), "abcd");
}
