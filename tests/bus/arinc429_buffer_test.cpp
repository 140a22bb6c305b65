#include "TestBusDevice.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

using namespace bustest;

namespace {

using Key = std::tuple<unsigned, unsigned, unsigned>;

// The (label, SDI, SSM) combinations the filter passes.
std::vector<Key> Accepted(CTestArinc429InService& s)
{
    std::vector<Key> passed;
    for (unsigned l = 0; l < 256; ++l)
        for (unsigned sdi = 0; sdi < 4; ++sdi)
            for (unsigned ssm = 0; ssm < 4; ++ssm) {
                CKVX_HdwArinc429Message m = Word(l, sdi, ssm);
                if (s.Filter(m))
                    passed.emplace_back(l, sdi, ssm);
            }
    return passed;
}

} // namespace

TEST(Arinc429Filter, AcceptAndDiscardPerLabelSdiAndSsm)
{
    CTestArinc429InService s(nullptr);
    EXPECT_EQ(Accepted(s).size(), 256u * 16u); // a new service accepts everything
    CKVX_HdwArinc429Message outOfRange = Word(1, 0, 4); // SSM 4: bit 16 does not exist
    EXPECT_EQ(s.Filter(outOfRange), 0);
    EXPECT_EQ(s.AcceptMessage(0x12, 0, 0x0F), 0u); // an empty mask discards the label
    EXPECT_EQ(s.DiscardMessage(0x13), 0u);
    EXPECT_EQ(Accepted(s).size(), 254u * 16u);
    EXPECT_EQ(s.AcceptAllMessages(), 0u);
    EXPECT_EQ(Accepted(s).size(), 256u * 16u);

    EXPECT_EQ(s.DiscardAllMessages(), 0u);
    EXPECT_TRUE(Accepted(s).empty());
    EXPECT_EQ(s.AcceptMessage(0x31, 0x02, 0x01), 0u); // SDI 1, SSM 0
    EXPECT_EQ(s.AcceptMessage(0x40, 0x01, 0x08), 0u); // SDI 0, SSM 3
    EXPECT_EQ(s.AcceptMessage(0x50, 0xF1, 0xF1), 0u); // only the low four bits of each mask count
    EXPECT_EQ(s.AcceptMessage(0x60, 0x0A, 0x04), 0u); // SDI 1 and 3 with SSM 2
    EXPECT_EQ(s.AcceptMessage(0x70, 0x0F, 0x0F), 0u); // every SDI and SSM
    std::vector<Key> want = {{0x31, 1, 0}, {0x40, 0, 3}, {0x50, 0, 0}, {0x60, 1, 2}, {0x60, 3, 2}};
    for (unsigned k = 0; k < 16; ++k)
        want.emplace_back(0x70, k / 4, k % 4);
    EXPECT_EQ(Accepted(s), want);
}

class Arinc429InBuffer : public CArinc429Rig<CTestArinc429InService> {
protected:
    void SetUp() override { ASSERT_NE(in = Enable<CTestArinc429InService>(rx, 4), nullptr); }
    unsigned Waiting()
    {
        unsigned n = 0;
        EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
        return n;
    }
};

TEST_F(Arinc429InBuffer, StoppedAnswers29FailedAnswers15AndRestartEmptiesTheListButKeepsTheFilter)
{
    unsigned n = 5;
    CKVX_HdwArinc429Message m;
    EXPECT_EQ(in->GetReadMessagesNumber(n), 29u);
    EXPECT_EQ(n, 0u);

    in->DiscardMessage(0x21);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    rig.ReceiveWord(Word(0x20, 0, 0), 1);
    rig.Fail(HDW_PORT_ARINC429_RX, "RX0");
    EXPECT_EQ(in->GetStatus(), 2u);
    n = 9;
    EXPECT_EQ(in->Read(&m, 1, n), 15u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 15u);
    rx->Close();
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(Waiting(), 0u);
    rig.ReceiveWord(Word(0x21, 0, 0), 2);
    rig.ReceiveWord(Word(0x20, 0, 0), 3);
    EXPECT_EQ(Waiting(), 1u); // the filter survived the restart
}
