#pragma once
// The unit's MIL-STD-1553 side: both channels on one dual-redundant bus,
// each with its 32768 SRAM words and its configuration (idle, bus
// controller or remote terminal, monitor), the simulated terminals and the
// injected faults. Time is the engine's: the bus is paced at 1 Mbit/s by
// the timing of every message whether or not the engine paces its other
// buses, so a stepped clock steps it too.
//
// A message is taken as a whole when it starts (data read from SRAM, the
// answers made) and reported when it ends; SRAM writes and configurations
// therefore act between messages.

#include <hdwsim/Counters.h>
#include <hdwsim/MilStd1553Fault.h>

#include "Mil1553Bc.h"
#include "Mil1553Faults.h"
#include "Mil1553Rt.h"
#include "Mil1553Transfer.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace hdwsim::mil {

class Bus : private Responders {
public:
    static constexpr unsigned Channels = 2;
    // Receives each event record body (kind byte on) with its time stamp.
    using Sink = std::function<void(unsigned channel, uint64_t atNs, const std::vector<uint8_t>& body)>;

    Bus(unsigned channels, Counters& counters, Sink sink);

    void SetSimulatedTerminals(const std::vector<unsigned>& addresses) { m_Sims.SetAddresses(addresses); }
    bool SetFault(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers)
    {
        return m_Faults.Set(address, bus, fault, transfers);
    }
    // Power-up: channels idle, SRAM and simulated terminals zero, the
    // message in progress forgotten. Faults stay.
    void Reset(uint64_t nowNs);
    // SRAM write record: `count` little-endian words from `address` on
    // (channel c owns c x 0x8000 ..); words beyond the channels are dropped.
    void SramWrite(uint32_t address, const uint8_t* words, size_t count);
    // Configuration bytes 4..12 for `channel`.
    void Configure(unsigned channel, const uint8_t* bytes, uint64_t nowNs);
    // Runs the bus up to `nowNs`: messages that start by then are taken,
    // those that end by then reported.
    void Advance(uint64_t nowNs);
    // When Advance next has something to do (UINT64_MAX: nothing).
    uint64_t NextEventNs() const;
    uint16_t SramWord(unsigned channel, unsigned address) const;

private:
    enum Mode : uint8_t { ModeIdle = 0, ModeBc = 1, ModeRt = 2 };
    enum : uint8_t {
        CfgRun = 1,
        CfgBusA = 2,
        CfgBusB = 4,
        CfgMonitor = 8,
        CfgOneShots = 32,
        CfgSwitch = 64,
    };
    // Configuration bytes 4..12 in order.
    struct Config {
        uint8_t Mode = ModeIdle;
        uint8_t Flags = 0;
        uint8_t Count = 0;
        uint8_t RtStatus = 0;
        uint8_t ResponseTimeout = 0;
        uint8_t TablePage = 0;
        uint8_t StopAfter = 0;
        uint8_t ResponseTime = 0;
    };
    struct Channel {
        Config Cfg;
        bool Run = false;
        BcSchedule Bc;
        RtResponder Rt;
        bool OnBus(unsigned bus) const { return Run && (Cfg.Flags & (bus ? CfgBusB : CfgBusA)); }
        unsigned TimeoutUs() const { return Cfg.ResponseTimeout < 4 ? 4 : Cfg.ResponseTimeout; }
    };
    struct Record {
        unsigned Channel;
        uint64_t AtNs;
        std::vector<uint8_t> Body;
    };
    // A message on the bus: its records go out when it ends.
    struct InProgress {
        uint64_t EndNs = 0;
        std::vector<Record> Records;
    };
    // An access of a channel's terminal during the attempt running now.
    struct Access {
        unsigned Channel;
        uint16_t Command;
        std::vector<uint16_t> Data;
    };

    Reply Answer(Command c, unsigned bus, const std::vector<uint16_t>& received) override;
    uint16_t* Sram(unsigned channel) { return m_Sram.data() + channel * SramWordsPerChannel; }
    const uint16_t* Sram(unsigned channel) const { return m_Sram.data() + channel * SramWordsPerChannel; }
    // The next step of the controllers, the earliest first (channel order on a tie).
    std::optional<std::pair<unsigned, BcSchedule::Next>> NextStep(uint64_t& atNs) const;
    void RunMessage(unsigned channel, const BcSchedule::Next& step, uint64_t startNs);
    void Report(const Attempt& a, std::vector<Record>& records);
    void Emit(unsigned channel, uint64_t atNs, const std::vector<uint8_t>& body);

    unsigned m_ChannelCount;
    Counters& m_Count;
    Sink m_Sink;
    std::vector<uint16_t> m_Sram;
    std::array<Channel, Channels> m_Channels{};
    SimTerminals m_Sims;
    FaultTable m_Faults;
    std::optional<InProgress> m_Current;
    uint64_t m_BusFreeNs = 0;
    std::vector<Access> m_Accesses;
};

} // namespace hdwsim::mil
