#pragma once
// The discrete input and output banks of a unit: 8 lines a bank, output
// bank k line n wired to input bank k line n. The wire carries the physical
// level (after the output's polarity); the input applies its own polarity
// and debounce, and a change that holds for the debounce time is reported
// stamped at the end of it. Commands 36-46 configure, write, pulse and read
// the banks; events 11 (input) and 12 (output) report them.

#include <hdwsim/Counters.h>

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace hdwsim {

class DiscreteBanks {
public:
    static constexpr unsigned LinesPerBank = 8;
    static constexpr unsigned MaxBanks = 4;
    // Appends one event record (type, sub-field, parameters).
    using EmitFn = std::function<void(unsigned type, unsigned sub, const uint8_t* params, size_t size)>;
    // The unit's 32-bit microsecond clock at a time in ns.
    using ClockFn = std::function<uint32_t(uint64_t ns)>;
    // Event records of a type and sub-field emitted and not yet sent.
    using WaitingFn = std::function<uint32_t(unsigned type, unsigned sub)>;
    // Input events a bank holds unsent; a change beyond is not reported
    // (counted in DiscreteQueueFull) but advances the sequence.
    static constexpr uint32_t ChangeQueueLimit = 1024;

    DiscreteBanks(unsigned banks, Counters& counters, EmitFn emit, ClockFn clock, WaitingFn waiting);

    // A fresh session: every bank off, sequences 0, inputs settled on the wire.
    void Reset(uint64_t nowNs);
    // True when `code` is one of the discrete commands; then `ok` says
    // whether the record was taken (false: refused, counted). Each record
    // acts at least 1 µs after the one before.
    bool Execute(unsigned code, const uint8_t* rec, size_t len, uint64_t arrivalNs, bool& ok);
    // Reports everything that settled by `nowNs`, in time order.
    void Advance(uint64_t nowNs);
    // When Advance next has something to report (UINT64_MAX: nothing).
    uint64_t NextEventNs() const;

    // Fault injection. Lines driven from outside override the wiring until
    // released; a bounce toggles one line `edges` times, `spacingUs` apart
    // (the line is left driven at its last level); dropped change events
    // still advance the sequence.
    bool DriveInput(unsigned bank, uint32_t mask, uint32_t value, uint64_t nowNs);
    bool ReleaseInput(unsigned bank, uint32_t mask, uint64_t nowNs);
    bool BounceInput(unsigned bank, unsigned line, unsigned edges, unsigned spacingUs, uint64_t nowNs);
    void DropNextEvents(unsigned events) { m_DropEvents += events; }

    // Logical states, for tests.
    uint32_t OutputState(unsigned bank) const;
    uint32_t InputState(unsigned bank) const;

private:
    struct InBank {
        bool Reporting = false;
        uint32_t Invert = 0;
        uint32_t ChangeMask = 0;
        uint64_t DebounceNs = 0;
        uint32_t Physical = 0; // level on the wire now
        uint32_t Accepted = 0; // physical level after debounce
        std::array<uint64_t, LinesPerBank> EdgeNs{}; // last change of each line's physical level
        uint16_t Sequence = 0;
        uint32_t DrivenMask = 0; // lines driven from outside
        uint32_t DrivenValue = 0;
    };
    struct OutBank {
        bool On = false;
        uint32_t Invert = 0;
        uint32_t State = 0; // logical
        uint16_t Sequence = 0;
        std::array<uint64_t, LinesPerBank> PulseEndNs{}; // 0: not pulsing
    };
    struct Bounce {
        unsigned Bank, Line, EdgesLeft;
        uint64_t NextNs, SpacingNs;
    };

    uint32_t Wire(unsigned bank) const;
    // The wire of `bank` may have changed at `t`: what settled before is
    // reported first, then the new levels start their debounce.
    void WireChanged(unsigned bank, uint64_t t);
    // Reports input changes accepted by `upto`, earliest first.
    void Settle(uint64_t upto);
    uint64_t NextAcceptNs(unsigned bank, uint32_t& lines) const;
    void EndPulses(uint64_t upto);
    void RunBounces(uint64_t upto);
    void EmitIn(unsigned bank, uint32_t changed, uint8_t cause, uint64_t t);
    void EmitOut(unsigned bank, uint32_t changed, uint8_t cause, uint64_t t);
    void Emit(unsigned type, unsigned bank, uint32_t state, uint32_t changed, uint16_t seq, uint8_t cause, uint64_t t);
    void SetOutput(unsigned bank, uint32_t state, uint8_t cause, uint64_t t);

    unsigned m_Banks;
    Counters& m_Count;
    EmitFn m_Emit;
    ClockFn m_Clock;
    WaitingFn m_Waiting;
    std::array<InBank, MaxBanks> m_In{};
    std::array<OutBank, MaxBanks> m_Out{};
    std::vector<Bounce> m_Bounces;
    unsigned m_DropEvents = 0;
    bool m_HaveRecord = false;
    uint64_t m_LastRecordNs = 0;
};

} // namespace hdwsim
