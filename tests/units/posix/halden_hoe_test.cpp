// The ARINC 429 case over HOE: the emulated unit on a UDP port of 127.0.0.1.
#include "HaldenRig.h"

using namespace halden_test;

namespace {

using InService = CKVX_HdwKvxHaldenDevice::CArinc429InBufferService;
using OutService = CKVX_HdwKvxHaldenDevice::CArinc429OutBufferService;

TEST(HaldenHoe, WordsOnAllFourPairsArriveInOrderOverUdp)
{
    Rig rig(true);
    rig.Start();
    InService* in[4];
    OutService* out[4];
    for (unsigned ch = 0; ch < 4; ++ch) {
        in[ch] = rig.Enable<InService>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_IN_BUFFER);
        out[ch] = rig.Enable<OutService>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_ARINC429_OUT_BUFFER);
        ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_RX, ch)->Open(nullptr), 0u);
        ASSERT_EQ(rig.Port(HDW_PORT_ARINC429_TX, ch)->Open(nullptr), 0u);
    }
    EXPECT_TRUE(rig.Sim.HasUdpSession());
    // More than one Ethernet frame's worth per channel (1345 payload bytes = 134 words).
    constexpr unsigned kWords = 1000;
    for (unsigned ch = 0; ch < 4; ++ch) {
        std::vector<CKVX_HdwArinc429Message> words;
        for (unsigned i = 0; i < kWords; ++i)
            words.push_back(Word(0x60 + ch, i));
        ASSERT_EQ(out[ch]->Write(words.data(), kWords, 0), 0u);
    }
    for (unsigned ch = 0; ch < 4; ++ch) {
        const auto got = ReadWords(in[ch], kWords, 20000);
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
