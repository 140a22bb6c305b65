// Event records of the command-protocol units: the length rules of each
// type, the decoded fields, and which ports of the unit each event reaches.

#include "UnitTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

using namespace unittest;
using Bytes = std::vector<uint8_t>;

namespace {

class UnitEvents : public ::testing::Test {
protected:
    void SetUp() override
    {
        dev.AddInstance();
        a429rx0 = Add("0", HDW_PORT_ARINC429_RX);
        a429rx2 = Add("2", HDW_PORT_ARINC429_RX);
        a429tx2 = Add("2", HDW_PORT_ARINC429_TX);
        a429tx3 = Add("3", HDW_PORT_ARINC429_TX);
        can0 = Add("0", HDW_PORT_CAN);
        can1 = Add("1", HDW_PORT_CAN);
        uart0 = Add("0", HDW_PORT_UART);
        uart1 = Add("1", HDW_PORT_UART);
        mil0 = Add("0", HDW_PORT_MILSTD1553);
    }
    void TearDown() override
    {
        for (auto& p : ports)
            dev.DetachPortFromHdwTimer(0, p.get());
    }

    RecordingPort* Add(const char* channel, unsigned type)
    {
        ports.push_back(std::make_unique<RecordingPort>(&dev, 0, channel, type));
        dev.AttachPortToHdwTimer(0, ports.back().get());
        return ports.back().get();
    }

    // Hands a record to the handler of its type, with L as the record says
    // (the vector may hold bytes past the record, which must not be read).
    unsigned Dispatch(Bytes record)
    {
        return dev.ProcessEventRecord(0, record[1] >> 3, record[1] & 7, record[0], record.data() + 2);
    }

    // Ports that saw anything, as "type/channel" texts.
    std::vector<std::string> Reached()
    {
        std::vector<std::string> out;
        for (auto& p : ports)
            if (!p->seen.empty())
                out.push_back(std::to_string(p->GetPortType()) + "/" + p->GetChannelId().c_str());
        return out;
    }

