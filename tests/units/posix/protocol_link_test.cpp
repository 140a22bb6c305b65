// The command protocol over a pseudo-terminal, the test playing the unit.
#include "../UnitTestSupport.h"
#include "links/posix/PtyPair.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <tuple>

using namespace unittest;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes Concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes SessionRecord(uint16_t number, bool open)
{
    return {0x07, 0x81, uint8_t(number), uint8_t(number >> 8), uint8_t(open ? 1 : 0), 0x00, 0x00};
}

// Reads one whole host frame from the master side.
Bytes ReadHostFrame(PtyPair& pty)
{
    Bytes head = pty.ReadMaster(3);
    if (head.size() != 3)
        return head;
    const size_t n = size_t(head[1]) | size_t(head[2]) << 8;
    Bytes rest = pty.ReadMaster(n + 2);
    head.insert(head.end(), rest.begin(), rest.end());
    return head;
}

// Echoes the commands of `frame` in one unit frame.
Bytes EchoesOf(const Bytes& frame)
{
    std::vector<Bytes> echoes;
    for (size_t p = 3; p + 4 <= frame.size() - 2; p += frame[p])
        echoes.push_back(EchoRecord(uint16_t(frame[p + 2] | frame[p + 3] << 8)));
    return UnitFrame(echoes);
}

class UnitLink : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(pty.Ok());
        dev.AddInstance(pty.SlaveName());
        ASSERT_EQ(dev.Com_Open(dev.Inst()), 0u);
        rx0 = std::make_unique<RecordingPort>(&dev, 0, "0", HDW_PORT_ARINC429_RX);
        dev.AttachPortToHdwTimer(0, rx0.get());
    }
    void TearDown() override
    {
        dev.DetachPortFromHdwTimer(0, rx0.get());
        dev.Com_Close(dev.Inst());
    }

    Base::CDeviceInstance* inst() { return dev.Inst(); }

    // Writes `bytes` as the unit; once all wait on the link, runs a reception.
    unsigned Deliver(const Bytes& bytes)
    {
        EXPECT_TRUE(pty.WriteMaster(bytes));
        EXPECT_TRUE(WaitUntil([&] {
            unsigned waiting = 0;
            return dev.Com_GetReadBufferBytes(inst(), waiting) == 0 && waiting >= bytes.size();
        }));
        return dev.ProcessReception(0);
    }

    std::vector<uint32_t> Received()
    {
        std::vector<uint32_t> out;
        for (const SeenEvent& e : rx0->seen)
            out.push_back(e.As<Base::CArinc429RxEvent>().Message.Data);
        return out;
    }

    static Bytes WordFrame(uint32_t data) { return UnitFrame({A429RxRecord(0, data << 10)}); }

    PtyPair pty;
    TestUnit dev;
    std::unique_ptr<RecordingPort> rx0;
};

using Words = std::vector<uint32_t>;

// Command numbers wrap from 65535 to 0.
TEST_F(UnitLink, QueuedCommandsGoOutAsOneFrameAndTheNextWaitsForItsEchoes)
{
    EXPECT_EQ(dev.ProcessCommandList(0u), 0u); // nothing queued, nothing sent
    EXPECT_EQ(pty.MasterQueued(), 0);

    inst()->CommandCounter = 65534;
    ASSERT_EQ(dev.AttachSessionCommand(0u, 0), 0u);
    ASSERT_EQ(dev.AttachStatusRequestCommand(0, 0, 1), 0u);
    ASSERT_EQ(dev.ProcessCommandList(0u), 0u);
    EXPECT_EQ(ReadHostFrame(pty),
        HostFrame({SessionRecord(65534, true), {0x07, 0x82, 0xFF, 0xFF, 0x00, 0x01, 0x00}})); // status request, kind 1
    ASSERT_EQ(std::tuple(inst()->CommandList.IsEmpty(), inst()->EchoList.GetLength(), inst()->BytesSent),
        std::tuple(true, 2u, 14u));
    EXPECT_EQ(inst()->EchoList.GetFirst()->Number, 65534);

    ASSERT_EQ(dev.AttachSessionCommand(0u, 1), 0u);
    EXPECT_EQ(dev.ProcessCommandList(0u), 0u);
    // Held back: nothing was written (the pseudo-terminal shows a write only later, the count at once).
    EXPECT_EQ(std::tuple(inst()->CommandList.GetLength(), inst()->BytesSent), std::tuple(1u, 14u));

    ASSERT_EQ(Deliver(UnitFrame({EchoRecord(65534), EchoRecord(65535)})), 0u);
    EXPECT_TRUE(inst()->EchoList.IsEmpty());
    ASSERT_EQ(dev.ProcessCommandList(0u), 0u);
    EXPECT_EQ(ReadHostFrame(pty), HostFrame({SessionRecord(0, false)}));
}

