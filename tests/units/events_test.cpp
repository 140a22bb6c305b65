// Event records: decoded fields, length rules, and the ports each event reaches.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <tuple>

using namespace unittest;
using Bytes = std::vector<uint8_t>;

namespace {

// Recording ports attached to instance 0 of `dev`, detached at the end.
struct PortSet {
    explicit PortSet(TestUnit& d) : dev(d) {}
    ~PortSet()
    {
        for (auto& p : list)
            dev.DetachPortFromHdwTimer(0, p.get());
    }
    RecordingPort* Add(const char* channel, unsigned type)
    {
        list.push_back(std::make_unique<RecordingPort>(&dev, 0, channel, type));
        dev.AttachPortToHdwTimer(0, list.back().get());
        return list.back().get();
    }
    TestUnit& dev;
    std::vector<std::unique_ptr<RecordingPort>> list;
};

class UnitEvents : public ::testing::Test {
protected:
    void SetUp() override
    {
        dev.AddInstance();
        a429rx0 = ports.Add("0", HDW_PORT_ARINC429_RX);
        a429rx2 = ports.Add("2", HDW_PORT_ARINC429_RX);
        a429tx2 = ports.Add("2", HDW_PORT_ARINC429_TX);
        a429tx3 = ports.Add("3", HDW_PORT_ARINC429_TX);
        can0 = ports.Add("0", HDW_PORT_CAN);
        can1 = ports.Add("1", HDW_PORT_CAN);
        uart0 = ports.Add("0", HDW_PORT_UART);
        uart1 = ports.Add("1", HDW_PORT_UART);
        mil0 = ports.Add("0", HDW_PORT_MILSTD1553);
    }

    // Hands a record to its handler with L as the record says (bytes past it must not be read).
    unsigned Dispatch(Bytes record)
    {
        return dev.ProcessEventRecord(0, record[1] >> 3, record[1] & 7, record[0], record.data() + 2);
    }

    // Ports that saw anything, as "type/channel" texts.
    std::vector<std::string> Reached()
    {
        std::vector<std::string> out;
        for (auto& p : ports.list)
            if (!p->seen.empty())
                out.push_back(std::to_string(p->GetPortType()) + "/" + p->GetChannelId().c_str());
        return out;
    }

