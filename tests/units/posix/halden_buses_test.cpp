// The Halden's buses through the whole stack against the emulated unit on a
// pseudo-terminal (ARINC 429 transmitter k wired to receiver k, CAN and UART
// channel 0 wired to 1): ARINC 429 flow control, the label filter and signals,
// CAN fault status, UART bytes, MIL-STD-1553 events, and the settings the unit
// cannot make. Round trips on every unit over serial and UDP, CAN frames of
// every kind: units_end_to_end_test; the service state codes (29 before a
// start, 2 for a null buffer, 26 for a second service, 18 for a second open):
// tests/bus and tests/framework.
#include "UnitRig.h"

#include <chrono>
#include <poll.h>

using namespace halden_test;

namespace {

using InService = CKVX_HdwKvxHaldenDevice::CArinc429InBufferService;
using OutService = CKVX_HdwKvxHaldenDevice::CArinc429OutBufferService;
using Channel = UnitRig::Arinc429Pair;

class Halden : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }
    UnitRig rig{UnitNamed("halden"), false};
};

TEST(HaldenArinc429, PacedWritesNeverOverfillTheUnitsFifo)
{
    // At 12.5 kbit/s a word takes 2.9 ms on the bus, so the FIFO of 512
    // words fills up: the service must hold the rest back.
    UnitRig rig(UnitNamed("halden"), EmulatorOptions(false, true));
    rig.Start();
    Channel c = rig.OpenArinc429Pair(0, 12500);
    std::vector<CKVX_HdwArinc429Message> words;
    for (unsigned i = 0; i < 700; ++i)
        words.push_back(Word(0x21, i));
    ASSERT_EQ(c.Out->Write(words.data(), unsigned(words.size()), 0), 0u);
    // All of it leaves in about 2 s of bus time.
    ASSERT_TRUE(WaitUntil([&] { return Idle(c.Out); }, 30000));
    const hdwsim::Counters counters = rig.Sim.GetCounters();
    EXPECT_GE(counters.A429FifoPeak[0], 400u); // the FIFO did fill up
    EXPECT_LE(counters.A429FifoPeak[0], 512u);
    EXPECT_EQ(counters.A429FifoDropped[0], 0u);
    EXPECT_EQ(counters.A429Pushed[0], words.size());
}

TEST_F(Halden, Arinc429LabelFilterBecomesTheUnitsLabelTable)
{
    auto* in = rig.Enable<InService>(HDW_PORT_ARINC429_RX, 1, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* out = rig.Enable<OutService>(HDW_PORT_ARINC429_TX, 1, HDW_SERVICE_ARINC429_OUT_BUFFER);
    // Only label 0x31, and of it only SDI 1 with any SSM.
    ASSERT_EQ(in->DiscardAllMessages(), 0u);
    ASSERT_EQ(in->AcceptMessage(0x31, 0x02, 0x0F), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_RX, 1), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 1), 0u);

    std::vector<CKVX_HdwArinc429Message> words = {
        Word(0x30, 1, 1), Word(0x31, 2, 1), Word(0x31, 3, 0), Word(0x32, 4, 1), Word(0x31, 5, 1, 3)};
    ASSERT_EQ(out->Write(words.data(), unsigned(words.size()), 0), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().A429Transmitted[1] == words.size(); }));
    const auto got = ReadAll<CKVX_HdwArinc429Message>(in, 2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0], words[1]);
    EXPECT_EQ(got[1], words[4]);
    // Labels 0x30 and 0x32 were dropped by the unit itself; SDI 0 of 0x31 here.
    EXPECT_EQ(rig.Sim.GetCounters().A429FilterDropped[1], 2u);
    EXPECT_EQ(rig.Sim.GetCounters().A429Received[1], 3u);

    // Accepting everything while running reaches the unit too.
    ASSERT_EQ(in->AcceptAllMessages(), 0u);
    ASSERT_EQ(out->Write(words.data(), unsigned(words.size()), 0), 0u);
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(in, words.size()), words);
}