// On a stepped unit clock that wraps meanwhile, not a millisecond early.
TEST_F(UnitLink, TheTickReportsAnEchoOutstandingForTheTimeOut)
{
    dev.SetEchoTimeout(500);
    dev.SteppedTime = 0xFFFFFF00u; // the millisecond clock wraps while the echo waits
    ASSERT_EQ(dev.AttachStatusRequestCommand(0, 0, 1), 0u);
    ASSERT_EQ(dev.ProcessCommandList(0u), 0u);
    const Bytes frame = ReadHostFrame(pty);
    *dev.SteppedTime += 499;
    EXPECT_EQ(dev.HdwTimerStartDeviceIntanceHandler(0, 1), 0u);
    *dev.SteppedTime += 1;
    EXPECT_EQ(dev.HdwTimerStartDeviceIntanceHandler(0, 2), 14u);
    EXPECT_EQ(inst()->EchoList.GetLength(), 1u); // left as it is
    ASSERT_EQ(Deliver(EchoesOf(frame)), 0u);
    EXPECT_EQ(dev.HdwTimerStartDeviceIntanceHandler(0, 3), 0u);
}

// Only the frame whose dispatch fails is lost; the rest of the read is parsed by the next reception, in order.
TEST_F(UnitLink, BytesAfterAFailedFrameInTheSameReadAreNotLost)
{
    inst()->EchoList += Base::CEchoWaiting(5, 0);
    const Bytes stream = Concat({UnitFrame({A429RxRecord(0, 1u << 10), EchoRecord(6), A429RxRecord(0, 2u << 10)}),
        WordFrame(3), UnitFrame({EchoRecord(5), A429RxRecord(0, 4u << 10)}), WordFrame(5)});
    EXPECT_EQ(Deliver(stream), 14u);
    EXPECT_EQ(Received(), (Words{1}));
    EXPECT_EQ(dev.ProcessReception(0), 0u);
    EXPECT_EQ(Received(), (Words{1, 3, 4, 5}));
    EXPECT_TRUE(inst()->EchoList.IsEmpty());
    EXPECT_EQ(inst()->FailedFrames, 1u);
}

// The frames of one reception share one routes table; the next reception builds its own, so a port that replaced
// another between ticks (the list as long as before) takes its channel's events and the one that left hears nothing.
TEST_F(UnitLink, EachReceptionRoutesEventsToThePortsOpenAtItsStart)
{
    auto rx1 = std::make_unique<RecordingPort>(&dev, 0, "1", HDW_PORT_ARINC429_RX);
    dev.AttachPortToHdwTimer(0, rx1.get());
    auto words = [](const RecordingPort& p) {
        Words out;
        for (const SeenEvent& e : p.seen)
            out.push_back(e.As<Base::CArinc429RxEvent>().Message.Data);
        return out;
    };
    auto onChannel1 = [](uint32_t data) { return UnitFrame({A429RxRecord(1, data << 10)}); };

    ASSERT_EQ(Deliver(Concat({WordFrame(1), onChannel1(2),
                  UnitFrame({A429RxRecord(0, 3u << 10), A429RxRecord(1, 4u << 10)}), WordFrame(5)})),
        0u);
    EXPECT_EQ(std::tuple(Received(), words(*rx1)), std::tuple(Words{1, 3, 5}, Words{2, 4}));

    dev.DetachPortFromHdwTimer(0, rx1.get());
    auto replacement = std::make_unique<RecordingPort>(&dev, 0, "1", HDW_PORT_ARINC429_RX);
    dev.AttachPortToHdwTimer(0, replacement.get());
    ASSERT_EQ(Deliver(Concat({onChannel1(6), WordFrame(7)})), 0u);
    EXPECT_EQ(
        std::tuple(Received(), words(*rx1), words(*replacement)), std::tuple(Words{1, 3, 5, 7}, Words{2, 4}, Words{6}));
    dev.DetachPortFromHdwTimer(0, replacement.get());
}

TEST_F(UnitLink, DamagedFramesAreDroppedAndTheNextOnesServed)
{
    const auto unknown = [](unsigned type) {
        return UnitFrame({A429RxRecord(0, 1u << 10), EventRecord(type, 0, 0, {0, 0}), A429RxRecord(0, 2u << 10)});
    };
    std::vector<Bytes> many;
    Words manyWords;
    for (uint32_t i = 0; i < 300; ++i) {
        many.push_back(A429RxRecord(0, (i + 100) << 10, i));
        manyWords.push_back(i + 100);
    }
    // What, bytes delivered at once, the reception's result, the words that reached the port, CRC errors (-1: any).
    const std::tuple<const char*, Bytes, unsigned, Words, int> cases[] = {
        // Noise loses the frame that follows it, only that one.
        {"a stray byte between frames", Concat({WordFrame(3), {0x55}, WordFrame(4), WordFrame(5)}), 0, {3, 5}, 1},
        // A zero record length after a complete record drops the whole frame.
        {"zero length of the second record",
            Concat({{0xA5, 0x16, 0x00, 0x02, 0x00}, A429RxRecord(0, 3u << 10), {0x00}, WordFrame(4)}), 0, {4}, -1},
        // An unknown event type stops the frame; the next starts afresh.
        {"event type 11", unknown(11), 14, {1}, 0},
        {"event type 4", unknown(4), 14, {1}, 0},
        {"300 events in one frame", UnitFrame(many), 0, manyWords, 0},
    };
    for (const auto& [what, stream, rc, got, crcErrors] : cases) {
        rx0->seen.clear();
        const uint32_t crcBefore = inst()->CrcErrors;
        EXPECT_EQ(Deliver(stream), rc) << what;
        EXPECT_EQ(Received(), got) << what;
        if (crcErrors >= 0) {
            EXPECT_EQ(inst()->CrcErrors - crcBefore, uint32_t(crcErrors)) << what;
        }
    }
    EXPECT_EQ(rx0->seen.back().TimeStamp, 299u); // of the last of the 300
}

