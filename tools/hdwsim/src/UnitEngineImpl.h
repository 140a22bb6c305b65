// The emulated unit's state, shared by the files of the unit engine: the
// command dispatch (UnitEngine.cpp) and the ARINC 429, CAN and UART
// channels (UnitEngineBuses.cpp).
#pragma once

#include <hdwsim/UnitEngine.h>

#include "DiscreteBanks.h"
#include "EventFramer.h"
#include "HostFrameParser.h"
#include "LittleEndian.h"
#include "Mil1553Bus.h"
#include "WendalBus.h"

#include <algorithm>
#include <array>
#include <deque>
#include <utility>
#include <vector>

namespace hdwsim {

namespace engine_detail {

// Command codes as the unit decodes them (bit 7, the echo request, removed).
enum : unsigned {
    CodeSession = 1,
    CodeStatusRequest = 2,
    CodeSramWrite = 4,
    CodeA429LabelCtrl = 16,
    CodeA429Push = 17, // also the label-data command: one word for a channel
    CodeA429LabelReset = 18,
    CodeKeepAlive = 4, // on a unit with a keep-alive instead of SRAM
    CodeUartPush = 33,
    CodeUartConfig = 34, // + channel
    CodeMilConfig = 52, // + channel
    // The ARINC 429 configuration and the CAN configuration and push codes
    // are base + channel with the bases of the unit's row.
};

// Event types.
enum : unsigned {
    EventEcho = 0,
    EventCriticalFailure = 1,
    EventA429Rx = 2,
    EventA429Tx = 3,
    EventStatus = 5,
    EventCanRx = 6,
    EventCanTx = 7,
    EventMil1553 = 8,
    EventUartRx = 9,
    EventUartTx = 10,
};

// Layout of the CAN configuration record as the unit reads it: byte 4 bit 0
// starts the controller; bytes 5 to 18 hold the filter and mode groups (the
// emulated controller accepts every frame); bytes 19, 20 and 21 the prescaler
// index and the two segment lengths.
constexpr size_t CanCfgFlags = 4;
constexpr size_t CanCfgPrescaler = 19;
constexpr size_t CanCfgSegment1 = 20;
constexpr size_t CanCfgSegment2 = 21;

constexpr size_t CanFrameSize = 13; // flags, identifier, data as in the push record

// One entry of a transmitter's label table (label control 16, label data
// 17, label reset 18). Label control record: 4 channel, 5 label, 6..9
// control word (bits 0..9 period in ms minus 1, bit 10 enabled, bit 11
// transmit once), 10..11 offset in ms, 12..13 repeat count (0: no limit).
struct A429Label {
    bool Defined = false;
    bool Enabled = false;
    bool Once = false; // sent once per data update instead of cyclically
    bool HasData = false;
    bool OncePending = false;
    uint32_t Word = 0;
    uint64_t PeriodNs = 0;
    uint32_t Repeat = 0;
    uint32_t Sent = 0;
    uint64_t NextNs = 0; // due time of the next cyclic transmission

    bool Cyclic() const { return Defined && Enabled && HasData && !Once && (Repeat == 0 || Sent < Repeat); }
};

struct A429Tx {
    bool Enabled = false;
    bool HighSpeed = false;
    uint64_t WordNs = 36ull * 80000; // 36 bit times at 12.5 kbit/s
    std::deque<uint32_t> Fifo;
    uint64_t BusFreeNs = 0;
    std::array<A429Label, 256> Labels{};
    unsigned LabelsDefined = 0;
};

constexpr uint64_t NsPerMs = 1000000;

struct A429Rx {
    bool Enabled = false;
    bool LowSpeed = true;
    std::array<uint8_t, 32> Filter{};
};

struct CanChannel {
    bool Started = false;
    uint64_t ClocksPerBit = 60; // of the 60 MHz unit clock
    std::deque<std::array<uint8_t, CanFrameSize>> Fifo;
    uint64_t BusFreeNs = 0;
};

struct UartChannel {
    bool Enabled = false;
};

} // namespace engine_detail

using namespace engine_detail;

struct UnitEngine::Impl {
    Impl(const UnitModel& model, const Options& options)
        : Model(model),
          Opts(options),
          Framer(options.MaxFrameBytes),
          Masters(model, Count, options.Pacing),
          Mil(model.MilStd1553Channels, Count,
              [this](unsigned ch, uint64_t atNs, const std::vector<uint8_t>& body) {
                  std::vector<uint8_t> params(4 + body.size());
                  le::Put32(params.data(), Clock(atNs));
                  std::copy(body.begin(), body.end(), params.begin() + 4);
                  Event(EventMil1553, ch, params.data(), params.size());
              }),
          Discrete(
              model.DiscreteBanks, Count,
              [this](
                  unsigned type, unsigned sub, const uint8_t* params, size_t size) { Event(type, sub, params, size); },
              [this](uint64_t ns) { return Clock(ns); },
              [this](unsigned type, unsigned sub) { return Framer.Waiting(type, sub); })
    {
        Mil.SetSimulatedTerminals(options.MilStd1553Terminals);
        ResetChannels(0);
    }

