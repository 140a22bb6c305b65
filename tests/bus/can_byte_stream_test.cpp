// Byte streams carried in CAN frames, and the generic MIL-STD-1553 port,
// against the test bus device.

#include "TestBusDevice.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

using namespace bustest;

namespace {

// The receive path a unit driver gives the byte input.
class CByteIn : public CKVX_HdwCanByteInBufferService {
public:
    using CKVX_HdwCanByteInBufferService::CKVX_HdwCanByteInBufferService;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override
    {
        auto* e = static_cast<CTestEvent*>(event);
        if (e->GetEventCode() == EventCanRx)
            AppendFrame(e->Frame, e->Time);
        else if (e->GetEventCode() == EventFailure)
            SetStatus(HDW_SERVICE_FAILED);
        return 0;
    }
};

CKVX_HdwCanMessage Frame(uint32_t id, uint8_t extended, std::vector<uint8_t> data, uint8_t rtr = 0)
{
    CKVX_HdwCanMessage m;
    m.Identifier = id;
    m.Extended = extended;
    m.Rtr = rtr;
    m.Dlc = uint8_t(data.size());
    for (size_t i = 0; i < data.size() && i < 8; ++i)
        m.Data[i] = data[i];
    return m;
}

class CanByteStream : public ::testing::Test {
protected:
    void SetUp() override { can = rig.Can(); }
    // Installs the services as a driver's EnableService does.
    template <class S>
    S* Install()
    {
        auto* s = new S(can);
        can->GetServiceList() += s;
        return s;
    }
    void Receive(const CKVX_HdwCanMessage& m, uint64_t time)
    {
        CTestEvent e(EventCanRx, "CAN0", time);
        e.Frame = m;
        rig.Device->Deliver(HDW_PORT_CAN, e);
    }
    std::vector<uint8_t> ReadAll(CKVX_HdwCanByteInBufferService* in)
    {
        std::vector<uint8_t> out(100000);
        unsigned n = 0;
        EXPECT_EQ(in->Read(out.data(), unsigned(out.size()), n), 0u);
        out.resize(n);
        return out;
    }
    CBusRig rig;
    CTestCanPort* can = nullptr;
};

} // namespace

TEST_F(CanByteStream, OutputPacksBytesIntoFullFramesInOrder)
{
    auto* out = Install<CKVX_HdwCanByteOutBufferService>();
    EXPECT_EQ(out->GetServiceType(), 3u);
    CKVX_HdwCanByteOutBufferService::CParameters p;
    p.Identifier = 0x1ABCDEF;
    p.Extended = 1;
    p.BufferSize = 0;
    ASSERT_EQ(out->SetParameters(&p), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);

    std::vector<uint8_t> bytes(21);
    std::iota(bytes.begin(), bytes.end(), uint8_t(1));
    ASSERT_EQ(out->Write(bytes.data(), unsigned(bytes.size()), 0), 0u);

    CKVX_HdwCanMessage frames[8];
    can->DeviceLock();
    const unsigned one = out->BuildFrames(frames, 1);
    const unsigned built = out->BuildFrames(frames, 8);
    can->DeviceUnlock();
    EXPECT_EQ(one, 1u);
    ASSERT_EQ(built, 3u);  // building takes nothing: the same three frames again
    const uint8_t dlcs[] = {8, 8, 5};
    unsigned next = 1;
    for (unsigned f = 0; f < 3; ++f) {
        EXPECT_EQ(frames[f].Identifier, 0x1ABCDEFu);
        EXPECT_EQ(frames[f].Extended, 1);
        EXPECT_EQ(frames[f].Rtr, 0);
        ASSERT_EQ(frames[f].Dlc, dlcs[f]);
        for (unsigned i = 0; i < frames[f].Dlc; ++i)
            EXPECT_EQ(frames[f].Data[i], next++) << f << "/" << i;
    }

    unsigned pending = 0;
    can->DeviceLock();
    out->CommitFrames(2);
    can->DeviceUnlock();
    EXPECT_EQ(out->GetBytesToBeWritten(pending), 0u);
    EXPECT_EQ(pending, 21u);  // 5 queued, 16 in flight
    EXPECT_EQ(out->GetFramesInFlight(), 2u);
    can->DeviceLock();
    EXPECT_FALSE(out->ConfirmFrame(Frame(0x1ABCDEF, 0, {1})));  // standard frame: another stream
    EXPECT_FALSE(out->ConfirmFrame(Frame(0x1ABCDEE, 1, {1})));
    EXPECT_TRUE(out->ConfirmFrame(frames[0]));
    EXPECT_EQ(out->BuildFrames(frames, 8), 1u);
    can->DeviceUnlock();
    EXPECT_EQ(frames[0].Dlc, 5);
    EXPECT_EQ(frames[0].Data[0], 17);
    out->GetBytesToBeWritten(pending);
    EXPECT_EQ(pending, 13u);

    // Resetting drops the queue, not what the unit already holds.
    EXPECT_EQ(out->ResetWriteBuffer(), 0u);
    out->GetBytesToBeWritten(pending);
    EXPECT_EQ(pending, 8u);
}

