#include <HdwLib/core/KvxIpAddress.h>

#include <gtest/gtest.h>

TEST(IpAddress, ParsesDottedDecimalIntoHostOrder)
{
    CKVX_IpAddress a;
    ASSERT_TRUE(a.FromString("192.168.1.20"));
    EXPECT_EQ(a.GetHostOrder(), 0xC0A80114u);
    EXPECT_EQ(a, CKVX_IpAddress(192, 168, 1, 20));
    EXPECT_EQ(a.ToString(), "192.168.1.20");
    ASSERT_TRUE(a.FromString("0.0.0.0"));
    EXPECT_TRUE(a.IsAny());
    ASSERT_TRUE(a.FromString("255.255.255.255"));
    EXPECT_TRUE(a.IsBroadcast());
    ASSERT_TRUE(a.FromString("127.0.0.1"));
    EXPECT_TRUE(a.IsLoopback());
    EXPECT_FALSE(a.IsBroadcast());
}

TEST(IpAddress, MalformedTextIsRefusedAndLeavesTheAddress)
{
    const char* malformed[] = {"",         ".",           "1.2.3",       "1.2.3.4.5",  "1.2.3.4.",   ".1.2.3.4",
                               "1..2.3",   "256.1.1.1",   "1.2.3.256",   "1.2.3.1000", "0001.2.3.4", "1.2.3.-4",
                               " 1.2.3.4", "1.2.3.4 ",    "1.2.3.4\n",   "a.b.c.d",    "1,2,3,4",    "1.2.3.4:80",
                               "....",     "999.999.999.999"};
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

TEST(IpAddress, ToStringRoundTripsEveryOctetBoundary)
{
    for (uint32_t v : {0u, 1u, 0xFFu, 0x100u, 0x0A0B0C0Du, 0x7F000001u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        const CKVX_IpAddress a(v);
        CKVX_IpAddress b;
        ASSERT_TRUE(b.FromString(a.ToString())) << a.ToString().c_str();
        EXPECT_EQ(b.GetHostOrder(), v);
    }
}
