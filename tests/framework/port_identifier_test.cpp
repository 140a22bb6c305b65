#include "TestDevice.h"

#include <gtest/gtest.h>

using namespace fwtest;
using CPortIdentifier = CKVX_HdwManager::CPortIdentifier;

namespace {

// Worked out independently with a bit-by-bit CRC-16 (0x1021, init 0xFFFF).
const char* const kHaldenKey = "2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@5C00";
const char* const kLinkKey = "4@7@M@F@@/dev/pts/7@00000001@C75E";

TEST(PortIdentifier, BuildsTheKnownKeysRefusesWhatCannotBeAKeyAndParsesThemBack)
{
    CPortIdentifier id;
    ASSERT_EQ(id.Set(4, 7, "M", "F", "", "/dev/pts/7", 1), 0u);
    EXPECT_EQ(id.GetKeyString(), kLinkKey);
    ASSERT_EQ(id.Set(2, 0, "Kalvionix Engineering", "Halden", "1.0", "SN1234", 3), 0u);
    EXPECT_EQ(id.GetKeyString(), kHaldenKey);
    EXPECT_EQ(id.Set(0, 0, "M", "F", "R", "S", 0), 2u) << "port type 0";
    EXPECT_EQ(id.Set(2, 0, "M", "F", "R", "S@N", 0), 2u) << "serial number with @";
    EXPECT_EQ(id.GetKeyString(), kHaldenKey) << "a refused build leaves the previous key";

    EXPECT_TRUE(CPortIdentifier::IsValid(kHaldenKey) && CPortIdentifier::IsValid(kLinkKey));
    EXPECT_FALSE(CPortIdentifier::IsValid(""));
    EXPECT_FALSE(CPortIdentifier::IsValid("2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@5c00")) << "lower case";
    EXPECT_FALSE(CPortIdentifier::IsValid("2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@5C01")) << "wrong CRC";
    EXPECT_FALSE(CPortIdentifier::IsValid("2@0@Kalvionix Engineering@Halden@1.0@SN1234@5C00")) << "a field missing";
    CPortIdentifier parsed;
    ASSERT_EQ(parsed.Set(CKVX_String(kHaldenKey)), 0u);
    EXPECT_NE(parsed.Set(CKVX_String("2@0@x@y@z@w@00000003@0000")), 0u);
    EXPECT_EQ(parsed.GetKeyString(), kHaldenKey) << "a failed parse keeps the previous contents";
    EXPECT_EQ(parsed.GetFullName(), "Halden");
    // Fields parsed back in the wrong place or form would build another key.
    unsigned type = 0, abs = 99, channel = 0;
    CKVX_String m, f, r, sn;
    ASSERT_EQ(parsed.Get(&type, &abs, &m, &f, &r, &sn, &channel), 0u);
    CPortIdentifier again;
    ASSERT_EQ(again.Set(type, abs, m, f, r, sn, channel), 0u);
    EXPECT_EQ(again.GetKeyString(), kHaldenKey);
}

TEST(PortIdentifierMatch, IgnoresAbsoluteNumberButNotChannelOrIdentity)
{
    CPortIdentifier a, b;
    ASSERT_EQ(a.Set(2, 0, "M", "F", "R", "S", 3), 0u);
    ASSERT_EQ(b.Set(2, 5, "M", "F", "R", "S", 3), 0u);
    EXPECT_TRUE(a.CheckMatch(b));
    EXPECT_TRUE(a.CheckMatch(b.GetKeyString()));
    ASSERT_EQ(b.Set(2, 0, "M", "F", "R", "S", 4), 0u);
    EXPECT_FALSE(a.CheckMatch(b)) << "another channel";
    ASSERT_EQ(b.Set(3, 0, "M", "F", "R", "S", 3), 0u);
    EXPECT_FALSE(a.CheckMatch(b)) << "another port type";
    ASSERT_EQ(b.Set(2, 0, "M", "F", "R", "S2", 3), 0u);
    EXPECT_FALSE(a.CheckMatch(b)) << "another unit";
    EXPECT_FALSE(a.CheckMatch(CKVX_String("garbage")));
}

// Finding a port by its key after the units came in another order, through
// real unit drivers: units/posix/units_probe_keys_test (UnitKeys).
TEST(PortIdentifierManager, AGoneUnitIsNotFoundAndAUnitWithoutSerialNumberIsKnownByItsLink)
{
    TestDevice device{20, 2, {{HDW_PORT_CAN, "0"}, {HDW_PORT_CAN, "1"}}};
    device.Serials = {"A100", "B200"};
    CKVX_HdwManager m;
    ASSERT_EQ(m.AttachDevice(&device), 0u);
    ASSERT_EQ(m.Enumerate(), 0u);
    const CKVX_HdwManager::CPortDescriptor* d = m.GetPortDescriptor(HDW_PORT_CAN, 3);
    ASSERT_NE(d, nullptr);
    const CKVX_String stored = d->Key; // CAN channel 1 of unit B200
    ASSERT_NE(m.FindPort(stored), nullptr);

    device.Serials = {"", "A100"};
    ASSERT_EQ(m.Enumerate(), 0u);
    EXPECT_EQ(m.FindPort(stored), nullptr);
    EXPECT_EQ(m.FindPort("not a key"), nullptr);
    d = m.GetPortDescriptor(HDW_PORT_CAN, 1);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->SerialNumber, "/dev/pts/0");
    CPortIdentifier id;
    ASSERT_EQ(id.Set(d->Key), 0u);
    EXPECT_EQ(id.GetSN(), "/dev/pts/0");
    EXPECT_EQ(m.GetPortDescriptor(HDW_PORT_CAN, 2)->SerialNumber, "A100") << "a serial number wins over the link";
}

} // namespace