    TestUnit dev;
    std::vector<std::unique_ptr<RecordingPort>> ports;
    RecordingPort *a429rx0, *a429rx2, *a429tx2, *a429tx3, *can0, *can1, *uart0, *uart1, *mil0;
};

using Reach = std::vector<std::string>;

// ---- ARINC 429 ---------------------------------------------------------------------

TEST_F(UnitEvents, Arinc429ReceiveReachesTheReceiverOfItsChannel)
{
    // Word 0xE48D1631: label 0x31, SDI 2, data 0x12345, SSM 3, parity 1; then 0xBEEF.
    ASSERT_EQ(Dispatch(EventRecord(2, 2, 0x11223344, {0x31, 0x16, 0x8D, 0xE4, 0xEF, 0xBE})), 0u);
    EXPECT_EQ(Reached(), (Reach{"3/2"}));
    ASSERT_EQ(a429rx2->seen.size(), 1u);
    const SeenEvent e = a429rx2->seen[0];
    EXPECT_EQ(e.Code, 2u);
    EXPECT_EQ(e.Channel, "2");
    EXPECT_EQ(e.TimeStamp, 0x11223344u);
    EXPECT_EQ(e.Word.Label, 0x31);
    EXPECT_EQ(e.Word.Sdi, 2);
    EXPECT_EQ(e.Word.Data, 0x12345u);
    EXPECT_EQ(e.Word.Ssm, 3);
    EXPECT_EQ(e.Word.Parity, 1);
    EXPECT_EQ(e.Word.TimeStamp, 0x11223344u);
    EXPECT_EQ(e.AuxValue, 0xBEEF);
    // The time stamp is the unsigned low 32 bits.
    ASSERT_EQ(Dispatch(EventRecord(2, 2, 0xFFFFFFFF, {1, 0, 0, 0, 0, 0})), 0u);
    EXPECT_EQ(a429rx2->seen.back().TimeStamp, 0xFFFFFFFFull);
    EXPECT_EQ(a429rx2->seen.back().Word.TimeStamp, 0xFFFFFFFFull);
    // The port's result is the handler's result.
    a429rx2->Result = 15;
    EXPECT_EQ(Dispatch(EventRecord(2, 2, 0, {0, 0, 0, 0, 0, 0})), 15u);
}

TEST_F(UnitEvents, Arinc429LengthRules)
{
    // L = 8 is accepted; the word's last byte is not part of the record and
    // reads as zero, whatever follows in memory.
    Bytes shortRecord = EventRecord(2, 0, 5, {0x31, 0x16, 0x8D, 0x99, 0x99, 0x99});
    shortRecord[0] = 8;
    ASSERT_EQ(Dispatch(shortRecord), 0u);
    ASSERT_EQ(a429rx0->seen.size(), 1u);
    EXPECT_EQ(a429rx0->seen[0].Word.GetToUint32(), 0x008D1631u);
    EXPECT_EQ(a429rx0->seen[0].AuxValue, 0);

    Bytes tooShort = shortRecord;
    tooShort[0] = 7;
    EXPECT_EQ(Dispatch(tooShort), 11u);
    tooShort[1] = 3 << 3 | 2; // as a transmit event
    EXPECT_EQ(Dispatch(tooShort), 11u);
    EXPECT_EQ(a429rx0->seen.size(), 1u);
    EXPECT_TRUE(a429tx2->seen.empty());
}

TEST_F(UnitEvents, Arinc429TransmitReachesTheTransmitterOfItsChannel)
{
    ASSERT_EQ(Dispatch(EventRecord(3, 3, 42, {0xFF, 0x03, 0x00, 0x00})), 0u);
    EXPECT_EQ(Reached(), (Reach{"2/3"}));
    ASSERT_EQ(a429tx3->seen.size(), 1u);
    EXPECT_EQ(a429tx3->seen[0].Code, 3u);
    EXPECT_EQ(a429tx3->seen[0].Word.Label, 0xFF);
    EXPECT_EQ(a429tx3->seen[0].Word.Sdi, 3);
    EXPECT_EQ(a429tx3->seen[0].Word.TimeStamp, 42u);
}

// ---- status ----------------------------------------------------------------------------

TEST_F(UnitEvents, TransmitterStatusUpdatesItsRecordAndReachesItsPort)
{
    ASSERT_EQ(Dispatch(EventRecord(5, 3, 7, {1, 0xF4, 0x01, 0x00, 0x00})), 0u);
    EXPECT_EQ(dev.Inst()->AtxCtrl[3].FifoWaiting, 500u);
    EXPECT_EQ(dev.Inst()->AtxCtrl[2].FifoWaiting, 0u);
    EXPECT_EQ(Reached(), (Reach{"2/3"}));
    EXPECT_EQ(a429tx3->seen[0].Code, 5u);
    EXPECT_EQ(a429tx3->seen[0].StatusKind, 1);
    EXPECT_EQ(a429tx3->seen[0].StatusWord, 500u);
}

TEST_F(UnitEvents, CanStatusUpdatesFaultStateFifoAndErrorRegisters)
{
    ASSERT_EQ(Dispatch(EventRecord(5, 1, 7, {2, 0x01, 0x05, 0xAA, 0xBB})), 0u);
    const Base::CCanCtrlStatus& c = dev.Inst()->CanCtrl[1];
    EXPECT_EQ(c.FaultState, 1u);
    EXPECT_EQ(c.TxWaiting, 5u);
    EXPECT_EQ(c.ErrReg0, 0xAA);
    EXPECT_EQ(c.ErrReg1, 0xBB);
    EXPECT_EQ(dev.Inst()->CanCtrl[0].FaultState, 3u);
    EXPECT_EQ(Reached(), (Reach{"4/1"}));
    EXPECT_EQ(can1->seen[0].StatusWord, 0xBBAA0501u);
}

TEST_F(UnitEvents, StatusLengthIsExactlyTenAndOtherKindsReachNoPort)
{
    Bytes record = EventRecord(5, 1, 7, {2, 0x01, 0x05, 0xAA, 0xBB, 0x00});
    EXPECT_EQ(Dispatch(record), 11u); // L = 11
    record[0] = 9;
    EXPECT_EQ(Dispatch(record), 11u);
    EXPECT_EQ(dev.Inst()->CanCtrl[1].FaultState, 3u);
    EXPECT_EQ(Dispatch(EventRecord(5, 1, 7, {3, 0x01, 0x05, 0xAA, 0xBB})), 0u);
    EXPECT_TRUE(Reached().empty());
    // A channel the unit does not have changes no record.
    EXPECT_EQ(Dispatch(EventRecord(5, 7, 7, {1, 9, 0, 0, 0})), 0u);
    EXPECT_TRUE(Reached().empty());
}

// ---- CAN ---------------------------------------------------------------------------------

TEST_F(UnitEvents, CanStandardAndExtendedIdentifiers)
{
    ASSERT_EQ(Dispatch(EventRecord(6, 0, 99, {0x03, 0xFF, 0xE0, 0x11, 0x22, 0x33})), 0u);
    ASSERT_EQ(Dispatch(EventRecord(6, 1, 100, {0xC8, 0xFF, 0xFF, 0xFF, 0xF8, 1, 2, 3, 4, 5, 6, 7, 8})), 0u);
    ASSERT_EQ(Dispatch(EventRecord(7, 1, 101, {0x80, 0x91, 0xA2, 0xB3, 0xC0})), 0u);
    ASSERT_EQ(can0->seen.size(), 1u);
    const CKVX_HdwCanMessage& s = can0->seen[0].Frame;
    EXPECT_EQ(can0->seen[0].Code, 6u);
    EXPECT_EQ(s.Extended, 0);
    EXPECT_EQ(s.Identifier, 0x7FFu);
    EXPECT_EQ(s.Dlc, 3);
    EXPECT_EQ(s.Rtr, 0);
    EXPECT_EQ((Bytes(s.Data, s.Data + 8)), (Bytes{0x11, 0x22, 0x33, 0, 0, 0, 0, 0}));
    EXPECT_EQ(s.TimeStamp, 99u);

    ASSERT_EQ(can1->seen.size(), 2u);
    const CKVX_HdwCanMessage& x = can1->seen[0].Frame;
    EXPECT_EQ(x.Extended, 1);
    EXPECT_EQ(x.Identifier, 0x1FFFFFFFu);
    EXPECT_EQ(x.Dlc, 8);
    EXPECT_EQ(x.Rtr, 1);
    EXPECT_EQ((Bytes(x.Data, x.Data + 8)), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(can1->seen[1].Code, 7u);
    EXPECT_EQ(can1->seen[1].Frame.Identifier, 0x12345678u);
    EXPECT_EQ(can1->seen[1].Frame.Dlc, 0);
    EXPECT_EQ(can1->seen[1].Frame.TimeStamp, 101u);
    EXPECT_TRUE(a429rx0->seen.empty() && uart0->seen.empty());
}

TEST_F(UnitEvents, CanLengthRulesAreAsLooseAsTheyStand)
{
    // Standard, DLC 8: L >= 11 is enough although the data needs L = 16;
    // bytes past the record read as zero.
    Bytes record = EventRecord(6, 0, 1, {0x08, 0x24, 0x60, 0xA1, 0xA2, 0xA3, 0x99, 0x99, 0x99, 0x99, 0x99});
    record[0] = 11;
    ASSERT_EQ(Dispatch(record), 0u);
    ASSERT_EQ(can0->seen.size(), 1u);
    EXPECT_EQ(can0->seen[0].Frame.Identifier, 0x123u);
    EXPECT_EQ(
        (Bytes(can0->seen[0].Frame.Data, can0->seen[0].Frame.Data + 8)), (Bytes{0xA1, 0xA2, 0xA3, 0, 0, 0, 0, 0}));
    record[0] = 10;
    EXPECT_EQ(Dispatch(record), 11u);

    // Extended, DLC 8: L >= 13.
    Bytes ext = EventRecord(6, 0, 1, {0x88, 0, 0, 0, 0x08, 0xB1, 0xB2, 0xB3, 0xB4, 0x99, 0x99, 0x99, 0x99});
    ext[0] = 13;
    ASSERT_EQ(Dispatch(ext), 0u);
    EXPECT_EQ(can0->seen.back().Frame.Identifier, 1u);
    EXPECT_EQ((Bytes(can0->seen.back().Frame.Data, can0->seen.back().Frame.Data + 8)),
        (Bytes{0xB1, 0xB2, 0xB3, 0, 0, 0, 0, 0}));
    ext[0] = 12;
    EXPECT_EQ(Dispatch(ext), 11u);
    ext[0] = 0;
    EXPECT_EQ(Dispatch(ext), 11u);

    // A DLC above 8 is kept as received; eight data bytes at most.
    ASSERT_EQ(Dispatch(EventRecord(6, 0, 1, {0x0F, 0xFF, 0xE0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10})), 0u);
    EXPECT_EQ(can0->seen.back().Frame.Dlc, 15);
    EXPECT_EQ(can0->seen.back().Frame.Data[7], 8);
    EXPECT_EQ(can0->seen.size(), 3u);
}

// ---- UART ----------------------------------------------------------------------------------

TEST_F(UnitEvents, UartReceiveWithAndWithoutData)
{
    ASSERT_EQ(Dispatch(EventRecord(9, 1, 3, {0x5A})), 0u); // L = 6
    ASSERT_EQ(Dispatch(EventRecord(9, 1, 4, {0x00, 'a', 'b', 'c'})), 0u);
    EXPECT_EQ(Reached(), (Reach{"1/1"}));
    ASSERT_EQ(uart1->seen.size(), 2u);
    EXPECT_EQ(uart1->seen[0].UartStatus, 0x5A);
    EXPECT_TRUE(uart1->seen[0].UartData.empty());
    EXPECT_EQ(uart1->seen[1].UartData, (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(uart1->seen[1].TimeStamp, 4u);

    Bytes record = EventRecord(9, 1, 3, {0x5A});
    record[0] = 5;
    EXPECT_EQ(Dispatch(record), 11u);
}

TEST_F(UnitEvents, UartTransmitCarriesChunkCounterAndCount)
{
    ASSERT_EQ(Dispatch(EventRecord(10, 0, 3, {0x02, 0x01, 0x00, 0x00, 0xF0, 0x00})), 0u);
    EXPECT_EQ(Reached(), (Reach{"1/0"}));
    EXPECT_EQ(uart0->seen[0].Code, 10u);
    EXPECT_EQ(uart0->seen[0].ChunkCounter, 0x102u);
    EXPECT_EQ(uart0->seen[0].Count, 240);
}

// ---- MIL-STD-1553 ----------------------------------------------------------------------------

TEST(MilStd1553Event, TransferCompleted)
{
    // Kind 1: id 0x0007, 2 words, then status 1, status 2, flags.
    const Bytes r =
        EventRecord(8, 0, 9, {1, 0x07, 0x00, 0x02, 0x00, 0x34, 0x12, 0x78, 0x56, 0xAA, 0xAA, 0xBB, 0xBB, 0x01, 0x00});
    Base::CMilStd1553Event e;
    ASSERT_EQ(e.ExtractData(r.data() + 2, r[0]), 0u);
    EXPECT_EQ(e.TimeStamp, 9u);
    EXPECT_EQ(e.Kind, 1);
    EXPECT_EQ(e.TransferId, 7);
    EXPECT_EQ(e.WordCount, 2);
    EXPECT_EQ(e.Data, (std::vector<uint16_t>{0x1234, 0x5678}));
    EXPECT_EQ(e.StatusWord1, 0xAAAA);
    EXPECT_EQ(e.StatusWord2, 0xBBBB);
    EXPECT_EQ(e.TransferFlags, 1);
}

TEST(MilStd1553Event, RemoteTerminalAccess)
{
    // Address 17, field 5; transmit, subaddress 11; flag, 2 words; field 0x13.
    const Bytes r = EventRecord(8, 1, 9, {2, 0x8D, 0x2B, 0x42, 0x13, 0x02, 0x01, 0x04, 0x03});
    Base::CMilStd1553Event e;
    ASSERT_EQ(e.ExtractData(r.data() + 2, r[0]), 0u);
    EXPECT_EQ(e.Kind, 2);
    EXPECT_EQ(e.TerminalAddress, 17);
    EXPECT_EQ(e.Field1, 5);
    EXPECT_EQ(e.Subaddress, 11);
    EXPECT_EQ(e.Transmit, 1);
    EXPECT_EQ(e.WordCount, 2);
    EXPECT_EQ(e.Flag, 1);
    EXPECT_EQ(e.Field2, 0x13);
    EXPECT_EQ(e.Data, (std::vector<uint16_t>{0x0102, 0x0304}));
}

TEST(MilStd1553Event, OtherKindsCarryTimeStampAndKindOnly)
{
    const Bytes r = EventRecord(8, 0, 9, {7, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    Base::CMilStd1553Event e;
    ASSERT_EQ(e.ExtractData(r.data() + 2, r[0]), 0u); // L = 12
    EXPECT_EQ(e.TimeStamp, 9u);
    EXPECT_EQ(e.Kind, 7);
    EXPECT_EQ(e.WordCount, 0);
    EXPECT_EQ(e.TransferId, 0);
    EXPECT_EQ(e.TerminalAddress, 0);
    EXPECT_TRUE(e.Data.empty());

    Bytes shorter = r;
    shorter[0] = 11;
    Base::CMilStd1553Event refused;
    EXPECT_EQ(refused.ExtractData(shorter.data() + 2, shorter[0]), 11u);
}

TEST(MilStd1553Event, AWordCountBeyondTheRecordReadsOnlyTheRecord)
{
    // 1000 words announced, room for 3 in the record.
    const Bytes r = EventRecord(8, 0, 9, {1, 0x00, 0x00, 0xE8, 0x03, 1, 0, 2, 0, 3, 0});
    Base::CMilStd1553Event e;
    ASSERT_EQ(e.ExtractData(r.data() + 2, r[0]), 0u);
    EXPECT_EQ(e.WordCount, 1000);
    EXPECT_EQ(e.Data, (std::vector<uint16_t>{1, 2, 3}));
    EXPECT_EQ(e.StatusWord1, 0);
}

TEST_F(UnitEvents, MilStd1553ReachesItsPort)
{
    ASSERT_EQ(Dispatch(EventRecord(8, 0, 9, {7, 0, 0, 0, 0, 0, 0})), 0u);
    EXPECT_EQ(Reached(), (Reach{"5/0"}));
    EXPECT_EQ(mil0->seen[0].Code, 8u);
}

// ---- critical failure, echo, unknown types -----------------------------------------------------

TEST_F(UnitEvents, CriticalFailureReachesEveryOpenPortOfTheUnit)
{
    ASSERT_EQ(Dispatch(EventRecord(1, 5, 77, {})), 0u); // L = 5
    EXPECT_EQ(Reached().size(), ports.size());
    for (auto& p : ports) {
        ASSERT_EQ(p->seen.size(), 1u);
        EXPECT_EQ(p->seen[0].Code, 1u);
        EXPECT_EQ(p->seen[0].FailureCode, 5u);
        EXPECT_EQ(p->seen[0].Channel, "5");
        EXPECT_EQ(p->seen[0].TimeStamp, 77u);
    }
    Bytes record = EventRecord(1, 5, 77, {});
    record[0] = 4;
    EXPECT_EQ(Dispatch(record), 11u);
}

TEST_F(UnitEvents, EchoesMustComeBackInSendingOrder)
{
    Base::CDeviceInstance* inst = dev.Inst();
    inst->EchoList += Base::CEchoWaiting(5, 0);
    inst->EchoList += Base::CEchoWaiting(6, 0);
    EXPECT_EQ(Dispatch(EchoRecord(6)), 14u);
    EXPECT_EQ(inst->EchoList.GetLength(), 2u);
    Bytes longEcho = EchoRecord(5);
    longEcho.push_back(0);
    ++longEcho[0]; // L = 8
    EXPECT_EQ(Dispatch(longEcho), 11u);
    EXPECT_EQ(inst->EchoList.GetLength(), 2u);
    EXPECT_EQ(Dispatch(EchoRecord(5)), 0u);
    ASSERT_EQ(inst->EchoList.GetLength(), 1u);
    EXPECT_EQ(inst->EchoList.GetFirst()->Number, 6);
    EXPECT_EQ(Dispatch(EchoRecord(6)), 0u);
    EXPECT_TRUE(inst->EchoList.IsEmpty());
    EXPECT_EQ(Dispatch(EchoRecord(7)), 14u); // nothing outstanding
    EXPECT_TRUE(Reached().empty());
}

TEST_F(UnitEvents, TypesWithoutAHandlerAreErrors)
{
    for (unsigned type : {4u, 11u, 20u, 31u})
        EXPECT_EQ(dev.ProcessEventRecord(0, type, 0, 5, Bytes(8, 0).data()), 11u) << type;
    EXPECT_TRUE(Reached().empty());
}

TEST(UnitEventProfile, TypesTheUnitDoesNotSendAreErrors)
{
    // An ARINC 429-only unit: echo, failure, receive, transmit, status.
    Base::CUnitProfile p = FullProfile();
    p.Events = 1u << 0 | 1u << 1 | 1u << 2 | 1u << 3 | 1u << 5;
    TestUnit dev(p);
    dev.AddInstance();
    RecordingPort can(&dev, 0, "0", HDW_PORT_CAN);
    dev.AttachPortToHdwTimer(0, &can);
    const Bytes r = EventRecord(6, 0, 1, {0x00, 0x00, 0x00});
    EXPECT_EQ(dev.ProcessEventRecord(0, 6, 0, r[0], const_cast<uint8_t*>(r.data()) + 2), 11u);
    EXPECT_TRUE(can.seen.empty());
    dev.DetachPortFromHdwTimer(0, &can);
}

} // namespace