TEST_F(Halden, Arinc429SignalsTellWordsSentAndReceivedBeforeThePollReadsThem)
{
    // An application that sleeps in poll() on the signal service and then
    // reads the input buffer must find every word the signals announce.
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_ARINC429_RX, 2, HDW_SERVICE_SIGNAL);
    auto* txSignals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_ARINC429_TX, 2, HDW_SERVICE_SIGNAL);
    ASSERT_TRUE(signals && txSignals);
    Channel c = rig.OpenArinc429Pair(2, 100000);
    const int fd = signals->GetFileDescriptor();
    ASSERT_GE(fd, 0);
    std::vector<CKVX_HdwArinc429Message> words;
    for (unsigned i = 0; i < 200; ++i)
        words.push_back(Word(0x42, i + 0x12300, 0, 0));
    ASSERT_EQ(c.Out->Write(words.data(), unsigned(words.size()), 0), 0u);

    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(txSignals->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_ARINC429_SENT));
    EXPECT_EQ(s.Arinc429, words[0]);
    unsigned announced = 0, read = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while ((read < words.size() || announced < words.size()) && std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 1000) != 1)
            continue;
        CKVX_HdwSignalService::CSignal sig[256];
        unsigned n = 0;
        ASSERT_EQ(signals->ReadSignals(sig, 256, n), 0u);
        for (unsigned i = 0; i < n; ++i) {
            if (sig[i].Kind != HDW_SIGNAL_ARINC429_RECEIVED)
                continue;
            ASSERT_LT(announced, words.size());
            EXPECT_EQ(sig[i].Arinc429, words[announced]);
            EXPECT_EQ(sig[i].Port, rig.Port(HDW_PORT_ARINC429_RX, 2));
            EXPECT_NE(sig[i].TimeStamp, 0u);
            ++announced;
        }
        CKVX_HdwArinc429Message got[256];
        unsigned m = 0;
        ASSERT_EQ(c.In->Read(got, 256, m), 0u);
        read += m;
        EXPECT_GE(read, announced) << "a signal came before its word";
    }
    EXPECT_EQ(read, words.size());
    EXPECT_EQ(announced, words.size());
}

// Buffers answer 29 before their port's first open (tests/bus relies on this
// one for the ARINC 429 read); settings outside what the unit makes are
// refused before anything is sent, and the port stays shut.
TEST_F(Halden, BuffersWaitForTheOpenAndPortsRefuseSettingsTheUnitCannotMake)
{
    auto* in = rig.Enable<InService>(HDW_PORT_ARINC429_RX, 0, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* out = rig.Enable<OutService>(HDW_PORT_ARINC429_TX, 0, HDW_SERVICE_ARINC429_OUT_BUFFER);
    ASSERT_TRUE(in && out);
    CKVX_HdwArinc429Message w = Word(1, 1);
    unsigned n = 0;
    EXPECT_EQ(out->Write(&w, 1, 0), 29u);
    EXPECT_EQ(in->Read(&w, 1, n), 29u);
    ASSERT_NE(rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, 0, HDW_SERVICE_SIGNAL), nullptr);
    ASSERT_NE(rig.Enable<CKVX_HdwSignalService>(HDW_PORT_UART, 0, HDW_SERVICE_SIGNAL), nullptr);
    // A receiver runs at 12500 or 100000 bit/s only.
    CKVX_HdwArinc429RxPort::CParameters rp;
    rp.BaudRate = 50000;
    EXPECT_EQ(rig.Open(HDW_PORT_ARINC429_RX, 0, rp), 2u);
    // A transmitter needs a word gap and a rate the dividers reach.
    CKVX_HdwArinc429TxPort::CParameters tp;
    tp.WordIntergap = 0;
    EXPECT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 0, tp), 2u);
    tp.WordIntergap = 319;
    tp.BaudRate = 300000;
    EXPECT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 0, tp), 2u);
    CKVX_HdwCanPort::CParameters cp;
    cp.BitRate = 1000; // below what the largest prescaler reaches
    EXPECT_EQ(rig.Open(HDW_PORT_CAN, 0, cp), 2u);
    CKVX_HdwUartPort::CParameters up;
    up.StopBits = CKVX_HdwUartPort::CParameters::StopBitsOneAndHalf;
    EXPECT_EQ(rig.Open(HDW_PORT_UART, 0, up), 2u);
    for (unsigned type : {HDW_PORT_ARINC429_RX, HDW_PORT_ARINC429_TX, HDW_PORT_CAN, HDW_PORT_UART})
        EXPECT_FALSE(rig.Port(type, 0)->IsOpen()) << type;
    EXPECT_EQ(rig.Sim.GetCounters().CommandsByCode[rig.Unit.AtxConfigBase], 0u);
    // And once open, a write option the buffer does not have.
    tp.BaudRate = 100000;
    ASSERT_EQ(rig.Open(HDW_PORT_ARINC429_TX, 0, tp), 0u);
    EXPECT_EQ(out->Write(&w, 1, 1), 2u);
}

