#include "TestBusDevice.h"

#include <gtest/gtest.h>

#include <vector>

using namespace bustest;

namespace {

CKVX_HdwArinc429Message Word(unsigned label, unsigned sdi, unsigned ssm, unsigned data = 0)
{
    CKVX_HdwArinc429Message m;
    m.Label = static_cast<uint8_t>(label);
    m.Sdi = static_cast<uint8_t>(sdi);
    m.Ssm = static_cast<uint8_t>(ssm);
    m.Data = data;
    return m;
}

// Number of (label, SDI, SSM) combinations the filter passes.
unsigned Accepted(CTestArinc429InService& s)
{
    unsigned n = 0;
    for (unsigned l = 0; l < 256; ++l)
        for (unsigned sdi = 0; sdi < 4; ++sdi)
            for (unsigned ssm = 0; ssm < 4; ++ssm) {
                CKVX_HdwArinc429Message m = Word(l, sdi, ssm);
                n += s.Filter(m);
            }
    return n;
}

} // namespace

TEST(Arinc429Filter, MaskBuildingRule)
{
    EXPECT_EQ(CKVX_HdwArinc429InBufferService::MakeFilterMask(0x0F, 0x0F), 0xFFFF);
    EXPECT_EQ(CKVX_HdwArinc429InBufferService::MakeFilterMask(0x01, 0x08), 1u << 12);
    EXPECT_EQ(CKVX_HdwArinc429InBufferService::MakeFilterMask(0, 0x0F), 0);
    EXPECT_EQ(CKVX_HdwArinc429InBufferService::MakeFilterMask(0x0F, 0), 0);
    // Only the low four bits of each mask matter.
    EXPECT_EQ(CKVX_HdwArinc429InBufferService::MakeFilterMask(0xF1, 0xF1), 0x0001);
    // SDI 1 and 3 with SSM 2: bits 9 and 11.
    EXPECT_EQ(CKVX_HdwArinc429InBufferService::MakeFilterMask(0x0A, 0x04), (1u << 9) | (1u << 11));
}

TEST(Arinc429Filter, AcceptMessageAfterDiscardAll)
{
    CTestArinc429InService s(nullptr);
    EXPECT_EQ(s.DiscardAllMessages(), 0u);
    EXPECT_EQ(Accepted(s), 0u);
    EXPECT_EQ(s.AcceptMessage(0x31, 0x02, 0x01), 0u);
    EXPECT_EQ(Accepted(s), 1u);
    CKVX_HdwArinc429Message m = Word(0x31, 1, 0);
    EXPECT_EQ(s.Filter(m), 1);

    EXPECT_EQ(s.AcceptMessage(0x40, 0x01, 0x08), 0u);
    EXPECT_EQ(s.GetLabelFilter(0x40), 1u << 12);
    CKVX_HdwArinc429Message ssm3 = Word(0x40, 0, 3);
    EXPECT_EQ(s.Filter(ssm3), 1);
    EXPECT_EQ(Accepted(s), 2u);
}

TEST(Arinc429Filter, NewServiceAcceptsEverythingAndDiscardEqualsAnEmptyMask)
{
    CTestArinc429InService s(nullptr);
    EXPECT_EQ(Accepted(s), 256u * 16u);
    CKVX_HdwArinc429Message outOfRange = Word(1, 0, 4); // SSM 4: bit 16 does not exist
    EXPECT_EQ(s.Filter(outOfRange), 0);
    EXPECT_EQ(s.AcceptMessage(0x12, 0, 0x0F), 0u);
    EXPECT_EQ(s.GetLabelFilter(0x12), 0);
    EXPECT_EQ(s.DiscardMessage(0x13), 0u);
    EXPECT_EQ(s.GetLabelFilter(0x13), 0);
    EXPECT_EQ(Accepted(s), 254u * 16u);
    EXPECT_EQ(s.AcceptAllMessages(), 0u);
    EXPECT_EQ(Accepted(s), 256u * 16u);
}

