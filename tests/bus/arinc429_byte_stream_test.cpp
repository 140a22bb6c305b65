// Byte streams carried in ARINC 429 words.
#include "TestBusDevice.h"

#include <HdwLib/bus/internal/Arinc429StreamWord.h>

#include <gtest/gtest.h>

#include <bit>
#include <numeric>
#include <vector>

using namespace bustest;

namespace {

using CByteIn = CTestArinc429ByteInService;
using CByteOut = CKVX_HdwArinc429ByteOutBufferService;

// The SSM counts the bytes above the sequence count; parity mode 0 is odd, 1 even.
TEST(Arinc429StreamWord, BytesSitAboveTheCountAndTheSsmCountsThem)
{
    const uint8_t bytes[2] = {0xA5, 0x3C};
    for (const uint8_t count : {2, 1}) {
        SCOPED_TRACE(int(count));
        const CKVX_HdwArinc429Message w = hdw::bus::PackStreamWord(0x6B, 2, 5, bytes, count, 2 - count);
        const uint32_t v = w.GetToUint32();
        EXPECT_EQ(v & 0x1FFF, 0x6Bu | 2u << 8 | 5u << 10);
        EXPECT_EQ((v >> 13) & 0xFFFF, count == 2 ? 0x3CA5u : 0xA5u);
        EXPECT_EQ((v >> 29) & 3, count);
        EXPECT_EQ(std::popcount(v) % 2, count == 2 ? 1 : 0);
        hdw::bus::SStreamWord back;
        ASSERT_TRUE(hdw::bus::UnpackStreamWord(w, back));
        EXPECT_EQ(back.Sequence, 5);
        EXPECT_EQ(back.Count, count);
        EXPECT_EQ(back.Bytes[0], 0xA5);
        if (count == 2) {
            EXPECT_EQ(back.Bytes[1], 0x3C);
        }
    }
}

TEST(Arinc429StreamWord, SequenceCheckCountsGapsAcrossTheWrapAndSpotsRepeats)
{
    bool synced = false;
    uint8_t last = 0;
    auto c = hdw::bus::CheckStreamSequence(synced, last, 6);
    EXPECT_FALSE(c.Repeat);
    EXPECT_EQ(c.Lost, 0u);
    EXPECT_EQ(hdw::bus::CheckStreamSequence(synced, last, 7).Lost, 0u);
    EXPECT_EQ(hdw::bus::CheckStreamSequence(synced, last, 0).Lost, 0u); // 7 -> 0 wraps
    EXPECT_TRUE(hdw::bus::CheckStreamSequence(synced, last, 0).Repeat);
    EXPECT_EQ(last, 0); // a repeat leaves the state
    EXPECT_EQ(hdw::bus::CheckStreamSequence(synced, last, 1).Lost, 0u);
    EXPECT_EQ(hdw::bus::CheckStreamSequence(synced, last, 3).Lost, 1u);
    EXPECT_EQ(hdw::bus::CheckStreamSequence(synced, last, 2).Lost, 6u); // 4..7, 0, 1 missing across the wrap
    EXPECT_EQ(hdw::bus::CheckStreamSequence(synced, last, 1).Lost, 6u); // the most a 3-bit count tells
}

class Arinc429ByteStream : public CArinc429Rig<CByteIn, CByteOut> {
protected:
    void SetUp() override
    {
        in = Install<CByteIn>(rx);
        out = Install<CByteOut>(tx);
    }
    void Configure(uint8_t label, uint8_t sdi, uint32_t inSize = 0, uint32_t outSize = 0)
    {
        CKVX_HdwArinc429ByteInBufferService::CParameters pi;
        pi.Label = label;
        pi.Sdi = sdi;
        pi.BufferSize = inSize;
        ASSERT_EQ(in->SetParameters(&pi), 0u);
        CKVX_HdwArinc429ByteOutBufferService::CParameters po;
        po.Label = label;
        po.Sdi = sdi;
        po.BufferSize = outSize;
        ASSERT_EQ(out->SetParameters(&po), 0u);
    }
    // What the unit would put on the bus for everything queued.
    std::vector<CKVX_HdwArinc429Message> Send()
    {
        std::vector<CKVX_HdwArinc429Message> words(4096);
        tx->DeviceLock();
        const unsigned n = out->BuildWords(words.data(), unsigned(words.size()));
        out->CommitWords(n);
        tx->DeviceUnlock();
        words.resize(n);
        return words;
    }
    void Receive(const std::vector<CKVX_HdwArinc429Message>& words)
    {
        for (const auto& w : words)
            rig.ReceiveWord(w, time++);
    }
    std::vector<uint8_t> ReadAll()
    {
        std::vector<uint8_t> got(100000);
        unsigned n = 0;
        EXPECT_EQ(in->Read(got.data(), unsigned(got.size()), n), 0u);
        got.resize(n);
        return got;
    }