    TestUnit dev;
    PortSet ports{dev};
    RecordingPort *a429rx0, *a429rx2, *a429tx2, *a429tx3, *can0, *can1, *uart0, *uart1, *mil0;
};

using Status = Base::CStatusEvent;
using CanRx = Base::CCanRxEvent;
using Mil = Base::CMilStd1553Event;
using UartTx = Base::CUartTxEvent;

// A CAN message's format, identifier, remote flag, DLC and all eight data bytes.
auto Can(const CKVX_HdwCanMessage& m)
{
    return std::tuple(m.Extended, m.Identifier, m.Rtr, m.Dlc, Bytes(m.Data, m.Data + 8));
}

// A record, the one port it reaches, its decoding, the lengths L refused with 11 (no port); 0x99 past L reads as 0.
struct EventCase {
    const char* What;
    Bytes Record;
    RecordingPort* Port;
    std::vector<unsigned> Refused;
    std::function<void(const SeenEvent&)> Check;
};

TEST_F(UnitEvents, EachTypeDecodesItsFieldsReachesItsPortAndKeepsItsLengthRules)
{
    Bytes canExtShort = EventRecord(6, 0, 1, {0x88, 0, 0, 0, 0x08, 0xB1, 0xB2, 0xB3, 0xB4, 0x99, 0x99, 0x99, 0x99});
    canExtShort[0] = 13;
    const EventCase cases[] = {
        // Word 0xE48D1631: label 0x31, SDI 2, data 0x12345, SSM 3, parity 1; then 0xBEEF.
        {"ARINC 429 receive", EventRecord(2, 2, 0x11223344, {0x31, 0x16, 0x8D, 0xE4, 0xEF, 0xBE}), a429rx2, {7},
            [](const SeenEvent& e) {
                EXPECT_EQ(std::tuple(e.Channel, e.TimeStamp), std::tuple("2", 0x11223344u));
                const auto& r = e.As<Base::CArinc429RxEvent>();
                EXPECT_EQ(std::tuple(r.Message.GetToUint32(), r.Message.Data, r.Message.TimeStamp, r.AuxValue),
                    std::tuple(0xE48D1631u, 0x12345u, uint64_t(0x11223344), 0xBEEF));
            }},
        {"transmitter status", EventRecord(5, 3, 7, {1, 0xF4, 0x01, 0x00, 0x00}), a429tx3, {9, 11},
            [this](const SeenEvent& e) {
                EXPECT_EQ(std::tuple(e.As<Status>().Kind, e.As<Status>().StatusWord), std::tuple(1, 500u));
                EXPECT_EQ(std::tuple(dev.Inst()->AtxCtrl[3].FifoWaiting, dev.Inst()->AtxCtrl[2].FifoWaiting),
                    std::tuple(500u, 0u));
            }},
        {"CAN status", EventRecord(5, 1, 7, {2, 0x01, 0x05, 0xAA, 0xBB}), can1, {9, 11},
            [this](const SeenEvent& e) {
                EXPECT_EQ(e.As<Status>().StatusWord, 0xBBAA0501u);
                const Base::CCanCtrlStatus& c = dev.Inst()->CanCtrl[1];
                EXPECT_EQ(std::tuple(c.FaultState, c.TxWaiting, c.ErrReg0, c.ErrReg1), std::tuple(1u, 5u, 0xAA, 0xBB));
                EXPECT_EQ(dev.Inst()->CanCtrl[0].FaultState, 3u);
            }},
        {"CAN standard", EventRecord(6, 0, 99, {0x03, 0xFF, 0xE0, 0x11, 0x22, 0x33}), can0, {},
            [](const SeenEvent& e) {
                EXPECT_EQ(
                    Can(e.As<CanRx>().Message), std::tuple(0, 0x7FF, 0, 3, Bytes{0x11, 0x22, 0x33, 0, 0, 0, 0, 0}));
                EXPECT_EQ(e.As<CanRx>().Message.TimeStamp, 99u);
            }},
        // The CAN rules are as loose as they stand: L >= DLC + 3 standard, DLC + 5 extended.
        {"CAN extended, DLC 8, L = 13", canExtShort, can0, {12, 0},
            [](const SeenEvent& e) {
                EXPECT_EQ(Can(e.As<CanRx>().Message), std::tuple(1, 1, 0, 8, Bytes{0xB1, 0xB2, 0xB3, 0, 0, 0, 0, 0}));
            }},
        {"UART receive", EventRecord(9, 1, 4, {0x00, 'a', 'b', 'c'}), uart1, {},
            [](const SeenEvent& e) {
                EXPECT_EQ(
                    std::tuple(e.As<Base::CUartRxEvent>().Data, e.TimeStamp), std::tuple(Bytes{'a', 'b', 'c'}, 4u));
            }},
        {"UART transmit", EventRecord(10, 0, 3, {0x02, 0x01, 0x00, 0x00, 0xF0, 0x00}), uart0, {5},
            [](const SeenEvent& e) {
                EXPECT_EQ(std::tuple(e.As<UartTx>().ChunkCounter, e.As<UartTx>().Count), std::tuple(0x102u, 240));
            }},
        // Kind 2: address 17, field 5; transmit, subaddress 11; flag, 2 words; field 0x13; then command words 0x8D62
        // and 0, status words 0x8800 and 0, flags 0x0410.
        {"MIL-STD-1553 remote-terminal access",
            EventRecord(8, 0, 9,
                {2, 0x8D, 0x2B, 0x42, 0x13, 0x02, 0x01, 0x04, 0x03, 0x62, 0x8D, 0, 0, 0x00, 0x88, 0, 0, 0x10, 0x04}),
            mil0, {},
            [](const SeenEvent& e) {
                const Mil& m = e.As<Mil>();
                EXPECT_EQ(std::tuple(m.Kind, m.TerminalAddress, m.Field1, m.Subaddress, m.Transmit, m.WordCount, m.Flag,
                              m.Field2),
                    std::tuple(2, 17, 5, 11, 1, 2, 1, 0x13));
                EXPECT_EQ(m.Data, (std::vector<uint16_t>{0x0102, 0x0304}));
                EXPECT_EQ(std::tuple(m.CommandWord1, m.CommandWord2, m.StatusWord1, m.StatusWord2, m.TransferFlags),
                    std::tuple(0x8D62, 0, 0x8800, 0, 0x0410));
            }},
        // 1000 words announced, room for 3 in the record: only the record is read.
        {"MIL-STD-1553 word count beyond the record",
            EventRecord(8, 0, 9, {1, 0x00, 0x00, 0xE8, 0x03, 1, 0, 2, 0, 3, 0}), mil0, {},
            [](const SeenEvent& e) {
                EXPECT_EQ(std::tuple(e.As<Mil>().WordCount, e.As<Mil>().Data, e.As<Mil>().StatusWord1),
                    std::tuple(1000, std::vector<uint16_t>{1, 2, 3}, 0));
            }},
    };
    for (const EventCase& c : cases) {
        SCOPED_TRACE(c.What);
        for (auto& p : ports.list)
            p->seen.clear();
        for (unsigned length : c.Refused) {
            Bytes refused = c.Record;
            refused[0] = uint8_t(length);
            refused.resize(std::max(refused.size(), size_t(length) + 1), 0x99);
            EXPECT_EQ(Dispatch(refused), 11u) << "L = " << length;
            EXPECT_TRUE(Reached().empty()) << "L = " << length;
        }
        ASSERT_EQ(Dispatch(c.Record), 0u);
        EXPECT_EQ(Reached(),
            (std::vector<std::string>{std::to_string(c.Port->GetPortType()) + "/" + c.Port->GetChannelId().c_str()}));
        ASSERT_EQ(c.Port->seen.size(), 1u);
        EXPECT_EQ(c.Port->seen[0].Code, unsigned(c.Record[1] >> 3));
        c.Check(c.Port->seen[0]);
    }
    // The port's result is the handler's result.
    a429rx2->Result = 15;
    EXPECT_EQ(Dispatch(EventRecord(2, 2, 0, {0, 0, 0, 0, 0, 0})), 15u);
}

// A status of another kind or a channel the unit lacks, and an echo of another length (the order rules:
// UnitEngineEchoes and UnitLink), reach nothing; a critical failure reaches every open port.
TEST_F(UnitEvents, RecordsForNoPortChangeNothingAndACriticalFailureReachesEveryOpenPort)
{
    EXPECT_EQ(Dispatch(EventRecord(5, 1, 7, {2, 0x01, 0x05, 0xAA, 0xBB, 0x00})), 11u); // L = 11
    EXPECT_EQ(dev.Inst()->CanCtrl[1].FaultState, 3u);
    EXPECT_EQ(Dispatch(EventRecord(5, 1, 7, {3, 0x01, 0x05, 0xAA, 0xBB})), 0u);
    EXPECT_EQ(Dispatch(EventRecord(5, 7, 7, {1, 9, 0, 0, 0})), 0u);
    dev.Inst()->EchoList += Base::CEchoWaiting(5, 0);
    Bytes longEcho = EchoRecord(5);
    longEcho.push_back(0);
    ++longEcho[0]; // L = 8
    EXPECT_EQ(Dispatch(longEcho), 11u);
    EXPECT_EQ(dev.Inst()->EchoList.GetLength(), 1u);
    EXPECT_TRUE(Reached().empty());

    ASSERT_EQ(Dispatch(EventRecord(1, 5, 77, {})), 0u); // L = 5
    EXPECT_EQ(Reached().size(), ports.list.size());
    for (auto& p : ports.list) {
        ASSERT_EQ(p->seen.size(), 1u);
        const SeenEvent& e = p->seen[0];
        EXPECT_EQ(std::tuple(e.Code, e.As<Base::CCriticalFailureEvent>().FailureCode, e.Channel, e.TimeStamp),
            std::tuple(1u, 5u, std::string("5"), uint64_t(77)));
    }
    Bytes record = EventRecord(1, 5, 77, {});
    record[0] = 4;
    EXPECT_EQ(Dispatch(record), 11u);
}

} // namespace