class UnitSession : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(pty.Ok());
        dev.AddInstance(pty.SlaveName());
        dev.SetEchoTimeout(5000); // generous for a loaded machine
        ticker = std::thread([this] {
            uint64_t n = 0;
            while (!stop.load()) {
                dev.HdwTimerHandler(++n);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    void TearDown() override
    {
        stop = true;
        if (ticker.joinable())
            ticker.join();
        dev.Close(0);
    }

    bool ListsEmpty()
    {
        dev.DeviceLock(0);
        const bool empty = dev.Inst()->CommandList.IsEmpty() && dev.Inst()->EchoList.IsEmpty();
        dev.DeviceUnlock(0);
        return empty;
    }

    uint32_t BytesSent()
    {
        dev.DeviceLock(0);
        const uint32_t n = dev.Inst()->BytesSent;
        dev.DeviceUnlock(0);
        return n;
    }

    PtyPair pty;
    TestUnit dev;
    std::atomic<bool> stop{false};
    std::thread ticker;
};

TEST_F(UnitSession, OpenStartsAFreshSessionAndCloseSendsWhatIsQueuedFirst)
{
    Bytes seen;
    std::thread unit([&] {
        seen = ReadHostFrame(pty);
        pty.WriteMaster(EchoesOf(seen));
    });
    EXPECT_EQ(dev.Open(0), 0u);
    unit.join();
    EXPECT_EQ(seen, HostFrame({SessionRecord(0, false), SessionRecord(1, true)}));
    EXPECT_EQ(std::tuple(dev.Inst()->IsOpen(), ListsEmpty()), std::tuple(true, true));

    // Opening an open instance sends nothing.
    const uint32_t sentBefore = BytesSent();
    EXPECT_EQ(dev.Open(0), 0u);
    EXPECT_EQ(BytesSent(), sentBefore);

    // A command waiting for its echo and one queued: the close waits for the echo, then sends the queued one and the
    // session close unechoed (the tick may send the command before the close attaches its record: one frame or two).
    dev.DeviceLock(0);
    dev.AttachStatusRequestCommand(0, 0, 1);
    dev.ProcessCommandList(0u);
    dev.AttachStatusRequestCommand(0, 1, 1);
    dev.DeviceUnlock(0);
    const Bytes inFlight = ReadHostFrame(pty);
    std::vector<Bytes> lastFrames, lastRecords;
    std::thread late([&] {
        pty.WriteMaster(EchoesOf(inFlight));
        while (lastRecords.empty() || lastRecords.back()[1] != 0x81) {
            lastFrames.push_back(ReadHostFrame(pty));
            const Bytes& f = lastFrames.back();
            if (f.size() < 5)
                break;
            for (size_t p = 3; p < f.size() - 2 && f[p] != 0; p += f[p])
                lastRecords.emplace_back(f.begin() + long(p), f.begin() + long(p + f[p]));
        }
    });
    EXPECT_EQ(dev.Close(0), 0u);
    late.join();
    EXPECT_EQ(lastRecords, (std::vector<Bytes>{{0x07, 0x82, 0x03, 0x00, 0x00, 0x02, 0x00}, SessionRecord(4, false)}));
    EXPECT_EQ(std::tuple(dev.Inst()->IsOpen(), ListsEmpty()), std::tuple(false, true));

    // The close echoed late, after the next open began: the new session drops that echo and opens at the first try.
    unit = std::thread([&] {
        seen = ReadHostFrame(pty);
        for (const Bytes& f : lastFrames)
            pty.WriteMaster(EchoesOf(f));
        pty.WriteMaster(EchoesOf(seen));
    });
    EXPECT_EQ(dev.Open(0), 0u);
    unit.join();
    EXPECT_EQ(seen, HostFrame({SessionRecord(5, false), SessionRecord(6, true)}));
    EXPECT_GE(dev.Inst()->StaleEchoes, 1u);
}

} // namespace