    uint64_t time = 100;
};

TEST_F(Arinc429ByteStream, LostWordsAreCountedRepeatsDroppedAndBadWordsRejected)
{
    Configure(0x30, 0);
    ASSERT_EQ(rx->Open(nullptr), 0u); // parity mode 0: odd expected
    ASSERT_EQ(tx->Open(nullptr), 0u);
    std::vector<uint8_t> sent(40);
    std::iota(sent.begin(), sent.end(), uint8_t(1));
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u);
    auto words = Send(); // 20 words, counts 0..7, 0..7, 0..3
    ASSERT_EQ(words.size(), 20u);

    std::vector<CKVX_HdwArinc429Message> bus;
    std::vector<uint8_t> expected;
    auto pass = [&](size_t i) {
        bus.push_back(words[i]);
        expected.push_back(sent[2 * i]);
        expected.push_back(sent[2 * i + 1]);
    };
    pass(0);
    pass(1);
    bus.push_back(words[1]); // repeated
    pass(3); // word 2 lost
    CKVX_HdwArinc429Message bad = words[4];
    bad.Parity ^= 1;
    bus.push_back(bad); // rejected, and so missing
    CKVX_HdwArinc429Message noCount = words[5];
    noCount.Ssm = 3;
    noCount.SetParity(0);
    bus.push_back(noCount); // rejected
    bus.push_back(hdw::bus::PackStreamWord(0x30, 1, 6, sent.data(), 2, 0)); // another SDI: not the stream
    bus.push_back(hdw::bus::PackStreamWord(0x31, 0, 6, sent.data(), 2, 0)); // another label
    pass(6);
    for (size_t i = 8; i < 20; ++i) // word 7 lost; 8 (count 0) wraps
        pass(i);
    Receive(bus);

    EXPECT_EQ(ReadAll(), expected);
    EXPECT_EQ(in->GetLostWords(), 4u); // 2, 4, 5, 7
    EXPECT_EQ(in->GetRepeatedWords(), 1u);
    EXPECT_EQ(in->GetRejectedWords(), 2u);

    // After a reset the next word is taken whatever its count; Start clears the counters.
    EXPECT_EQ(in->ResetReadBuffer(), 0u);
    Receive({words[13]});
    EXPECT_EQ(ReadAll(), std::vector<uint8_t>({sent[26], sent[27]}));
    EXPECT_EQ(in->GetLostWords(), 4u);
    ASSERT_EQ(in->Stop(), 0u);
    ASSERT_EQ(in->Start(), 0u);
    EXPECT_EQ(in->GetLostWords(), 0u);
    EXPECT_EQ(in->GetRepeatedWords(), 0u);
    EXPECT_EQ(in->GetRejectedWords(), 0u);
}

