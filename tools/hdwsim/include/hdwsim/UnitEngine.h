#pragma once
// The emulated unit itself, without any I/O or clock: host bytes go in with
// the time at which they arrived, unit frames come out with the time at which
// they may leave, and Advance moves the unit's buses forward to a given time.
// Tests step the time themselves; the Emulator feeds it from its links and
// the monotonic clock. Not thread-safe: the Emulator serialises all calls.

#include <hdwsim/Counters.h>
#include <hdwsim/MilStd1553Fault.h>
#include <hdwsim/UnitModel.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace hdwsim {

class UnitEngine {
public:
    // Links with a receive state of their own.
    enum Link : unsigned { LinkSerial = 0, LinkUdp = 1, LinkCount = 2 };

    struct Options {
        // Words and frames leave the transmit FIFOs at the buses' bit rates;
        // otherwise at once, in order.
        bool Pacing = false;
        // Upper bound of one unit frame (header, events and CRC), so that
        // frames fit HOE packets together with injected stray bytes.
        size_t MaxFrameBytes = 1280;
        // Value of the unit's microsecond clock at time 0.
        uint32_t ClockStartUs = 0;
        // Terminal addresses (0..30) answered by simulated MIL-STD-1553
        // terminals when no channel in RT mode owns them.
        std::vector<unsigned> MilStd1553Terminals;
    };

    static constexpr size_t A429FifoWords = 512;
    static constexpr size_t CanFifoFrames = 64;
    static constexpr uint64_t Never = std::numeric_limits<uint64_t>::max();

    UnitEngine(const UnitModel& model, const Options& options);
    ~UnitEngine();
    UnitEngine(const UnitEngine&) = delete;
    UnitEngine& operator=(const UnitEngine&) = delete;

    const UnitModel& Model() const;

    // Host bytes received on `link` at `nowNs` (nanoseconds of the engine's time).
    void OnHostBytes(Link link, const uint8_t* data, size_t size, uint64_t nowNs);
    // Forgets a half-received frame of `link`.
    void ResetLink(Link link);
    // Lets the buses run up to `nowNs`: words and frames whose transmission
    // ended by then are reported.
    void Advance(uint64_t nowNs);
    // Time at which Advance next has something to report (Never: nothing).
    uint64_t NextBusEventNs() const;

    // Appends whole unit frames that may leave at `nowNs` (injected stray bytes
    // included) while they fit in `maxBytes`; at least one when any is ready.
    // Returns the number of frames taken.
    size_t TakeOutput(uint64_t nowNs, size_t maxBytes, std::vector<uint8_t>& out);
    // Time at which the next frame may leave (Never: none queued).
    uint64_t NextOutputNs() const;
    // Drops every frame not yet taken (the link went away); they count as lost.
    void DiscardOutput();

    // The unit's clock value (microseconds, 32 bits) at `nowNs`.
    uint32_t ClockUs(uint64_t nowNs) const;

    // Fault injection.
    void SetEchoEnabled(bool enabled);
    // Reports a critical failure with failure code `code` (0-7); false on a
    // unit that has no such event.
    bool InjectCriticalFailure(unsigned code, uint64_t nowNs);
    // Reports a MIL-STD-1553 event (type 8) on `channel`: the unit's time
    // stamp followed by `body` (the kind byte and what follows it). False on
    // a channel the unit lacks or a body that does not fit one record.
    bool InjectMilStd1553Event(unsigned channel, const std::vector<uint8_t>& body, uint64_t nowNs);
    // MIL-STD-1553 fault on what terminal `address` (0..30) answers on
    // `bus` (0 A, 1 B) for the next `transfers` attempts addressed to it
    // there (0: until set to None). False for a bad address or bus.
    bool SetMilStd1553Fault(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers = 0);
    // From now on a started CAN `channel` reports fault state `faultState`
    // (1 error passive, 2 bus off; 0 healthy again) and the two error bytes
    // in its status; frames still flow. False on a channel the unit lacks or
    // a state above 2.
    bool SetCanFault(unsigned channel, unsigned faultState, uint8_t errReg0 = 0, uint8_t errReg1 = 0);
    void CorruptNextFrameCrc(unsigned frames = 1);
    // The next `words` words that reach an ARINC 429 receiver arrive with
    // their parity bit flipped (the transmit events keep the word as sent).
    void FlipNextA429Parity(unsigned words);
    // The next `words` words that would reach ARINC 429 receiver `channel`
    // are lost on the wire: the transmit events still come, the receive
    // events do not (counted in A429WireLost). False for a channel the unit
    // lacks.
    bool LoseNextA429Words(unsigned channel, unsigned words);
    void InsertStrayBytes(const std::vector<uint8_t>& bytes);
    void SetAnswerDelayMs(unsigned ms);
    // Discrete inputs: lines of `bank` in `mask` driven to the physical
    // levels of `value` from outside, overriding the wiring until released;
    // a line bouncing `edges` times `spacingUs` apart (left driven at its
    // last level); the next change events lost while the bank's sequence
    // still counts them. False for a bank or line the unit lacks.
    bool DriveInput(unsigned bank, uint32_t mask, uint32_t value, uint64_t nowNs);
    bool ReleaseInput(unsigned bank, uint32_t mask, uint64_t nowNs);
    bool BounceInput(unsigned bank, unsigned line, unsigned edges, unsigned spacingUs, uint64_t nowNs);
    void DropNextDiscreteEvents(unsigned events);
    // Logical state an output bank drives (0 for a bank the unit lacks).
    uint32_t DiscreteOutputState(unsigned bank) const;
    // I2C masters: transfers taken within `ms` from `nowNs` end in a bus
    // fault (status 3); the next transfer's write byte `byteIndex` gets no
    // acknowledge (status 2); the next transfer loses arbitration (status 5).
    // False for a master the unit lacks.
    bool HoldI2cBus(unsigned channel, unsigned ms, uint64_t nowNs);
    bool NackNextI2c(unsigned channel, unsigned byteIndex);
    bool LoseI2cArbitration(unsigned channel);

    const Counters& GetCounters() const;
    Counters& MutableCounters();

    // Words waiting in ARINC 429 transmitter `channel` (0 for a bad channel).
    size_t A429FifoLevel(unsigned channel) const;
    // Word `address` (0..0x7FFF) of MIL-STD-1553 channel `channel`'s SRAM.
    uint16_t MilStd1553SramWord(unsigned channel, unsigned address) const;
    // Frames waiting in CAN channel `channel`.
    size_t CanFifoLevel(unsigned channel) const;
    // ARINC 429 receiver `channel` as the last configuration left it: on or
    // off, and its label table (bit l: label l passes).
    struct A429RxState {
        bool Enabled = false;
        std::array<uint8_t, 32> Filter{};
    };
    A429RxState A429Receiver(unsigned channel) const;
    // Codes (bit 7 removed) of the last commands taken, oldest first; at
    // most CommandLogSize are kept.
    static constexpr size_t CommandLogSize = 256;
    std::vector<uint8_t> RecentCommandCodes() const;

    // Length in bits of a CAN frame on the bus, stuff bits, end of frame and
    // inter-frame space included. `record` is the 13-byte frame of the push
    // record (flags, identifier, data).
    static unsigned CanFrameBits(const uint8_t* record);

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

} // namespace hdwsim
