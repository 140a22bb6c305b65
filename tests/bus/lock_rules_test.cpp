// The receive path of a unit driver (appending under the device lock, from
// its own thread) against the application reading from another, with the
// timer tick running: nothing lost, nothing reordered, no data race (run it
// under ThreadSanitizer).
#include "TestBusDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using namespace bustest;

namespace {

constexpr unsigned kWords = 20000;
constexpr auto kDeadline = std::chrono::seconds(60);

} // namespace

TEST(LockRules, Arinc429WordsAppendedByTheDriverAreReadInOrder)
{
    CBusRig rig;
    CTestRxPort* rx = rig.Rx();
    auto* in = Enable<CTestArinc429InService>(rx, 4);
    auto* signals = Enable<CKVX_HdwSignalService>(rx, 1);
    ASSERT_NE(in, nullptr);
    ASSERT_NE(signals, nullptr);
    CKVX_HdwArinc429InBufferService::CParameters p;
    p.BufferSize = kWords;  // room for all: a slow reader loses nothing
    in->SetParameters(&p);
    CKVX_HdwSignalService::CParameters sp;
    sp.BufferSize = kWords;
    signals->SetParameters(&sp);
    // Every other label is refused by the filter.
    for (unsigned l = 1; l < 256; l += 2)
        in->DiscardMessage(static_cast<unsigned char>(l));
    ASSERT_EQ(rx->Open(nullptr), 0u);

    std::thread driver([&] {
        for (unsigned i = 0; i < kWords; ++i) {
            CTestEvent e(EventArinc429Rx, "RX0", i);
            e.Word.Label = static_cast<uint8_t>(i & 0xFF);
            e.Word.Data = i;
            rig.Device->Deliver(HDW_PORT_ARINC429_RX, e);
        }
    });
    // The application drains words and signals while the driver appends.
    std::thread signalReader([&] {
        unsigned expected = 0;
        CKVX_HdwSignalService::CSignal s;
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (expected < kWords && std::chrono::steady_clock::now() < end) {
            if (signals->WaitSignal(s, 100) != 0)
                continue;
            EXPECT_EQ(s.Arinc429.Data, expected);
            if (s.Arinc429.Data != expected)
                break;
            ++expected;
        }
        EXPECT_EQ(expected, kWords);
    });

    std::vector<CKVX_HdwArinc429Message> buffer(256);
    unsigned expected = 0;
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (expected < kWords && std::chrono::steady_clock::now() < end) {
        unsigned n = 0;
        ASSERT_EQ(in->Read(buffer.data(), 256, n), 0u);
        for (unsigned k = 0; k < n; ++k) {
            ASSERT_EQ(buffer[k].Data, expected);
            ASSERT_EQ(buffer[k].TimeStamp, expected);
            expected += 2;  // the odd labels were filtered
        }
        if (n == 0)
            std::this_thread::yield();
    }
    driver.join();
    signalReader.join();
    EXPECT_EQ(expected, kWords);
    EXPECT_EQ(in->GetDroppedCount(), 0u);
    unsigned left = 1;
    EXPECT_EQ(in->GetReadMessagesNumber(left), 0u);
    EXPECT_EQ(left, 0u);
}

TEST(LockRules, CanFramesAndFaultStatusUnderConcurrentReads)
{
    CBusRig rig;
    CTestCanPort* can = rig.Can();
    auto* in = Enable<CTestCanInService>(can, 9);
    ASSERT_NE(in, nullptr);
    CKVX_HdwCanInBufferService::CParameters p;
    p.BufferSize = kWords;
    in->SetParameters(&p);
    ASSERT_EQ(can->Open(nullptr), 0u);

    std::thread driver([&] {
        for (unsigned i = 0; i < kWords; ++i) {
            CTestEvent e(EventCanRx, "CAN0", i);
            e.Frame.Identifier = i;
            rig.Device->Deliver(HDW_PORT_CAN, e);
            if (i % 64 == 0) {
                CTestEvent st(EventCanStatus, "CAN0", i);
                st.Status.Status = (i / 64) % 3;
                st.Status.ErrReg0 = static_cast<uint8_t>(i / 64);
                rig.Device->Deliver(HDW_PORT_CAN, st);
            }
        }
    });
    CKVX_HdwCanMessage frames[128];
    unsigned expected = 0;
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (expected < kWords && std::chrono::steady_clock::now() < end) {
        unsigned n = 0;
        ASSERT_EQ(in->Read(frames, 128, n), 0u);
        for (unsigned k = 0; k < n; ++k)
            ASSERT_EQ(frames[k].Identifier, expected++);
        CKVX_HdwCanPort::CFaultStatus f;
        ASSERT_EQ(in->GetFaultStatus(&f), 0u);
        EXPECT_LE(f.Status, 3u);
        if (n == 0)
            std::this_thread::yield();
    }
    driver.join();
    EXPECT_EQ(expected, kWords);
    CKVX_HdwCanPort::CFaultStatus f;
    can->GetFaultStatus(&f);
    EXPECT_EQ(f.ErrReg0, static_cast<uint8_t>((kWords - 1) / 64));
}
