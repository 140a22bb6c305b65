// The frame CRC of the command protocol and the command numbering, which
// need no link.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

using namespace unittest;

namespace {

// The table-driven CRC agrees with the bit-by-bit one (support/BitwiseCrc.h) on
// every frame that protocol_link_test compares byte for byte or hands to the
// library; the check value pins both.
TEST(ProtocolCrc, CheckValueOfTheNineDigits)
{
    TestUnit dev;
    const char* digits = "123456789";
    EXPECT_EQ(dev.CalcCRC16(reinterpret_cast<const uint8_t*>(digits), 9), 0x29B1);
    EXPECT_EQ(dev.CalcCRC16(nullptr, 0), 0xFFFF);
}

TEST(CommandNumbers, RecordsLongerThan255BytesAreRefused)
{
    TestUnit dev;
    dev.AddInstance();
    std::vector<uint8_t> params(252);
    EXPECT_EQ(dev.AttachCommand(0u, 9, params.data(), 251), 0u); // 255 bytes
    EXPECT_EQ(dev.AttachCommand(0u, 9, params.data(), 252), 2u);
    EXPECT_EQ(dev.AttachCommand(1u, 9, params.data(), 1), 2u); // no such unit
    EXPECT_EQ(dev.Inst()->CommandList.GetLength(), 1u);
}

} // namespace
