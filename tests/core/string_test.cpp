// CKVX_String's own code; what only forwards to std::string or vsnprintf is not tested.
#include <HdwLib/core/KvxString.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>

TEST(StringFormat, OutputLongerThanAnyInternalBufferIsCompleteFormatReplacesAndAppendFormatAppends)
{
    for (unsigned n : {0u, 1u, 254u, 255u, 256u, 257u, 1000u, 70000u}) {
        const std::string payload(n, 'x');
        CKVX_String s("old text");
        EXPECT_EQ(s.Format("[%s]", payload.c_str()), n + 2) << n;
        EXPECT_EQ(s.str(), "[" + payload + "]") << n;
    }
    CKVX_String s("old text");
    s.Format("%d", 1);
    EXPECT_EQ(s, "1");
    EXPECT_EQ(s.AppendFormat("-%s-%c", std::string(300, 'y').c_str(), 'z'), 1u + 1u + 300u + 2u);
    EXPECT_EQ(s.str(), "1-" + std::string(300, 'y') + "-z");
    EXPECT_EQ(s.Format(nullptr), 0u);
    EXPECT_TRUE(s.IsEmpty());
}

// The clamps and -1 answers that CKVX_String adds to std::string's substr and find.
TEST(StringSlicingAndSearch, ClampToTheTextAndAnswerMinusOne)
{
    const CKVX_String s("a@b@c");
    EXPECT_EQ(s.Right(100), "a@b@c");
    EXPECT_EQ(s.Mid(4, ~0u), "c");
    EXPECT_EQ(s.Mid(5), "");
    EXPECT_EQ(s.FindFromBegin("@", 2), 3);
    EXPECT_EQ(s.FindFromBegin("@", 4), -1);
    EXPECT_EQ(s.FindFromEnd("@"), 3);
    EXPECT_EQ(s.FindFromEnd("x"), -1);
    EXPECT_EQ(s.GetChar(5), '\0');
}

TEST(StringConversion, ToUnsignedAcceptsEveryRadixAndRejectsBadTextOrOverflowLeavingTheValue)
{
    struct Case {
        const char* text;
        unsigned radix;
        std::optional<unsigned> expected; // empty: refused
    };
    const Case cases[] = {{"0", 10, 0u}, {"4294967295", 10, 4294967295u}, {"FFFFFFFF", 16, 0xFFFFFFFFu},
        {"29b1", 16, 0x29B1u}, {"00000007", 10, 7u}, {"101", 2, 5u}, {"777", 8, 511u}, {"zZ", 36, 35u * 36u + 35u},
        {"", 10, {}}, {"4294967296", 10, {}}, {"99999999999", 10, {}}, {"12a", 10, {}}, {"-1", 10, {}}, {"+1", 10, {}},
        {" 1", 10, {}}, {"1 ", 10, {}}, {"1.0", 10, {}}, {"100000000", 16, {}}, {"2", 2, {}}, {"8", 8, {}},
        {"g", 16, {}}, {"1", 1, {}}, {"1", 37, {}}};
    for (const Case& c : cases) {
        unsigned v = 1234;
        EXPECT_EQ(CKVX_String(c.text).ToUnsigned(v, c.radix), c.expected.has_value())
            << '"' << c.text << "\" radix " << c.radix;
        EXPECT_EQ(v, c.expected.value_or(1234u)) << '"' << c.text << "\" radix " << c.radix;
    }
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

TEST(StringValue, NullTextIsEmptyAndEmbeddedZerosCount)
{
    EXPECT_EQ(CKVX_String(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(CKVX_String("abcdef", 3), "abc");
    EXPECT_EQ(CKVX_String(std::string("x\0y", 3)).GetLength(), 3u);
    CKVX_String s("a");
    s += static_cast<const char*>(nullptr);
    s += 'b';
    EXPECT_EQ(s, "ab");
}
