#include <HdwLib/bus/HdwArinc429Message.h>

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <random>

namespace {

uint32_t Pack(unsigned label, unsigned sdi, unsigned data, unsigned ssm, unsigned parity)
{
    return label | (sdi << 8) | (data << 10) | (ssm << 29) | (parity << 31);
}

} // namespace

TEST(Arinc429Pack, EachFieldLandsInItsOwnBitsAndWordsRoundTrip)
{
    // Sweep every field over its range with the others at a mixed value.
    for (unsigned label = 0; label < 256; ++label) {
        const unsigned v = label & 3;
        CKVX_HdwArinc429Message m;
        m.SetFromUint32(Pack(label, v, 0x55555, 3 - v, v & 1));
        EXPECT_EQ(m.Label, label);
        EXPECT_EQ(m.Sdi, v);
        EXPECT_EQ(m.Data, 0x55555u);
        EXPECT_EQ(m.Ssm, 3 - v);
        EXPECT_EQ(m.Parity, v & 1);
    }
    for (unsigned bit = 0; bit < 19; ++bit) {
        CKVX_HdwArinc429Message m;
        m.Data = 1u << bit;
        EXPECT_EQ(m.GetToUint32(), 1u << (bit + 10));
        m.SetFromUint32(1u << (bit + 10));
        EXPECT_EQ(m.Data, 1u << bit);
        EXPECT_EQ(m.Label | m.Sdi | m.Ssm | m.Parity, 0);
    }
    std::mt19937 rng(429);
    for (int i = 0; i < 200000 + 64; ++i) {
        // Random words, then every single bit set and every single bit clear.
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

TEST(Arinc429Parity, BothConventionsOverRandomWords)
{
    std::mt19937 rng(31);
    for (int i = 0; i < 20000; ++i) {
        CKVX_HdwArinc429Message m;
        m.SetFromUint32(static_cast<uint32_t>(rng())); // parity bit set at random too
        m.SetParity(0);
        EXPECT_EQ(std::popcount(m.GetToUint32()) % 2, 1);
        m.SetParity(7); // any non-zero value means even
        EXPECT_EQ(std::popcount(m.GetToUint32()) % 2, 0);
    }
}

TEST(Arinc429Compare, OnlyLabelSdiSsmAndDataCount)
{
    CKVX_HdwArinc429Message a, b;
    a.SetFromUint32(0x6ABCDE31);
    b = a;
    b.Parity ^= 1;
    b.TimeStamp = 99;
    b.AuxWord = 3;
    b.AuxValue = 1.0;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    for (int field = 0; field < 4; ++field) {
        CKVX_HdwArinc429Message c = a;
        if (field == 0)
            c.Label ^= 0x80;
        if (field == 1)
            c.Sdi ^= 1;
        if (field == 2)
            c.Ssm ^= 2;
        if (field == 3)
            c.Data ^= 0x40000;
        EXPECT_TRUE(a != c) << field;
        EXPECT_FALSE(a == c) << field;
    }
}

TEST(Arinc429Stream, LayoutIsThreeBytesThenLittleEndianData)
{
    CKVX_HdwArinc429Message m;
    m.Label = 0x31;
    m.Sdi = 2;
    m.Ssm = 3;
    m.Data = 0x0006A5C3;
    m.Parity = 1;
    m.TimeStamp = 55;
    CKVX_Buffer buffer;
    buffer << m;
    ASSERT_EQ(buffer.GetLength(), 7u);
    const uint8_t expected[7] = {0x31, 0x02, 0x03, 0xC3, 0xA5, 0x06, 0x00};
    for (unsigned i = 0; i < 7; ++i)
        EXPECT_EQ(buffer.GetData()[i], expected[i]) << i;
}

TEST(Arinc429Stream, UnpackingAndReadingKeepParityTimeStampAndSpares)
{
    CKVX_HdwArinc429Message source;
    source.SetFromUint32(0x3FFFFF77);
    CKVX_Buffer buffer;
    buffer << source << source;

    CKVX_HdwArinc429Message target;
    target.Parity = 1;
    target.TimeStamp = 987;
    target.AuxWord = 4;
    target.AuxValue = 2.5;
    buffer >> target;
    EXPECT_TRUE(target == source);
    EXPECT_EQ(target.Parity, 1);
    EXPECT_EQ(target.TimeStamp, 987u);
    EXPECT_EQ(target.AuxWord, 4u);
    EXPECT_EQ(buffer.GetRemaining(), 7u);
    EXPECT_FALSE(buffer.Fail());
    // Unpacking a word sets its parity but keeps the rest too.
    target.SetFromUint32(0x12345678);
    EXPECT_EQ(target.TimeStamp, 987u);
    EXPECT_EQ(target.AuxWord, 4u);
    EXPECT_EQ(target.AuxValue, 2.5);
}
