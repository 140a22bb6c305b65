// The Halden's buses through the whole stack against the emulated unit on a
// pseudo-terminal (ARINC 429 transmitter k wired to receiver k, CAN and UART
// channel 0 wired to 1): ARINC 429 flow control, the label filter and signals,
// CAN bus-off, UART bytes. Round trips on every unit: units_end_to_end_test.
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

} // namespace
