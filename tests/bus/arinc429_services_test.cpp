// The generic ARINC 429 services: buffered and label-oriented, and byte streams carried in words.
#include "TestBusDevice.h"

#include <HdwLib/bus/internal/Arinc429StreamWord.h>

#include <bit>
#include <numeric>
#include <tuple>
#include <vector>

using namespace bustest;
using CLabelCtrl = CKVX_HdwArinc429OutLbloService::CLabelCtrl;

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

using Arinc429InBuffer = CArinc429Rig<CTestArinc429InService>;

TEST_F(Arinc429InBuffer, StoppedAnswers29FailedAnswers15AndRestartEmptiesTheListButKeepsTheFilter)
{
    ASSERT_NE(in = Enable<CTestArinc429InService>(rx, 4), nullptr);
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
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 0u);
    rig.ReceiveWord(Word(0x21, 0, 0), 2);
    rig.ReceiveWord(Word(0x20, 0, 0), 3);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 1u) << "the filter survived the restart";
}

class Lblo : public CArinc429Rig<CTestArinc429InLbloService, CKVX_HdwArinc429OutLbloService> {
protected:
    void SetUp() override
    {
        in = Enable<CTestArinc429InLbloService>(rx, HDW_SERVICE_ARINC429_LABEL_IN);
        out = Enable<CKVX_HdwArinc429OutLbloService>(tx, HDW_SERVICE_ARINC429_LABEL_OUT);
        ASSERT_TRUE(in && out);
    }
    std::vector<CKVX_HdwArinc429Message> Changed()
    {
        std::vector<CKVX_HdwArinc429Message> changed(1024);
        unsigned n = 0;
        EXPECT_EQ(in->ReadChangedLabels(changed.data(), unsigned(changed.size()), n), 0u);
        changed.resize(n);
        return changed;
    }
};

TEST_F(Lblo, ChangedLabelsComeInLabelThenSdiOrderAndAShortArrayLeavesTheRestMarked)
{
    ASSERT_EQ(rx->Open(nullptr), 0u);
    rig.ReceiveWord(Word(0x50, 3, 0, 1), 1);
    rig.ReceiveWord(Word(0x20, 1, 0, 2), 2);
    rig.ReceiveWord(Word(0x50, 0, 0, 3), 3);
    rig.ReceiveWord(Word(0x20, 1, 0, 5), 4);
    auto c = Changed();
    ASSERT_EQ(c.size(), 3u);
    EXPECT_EQ(std::tuple(c[0].Label, c[0].Data, c[1].Label, c[1].Sdi, c[2].Sdi), std::tuple(0x20, 5u, 0x50, 0, 3));

    for (unsigned l = 1; l <= 5; ++l)
        rig.ReceiveWord(Word(l, 0, 0, l), 10 + l);
    CKVX_HdwArinc429Message two[2];
    unsigned n = 0;
    ASSERT_EQ(in->ReadChangedLabels(two, 2, n), 0u);
    ASSERT_EQ(n, 2u);
    EXPECT_EQ(two[1].Label, 2);
    EXPECT_EQ(Changed().size(), 3u);
    EXPECT_EQ(in->ReadChangedLabels(nullptr, 1, n), 2u);
}

TEST_F(Lblo, InputSwitchesResetAndStopWhileTheFilterStays)
{
    in->DiscardAllLabels();
    in->AcceptLabel(0x10, 0x03); // SDI 0 and 1
    ASSERT_EQ(rx->Open(nullptr), 0u);
    CKVX_HdwArinc429Message m;
    unsigned count = 0;
    rig.ReceiveWord(Word(0x10, 0, 0, 1), 1);
    ASSERT_EQ(in->DisableRx(), 0u);
    rig.ReceiveWord(Word(0x10, 0, 0, 2), 2);
    ASSERT_EQ(in->ReadLabel(0x10, 0, m, count), 0u);
    EXPECT_EQ(m.Data, 1u);
    ASSERT_EQ(in->EnableRx(), 0u);
    rig.ReceiveWord(Word(0x10, 0, 0, 3), 3);
    ASSERT_EQ(in->ReadLabel(0x10, 0, m, count), 0u);
    EXPECT_EQ(count, 2u);
    ASSERT_EQ(in->ResetRx(), 0u);
    EXPECT_EQ(in->ReadLabel(0x10, 0, m, count), 4u);
    rig.ReceiveWord(Word(0x10, 1, 0, 4), 4);
    ASSERT_EQ(rx->Close(), 0u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->ReadLabel(0x10, 1, m, count), 4u); // Stop and Start emptied the table
    rig.ReceiveWord(Word(0x10, 2, 0, 5), 5); // the filter still holds: SDI 2 is dropped
    rig.ReceiveWord(Word(0x11, 0, 0, 5), 5);
    rig.ReceiveWord(Word(0x10, 1, 0, 6), 6);
    EXPECT_EQ(Changed().size(), 1u);
    in->AcceptAllLabels();
    rig.ReceiveWord(Word(0x11, 2, 0, 7), 7);
    EXPECT_EQ(Changed().size(), 1u);
    rig.Fail(HDW_PORT_ARINC429_RX, "RX0");
    EXPECT_EQ(in->ReadLabel(0x10, 0, m, count), 15u);
}