TEST_F(Arinc429ByteStream, TheTransmittersAndTheReceiversParityModesDecide)
{
    Configure(0x30, 0);
    CKVX_HdwArinc429TxPort::CParameters tp;
    tp.Parity = 1;
    ASSERT_EQ(tx->Open(&tp), 0u);
    uint8_t sent[3] = {0x81, 0x42, 0x24};
    ASSERT_EQ(out->Write(sent, 3, 0), 0u);
    for (const auto& w : Send())
        EXPECT_EQ(std::popcount(w.GetToUint32()) % 2, 0) << "even";

    CKVX_HdwArinc429RxPort::CParameters p;
    p.Parity = 2; // ignored
    ASSERT_EQ(rx->Open(&p), 0u);
    const uint8_t b[2] = {9, 8};
    CKVX_HdwArinc429Message w = hdw::bus::PackStreamWord(0x30, 0, 0, b, 2, 0);
    w.Parity ^= 1;
    Receive({w});
    EXPECT_EQ(in->GetRejectedWords(), 0u);
    EXPECT_EQ(ReadAll(), std::vector<uint8_t>({9, 8}));
    ASSERT_EQ(rx->Close(), 0u);

    p.Parity = 1; // even: what an odd-parity sender makes is refused
    ASSERT_EQ(rx->Open(&p), 0u);
    Receive({hdw::bus::PackStreamWord(0x30, 0, 1, b, 2, 0), hdw::bus::PackStreamWord(0x30, 0, 2, b, 2, 1)});
    EXPECT_EQ(in->GetRejectedWords(), 1u);
    EXPECT_EQ(ReadAll(), std::vector<uint8_t>({9, 8}));
}

TEST_F(Arinc429ByteStream, ParametersBoundsAndRunStates)
{
    Configure(0x30, 0, 5, 16);
    CKVX_HdwArinc429ByteInBufferService::CParameters bad;
    bad.Sdi = 4;
    EXPECT_EQ(in->SetParameters(&bad), 2u);
    // Through the byte output's own parameter class only the size changes.
    CKVX_HdwByteOutBufferService::CParameters plain;
    plain.BufferSize = 8;
    ASSERT_EQ(static_cast<CKVX_HdwByteOutBufferService*>(out)->SetParameters(&plain), 0u);
    CKVX_HdwArinc429ByteOutBufferService::CParameters back;
    ASSERT_EQ(out->GetParameters(&back), 0u);
    EXPECT_EQ(back.BufferSize, 8u);
    EXPECT_EQ(back.Label, 0x30);

    uint8_t b[20] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    unsigned n = 7;
    EXPECT_EQ(in->Read(b, 1, n), 29u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(out->Write(b, 1, 0), 29u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    ASSERT_EQ(tx->Open(nullptr), 0u);
    EXPECT_EQ(in->SetParameters(&bad), 10u); // open: no change at all
    EXPECT_EQ(out->Write(b, 1, 1), 2u);
    EXPECT_EQ(out->Write(b, 9, 0), 2u); // beyond BufferSize: nothing queued
    unsigned pending = 1;
    out->GetBytesToBeWritten(pending);
    EXPECT_EQ(pending, 0u);
    EXPECT_EQ(out->Write(b, 5, 0), 0u);
    EXPECT_EQ(out->Write(b, 4, 0), 2u); // 3 free
    EXPECT_EQ(out->Write(b, 3, 0), 0u);
    EXPECT_EQ(in->Read(nullptr, 1, n), 2u);

    // A full input drops the oldest bytes and counts them (a word may lose its first byte only).
    Receive(Send());
    EXPECT_EQ(in->GetDroppedBytes(), 3u);
    EXPECT_EQ(in->GetDroppedCount(), 3u);
    uint64_t times[8] = {};
    ASSERT_EQ(in->ReadTimed(b, times, 8, n), 0u);
    EXPECT_EQ(std::vector<uint8_t>(b, b + n), std::vector<uint8_t>({4, 5, 1, 2, 3}));
    EXPECT_EQ(std::vector<uint64_t>(times, times + n), std::vector<uint64_t>({101, 102, 102, 103, 103}));
    rig.Fail(HDW_PORT_ARINC429_RX, "RX0");
    EXPECT_EQ(in->Read(b, 1, n), 15u);
    EXPECT_EQ(in->GetReadBufferBytes(n), 15u);
}

} // namespace
