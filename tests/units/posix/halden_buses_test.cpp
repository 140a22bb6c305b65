// The Halden's ARINC 429 through the whole stack against the emulated unit on
// a pseudo-terminal (transmitter k wired to receiver k): flow control and
// signals. Round trips on every unit: units_end_to_end_test; filters on the
// unit: halden_reopen_test; UART bytes: halden_losses_test.
#include "UnitRig.h"

#include <chrono>
#include <poll.h>

using namespace halden_test;

namespace {

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

} // namespace