// The per-frame routes give each event the ports the list walk gives: all on its channel in list order until one
// answers non-zero; ids that are not a channel's decimal text hear nothing; channels past the routes' range arrive.
TEST(UnitFrameEvents, EachEventReachesThePortsOfItsTypeAndChannelAsTheListWalkDoes)
{
    Base::CUnitProfile profile = FullProfile();
    profile.ArxChannels = 24; // a bank byte after the ARINC 429 word
    TestUnit dev(profile);
    dev.AddInstance();
    PortSet ports(dev);
    RecordingPort* first1 = ports.Add("1", HDW_PORT_ARINC429_RX);
    RecordingPort* padded7 = ports.Add("07", HDW_PORT_ARINC429_RX);
    RecordingPort* can1 = ports.Add("1", HDW_PORT_CAN);
    RecordingPort* second1 = ports.Add("1", HDW_PORT_ARINC429_RX);
    RecordingPort* rx7 = ports.Add("7", HDW_PORT_ARINC429_RX);
    RecordingPort* rx12 = ports.Add("12", HDW_PORT_ARINC429_RX);
    RecordingPort* rx17 = ports.Add("17", HDW_PORT_ARINC429_RX);
    RecordingPort* named = ports.Add("A", HDW_PORT_ARINC429_RX);
    RecordingPort* padded3 = ports.Add("03", HDW_PORT_ARINC429_RX); // alone on channel 3

    // Channel = bank * 8 + sub-field.
    auto rx = [](unsigned channel, uint8_t tag) {
        return EventRecord(2, channel & 7, tag, {tag, 0, 0, 0, 0, 0, uint8_t(channel >> 3)});
    };
    const Bytes canRx = EventRecord(6, 1, 50, {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
    auto feed = [&](const Bytes& frame) {
        unsigned used = 0;
        bool ok = false;
        EXPECT_EQ(
            dev.Inst()->FeedBytes(frame.data(), unsigned(frame.size()), used, ok), CKVX_HdwKvxUnitEngine::EFeed::Frame);
        EXPECT_TRUE(ok);
        return dev.ProcessEventPayload(0);
    };
    auto stamps = [](const RecordingPort* p) {
        std::vector<uint64_t> out;
        for (const SeenEvent& s : p->seen)
            out.push_back(s.TimeStamp);
        return out;
    };
    using Stamps = std::vector<uint64_t>;

    ASSERT_EQ(feed(UnitFrame({rx(1, 1), rx(7, 2), canRx, rx(12, 3), rx(17, 4), rx(1, 5), rx(9, 6), rx(3, 11)})), 0u);
    EXPECT_EQ((std::vector{stamps(first1), stamps(second1), stamps(rx7), stamps(rx12), stamps(rx17), stamps(can1)}),
        (std::vector<Stamps>{{1, 5}, {1, 5}, {2}, {3}, {4}, {50}}));
    EXPECT_TRUE(padded7->seen.empty() && named->seen.empty() && padded3->seen.empty());
    ASSERT_EQ(rx12->seen.size(), 1u);
    EXPECT_EQ(rx12->seen[0].Channel, "12");

    // The first port's answer stops the event there and ends the frame's pass.
    first1->Result = 15;
    EXPECT_EQ(feed(UnitFrame({rx(1, 7), rx(7, 8)})), 15u);
    EXPECT_EQ(
        (std::vector{stamps(first1), stamps(second1), stamps(rx7)}), (std::vector<Stamps>{{1, 5, 7}, {1, 5}, {2}}));

    // A port that leaves the list between frames hears nothing more; the one left on its channel takes the events.
    first1->Result = 0;
    dev.DetachPortFromHdwTimer(0, first1);
    ASSERT_EQ(feed(UnitFrame({rx(1, 9)})), 0u);
    EXPECT_EQ((std::vector{stamps(first1), stamps(second1)}), (std::vector<Stamps>{{1, 5, 7}, {1, 5, 9}}));

    // Outside a frame's pass the list walk is the only way.
    const Bytes direct = rx(1, 10);
    EXPECT_EQ(dev.ProcessEventRecord(0, 2, 1, direct[0], const_cast<uint8_t*>(direct.data()) + 2), 0u);
    EXPECT_EQ(stamps(second1), (Stamps{1, 5, 9, 10}));
}

// Events keep their 32-bit TimeStamp and carry the unwrapped 64-bit time beside it, across the wrap.
TEST_F(UnitEvents, EventsCarryTheirUnwrappedTimeAcrossTheUnitClocksWrap)
{
    RecordingPort &rx = *a429rx2, &can = *can0;
    auto feed = [&](const Bytes& frame) {
        return dev.ReceiveBytes(0, dev.Inst(), frame.data(), unsigned(frame.size()));
    };
    const Bytes canRx = EventRecord(6, 0, 0x00000010, {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
    ASSERT_EQ(feed(UnitFrame({A429RxRecord(2, 0x11, 0xFFFFFF00u), A429RxRecord(2, 0x12, 0xFFFFFFF0u)})), 0u);
    ASSERT_EQ(feed(UnitFrame({canRx, A429RxRecord(2, 0x13, 0x00000020u)})), 0u);
    ASSERT_EQ(rx.seen.size(), 3u);
    ASSERT_EQ(can.seen.size(), 1u);
    constexpr uint64_t kWrap = uint64_t(1) << 32;
    EXPECT_EQ(std::tuple(rx.seen[0].UnwrappedTime, rx.seen[1].UnwrappedTime, can.seen[0].UnwrappedTime,
                  rx.seen[2].UnwrappedTime),
        std::tuple(0xFFFFFF00u, 0xFFFFFFF0u, kWrap + 0x10, kWrap + 0x20));
    EXPECT_EQ(rx.seen[2].TimeStamp, 0x20u) << "the 32-bit stamp stays as it was";
    uint64_t latest = 0;
    ASSERT_TRUE(dev.Inst()->GetLatestUnitTime(latest));
    EXPECT_EQ(latest, kWrap + 0x20);
    EXPECT_EQ(dev.Inst()->UnwrapUnitTime(0xFFFFFFF0u), 0xFFFFFFF0u);

    // A frame with an event count of 0 and one with a bad CRC: dropped, counted.
    Bytes zeroCount = {0xA5, 0x00, 0x00, 0x00, 0x00};
    AppendCrc(zeroCount);
    Bytes badCrc = UnitFrame({A429RxRecord(2, 0x14, 0x30)});
    badCrc.back() ^= 0xFF;
    EXPECT_EQ(feed(zeroCount), 0u);
    EXPECT_EQ(feed(badCrc), 0u);
    EXPECT_EQ(rx.seen.size(), 3u);
    const auto c = dev.Inst()->GetLossCounters();
    EXPECT_EQ(std::tuple(c.MalformedFrames, c.CrcErrors, c.BadFrames()), std::tuple(1u, 1u, 2u));
}
