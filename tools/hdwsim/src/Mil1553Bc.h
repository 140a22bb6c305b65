#pragma once
// A channel's bus controller schedule: which message of the major frame
// table or the one-shot list goes next and when, minor frames on their
// grid, the switch to the other table and the stop. It only decides; the
// bus runs the messages and reports back (MessageDone, Boundary, Stopped).
//
// Major frame table (at page x 256 words): m, then per minor frame its
// period in 10 µs, its message count k and k descriptor indexes.

#include <cstdint>
#include <limits>

namespace hdwsim::mil {

class BcSchedule {
public:
    enum class Step { None, Message, Boundary, Stop };
    struct Next {
        Step Kind = Step::None;
        uint64_t AtNs = 0; // earliest time (a message also waits for the bus)
        unsigned Descriptor = 0;
        bool OneShot = false;
    };
    // Events a boundary gives.
    enum class Outcome { None, Switched, Stopped };

    void Reset() { *this = BcSchedule{}; }
    bool Running() const { return m_Running; }

    void Start(unsigned page, unsigned stopAfter, uint64_t nowNs);
    // Stops after the message in progress (Step::Stop, then Stopped).
    void RequestStop(uint64_t nowNs);
    void SetStopAfter(unsigned cycles) { m_StopAfter = cycles; }
    // Descriptors 0..count-1 run in the idle time at the end of minor
    // frames, or at once with the schedule stopped.
    void StartOneShots(unsigned count, uint64_t nowNs);
    void RequestSwitch(unsigned page) { m_PendingPage = static_cast<int>(page); }

    // `sram` is the channel's; `bcMode`: the channel is in BC mode.
    Next Peek(const uint16_t* sram, bool bcMode, unsigned timeoutUs) const;
    void MessageDone(const Next& step, uint64_t endNs, unsigned gapUs);
    Outcome Boundary(const uint16_t* sram, uint64_t atNs);
    void Stopped();

private:
    struct Minor {
        uint64_t PeriodNs = 0;
        unsigned Count = 0;
        unsigned ListAt = 0; // word address of its first descriptor index
    };
    bool MinorAt(const uint16_t* sram, unsigned index, Minor& minor) const;
    unsigned MinorCount(const uint16_t* sram) const;

    bool m_Running = false;
    bool m_Stopping = false;
    uint64_t m_StopAtNs = 0;
    unsigned m_Page = 0x10;
    int m_PendingPage = -1;
    unsigned m_Minor = 0;
    unsigned m_Message = 0;
    uint64_t m_MinorStartNs = 0; // on the grid
    uint64_t m_ReadyNs = 0; // the previous message and its gap are over
    uint64_t m_LastEndNs = 0;
    unsigned m_Cycles = 0;
    unsigned m_StopAfter = 0;
    unsigned m_OneShotCount = 0;
    unsigned m_OneShotNext = 0;
};

} // namespace hdwsim::mil
