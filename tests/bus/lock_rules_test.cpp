// A driver's receive path against readers in other threads (run under TSan too).
#include "TestBusDevice.h"

#include <chrono>
#include <thread>
#include <vector>

using namespace bustest;

TEST(LockRules, WordsFramesAndFaultStatusAppendedByTheDriverAreReadInOrder)
{
    constexpr unsigned kWords = 20000;
    CBusRig rig;
    CTestRxPort* rx = rig.Rx();
    CTestCanPort* can = rig.Can();
    auto* in = Enable<CTestArinc429InService>(rx, 4);
    auto* signals = Enable<CKVX_HdwSignalService>(rx, 1);
    auto* frames = Enable<CTestCanInService>(can, 9);
    ASSERT_TRUE(in && signals && frames);
    EXPECT_EQ(CKVX_HdwSignalService::FindOn(rx), signals);
    EXPECT_EQ(CKVX_HdwSignalService::FindOn(can), nullptr);
    auto holdAll = [](auto* service, auto params) {
        params.BufferSize = kWords;
        ASSERT_EQ(service->SetParameters(&params), 0u);
    };
    holdAll(in, CKVX_HdwArinc429InBufferService::CParameters());
    holdAll(signals, CKVX_HdwSignalService::CParameters());
    holdAll(frames, CKVX_HdwCanInBufferService::CParameters());
    // Every other label is refused by the filter.
    for (unsigned l = 1; l < 256; l += 2)
        in->DiscardMessage(static_cast<unsigned char>(l));
    ASSERT_EQ(rx->Open(nullptr), 0u);
    ASSERT_EQ(can->Open(nullptr), 0u);

    std::thread driver([&] {
        for (unsigned i = 0; i < kWords; ++i) {
            rig.ReceiveWord(Word(i & 0xFF, 0, 0, i), i);
            rig.ReceiveFrame(Frame(i, 0, {}), i);
            if (i % 64 == 0)
                rig.ReportCanStatus(i, uint8_t((i / 64) % 3), static_cast<uint8_t>(i / 64));
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::thread signalReader([&] {
        unsigned expected = 0;
        CKVX_HdwSignalService::CSignal s;
        while (expected < kWords && std::chrono::steady_clock::now() < end) {
            if (signals->WaitSignal(s, 100) != 0)
                continue;
            EXPECT_EQ(s.Arinc429.Data, expected);
            EXPECT_EQ(s.TimeStamp, expected);
            EXPECT_EQ(s.Port, rx);
            if (s.Arinc429.Data != expected)
                break;
            ++expected;
        }
        EXPECT_EQ(expected, kWords);
    });

    std::vector<CKVX_HdwArinc429Message> words(256);
    std::vector<CKVX_HdwCanMessage> got(128);
    unsigned expectedWord = 0, expectedFrame = 0;
    // A failed ASSERT leaves this lambda only, so the threads are still joined.
    const auto readInOrder = [&] {
        while ((expectedWord < kWords || expectedFrame < kWords) && std::chrono::steady_clock::now() < end) {
            unsigned n = 0, m = 0;
            ASSERT_EQ(in->Read(words.data(), 256, n), 0u);
            for (unsigned k = 0; k < n; ++k) {
                ASSERT_EQ(words[k].Data, expectedWord);
                ASSERT_EQ(words[k].TimeStamp, expectedWord);
                expectedWord += 2; // the odd labels were filtered
            }
            ASSERT_EQ(frames->Read(got.data(), 128, m), 0u);
            for (unsigned k = 0; k < m; ++k, ++expectedFrame) {
                ASSERT_EQ(got[k].Identifier, expectedFrame);
                ASSERT_EQ(got[k].TimeStamp, expectedFrame);
            }
            CKVX_HdwCanPort::CFaultStatus f;
            ASSERT_EQ(frames->GetFaultStatus(&f), 0u);
            EXPECT_LE(f.Status, 3u);
            if (n + m == 0)
                std::this_thread::yield();
        }
    };
    readInOrder();
    driver.join();
    signalReader.join();
    EXPECT_EQ(expectedWord, kWords);
    EXPECT_EQ(expectedFrame, kWords);
    EXPECT_EQ(in->GetDroppedCount(), 0u);
    unsigned left = 1;
    EXPECT_EQ(in->GetReadMessagesNumber(left), 0u);
    EXPECT_EQ(left, 0u);
    CKVX_HdwCanPort::CFaultStatus f;
    can->GetFaultStatus(&f);
    EXPECT_EQ(f.ErrReg0, static_cast<uint8_t>((kWords - 1) / 64));
}
