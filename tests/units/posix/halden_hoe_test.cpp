// The ARINC 429 case over HOE: the emulated unit on a UDP port of 127.0.0.1.
#include "HaldenRig.h"

using namespace halden_test;

namespace {

TEST(HaldenHoe, WordsOnAllFourPairsArriveInOrderOverUdp)
{
    Rig rig(true);
    rig.Start();
    Rig::Arinc429Pair pairs[4];
    for (unsigned ch = 0; ch < 4; ++ch)
        pairs[ch] = rig.OpenPair(ch);
    EXPECT_TRUE(rig.Sim.HasUdpSession());
    // More than one Ethernet frame's worth per channel (1345 payload bytes = 134 words).
    constexpr unsigned kWords = 1000;
    for (unsigned ch = 0; ch < 4; ++ch) {
        std::vector<CKVX_HdwArinc429Message> words;
        for (unsigned i = 0; i < kWords; ++i)
            words.push_back(Word(0x60 + ch, i));
        ASSERT_EQ(pairs[ch].Out->Write(words.data(), kWords, 0), 0u);
    }
    for (unsigned ch = 0; ch < 4; ++ch) {
        const auto got = ReadWords(pairs[ch].In, kWords, 20000);
        ASSERT_EQ(got.size(), kWords) << "channel " << ch;
        uint64_t last = 0;
        for (unsigned i = 0; i < kWords; ++i) {
            EXPECT_EQ(got[i], Word(0x60 + ch, i)) << "channel " << ch << " word " << i;
            EXPECT_GE(got[i].TimeStamp, last);
            last = got[i].TimeStamp;
        }
        EXPECT_NE(last, 0u);
        EXPECT_EQ(rig.Sim.GetCounters().A429FifoDropped[ch], 0u);
    }
}

} // namespace
