#include <HdwLib/bus/HdwArinc429Message.h>

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <random>
#include <tuple>

namespace {

uint32_t Pack(unsigned label, unsigned sdi, unsigned data, unsigned ssm, unsigned parity)
{
    return label | (sdi << 8) | (data << 10) | (ssm << 29) | (parity << 31);
}

} // namespace

TEST(Arinc429Pack, EachFieldLandsInItsOwnBitsAndWordsRoundTrip)
{
    // Each field at its extremes and at a mixed value, the others different.
    const struct {
        unsigned label, sdi, data, ssm, parity;
    } rows[] = {{0xFF, 0, 0, 0, 0}, {0, 0, 0x7FFFF, 0, 0}, {0x81, 2, 0x55555, 1, 0}, {0x7E, 1, 0x2AAAA, 2, 1},
        {0x01, 0, 0x40001, 3, 1}};
    for (const auto& r : rows) {
        const uint32_t w = Pack(r.label, r.sdi, r.data, r.ssm, r.parity);
        CKVX_HdwArinc429Message m;
        m.SetFromUint32(w);
        EXPECT_EQ(
            std::tuple(m.Label, m.Sdi, m.Data, m.Ssm, m.Parity), std::tuple(r.label, r.sdi, r.data, r.ssm, r.parity))
            << std::hex << w;
    }
    // With unpacking right, the round trip makes packing right too.
    std::mt19937 rng(429);
    for (int i = 0; i < 200000 + 64; ++i) {
        const uint32_t w = i < 200000 ? uint32_t(rng()) : (i % 2 ? ~(1u << (i % 32)) : 1u << (i % 32));
        CKVX_HdwArinc429Message m;
        m.SetFromUint32(w);
        ASSERT_EQ(m.GetToUint32(), w) << std::hex << w;
    }
    // Fields are not masked: a value above its field spills into the next.
    CKVX_HdwArinc429Message m;
    m.Sdi = 4;
    EXPECT_EQ(m.GetToUint32(), 1u << 10);
    CKVX_HdwArinc429Message d;
    d.Data = 0x80000;
    EXPECT_EQ(d.GetToUint32(), 1u << 29);
}

TEST(Arinc429Compare, OnlyLabelSdiSsmAndDataCount)
{
    CKVX_HdwArinc429Message a, b;
    a.SetFromUint32(0x6ABCDE31);
    b = a;
    b.Parity ^= 1;
    std::tie(b.TimeStamp, b.AuxWord, b.AuxValue) = std::tuple(99u, 3u, 1.0);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    // One bit of label, SDI, SSM or data.
    for (uint32_t bit : {0x80u, 0x100u, 0x40000000u, 1u << 28}) {
        CKVX_HdwArinc429Message c;
        c.SetFromUint32(a.GetToUint32() ^ bit);
        c.Parity = a.Parity;
        EXPECT_TRUE(a != c) << bit;
        EXPECT_FALSE(a == c) << bit;
    }
}

TEST(Arinc429Stream, LayoutIsThreeBytesThenLittleEndianDataAndUnpackingKeepsTheRest)
{
    CKVX_HdwArinc429Message m;
    m.SetFromUint32(Pack(0x31, 2, 0x6A5C3, 3, 1));
    m.TimeStamp = 55;
    CKVX_Buffer buffer;
    buffer << m << m;
    ASSERT_EQ(buffer.GetLength(), 14u);
    const uint8_t expected[7] = {0x31, 0x02, 0x03, 0xC3, 0xA5, 0x06, 0x00};
    for (unsigned i = 0; i < 7; ++i)
        EXPECT_EQ(buffer.GetData()[i], expected[i]) << i;

    // Both leave time stamp and spares alone; only unpacking sets the parity.
    CKVX_HdwArinc429Message target;
    std::tie(target.Parity, target.TimeStamp, target.AuxWord, target.AuxValue) = std::tuple(0, 987u, 4u, 2.5);
    buffer >> target;
    EXPECT_TRUE(target == m);
    EXPECT_EQ(std::tuple(target.Parity, target.TimeStamp, target.AuxWord), std::tuple(0, 987u, 4u));
    EXPECT_EQ(buffer.GetRemaining(), 7u);
    EXPECT_FALSE(buffer.Fail());
    target.SetFromUint32(0x92345678);
    EXPECT_EQ(std::tuple(target.Parity, target.TimeStamp, target.AuxValue), std::tuple(1, 987u, 2.5));
}