TEST(BufferServiceDefaults, TypesSizesAndParameterClasses)
{
    CKVX_HdwArinc429InBufferService in(nullptr);
    CKVX_HdwArinc429OutBufferService out(nullptr);
    CKVX_HdwByteInBufferService bin(nullptr);
    CKVX_HdwByteOutBufferService bout(nullptr);
    EXPECT_EQ(in.GetServiceType(), 4u);
    EXPECT_EQ(out.GetServiceType(), 5u);
    EXPECT_EQ(bin.GetServiceType(), 2u);
    EXPECT_EQ(bout.GetServiceType(), 3u);
    for (CKVX_HdwService* s : std::vector<CKVX_HdwService*>{&in, &out, &bin, &bout})
        EXPECT_EQ(s->GetStatus(), 0u);
    EXPECT_EQ(in.GetBufferSize(), 10000u);
    EXPECT_EQ(out.GetBufferSize(), 10000u);
    EXPECT_EQ(bin.GetBufferSize(), 10000u);
    EXPECT_EQ(bout.GetBufferSize(), 0u);

    // The output service reports 10000 while a fresh CParameters holds 1000.
    CKVX_HdwArinc429OutBufferService::CParameters op;
    EXPECT_EQ(op.BufferSize, 1000u);
    EXPECT_EQ(out.GetParameters(&op), 0u);
    EXPECT_EQ(op.BufferSize, 10000u);
    EXPECT_EQ(CKVX_HdwByteInBufferService::CParameters().BufferSize, 1000u);
    EXPECT_EQ(CKVX_HdwByteOutBufferService::CParameters().BufferSize, 1000u);

    CKVX_HdwByteOutBufferService::CParameters bp;
    bp.BufferSize = 4096;
    EXPECT_EQ(bout.SetParameters(&bp), 0u);
    bp.BufferSize = 1;
    EXPECT_EQ(bout.GetParameters(&bp), 0u);
    EXPECT_EQ(bp.BufferSize, 4096u);
    CKVX_HdwArinc429InBufferService::CParameters ip;
    ip.BufferSize = 0xFFFFFFFFu;  // no range check
    EXPECT_EQ(in.SetParameters(&ip), 0u);
    EXPECT_EQ(in.GetBufferSize(), 0xFFFFFFFFu);
}

TEST(BufferServiceDefaults, GenericOperationsAnswer8)
{
    CKVX_HdwArinc429InBufferService in(nullptr);
    CKVX_HdwArinc429OutBufferService out(nullptr);
    CKVX_HdwByteInBufferService bin(nullptr);
    CKVX_HdwByteOutBufferService bout(nullptr);
    CKVX_HdwArinc429Message m;
    unsigned n = 0;
    unsigned char bytes[4] = {};
    EXPECT_EQ(in.Read(&m, 1, n), 8u);
    EXPECT_EQ(in.GetReadMessagesNumber(n), 8u);
    EXPECT_EQ(in.ResetRx(), 8u);
    EXPECT_EQ(in.EnableRx(), 0u);
    EXPECT_EQ(in.DisableRx(), 0u);
    EXPECT_EQ(out.Write(&m, 1, 0), 8u);
    EXPECT_EQ(out.ResetWriteBuffer(), 8u);
    EXPECT_EQ(out.GetMessagesToBeWritten(n), 8u);
    EXPECT_EQ(bin.Read(bytes, 4, n), 8u);
    EXPECT_EQ(bin.GetReadBufferBytes(n), 8u);
    EXPECT_EQ(bin.ResetReadBuffer(), 8u);
    EXPECT_EQ(bout.Write(bytes, 4, 0), 8u);
    EXPECT_EQ(bout.GetBytesToBeWritten(n), 8u);
    EXPECT_EQ(bout.ResetWriteBuffer(), 8u);
}

class Arinc429InBuffer : public ::testing::Test {
protected:
    void SetUp() override
    {
        rx = rig.Rx();
        in = Enable<CTestArinc429InService>(rx, 4);
        ASSERT_NE(in, nullptr);
    }
    void Receive(const CKVX_HdwArinc429Message& word, uint64_t time)
    {
        CTestEvent e(EventArinc429Rx, "RX0", time);
        e.Word = word;
        rig.Device->Deliver(HDW_PORT_ARINC429_RX, e);
    }

    CBusRig rig;
    CTestRxPort* rx = nullptr;
    CTestArinc429InService* in = nullptr;
};

TEST_F(Arinc429InBuffer, StoppedServiceAnswers29)
{
    unsigned n = 5;
    CKVX_HdwArinc429Message m;
    EXPECT_EQ(in->GetReadMessagesNumber(n), 29u);
    EXPECT_EQ(n, 0u);
    n = 5;
    EXPECT_EQ(in->Read(&m, 1, n), 29u);
    EXPECT_EQ(n, 0u);
}

