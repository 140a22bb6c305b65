#include <HdwLib/core/KvxCrc.h>

#include <gtest/gtest.h>

#include <cstring>

TEST(Crc, CheckValueOfBothSelectorsIs29B1)
{
    const char* digits = "123456789";
    unsigned short a = 0, b = 0;
    CKVX_Crc().Compute(digits, 9, a);
    CKVX_Crc(static_cast<CKVX_Crc::t_StdCrc>(0x1008)).Compute(digits, 9, b);
    EXPECT_EQ(a, 0x29B1);
    EXPECT_EQ(b, 0x29B1);
}

TEST(Crc, EmptyInputGivesInitialValueAndUpdateIsIncremental)
{
    CKVX_Crc crc;
    unsigned short empty = 0;
    crc.Compute("", 0, empty);
    EXPECT_EQ(empty, 0xFFFF);
    unsigned short whole = 0;
    crc.Compute("123456789", 9, whole);
    unsigned short part = crc.Update(crc.GetInitialValue(), "1234", 4);
    part = crc.Update(part, "56789", 5);
    EXPECT_EQ(part, whole);
}