TEST_F(Halden, CanFaultStatusFollowsTheUnitAndIsSignalledAndOnlyFrameServicesAreAdmitted)
{
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, 0, HDW_SERVICE_SIGNAL);
    auto* out = rig.Enable<CKVX_HdwKvxHaldenDevice::CCanOutBufferService>(HDW_PORT_CAN, 0, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* port = dynamic_cast<CKVX_HdwCanPort*>(rig.Port(HDW_PORT_CAN, 0));
    ASSERT_NE(port, nullptr);
    // Byte streams over CAN are the Quillan's (quillan_can_bytes_test).
    for (unsigned type : {unsigned(HDW_SERVICE_BYTE_IN_BUFFER), unsigned(HDW_SERVICE_BYTE_OUT_BUFFER)}) {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(port->EnableService(type, &s, nullptr), 10u) << type;
        EXPECT_EQ(s, nullptr);
    }
    CKVX_HdwCanPort::CFaultStatus status;
    ASSERT_EQ(port->GetFaultStatus(&status), 0u);
    EXPECT_EQ(status.Status, 3u); // not started
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 0), 0u);
    // The started controller reports "error active".
    ASSERT_TRUE(WaitUntil([&] { return port->GetFaultStatus(&status) == 0 && status.Status == 0; }));
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(signals->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_CAN_STATUS_CHANGED));
    EXPECT_EQ(s.FaultStatus.Status, 0u);
    // A sent frame is signalled as sent.
    CKVX_HdwCanMessage f = Frame(0x42, 1, 9);
    ASSERT_EQ(out->Write(&f, 1, 0), 0u);
    ASSERT_EQ(signals->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_CAN_SENT));
    EXPECT_EQ(s.Can.Identifier, 0x42u);
}

TEST_F(Halden, CanBusOffReportedByTheUnitIsSignalledAsATransceiverError)
{
    using CError = CKVX_HdwSignalService::CCanTranceiverErrorSignal;
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_CAN, 1, HDW_SERVICE_SIGNAL);
    auto* port = dynamic_cast<CKVX_HdwCanPort*>(rig.Port(HDW_PORT_CAN, 1));
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(rig.Open(HDW_PORT_CAN, 1), 0u);
    CKVX_HdwCanPort::CFaultStatus status;
    ASSERT_TRUE(WaitUntil([&] { return port->GetFaultStatus(&status) == 0 && status.Status == 0; }));
    ASSERT_TRUE(rig.Sim.SetCanFault(1, 2, 0xF8, 0x7F));
    // The port's periodic status request brings the fault in.
    CKVX_HdwSignalService::CSignal s;
    for (unsigned i = 0; i < 8 && !CError::Is(s); ++i)
        ASSERT_EQ(signals->WaitSignal(s, 10000), 0u);
    ASSERT_TRUE(CError::Is(s));
    const CError e(s);
    EXPECT_TRUE(e.IsBusOff());
    EXPECT_EQ(e.GetPreviousFaultState(), 0u);
    EXPECT_EQ(e.FaultStatus.ErrReg0, 0xF8);
    EXPECT_EQ(e.FaultStatus.ErrReg1, 0x7F);
    EXPECT_EQ(e.Port, port);
    // Healthy again: a status change back to error active, no new error.
    ASSERT_TRUE(rig.Sim.SetCanFault(1, 0));
    ASSERT_TRUE(WaitUntil([&] { return port->GetFaultStatus(&status) == 0 && status.Status == 0; }));
    while (signals->GetSignal(s) == 0)
        EXPECT_FALSE(CError::Is(s));
    EXPECT_FALSE(rig.Sim.SetCanFault(2, 1)); // the Halden has two CAN channels
}

