// The unit model driven directly, with the time stepped by the test: every
// answer is checked on the bytes the unit would send.

#include "TestHost.h"

#include <hdwsim/UnitEngine.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace simtest;
using hdwsim::UnitEngine;

// The bytes themselves, known by hand.
TEST(UnitFraming, KnownAnswerSessionFrameFedByteByByteIsEchoedWithKnownBytes)
{
    EngineHost h;
    // Session open, command number 0, written out with its CRC.
    for (uint8_t b : {0xA5, 0x07, 0x00, 0x07, 0x81, 0x00, 0x00, 0x01, 0x00, 0x00, 0x2F, 0xF0})
        h.Send({b});
    // Echo at clock 0: start, length 8, one event, L 7, type 0, time 0, number 0, CRC.
    const Bytes expected{0xA5, 0x08, 0x00, 0x01, 0x00, 0x07, 0x00, 0, 0, 0, 0, 0x00, 0x00, 0xFF, 0x43};
    EXPECT_EQ(h.Raw, expected);
    EXPECT_EQ(h.Engine.GetCounters().SessionOpens, 1u);
    EXPECT_EQ(h.Engine.GetCounters().FramesReceived, 1u);
}

TEST(UnitFraming, InputThatIsNoFrameIsCountedAndTheNextFrameServed)
{
    Bytes badCrc = Frame({Session(1, true)});
    badCrc.back() ^= 0x01;
    Bytes overlong = Session(1, true);
    overlong[0] = 9; // claims two bytes more than the frame holds
    const struct {
        const char* What;
        Bytes Input;
        uint64_t hdwsim::Counters::*Counter;
    } cases[] = {
        {"bad CRC", badCrc, &hdwsim::Counters::FramesBadCrc},
        {"records that do not add up", Frame({overlong}), &hdwsim::Counters::FramesMalformed},
        // A start byte with a zero length is noise too.
        {"noise", {0x00, 0x13, 0xA5, 0x00, 0x00}, &hdwsim::Counters::BytesDiscarded},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.What);
        EngineHost h;
        h.Send(c.Input);
        EXPECT_TRUE(h.Stream.Events.empty());
        EXPECT_GE(h.Engine.GetCounters().*c.Counter, 1u);
        h.Send(Frame({Session(2, true)}));
        ASSERT_EQ(h.Stream.OfType(EvEcho).size(), 1u);
        EXPECT_EQ(h.Stream.OfType(EvEcho)[0].EchoNumber(), 2u);
    }
}

TEST(Arinc429Loop, AnAllZeroFilterADisabledReceiverAndTheOtherSpeedStopWords)
{
    EngineHost h;
    // 1: receiver off; 2: all-zero filter; 3: transmitter at low speed.
    h.Send(Frame({AtxConfig(3, 1, true, 299), ArxConfig(4, 1, false, true, AllLabels()), AtxConfig(5, 2, true, 299),
        ArxConfig(6, 2, true, true, Bytes(32, 0)), AtxConfig(7, 3, true, 2399),
        ArxConfig(8, 3, true, true, AllLabels())}));
    h.Send(Frame({AtxPush(14, 1, 0x22), AtxPush(15, 2, 0x11), AtxPush(16, 3, 0x33)}));
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 3u);
    EXPECT_TRUE(h.Stream.OfType(EvA429Rx).empty());
    const hdwsim::Counters c = h.Engine.GetCounters();
    EXPECT_EQ(c.A429RxDisabled[1], 1u);
    EXPECT_EQ(c.A429FilterDropped[2], 1u);
    EXPECT_EQ(c.A429SpeedMismatch[3], 1u);
}

TEST(TransmitFifo, Arinc429WordsBeyond512AreDroppedAndCountedAndTheRestHeldUntilEnabled)
{
    EngineHost h;
    // Disabled: nothing drains, so the FIFO fills.
    for (unsigned i = 0; i < 520; i += 40) {
        std::vector<Bytes> recs;
        for (unsigned k = i; k < std::min(i + 40, 520u); ++k)
            recs.push_back(AtxPush(k, 1, k));
        h.Send(FrameOf(recs));
    }
    EXPECT_TRUE(h.Stream.OfType(EvA429Tx).empty());
    EXPECT_EQ(h.Engine.A429FifoLevel(1), 512u);
    EXPECT_EQ(h.Engine.GetCounters().A429Pushed[1], 512u);
    EXPECT_EQ(h.Engine.GetCounters().A429FifoDropped[1], 8u);
    // Every push is still echoed.
    EXPECT_EQ(h.Stream.OfType(EvEcho).size(), 520u);

    h.Send(Frame({AtxConfig(601, 1, true, 299)}));
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 512u);
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).back().Word(), 511u); // the first 512 went, in order
}

TEST(Pacing, Arinc429WordsTake36BitTimes)
{
    // Divider 299: two half bits of 300 clocks at 60 MHz, 100 kbit/s, a word every 360 us.
    constexpr uint64_t us = 360;
    EngineHost h(true);
    h.Send(Frame({AtxConfig(1, 0, true, 299), ArxConfig(2, 0, true, true, AllLabels())}));
    std::vector<Bytes> recs;
    for (unsigned i = 0; i < 100; ++i)
        recs.push_back(AtxPush(10 + i, 0, i));
    h.Send(FrameOf(recs));
    EXPECT_TRUE(h.Stream.OfType(EvA429Tx).empty());
    h.At(10 * us * 1000 - 1);
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 9u);
    h.At(10 * us * 1000);
    EXPECT_EQ(h.Stream.OfType(EvA429Tx).size(), 10u);
    EXPECT_EQ(h.Engine.NextBusEventNs(), 11 * us * 1000);
    h.At(100 * us * 1000);
    const auto tx = h.Stream.OfType(EvA429Tx);
    ASSERT_EQ(tx.size(), 100u);
    for (size_t i = 1; i < tx.size(); ++i)
        EXPECT_EQ(tx[i].Time() - tx[i - 1].Time(), us);
    EXPECT_EQ(h.Stream.OfType(EvA429Rx).size(), 100u);
}

TEST(Pacing, CanFramesTakeTheirStuffedLength)
{
    // Known lengths: a standard data frame of 8 zero bytes, id 0, is 108 bits
    // plus stuff bits; all-zero fields stuff every fifth bit.
    Bytes zero(13, 0);
    zero[0] = 8;
    const unsigned bits = UnitEngine::CanFrameBits(zero.data());
    EXPECT_GE(bits, 111u);
    EXPECT_LE(bits, 135u);
    Bytes ones(13, 0xFF);
    ones[0] = 0x88; // extended, 8 bytes
    EXPECT_GT(UnitEngine::CanFrameBits(ones.data()), UnitEngine::CanFrameBits(zero.data()));
    Bytes empty(13, 0);
    empty[1] = 0x55; // id 0x2A8: alternating bits need few stuff bits
    EXPECT_LT(UnitEngine::CanFrameBits(empty.data()), bits);

    EngineHost h(true);
    h.Send(Frame({CanConfig(1, 0), CanConfig(2, 1)}));
    for (unsigned i = 0; i < 10; ++i)
        h.Send(Frame({CanPush(10 + i, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0})}));
    h.At(uint64_t(bits) * 1000 * 10); // 1 Mbit/s: 1 us per bit
    const auto tx = h.Stream.OfType(EvCanTx);
    ASSERT_EQ(tx.size(), 10u);
    EXPECT_EQ(tx[9].Time() - tx[0].Time(), 9u * bits);
}
