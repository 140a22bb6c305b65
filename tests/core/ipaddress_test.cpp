#include <HdwLib/core/KvxIpAddress.h>

#include <gtest/gtest.h>

#include <utility>

TEST(IpAddress, DottedDecimalParsesIntoHostOrderAndPrintsBackAtEveryOctetBoundary)
{
    const std::pair<const char*, uint32_t> cases[] = {{"192.168.1.20", 0xC0A80114u}, {"0.0.0.0", 0u}, {"0.0.0.1", 1u},
        {"0.0.0.255", 0xFFu}, {"0.0.1.0", 0x100u}, {"10.11.12.13", 0x0A0B0C0Du}, {"127.0.0.1", 0x7F000001u},
        {"255.255.255.254", 0xFFFFFFFEu}, {"255.255.255.255", 0xFFFFFFFFu}};
    for (const auto& [text, value] : cases) {
        CKVX_IpAddress a;
        ASSERT_TRUE(a.FromString(text)) << text;
        EXPECT_EQ(a.GetHostOrder(), value) << text;
        EXPECT_EQ(a.ToString(), text);
    }
    EXPECT_EQ(CKVX_IpAddress(192, 168, 1, 20).GetHostOrder(), 0xC0A80114u);
    EXPECT_TRUE(CKVX_IpAddress(127, 200, 0, 9).IsLoopback());
    EXPECT_FALSE(CKVX_IpAddress(128, 0, 0, 1).IsLoopback());
}

TEST(IpAddress, MalformedTextIsRefusedAndLeavesTheAddress)
{
    const char* malformed[] = {"", ".", "1.2.3", "1.2.3.4.5", "1.2.3.4.", ".1.2.3.4", "1..2.3", "256.1.1.1",
        "1.2.3.256", "1.2.3.1000", "0001.2.3.4", "1.2.3.-4", " 1.2.3.4", "1.2.3.4 ", "1.2.3.4\n", "a.b.c.d", "1,2,3,4",
        "1.2.3.4:80", "....", "999.999.999.999"};
    const CKVX_IpAddress before(10, 0, 0, 1);
    for (const char* text : malformed) {
        CKVX_IpAddress a = before;
        EXPECT_FALSE(a.FromString(text)) << '"' << text << '"';
        EXPECT_EQ(a, before) << '"' << text << '"';
    }
    CKVX_IpAddress a = before;
    EXPECT_FALSE(a.FromString(CKVX_String("1.2.3.4\0", 8)));
    EXPECT_EQ(a, before);
}
