#include "TestBusDevice.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace bustest;

TEST(CanPortParameters, DefaultsAndFaultStatusComparison)
{
    // A default frame is an empty extended one.
    const CKVX_HdwCanMessage m;
    EXPECT_EQ(m.Extended, 1);
    EXPECT_EQ(m.Identifier | m.Dlc | m.Rtr | m.Data[0] | m.Data[7], 0u);
    const CKVX_HdwCanPort::CParameters p;
    EXPECT_EQ(p.BitRate, 1000000u);
    EXPECT_EQ(p.SamplePoint, 0.5);
    EXPECT_EQ(p.ModeFlagA + p.ModeFlagB, 2);

    CKVX_HdwCanPort::CFaultStatus a, b;
    EXPECT_EQ(a.Status, 3u);
    EXPECT_TRUE(a == b);
    b.ErrReg1 = 1;
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a == b);
    b = a;
    b.ErrReg0 = 0x80;
    EXPECT_TRUE(a != b);
    b = a;
    b.Status = 0;
    EXPECT_TRUE(a != b);

    CKVX_HdwCanPort port(nullptr, 0, "CAN0");
    EXPECT_EQ(port.GetPortType(), 4u);
    CKVX_HdwCanPort::CFaultStatus fresh;
    fresh.Status = 0;
    EXPECT_EQ(port.GetFaultStatus(&fresh), 0u);
    EXPECT_EQ(fresh.Status, 3u);
}

class CanPort : public ::testing::Test {
protected:
    void SetUp() override { can = rig.Can(); }
    void Deliver(CTestEvent& e) { rig.Device->Deliver(HDW_PORT_CAN, e); }
    CBusRig rig;
    CTestCanPort* can = nullptr;
};

TEST_F(CanPort, AdmissionHasNoExclusion)
{
    unsigned rc = 0;
    for (unsigned type : {4u, 5u, 6u, 7u, 10u, 15u}) {
        Enable<CKVX_HdwService>(can, type, &rc);
        EXPECT_EQ(rc, 10u) << type;
    }
    EXPECT_NE(Enable<CTestCanInService>(can, 9), nullptr);
    EXPECT_NE(Enable<CKVX_HdwByteInBufferService>(can, 2), nullptr);
    EXPECT_NE(Enable<CKVX_HdwByteOutBufferService>(can, 3), nullptr);
    EXPECT_NE(Enable<CKVX_HdwCanOutBufferService>(can, 8), nullptr);
    EXPECT_NE(Enable<CKVX_HdwSignalService>(can, 1), nullptr);
    for (unsigned type : {1u, 2u, 3u, 8u, 9u}) {
        Enable<CKVX_HdwService>(can, type, &rc);
        EXPECT_EQ(rc, 26u) << type;
    }
    EXPECT_EQ(can->GetServiceCount(), 5u);
}

TEST_F(CanPort, OpenInstallsParameters)
{
    ASSERT_NE(Enable<CTestCanInService>(can, 9), nullptr);
    CKVX_HdwCanPort::CParameters p;
    p.BitRate = 250000;
    p.SamplePoint = 0.875;
    p.Reserved = 0xABCD;
    p.ModeFlagB = 0;
    ASSERT_EQ(can->Open(&p), 0u);
    CKVX_HdwCanPort::CParameters back;
    EXPECT_EQ(can->GetParameters(&back), 0u);
    EXPECT_EQ(back.BitRate, 250000u);
    EXPECT_EQ(back.SamplePoint, 0.875);
    EXPECT_EQ(back.Reserved, 0xABCDu);
    EXPECT_EQ(back.ModeFlagA, 1);
    EXPECT_EQ(back.ModeFlagB, 0);
}

TEST_F(CanPort, InputServiceLifecycleAndReads)
{
    auto* in = Enable<CTestCanInService>(can, 9);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(in->GetServiceType(), 9u);
    CKVX_HdwCanInBufferService::CParameters p;
    EXPECT_EQ(p.BufferSize, 1000u);
    EXPECT_EQ(in->GetParameters(&p), 0u);
    EXPECT_EQ(p.BufferSize, 10000u);

    unsigned n = 7;
    EXPECT_EQ(in->GetReadMessagesNumber(n), 29u);
    EXPECT_EQ(n, 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);
    for (uint32_t id = 0; id < 4; ++id) {
        CTestEvent e(EventCanRx, "CAN0", 500 + id);
        e.Frame.Identifier = id;
        Deliver(e);
    }
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 4u);
    CKVX_HdwCanMessage out[4];
    EXPECT_EQ(in->Read(out, 3, n), 0u);
    ASSERT_EQ(n, 3u);
    EXPECT_EQ(out[2].Identifier, 2u);
    EXPECT_EQ(out[2].TimeStamp, 502u);
    can->Close();
    EXPECT_EQ(in->GetStatus(), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 0u);
    EXPECT_EQ(n, 0u);  // Stop and Start emptied the list

    CTestEvent failure(EventFailure, "CAN0", 9);
    Deliver(failure);
    EXPECT_EQ(in->GetReadMessagesNumber(n), 15u);
    EXPECT_EQ(in->Read(out, 1, n), 15u);
    EXPECT_EQ(in->EnableRx(), 0u);
    EXPECT_EQ(in->DisableRx(), 0u);
    EXPECT_EQ(in->ResetRx(), 8u);
    EXPECT_EQ(in->CKVX_HdwCanInBufferService::Read(out, 1, n), 8u);
}