    const UnitModel& Model;
    Options Opts;
    Counters Count;
    unsigned A429ParityFaults = 0; // received words still to get a flipped parity bit
    std::array<unsigned, MaxChannels> A429WireLosses{}; // per receiver: words still to be lost on the wire
    EventFramer Framer;
    std::array<HostFrameParser, LinkCount> Parsers;
    bool EchoEnabled = true;
    WendalBus Masters;

    std::array<A429Tx, MaxChannels> Tx;
    std::array<A429Rx, MaxChannels> Rx;
    std::array<CanChannel, MaxChannels> Can;
    // Injected CAN fault per channel, as the status word's fault state and
    // error bytes (0: healthy); kept across sessions like a wiring fault.
    std::array<uint32_t, MaxChannels> CanFault{};
    std::array<UartChannel, MaxChannels> Uart;
    // Session watchdog: the unit stops its ARINC 429 transmitters when the
    // host is silent for longer (0: off). Any command, the keep-alive too,
    // counts as the host speaking.
    uint64_t WatchdogNs = 0;
    uint64_t LastCommandNs = 0;
    std::deque<uint8_t> CommandLog;
    mil::Bus Mil;
    DiscreteBanks Discrete;

    uint32_t Clock(uint64_t ns) const { return static_cast<uint32_t>(Opts.ClockStartUs + ns / 1000); }

    void ResetChannels(uint64_t nowNs)
    {
        for (A429Tx& t : Tx)
            t = A429Tx{false, false, 36ull * 80000, {}, nowNs};
        for (A429Rx& r : Rx)
            r = A429Rx{};
        for (CanChannel& c : Can)
            c = CanChannel{false, 60, {}, nowNs};
        for (UartChannel& u : Uart)
            u = UartChannel{};
        Mil.Reset(nowNs);
        Discrete.Reset(nowNs);
    }

    void Event(unsigned type, unsigned sub, const uint8_t* params, size_t size)
    {
        Framer.AddEvent(type, sub, params, size);
    }

    void ProcessFrame(const uint8_t* p, size_t n, uint64_t nowNs);
    bool Execute(const uint8_t* rec, size_t len, uint64_t nowNs);
    void StatusRequest(const uint8_t* rec, uint64_t nowNs);
    // Whether the unit knows command `code` at all; one it does not is
    // refused whole (no echo).
    bool Takes(unsigned code) const;
    void SendStatus(unsigned channel, unsigned kind, uint32_t word, uint64_t nowNs);
    void A429Deliver(unsigned channel, uint32_t word, uint64_t atNs);
    bool A429LabelCommand(unsigned code, const uint8_t* rec, size_t len, uint64_t nowNs);
    void A429SendLabels(unsigned channel, uint64_t nowNs);
    uint64_t A429NextLabelNs(unsigned channel) const;
    void CanDeliver(unsigned channel, const std::array<uint8_t, CanFrameSize>& frame, uint64_t atNs);
    void UartPush(unsigned channel, const uint8_t* rec, size_t len, uint64_t nowNs);
    void Advance(uint64_t nowNs);
};

} // namespace hdwsim
