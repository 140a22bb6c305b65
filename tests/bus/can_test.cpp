// The generic CAN services: fault status and byte streams in frames.
#include "TestBusDevice.h"

#include <numeric>
#include <vector>

using namespace bustest;

namespace {

using CByteIn = CTestCanByteInService;

class Can : public ::testing::Test {
protected:
    CBusRig rig;
    CTestCanPort* can = rig.Can();
};

} // namespace

TEST_F(Can, FaultStatusFromTheUnitReachesServicesAndSignals)
{
    auto* signals = Enable<CKVX_HdwSignalService>(can, 1);
    ASSERT_NE(signals, nullptr);
    ASSERT_EQ(can->Open(nullptr), 0u);

    rig.ReportCanStatus(70, 0, 0); // error active, registers unchanged
    rig.ReportCanStatus(71, 0, 0); // no change, no signal
    rig.ReportCanStatus(72, 0, 0, 0x11); // registers only
    rig.ReportCanStatus(73, 2, 0x05, 0x11);
    const std::pair<unsigned, uint64_t> expected[] = {{HDW_SIGNAL_CAN_STATUS_CHANGED, 70},
        {HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED, 72}, {HDW_SIGNAL_CAN_STATUS_CHANGED, 73},
        {HDW_SIGNAL_CAN_TRANSCEIVER_ERROR, 73}, {HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED, 73}};
    for (const auto& [kind, time] : expected) {
        CKVX_HdwSignalService::CSignal s;
        ASSERT_EQ(signals->GetSignal(s), 0u) << time;
        EXPECT_EQ(std::tuple(s.Kind, s.TimeStamp, s.Port), std::tuple(kind, time, can)) << kind << " " << time;
    }
    CKVX_HdwSignalService::CSignal last;
    EXPECT_EQ(signals->GetSignal(last), 4u);
}

// Byte-stream run states and bounds: Arinc429ByteStream.ParametersBoundsAndRunStates (shared code).

TEST_F(Can, ByteOutputBuildsFramesUntilTheUnitConfirmsThem)
{
    auto* out = Install<CKVX_HdwCanByteOutBufferService>(can);
    CKVX_HdwCanByteOutBufferService::CParameters p;
    std::tie(p.Identifier, p.Extended, p.BufferSize) = std::tuple(0x1ABCDEFu, 1, 0u);
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
    ASSERT_EQ(built, 3u); // building takes nothing: the same three frames again
    EXPECT_EQ(frames[0].Identifier, 0x1ABCDEFu);
    EXPECT_EQ(frames[0].Extended, 1);
    EXPECT_EQ(frames[2].Dlc, 5);

    unsigned pending = 0;
    can->DeviceLock();
    out->CommitFrames(2);
    can->DeviceUnlock();
    EXPECT_EQ(out->GetBytesToBeWritten(pending), 0u);
    EXPECT_EQ(pending, 21u); // 5 queued, 16 in flight
    EXPECT_EQ(out->GetFramesInFlight(), 2u);
    can->DeviceLock();
    EXPECT_FALSE(out->ConfirmFrame(Frame(0x1ABCDEF, 0, {1}))); // standard frame: another stream
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

TEST_F(Can, ByteInputTakesOnlyTheStreamsDataFramesWithTheirTimes)
{
    auto* in = Install<CByteIn>(can);
    CKVX_HdwCanByteInBufferService::CParameters p;
    p.Identifier = 0x800; // wider than 11 bits
    EXPECT_EQ(in->SetParameters(&p), 2u);
    p.Identifier = 0x321;
    ASSERT_EQ(in->SetParameters(&p), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);

    rig.ReceiveFrame(Frame(0x321, 0, {1, 2, 3}), 100);
    rig.ReceiveFrame(Frame(0x322, 0, {90, 91}), 101); // other identifier
    rig.ReceiveFrame(Frame(0x321, 1, {92}), 102); // same number, extended
    rig.ReceiveFrame(Frame(0x321, 0, {93}, 1), 103); // remote frame
    rig.ReceiveFrame(Frame(0x321, 0, {}), 104); // empty data frame
    rig.ReceiveFrame(Frame(0x321, 0, {4, 5, 6, 7, 8, 9, 10, 11}), 105);
    CKVX_HdwCanMessage wide = Frame(0x321, 0, {12, 13, 14, 15, 16, 17, 18, 19});
    wide.Dlc = 15; // a DLC above 8 carries 8 bytes
    rig.ReceiveFrame(wide, 106);

    unsigned count = 0;
    EXPECT_EQ(in->GetReadBufferBytes(count), 0u);
    ASSERT_EQ(count, 19u);
    uint8_t bytes[19] = {};
    uint64_t times[19] = {};
    unsigned n = 0;
    // Reads split frames anywhere.
    ASSERT_EQ(in->ReadTimed(bytes, times, 2, n), 0u);
    ASSERT_EQ(n, 2u);
    ASSERT_EQ(in->ReadTimed(bytes + 2, times + 2, 100, n), 0u);
    ASSERT_EQ(n, 17u);
    for (unsigned i = 0; i < 19; ++i) {
        EXPECT_EQ(bytes[i], i + 1) << i;
        EXPECT_EQ(times[i], i < 3 ? 100u : i < 11 ? 105u : 106u) << i;
    }
}