TEST_F(CanPort, OutputServiceKeepsTxStatusAcrossStop)
{
    struct CProbe : CKVX_HdwCanOutBufferService {
        using CKVX_HdwCanOutBufferService::CKVX_HdwCanOutBufferService;
        void SetTx(unsigned s)
        {
            CKVX_HdwServiceLock lock(*this);
            TxStatus = s;
            Messages += new CKVX_HdwCanMessage;
            MessagesB += new CKVX_HdwCanMessage;
        }
        unsigned Queued() { return Messages.GetLength() + MessagesB.GetLength(); }
    };
    auto* out = new CProbe(can);
    can->GetServiceList() += out;  // as a driver's EnableService would
    EXPECT_EQ(out->GetServiceType(), 8u);

    CKVX_HdwCanOutBufferService::CParameters p;
    EXPECT_EQ(p.BufferSize, 1000u);
    EXPECT_EQ(p.IdWordA, 0xFFFF);
    EXPECT_EQ(p.IdWordB, 0xFFFF);
    p.BufferSize = 64;
    p.IdWordA = 0x1234;
    ASSERT_EQ(out->SetParameters(&p), 0u);
    CKVX_HdwCanOutBufferService::CParameters back;
    out->GetParameters(&back);
    EXPECT_EQ(back.BufferSize, 64u);
    EXPECT_EQ(back.IdWordA, 0x1234);
    EXPECT_EQ(back.IdWordB, 0xFFFF);

    ASSERT_EQ(can->Open(nullptr), 0u);
    out->SetTx(0x42);
    EXPECT_EQ(out->Queued(), 2u);
    can->Close();
    unsigned status = 0;
    EXPECT_EQ(out->GetTxStatus(status), 0u);
    EXPECT_EQ(status, 0x42u);
    EXPECT_EQ(out->Queued(), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);
    out->GetTxStatus(status);
    EXPECT_EQ(status, 0u);

    CKVX_HdwCanMessage m;
    unsigned n = 0;
    EXPECT_EQ(out->Write(&m, 1, 0), 8u);
    EXPECT_EQ(out->ResetWriteBuffer(), 8u);
    EXPECT_EQ(out->GetMessagesToBeWritten(n), 8u);
}

TEST_F(CanPort, FaultStatusFromTheUnitReachesServicesAndSignals)
{
    auto* in = Enable<CTestCanInService>(can, 9);
    auto* signals = Enable<CKVX_HdwSignalService>(can, 1);
    ASSERT_NE(in, nullptr);
    ASSERT_NE(signals, nullptr);
    ASSERT_EQ(can->Open(nullptr), 0u);

    CTestEvent e(EventCanStatus, "CAN0", 70);
    e.Status.Status = 0;  // error active, registers unchanged
    Deliver(e);
    CTestEvent same(EventCanStatus, "CAN0", 71);
    same.Status = e.Status;
    Deliver(same);  // no change, no signal
    CTestEvent regs(EventCanStatus, "CAN0", 72);
    regs.Status = e.Status;
    regs.Status.ErrReg1 = 0x11;
    Deliver(regs);
    CTestEvent both(EventCanStatus, "CAN0", 73);
    both.Status.Status = 2;
    both.Status.ErrReg0 = 0x05;
    both.Status.ErrReg1 = 0x11;
    Deliver(both);

    CKVX_HdwCanPort::CFaultStatus f;
    EXPECT_EQ(in->GetFaultStatus(&f), 0u);
    EXPECT_TRUE(f == both.Status);

    const unsigned expectedKinds[] = {HDW_SIGNAL_CAN_STATUS_CHANGED, HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED,
                                      HDW_SIGNAL_CAN_STATUS_CHANGED, HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED};
    const uint64_t expectedTimes[] = {70, 72, 73, 73};
    for (unsigned i = 0; i < 4; ++i) {
        CKVX_HdwSignalService::CSignal s;
        ASSERT_EQ(signals->GetSignal(s), 0u) << i;
        EXPECT_EQ(s.Kind, expectedKinds[i]) << i;
        EXPECT_EQ(s.TimeStamp, expectedTimes[i]) << i;
        EXPECT_EQ(s.Port, can);
    }
    CKVX_HdwSignalService::CSignal last;
    EXPECT_EQ(signals->GetSignal(last), 4u);
}

TEST(CanOutBuffer, MessageBufferOwnsDeepCopies)
{
    CKVX_HdwCanOutBufferService::CMessageBuffer a;
    auto* m = new CKVX_HdwCanMessage;
    m->Identifier = 0x123;
    a += m;
    CKVX_HdwCanOutBufferService::CMessageBuffer b(a);
    ASSERT_EQ(b.GetLength(), 1u);
    CKVX_HdwCanMessage* copy = *b.begin();
    EXPECT_NE(copy, m);
    EXPECT_EQ(copy->Identifier, 0x123u);
    CKVX_HdwCanOutBufferService::CMessageBuffer c;
    c += new CKVX_HdwCanMessage;
    c = a;  // the frame c held is deleted, a's is copied
    ASSERT_EQ(c.GetLength(), 1u);
    EXPECT_EQ((*c.begin())->Identifier, 0x123u);
    EXPECT_NE(*c.begin(), m);
    a.DeleteAll();
    EXPECT_EQ(a.GetLength(), 0u);
    EXPECT_EQ(b.GetLength(), 1u);  // copies live on; the sanitizer build checks for leaks and double frees
}