TEST_F(Halden, UartBytesCrossFromChannelZeroToOne)
{
    auto* out =
        rig.Enable<CKVX_HdwKvxHaldenDevice::CUartByteOutBufferService>(HDW_PORT_UART, 0, HDW_SERVICE_BYTE_OUT_BUFFER);
    auto* in =
        rig.Enable<CKVX_HdwKvxHaldenDevice::CUartByteInBufferService>(HDW_PORT_UART, 1, HDW_SERVICE_BYTE_IN_BUFFER);
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = 115200;
    ASSERT_EQ(rig.Open(HDW_PORT_UART, 1, p), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_UART, 0, p), 0u);

    // More than one transmit record, more than one frame.
    std::vector<uint8_t> sent(5000);
    for (size_t i = 0; i < sent.size(); ++i)
        sent[i] = uint8_t(i * 7 + (i >> 8));
    ASSERT_EQ(out->Write(sent.data(), unsigned(sent.size()), 0), 0u);
    EXPECT_EQ(ReadAll<uint8_t>(in, sent.size()), sent);
    EXPECT_TRUE(WaitUntil([&] { return Idle(out); }));
    EXPECT_EQ(rig.Sim.GetCounters().UartReceived[1], sent.size());
    EXPECT_EQ(out->Write(sent.data(), 1, 1), 2u);
}

// The unit's MIL-STD-1553 events reach the signal service of their channel;
// services a 1553 channel does not take are refused with 10.
TEST_F(Halden, MilStd1553EventsReachTheirChannelsSignalService)
{
    using Signals = CKVX_HdwKvxHaldenDevice::CSignalService;
    // Remote-terminal access (kind 2): terminal 5, subaddress 17, receive, two
    // words; 3-bit field 6, flag set, 5-bit field 9; command word 0x2A22,
    // status word 0x2800, flags 0x0009.
    const std::vector<uint8_t> rtAccess = {
        2, 5 << 3 | 6, 17, 1 << 6 | 2, 9, 0x34, 0x12, 0x78, 0x56, 0x22, 0x2A, 0, 0, 0x00, 0x28, 0, 0, 0x09, 0x00};
    // Transfer completed (kind 1): transfer 0x0102, one word, status words
    // 0x2800 and 0x0000, flags 0x0040.
    const std::vector<uint8_t> transfer = {1, 0x02, 0x01, 1, 0, 0xCD, 0xAB, 0x00, 0x28, 0x00, 0x00, 0x40, 0x00};
    for (unsigned type : {2u, 3u, 9u}) {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(rig.Port(HDW_PORT_MILSTD1553, 0)->EnableService(type, &s, nullptr), 10u) << type;
        EXPECT_EQ(s, nullptr);
    }
    auto* sig0 = rig.Enable<Signals>(HDW_PORT_MILSTD1553, 0, HDW_SERVICE_SIGNAL);
    auto* sig1 = rig.Enable<Signals>(HDW_PORT_MILSTD1553, 1, HDW_SERVICE_SIGNAL);
    ASSERT_TRUE(sig0 && sig1);
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0), 0u);
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 1), 0u);

    ASSERT_TRUE(rig.Sim.InjectMilStd1553Event(1, rtAccess));
    ASSERT_TRUE(rig.Sim.InjectMilStd1553Event(0, transfer));
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(sig1->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_MIL1553_MESSAGE));
    EXPECT_EQ(s.Port, rig.Port(HDW_PORT_MILSTD1553, 1));
    // Command word 1 and status word 1; the transfer flags.
    EXPECT_EQ(s.Value, 0x28002A22u);
    EXPECT_EQ(s.Aux, (2u << 24) | 9u);
    EXPECT_NE(s.TimeStamp, 0u);
    ASSERT_EQ(sig0->WaitSignal(s, 10000), 0u);
    EXPECT_EQ(s.Kind, unsigned(HDW_SIGNAL_MIL1553_MESSAGE));
    EXPECT_EQ(s.Value, 0x28000102u);
    EXPECT_EQ(s.Aux, (1u << 24) | 0x40u);
    // Each event reached its own channel only.
    unsigned left = 9;
    EXPECT_EQ(sig0->GetSignalsNumber(left), 0u);
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(sig1->GetSignalsNumber(left), 0u);
    EXPECT_EQ(left, 0u);
    auto* port = dynamic_cast<CKVX_HdwKvxHaldenDevice::CMilStd1553Port*>(rig.Port(HDW_PORT_MILSTD1553, 1));
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->GetMessageCount(), 1u);
    EXPECT_FALSE(rig.Sim.InjectMilStd1553Event(2, rtAccess)); // the unit has two channels
    // The channels' configuration commands were understood; closing and
    // re-opening a channel takes it again.
    ASSERT_EQ(rig.Port(HDW_PORT_MILSTD1553, 0)->Close(), 0u);
    EXPECT_FALSE(rig.Port(HDW_PORT_MILSTD1553, 0)->IsOpen());
    ASSERT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0), 0u);
    EXPECT_EQ(rig.Sim.GetCounters().CommandsUnknown, 0u);
}

} // namespace