TEST_F(CanByteStream, InputTakesOnlyTheStreamsDataFramesWithTheirTimes)
{
    auto* in = Install<CByteIn>();
    auto* frames = Enable<CTestCanInService>(can, 9);
    ASSERT_NE(frames, nullptr);
    CKVX_HdwCanByteInBufferService::CParameters p;
    p.Identifier = 0x321;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);
    ASSERT_EQ(frames->EnableRx(), 0u);

    Receive(Frame(0x321, 0, {1, 2, 3}), 100);
    Receive(Frame(0x322, 0, {90, 91}), 101);        // other identifier
    Receive(Frame(0x321, 1, {92}), 102);            // same number, extended
    Receive(Frame(0x321, 0, {}, 1), 103);           // remote frame
    Receive(Frame(0x321, 0, {}), 104);              // empty data frame
    Receive(Frame(0x321, 0, {4, 5, 6, 7, 8, 9, 10, 11}), 105);
    CKVX_HdwCanMessage wide = Frame(0x321, 0, {12, 13, 14, 15, 16, 17, 18, 19});
    wide.Dlc = 15;  // a DLC above 8 carries 8 bytes
    Receive(wide, 106);

    unsigned count = 0;
    EXPECT_EQ(in->GetReadBufferBytes(count), 0u);
    ASSERT_EQ(count, 19u);
    uint8_t bytes[19] = {};
    uint64_t times[19] = {};
    unsigned n = 0;
    // Reads split frames anywhere.
    ASSERT_EQ(in->ReadTimed(bytes, times, 2, n), 0u);
    ASSERT_EQ(n, 2u);
    ASSERT_EQ(in->ReadTimed(bytes + 2, times + 2, 7, n), 0u);
    ASSERT_EQ(n, 7u);
    ASSERT_EQ(in->ReadTimed(bytes + 9, times + 9, 100, n), 0u);
    ASSERT_EQ(n, 10u);
    for (unsigned i = 0; i < 19; ++i) {
        EXPECT_EQ(bytes[i], i + 1) << i;
        EXPECT_EQ(times[i], i < 3 ? 100u : i < 11 ? 105u : 106u) << i;
    }
    EXPECT_EQ(in->Read(bytes, 5, n), 0u);
    EXPECT_EQ(n, 0u);

    // The frame input saw every frame, the stream's included.
    unsigned seen = 0;
    EXPECT_EQ(frames->GetReadMessagesNumber(seen), 0u);
    EXPECT_EQ(seen, 7u);
}

