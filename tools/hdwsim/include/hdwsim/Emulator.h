#pragma once
// An emulated unit served on a pseudo-terminal and/or a loopback UDP port,
// running on a thread of its own. All member functions are thread-safe.
//
//   hdwsim::Emulator::Options o;
//   o.Udp = true;                       // port 0: any free port
//   hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
//   sim.Start();
//   open(sim.PtyPath()) ... or send HOE packets to 127.0.0.1:sim.UdpPort()
//
// The unit behaves as if wired in loopback: ARINC 429 transmitter k to
// receiver k, CAN 0 with 1 (2 with 3), UART 0 with 1. Its output goes to the
// link from which it last received host bytes.

#include <hdwsim/Counters.h>
#include <hdwsim/UnitEngine.h>
#include <hdwsim/UnitModel.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace hdwsim {

class Emulator {
public:
    struct Options {
        bool Pty = true;
        bool Udp = false;
        uint16_t UdpPort = 0; // 0: any free port (read it back with UdpPort())
        bool Pacing = false; // transmit at the buses' bit rates
        // Port-packet UARTs (always paced) run this many times faster than
        // their configured rate, so that a test moves much data in little time.
        unsigned UartPaceFactor = 1;
        std::string SerialNumber; // empty: the model's default
        unsigned SessionTimeoutMs = 3000;
        unsigned KeepAliveMs = 250;
        uint32_t ClockStartUs = 0; // the unit clock's value at Start
        // The unit clock reads CLOCK_MONOTONIC in microseconds (low 32 bits)
        // instead of starting at ClockStartUs, so that another process can
        // compare the unit's time stamps with its own clock.
        bool MonotonicClock = false;
        // Serve at a real-time priority (SCHED_FIFO, two above the lowest:
        // above HdwLib's timer thread) where the process may: a hardware
        // unit is never late because its host is busy, and on a loaded
        // machine an emulator at normal priority is.
        bool RealTime = false;
        uint32_t Seed = 1; // session ids and the packet-drop draw
        // With Pty: a symbolic link made at this path to the pseudo-terminal,
        // and made again to the new one after Plug (a USB device's stable
        // name, like /dev/serial/by-id/...). Removed at Stop. Empty: none.
        std::string LinkPath;
        // MIL-STD-1553 terminal addresses answered by simulated terminals
        // (see UnitEngine::Options).
        std::vector<unsigned> MilStd1553Terminals;
        // Receives one line per notable event (sessions, hang-ups) when set.
        std::function<void(const std::string&)> Log;
    };

    Emulator(const UnitModel& model, const Options& options);
    ~Emulator(); // stops
    Emulator(const Emulator&) = delete;
    Emulator& operator=(const Emulator&) = delete;

    // Opens the endpoints and starts the thread. False (with a reason in
    // `error` when given) if an endpoint cannot be opened.
    bool Start(std::string* error = nullptr);
    void Stop();
    bool IsRunning() const;

    const UnitModel& Model() const;
    std::string PtyPath() const; // "" without a pseudo-terminal
    uint16_t UdpPort() const; // 0 without UDP
    bool HasUdpSession() const;
    uint32_t UdpSessionId() const; // 0 when none

    Counters GetCounters() const;
    // The unit's microsecond clock now.
    uint32_t ClockUs() const;
    size_t A429FifoLevel(unsigned channel) const;
    size_t CanFifoLevel(unsigned channel) const;
    UnitEngine::A429RxState A429Receiver(unsigned channel) const;
    std::vector<uint8_t> RecentCommandCodes() const; // see UnitEngine

    // Fault injection.
    void SetEchoEnabled(bool enabled); // false: commands are no longer echoed
    // Sends a critical-failure event (code 0-7); false on a unit without one.
    bool InjectCriticalFailure(unsigned code);
    // Sends a MIL-STD-1553 event on `channel` (see UnitEngine); false on a
    // channel the unit lacks.
    bool InjectMilStd1553Event(unsigned channel, const std::vector<uint8_t>& body);
    // A MIL-STD-1553 fault on a terminal's answers (see UnitEngine).
    bool SetMilStd1553Fault(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers = 0);
    uint16_t MilStd1553SramWord(unsigned channel, unsigned address) const; // see UnitEngine
    // A CAN fault in the channel's status answers (see UnitEngine).
    bool SetCanFault(unsigned channel, unsigned faultState, uint8_t errReg0 = 0, uint8_t errReg1 = 0);
    void CorruptNextFrameCrc(unsigned frames = 1);
    void FlipNextA429Parity(unsigned words); // see UnitEngine
    bool LoseNextA429Words(unsigned channel, unsigned words); // see UnitEngine
    void InsertStrayBytes(const std::vector<uint8_t>& bytes); // before the next frame, at most 64 waiting
    void SetAnswerDelayMs(unsigned ms); // every frame leaves this much later
    // Discrete inputs driven, released or bouncing from outside, and change
    // events lost (see UnitEngine).
    bool DriveInput(unsigned bank, uint32_t mask, uint32_t value);
    bool ReleaseInput(unsigned bank, uint32_t mask);
    bool BounceInput(unsigned bank, unsigned line, unsigned edges, unsigned spacingUs);
    void DropNextDiscreteEvents(unsigned events);
    uint32_t DiscreteOutputState(unsigned bank) const;
    // I2C masters (see UnitEngine): a held bus for `ms` from now, a missing
    // acknowledge at a write byte of the next transfer, a lost arbitration.
    bool HoldI2cBus(unsigned channel, unsigned ms);
    bool NackNextI2c(unsigned channel, unsigned byteIndex);
    bool LoseI2cArbitration(unsigned channel);
    void DropNextUdpPackets(unsigned packets); // the next packets the unit sends
    void SetUdpDropFraction(double fraction); // 0 to 1 of the packets the unit sends
    // true: the unit goes silent on both links (input read and ignored,
    // nothing sent); false: it answers again.
    void SetHungUp(bool hungUp);
    // Closes the pseudo-terminal's master: the host's slave fails. A new one
    // (with a new path) is made by ReopenPty.
    void ClosePty();
    bool ReopenPty(std::string* error = nullptr);
    void SetSessionTimeoutMs(unsigned ms);
    // Port-packet UARTs: the next n port packets of the host are ignored
    // (the host's resends are exercised); a break seen on a channel.
    void DropHostPackets(unsigned packets);
    bool InjectBreak(unsigned channel);
    // Options.LinkPath, "" without a pseudo-terminal.
    std::string LinkPath() const;
    // The unit is unplugged: its pseudo-terminal closes (the host's side
    // hangs up) and LinkPath goes; over UDP it falls silent and forgets its
    // session. Plug brings it back as a unit that has just powered up: a new
    // pseudo-terminal behind LinkPath, and UDP answering with no session
    // (a host must connect again). Plug is false, with a reason, when the
    // new pseudo-terminal or its link cannot be made.
    void Unplug();
    bool Plug(std::string* error = nullptr);
    bool IsPlugged() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

} // namespace hdwsim