TEST_F(Lblo, InputWithoutSdiKeyOneEntryPerLabelTakesEverySdi)
{
    CKVX_HdwArinc429InLbloService::CParameters p;
    p.KeyBySdi = 0;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->SetParameters(&p), 10u); // parameters change only while closed
    rig.ReceiveWord(Word(0x31, 1, 0, 1), 1);
    rig.ReceiveWord(Word(0x31, 3, 0, 2), 2);
    CKVX_HdwArinc429Message m;
    unsigned count = 0;
    ASSERT_EQ(in->ReadLabel(0x31, 2, m, count), 0u);
    EXPECT_EQ(std::tuple(m.Sdi, m.Data, count), std::tuple(3, 2u, 2u));
}

TEST_F(Lblo, OutputABadEntryRefusesTheWholeCallAndStopForgetsTheTable)
{
    CKVX_HdwArinc429OutLbloService::CParameters p;
    p.EnableOnStart = 0;
    ASSERT_EQ(out->SetParameters(&p), 0u);
    ASSERT_EQ(tx->Open(nullptr), 0u);
    EXPECT_FALSE(out->IsTxEnabled());
    ASSERT_EQ(out->EnableTx(), 0u);
    EXPECT_TRUE(out->IsTxEnabled());

    CLabelCtrl ctrls[3] = {CLabelCtrl(0x01, 10), CLabelCtrl(0x02, 0), CLabelCtrl(0x03, 10)};
    EXPECT_EQ(out->SetLabelsCtrl(ctrls, 3), 2u);
    ctrls[1].Period = 1025;
    EXPECT_EQ(out->SetLabelsCtrl(ctrls, 3), 2u);
    EXPECT_EQ(out->GetDefinedLabelsCount(), 0u);
    ctrls[1].Period = 1024;
    ASSERT_EQ(out->SetLabelsCtrl(ctrls, 2), 0u);
    CKVX_HdwArinc429Message words[2] = {Word(0x01, 0, 0, 1), Word(0x03, 0, 0, 3)};
    EXPECT_EQ(out->UpdateMessages(words, 2), 2u); // 0x03 has no control
    CKVX_HdwArinc429Message m;
    EXPECT_EQ(out->GetLabelMessage(0x01, m), 4u); // defined, and the refused call stored no data

    ASSERT_EQ(tx->Close(), 0u);
    ASSERT_EQ(tx->Open(nullptr), 0u);
    EXPECT_EQ(out->GetDefinedLabelsCount(), 0u);
    EXPECT_FALSE(out->IsTxEnabled()) << "EnableOnStart 0 holds for every Start";
    ASSERT_EQ(tx->Close(), 0u);
    EXPECT_EQ(out->ResetTx(), 29u);
}

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
    // Both ends on label 0x30, SDI 0.
    void Configure(uint32_t inSize = 0, uint32_t outSize = 0)
    {
        auto set = [](auto* service, auto params, uint32_t size) {
            std::tie(params.Label, params.BufferSize) = std::tuple(uint8_t(0x30), size);
            ASSERT_EQ(service->SetParameters(&params), 0u);
        };
        set(in, CKVX_HdwArinc429ByteInBufferService::CParameters(), inSize);
        set(out, CKVX_HdwArinc429ByteOutBufferService::CParameters(), outSize);
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
    Configure();
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
    Configure();
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
    Configure(5, 16);
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
