// The Halden driver without a unit: the unit number in its hardware identifier.
#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

namespace {

TEST(HaldenDevice, HardwareIdGivesTheUnitNumber)
{
    CKVX_HdwKvxHaldenDevice d;
    auto ids = [](std::initializer_list<const char*> texts) {
        CKVX_List<CKVX_String> l;
        for (const char* t : texts)
            l += CKVX_String(t);
        return l;
    };
    EXPECT_EQ(d.ProcessHardwareID(ids({"USB", "  halden unit 07  "})), 7u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"x", "HDW42"})), 42u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"x", "unit 4a"})), 0u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"x", "5"})), 0u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"HDW42"})), 0u);
    EXPECT_EQ(d.ProcessHardwareID(ids({"a", "HDW42", "c"})), 0u);
}

} // namespace