TEST_F(CanByteStream, AFullInputDropsTheOldestBytes)
{
    auto* in = Install<CByteIn>();
    CKVX_HdwCanByteInBufferService::CParameters p;
    p.BufferSize = 10;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);
    Receive(Frame(0x100, 0, {1, 2, 3, 4, 5, 6, 7, 8}), 1);
    Receive(Frame(0x100, 0, {9, 10, 11, 12, 13}), 2);
    EXPECT_EQ(in->GetDroppedCount(), 3u);
    EXPECT_EQ(ReadAll(in), (std::vector<uint8_t>{4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST_F(CanByteStream, StreamThroughFramesArrivesWhole)
{
    // The output's frames, as the bus would carry them, fed to the input.
    auto* out = Install<CKVX_HdwCanByteOutBufferService>();
    auto* in = Install<CByteIn>();
    CKVX_HdwCanByteOutBufferService::CParameters po;
    po.BufferSize = 0;
    ASSERT_EQ(out->SetParameters(&po), 0u);
    CKVX_HdwCanByteInBufferService::CParameters pi;
    pi.BufferSize = 0;
    ASSERT_EQ(in->SetParameters(&pi), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);

    std::vector<uint8_t> sent(1001);
    for (size_t i = 0; i < sent.size(); ++i)
        sent[i] = uint8_t(i * 7 + i / 256);
    ASSERT_EQ(out->Write(sent.data(), 500, 0), 0u);
    ASSERT_EQ(out->Write(sent.data() + 500, 501, 0), 0u);
    uint64_t time = 0;
    for (;;) {
        CKVX_HdwCanMessage frames[5];
        can->DeviceLock();
        const unsigned n = out->BuildFrames(frames, 5);
        out->CommitFrames(n);
        can->DeviceUnlock();
        if (n == 0)
            break;
        for (unsigned i = 0; i < n; ++i) {
            Receive(frames[i], ++time);
            can->DeviceLock();
            EXPECT_TRUE(out->ConfirmFrame(frames[i]));
            can->DeviceUnlock();
        }
    }
    EXPECT_EQ(time, 126u);  // 125 full frames and one of 1 byte
    unsigned pending = 1;
    out->GetBytesToBeWritten(pending);
    EXPECT_EQ(pending, 0u);
    EXPECT_EQ(ReadAll(in), sent);
}

TEST_F(CanByteStream, ParametersAndRunStates)
{
    auto* in = Install<CByteIn>();
    auto* out = Install<CKVX_HdwCanByteOutBufferService>();
    const CKVX_HdwCanByteInBufferService::CParameters d;
    EXPECT_EQ(d.Identifier, 0x100u);
    EXPECT_EQ(d.Extended, 0);
    EXPECT_EQ(d.BufferSize, 1000u);

    CKVX_HdwCanByteInBufferService::CParameters p;
    p.Identifier = 0x7FF;
    p.BufferSize = 77;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    CKVX_HdwCanByteInBufferService::CParameters bad = p;
    bad.Identifier = 0x800;  // wider than 11 bits
    EXPECT_EQ(in->SetParameters(&bad), 2u);
    bad.Identifier = 0x1FFFFFFF;
    bad.Extended = 2;
    EXPECT_EQ(in->SetParameters(&bad), 2u);
    CKVX_HdwCanByteInBufferService::CParameters back;
    ASSERT_EQ(in->GetParameters(&back), 0u);
    EXPECT_EQ(back.Identifier, 0x7FFu);
    EXPECT_EQ(back.BufferSize, 77u);

    // Through the byte input's own parameter class only the size changes.
    CKVX_HdwByteInBufferService::CParameters plain;
    plain.BufferSize = 5;
    ASSERT_EQ(static_cast<CKVX_HdwByteInBufferService*>(in)->SetParameters(&plain), 0u);
    in->GetParameters(&back);
    EXPECT_EQ(back.BufferSize, 5u);
    EXPECT_EQ(back.Identifier, 0x7FFu);

    CKVX_HdwCanByteOutBufferService::CParameters po;
    po.Identifier = 0x1FFFFFFF;
    po.Extended = 1;
    po.BufferSize = 16;
    EXPECT_EQ(out->SetParameters(&po), 0u);

    uint8_t b[20] = {};
    unsigned n = 9;
    EXPECT_EQ(in->Read(b, 1, n), 29u);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(out->Write(b, 1, 0), 29u);

    ASSERT_EQ(can->Open(nullptr), 0u);
    EXPECT_EQ(in->SetParameters(&p), 10u);
    EXPECT_EQ(out->SetParameters(&po), 10u);
    EXPECT_EQ(out->Write(b, 1, 1), 2u);
    EXPECT_EQ(out->Write(b, 17, 0), 2u);  // beyond BufferSize
    EXPECT_EQ(out->Write(nullptr, 1, 0), 2u);
    EXPECT_EQ(in->Read(nullptr, 1, n), 2u);
    EXPECT_EQ(out->Write(b, 16, 0), 0u);
    EXPECT_EQ(out->Write(b, 1, 0), 2u);
    unsigned pending = 0;
    out->GetBytesToBeWritten(pending);
    EXPECT_EQ(pending, 16u);

    CTestEvent failure(EventFailure, "CAN0", 1);
    rig.Device->Deliver(HDW_PORT_CAN, failure);
    EXPECT_EQ(in->Read(b, 1, n), 15u);
    EXPECT_EQ(in->GetReadBufferBytes(n), 15u);
}

// ---- MIL-STD-1553 port --------------------------------------------------------

TEST(MilStd1553Port, AdmitsTheSignalServiceOnly)
{
    CBusRig rig;
    CTestMilPort* mil = rig.Mil();
    ASSERT_NE(mil, nullptr);
    EXPECT_EQ(mil->GetPortType(), 5u);
    unsigned rc = 0;
    for (unsigned type : {2u, 3u, 8u, 9u, 10u, 11u, 17u}) {
        Enable<CKVX_HdwService>(mil, type, &rc);
        EXPECT_EQ(rc, 10u) << type;
    }
    EXPECT_NE(Enable<CTestSignalService>(mil, 1), nullptr);
    Enable<CKVX_HdwService>(mil, 1, &rc);
    EXPECT_EQ(rc, 26u);
    EXPECT_EQ(mil->GetServiceCount(), 1u);
}

TEST(MilStd1553Port, OpenInstallsValidParametersOnly)
{
    CBusRig rig;
    CTestMilPort* mil = rig.Mil();
    ASSERT_NE(Enable<CTestSignalService>(mil, 1), nullptr);
    const CKVX_HdwMilStd1553Port::CParameters d;
    EXPECT_EQ(d.PortNum, 0u);
    EXPECT_EQ(d.Coupling, CKVX_HdwMilStd1553Port::CParameters::CouplingTransformer);
    EXPECT_EQ(d.ResponseTimeoutUs, 14u);

    CKVX_HdwMilStd1553Port::CParameters p;
    p.ResponseTimeoutUs = 3;
    EXPECT_EQ(mil->Open(&p), 2u);
    p.ResponseTimeoutUs = 256;
    EXPECT_EQ(mil->Open(&p), 2u);
    p.ResponseTimeoutUs = 20;
    p.Coupling = 2;
    EXPECT_EQ(mil->Open(&p), 2u);
    CKVX_HdwCanPort::CParameters other;
    EXPECT_EQ(mil->Open(&other), 2u);
    EXPECT_FALSE(mil->IsOpen());
    CKVX_HdwMilStd1553Port::CParameters back;
    ASSERT_EQ(mil->GetParameters(&back), 0u);
    EXPECT_EQ(back.ResponseTimeoutUs, 14u);  // refused opens changed nothing

    p.Coupling = CKVX_HdwMilStd1553Port::CParameters::CouplingDirect;
    p.PortNum = 4;
    ASSERT_EQ(mil->Open(&p), 0u);
    EXPECT_TRUE(mil->IsOpen());
    EXPECT_EQ(mil->GetPortNum(), 4u);
    mil->GetParameters(&back);
    EXPECT_EQ(back.Coupling, 0);
    EXPECT_EQ(back.ResponseTimeoutUs, 20u);
    EXPECT_EQ(mil->Close(), 0u);
    EXPECT_FALSE(mil->IsOpen());
}