TEST_F(Arinc429InBuffer, ReceivedWordsAreFilteredStampedAndReadInOrder)
{
    in->DiscardMessage(0x77);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->GetStatus(), 1u);
    for (unsigned i = 0; i < 10; ++i)
        Receive(Word(i % 2 ? 0x77 : 0x10, 1, 2, i), 1000 + i);

    unsigned n = 0;
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 5u);
    CKVX_HdwArinc429Message out[8];
    EXPECT_EQ(in->Read(out, 0, n), 0u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(in->Read(out, 2, n), 0u);
    ASSERT_EQ(n, 2u);
    EXPECT_EQ(out[0].Data, 0u);
    EXPECT_EQ(out[0].TimeStamp, 1000u);
    EXPECT_EQ(out[1].Data, 2u);
    EXPECT_EQ(out[1].TimeStamp, 1002u);
    // More asked than waiting: everything that waits.
    EXPECT_EQ(in->Read(out, 8, n), 0u);
    ASSERT_EQ(n, 3u);
    EXPECT_EQ(out[0].Data, 4u);
    EXPECT_EQ(out[2].Data, 8u);
    EXPECT_EQ(out[2].Label, 0x10);
    EXPECT_EQ(in->Read(out, 8, n), 0u);
    EXPECT_EQ(n, 0u);
    Receive(Word(0x10, 0, 0), 1);
    EXPECT_EQ(in->Read(nullptr, 1, n), 2u);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 1u);  // a refused read takes nothing
}

TEST_F(Arinc429InBuffer, StopAndStartLoseTheListButKeepTheFilter)
{
    in->DiscardAllMessages();
    in->AcceptMessage(0x20, 0x0F, 0x0F);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    Receive(Word(0x20, 0, 0), 1);
    Receive(Word(0x21, 0, 0), 2);
    unsigned n = 0;
    in->GetReadMessagesNumber(n);
    EXPECT_EQ(n, 1u);
    ASSERT_EQ(rx->Close(), 0u);
    EXPECT_EQ(in->GetStatus(), 0u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(in->GetLabelFilter(0x20), 0xFFFF);
    EXPECT_EQ(in->GetLabelFilter(0x21), 0);
}

TEST_F(Arinc429InBuffer, FullListDropsTheOldest)
{
    CKVX_HdwArinc429InBufferService::CParameters p;
    p.BufferSize = 3;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->SetParameters(&p), 10u);  // not while open
    for (unsigned i = 0; i < 5; ++i)
        Receive(Word(1, 0, 0, i), i);
    CKVX_HdwArinc429Message out[5];
    unsigned n = 0;
    ASSERT_EQ(in->Read(out, 5, n), 0u);
    ASSERT_EQ(n, 3u);
    EXPECT_EQ(out[0].Data, 2u);
    EXPECT_EQ(out[2].Data, 4u);
    EXPECT_EQ(in->GetDroppedCount(), 2u);
}

TEST_F(Arinc429InBuffer, FailedServiceAnswers15UntilRestarted)
{
    ASSERT_EQ(rx->Open(nullptr), 0u);
    Receive(Word(1, 0, 0), 1);
    CTestEvent failure(EventFailure, "RX0", 2);
    rig.Device->Deliver(HDW_PORT_ARINC429_RX, failure);
    EXPECT_EQ(in->GetStatus(), 2u);
    unsigned n = 9;
    CKVX_HdwArinc429Message m;
    EXPECT_EQ(in->Read(&m, 1, n), 15u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 15u);
    rx->Close();
    ASSERT_EQ(rx->Open(nullptr), 0u);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
}

TEST_F(Arinc429InBuffer, EventsForAnotherChannelAreNotTaken)
{
    ASSERT_EQ(rx->Open(nullptr), 0u);
    CTestEvent e(EventArinc429Rx, "RX1", 5);
    rig.Device->Deliver(HDW_PORT_ARINC429_RX, e);
    unsigned n = 0;
    in->GetReadMessagesNumber(n);
    EXPECT_EQ(n, 0u);
}

TEST_F(Arinc429InBuffer, OutputServiceStartAndStopSetTheRunState)
{
    CTestTxPort* tx = rig.Tx();
    auto* out = Enable<CKVX_HdwArinc429OutBufferService>(tx, 5);
    ASSERT_NE(out, nullptr);
    CKVX_HdwArinc429OutBufferService::CParameters p;
    p.BufferSize = 77;
    ASSERT_EQ(out->SetParameters(&p), 0u);
    ASSERT_EQ(tx->Open(nullptr), 0u);
    EXPECT_EQ(out->GetStatus(), 1u);
    EXPECT_EQ(out->GetBufferSize(), 77u);
    tx->Close();
    EXPECT_EQ(out->GetStatus(), 0u);
}
