#include "DiscreteBanks.h"

#include "LittleEndian.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace hdwsim {

namespace {

// Command codes (bit 7 removed) and event types of the discrete banks.
enum : unsigned {
    CodeInConfig = 36, // + bank
    CodeOutConfig = 40, // + bank
    CodeOutWrite = 44,
    CodeOutPulse = 45,
    CodeRead = 46,
    EventDiscreteIn = 11,
    EventDiscreteOut = 12,
};

// Causes of the events.
enum : uint8_t {
    InChange = 0,
    InReadAnswer = 1,
    OutWrite = 0,
    OutPulseEnd = 1,
    OutReadAnswer = 2,
    OutSwitched = 3,
};

constexpr uint32_t kLines = 0xFF;
constexpr uint64_t kNever = std::numeric_limits<uint64_t>::max();
constexpr uint32_t kMinPulseUs = 10;
constexpr uint32_t kMaxPulseUs = 10000000;

} // namespace

DiscreteBanks::DiscreteBanks(unsigned banks, Counters& counters, EmitFn emit, ClockFn clock, WaitingFn waiting)
    : m_Banks(std::min(banks, MaxBanks)),
      m_Count(counters),
      m_Emit(std::move(emit)),
      m_Clock(std::move(clock)),
      m_Waiting(std::move(waiting))
{}

void DiscreteBanks::Reset(uint64_t nowNs)
{
    for (unsigned b = 0; b < MaxBanks; ++b) {
        const InBank old = m_In[b];
        m_Out[b] = OutBank{};
        m_In[b] = InBank{};
        // Lines driven from outside stay driven: that is the outside world.
        m_In[b].DrivenMask = old.DrivenMask;
        m_In[b].DrivenValue = old.DrivenValue;
        m_In[b].Physical = m_In[b].Accepted = Wire(b);
        m_In[b].EdgeNs.fill(nowNs);
    }
}

uint32_t DiscreteBanks::Wire(unsigned bank) const
{
    const OutBank& o = m_Out[bank];
    const InBank& i = m_In[bank];
    const uint32_t driven = o.On ? (o.State ^ o.Invert) & kLines : 0;
    return (driven & ~i.DrivenMask) | (i.DrivenValue & i.DrivenMask);
}

uint32_t DiscreteBanks::OutputState(unsigned bank) const
{
    return bank < m_Banks ? m_Out[bank].State : 0;
}

uint32_t DiscreteBanks::InputState(unsigned bank) const
{
    return bank < m_Banks ? (m_In[bank].Accepted ^ m_In[bank].Invert) & kLines : 0;
}

bool DiscreteBanks::Execute(unsigned code, const uint8_t* rec, size_t len, uint64_t arrivalNs, bool& ok)
{
    if (code < CodeInConfig || code > CodeRead)
        return false;
    ok = false;
    // The unit takes one discrete record per microsecond: records of one
    // frame act one after the other, each with a time of its own.
    const uint64_t nowNs = m_HaveRecord ? std::max(arrivalNs, m_LastRecordNs + 1000) : arrivalNs;
    m_HaveRecord = true;
    m_LastRecordNs = nowNs;
    if (code < CodeInConfig + m_Banks && code < CodeOutConfig) {
        if (len != 15 || le::Get16(rec + 13) > 10000)
            return ++m_Count.DiscreteRefused, true;
        Advance(nowNs);
        InBank& in = m_In[code - CodeInConfig];
        in.Reporting = (rec[4] & 1) != 0;
        in.Invert = le::Get32(rec + 5) & kLines;
        in.ChangeMask = le::Get32(rec + 9) & kLines;
        in.DebounceNs = uint64_t(le::Get16(rec + 13)) * 10000;
        ok = true;
    } else if (code >= CodeOutConfig && code < CodeOutConfig + m_Banks) {
        if (len != 13)
            return ++m_Count.DiscreteRefused, true;
        Advance(nowNs);
        const unsigned bank = code - CodeOutConfig;
        OutBank& out = m_Out[bank];
        out.On = (rec[4] & 1) != 0;
        out.Invert = le::Get32(rec + 5) & kLines;
        out.PulseEndNs.fill(0);
        SetOutput(bank, out.On ? le::Get32(rec + 9) & kLines : 0, OutSwitched, nowNs);
        ok = true;
    } else if (code == CodeOutWrite) {
        const unsigned bank = len == 14 ? rec[4] : MaxBanks;
        const unsigned op = len == 14 ? rec[5] : 4;
        if (bank >= m_Banks || op > 3)
            return ++m_Count.DiscreteRefused, true;
        Advance(nowNs);
        OutBank& out = m_Out[bank];
        const uint32_t mask = le::Get32(rec + 6) & kLines;
        const uint32_t value = le::Get32(rec + 10);
        uint32_t s = out.State;
        // A write that touches a pulsing line ends that line's pulse.
        for (unsigned n = 0; n < LinesPerBank; ++n)
            if (mask & (1u << n))
                out.PulseEndNs[n] = 0;
        switch (op) {
        case 0: s = (s & ~mask) | (value & mask); break;
        case 1: s |= mask; break;
        case 2: s &= ~mask; break;
        default: s ^= mask; break;
        }
        SetOutput(bank, s, OutWrite, nowNs);
        ok = true;
    } else if (code == CodeOutPulse) {
        const unsigned bank = len == 13 ? rec[4] : MaxBanks;
        const uint32_t lengthUs = len == 13 ? le::Get32(rec + 9) : 0;
        if (bank >= m_Banks || lengthUs < kMinPulseUs || lengthUs > kMaxPulseUs)
            return ++m_Count.DiscreteRefused, true;
        Advance(nowNs);
        OutBank& out = m_Out[bank];
        const uint32_t mask = le::Get32(rec + 5) & kLines;
        uint32_t s = out.State;
        // A line still pulsing first returns, then takes its new pulse.
        for (unsigned n = 0; n < LinesPerBank; ++n) {
            if (!(mask & (1u << n)))
                continue;
            if (out.PulseEndNs[n])
                s ^= 1u << n;
            out.PulseEndNs[n] = nowNs + uint64_t(lengthUs) * 1000;
        }
        ++m_Count.DiscretePulses;
        SetOutput(bank, s ^ mask, OutWrite, nowNs);
        ok = true;
    } else if (code == CodeRead) {
        if (len != 7)
            return ++m_Count.DiscreteRefused, true;
        Advance(nowNs);
        for (unsigned b = 0; b < m_Banks; ++b)
            if (rec[4] & (1u << b))
                EmitIn(b, 0, InReadAnswer, nowNs);
        for (unsigned b = 0; b < m_Banks; ++b)
            if (rec[5] & (1u << b))
                EmitOut(b, 0, OutReadAnswer, nowNs);
        ok = true;
    } else {
        ++m_Count.DiscreteRefused; // a bank this unit lacks
    }
    return true;
}

void DiscreteBanks::SetOutput(unsigned bank, uint32_t state, uint8_t cause, uint64_t t)
{
    Settle(t); // inputs that settled before this come first
    OutBank& out = m_Out[bank];
    const uint32_t changed = out.State ^ state;
    out.State = state;
    EmitOut(bank, changed, cause, t);
    WireChanged(bank, t);
}

void DiscreteBanks::WireChanged(unsigned bank, uint64_t t)
{
    Settle(t);
    InBank& in = m_In[bank];
    const uint32_t wire = Wire(bank);
    const uint32_t edges = wire ^ in.Physical;
    for (unsigned n = 0; n < LinesPerBank; ++n) {
        if (!(edges & (1u << n)))
            continue;
        // Back to the accepted level before the debounce ran out: filtered.
        if (((wire ^ in.Accepted) & (1u << n)) == 0)
            ++m_Count.DiscreteFiltered;
        in.EdgeNs[n] = t;
    }
    in.Physical = wire;
    Settle(t); // no debounce: accepted at once
}

uint64_t DiscreteBanks::NextAcceptNs(unsigned bank, uint32_t& lines) const
{
    const InBank& in = m_In[bank];
    uint64_t next = kNever;
    lines = 0;
    const uint32_t pending = in.Physical ^ in.Accepted;
    for (unsigned n = 0; n < LinesPerBank; ++n) {
        if (!(pending & (1u << n)))
            continue;
        const uint64_t at = in.EdgeNs[n] + in.DebounceNs;
        if (at < next) {
            next = at;
            lines = 0;
        }
        if (at == next)
            lines |= 1u << n;
    }
    return next;
}

void DiscreteBanks::Settle(uint64_t upto)
{
    for (;;) {
        uint64_t best = kNever;
        unsigned bank = 0;
        uint32_t lines = 0;
        for (unsigned b = 0; b < m_Banks; ++b) {
            uint32_t l = 0;
            const uint64_t at = NextAcceptNs(b, l);
            if (at < best) {
                best = at;
                bank = b;
                lines = l;
            }
        }
        if (best > upto)
            return;
        InBank& in = m_In[bank];
        in.Accepted ^= lines;
        // Lines outside the change mask settle silently, also when they settle
        // with a reported line: the event names only the lines it reports.
        if (in.Reporting && (lines & in.ChangeMask))
            EmitIn(bank, lines & in.ChangeMask, InChange, best);
    }
}

void DiscreteBanks::EndPulses(uint64_t upto)
{
    for (;;) {
        uint64_t best = kNever;
        for (unsigned b = 0; b < m_Banks; ++b)
            for (uint64_t end : m_Out[b].PulseEndNs)
                if (end && end < best)
                    best = end;
        if (best > upto)
            return;
        for (unsigned b = 0; b < m_Banks; ++b) {
            OutBank& out = m_Out[b];
            uint32_t ending = 0;
            for (unsigned n = 0; n < LinesPerBank; ++n)
                if (out.PulseEndNs[n] == best) {
                    ending |= 1u << n;
                    out.PulseEndNs[n] = 0;
                }
            if (ending)
                SetOutput(b, out.State ^ ending, OutPulseEnd, best);
        }
    }
}

void DiscreteBanks::RunBounces(uint64_t upto)
{
    for (Bounce& b : m_Bounces) {
        InBank& in = m_In[b.Bank];
        for (; b.EdgesLeft > 0 && b.NextNs <= upto; --b.EdgesLeft, b.NextNs += b.SpacingNs) {
            const uint32_t bit = 1u << b.Line;
            const uint32_t level = Wire(b.Bank) & bit;
            in.DrivenMask |= bit;
            in.DrivenValue = (in.DrivenValue & ~bit) | (level ^ bit);
            WireChanged(b.Bank, b.NextNs);
        }
    }
    std::erase_if(m_Bounces, [](const Bounce& b) { return b.EdgesLeft == 0; });
}

void DiscreteBanks::Advance(uint64_t nowNs)
{
    // Pulse ends and bounce edges are wire changes of their own time; take
    // them in time order with what settles in between.
    for (;;) {
        uint64_t next = kNever;
        for (unsigned b = 0; b < m_Banks; ++b)
            for (uint64_t end : m_Out[b].PulseEndNs)
                if (end)
                    next = std::min(next, end);
        for (const Bounce& b : m_Bounces)
            next = std::min(next, b.NextNs);
        if (next > nowNs)
            break;
        EndPulses(next);
        RunBounces(next);
    }
    Settle(nowNs);
}

uint64_t DiscreteBanks::NextEventNs() const
{
    uint64_t next = kNever;
    for (unsigned b = 0; b < m_Banks; ++b) {
        uint32_t lines = 0;
        next = std::min(next, NextAcceptNs(b, lines));
        for (uint64_t end : m_Out[b].PulseEndNs)
            if (end)
                next = std::min(next, end);
    }
    for (const Bounce& b : m_Bounces)
        next = std::min(next, b.NextNs);
    return next;
}

bool DiscreteBanks::DriveInput(unsigned bank, uint32_t mask, uint32_t value, uint64_t nowNs)
{
    if (bank >= m_Banks)
        return false;
    Advance(nowNs);
    InBank& in = m_In[bank];
    mask &= kLines;
    in.DrivenMask |= mask;
    in.DrivenValue = (in.DrivenValue & ~mask) | (value & mask);
    WireChanged(bank, nowNs);
    return true;
}

bool DiscreteBanks::ReleaseInput(unsigned bank, uint32_t mask, uint64_t nowNs)
{
    if (bank >= m_Banks)
        return false;
    Advance(nowNs);
    m_In[bank].DrivenMask &= ~mask;
    WireChanged(bank, nowNs);
    return true;
}

bool DiscreteBanks::BounceInput(unsigned bank, unsigned line, unsigned edges, unsigned spacingUs, uint64_t nowNs)
{
    if (bank >= m_Banks || line >= LinesPerBank || edges == 0)
        return false;
    Advance(nowNs);
    const uint64_t spacing = uint64_t(std::max(spacingUs, 1u)) * 1000;
    m_Bounces.push_back({bank, line, edges, nowNs + spacing, spacing});
    return true;
}

void DiscreteBanks::EmitIn(unsigned bank, uint32_t changed, uint8_t cause, uint64_t t)
{
    InBank& in = m_In[bank];
    if (cause == InChange) {
        ++in.Sequence;
        if (m_DropEvents > 0) {
            --m_DropEvents;
            ++m_Count.DiscreteDropped;
            return;
        }
        if (m_Waiting(EventDiscreteIn, bank) >= ChangeQueueLimit) {
            ++m_Count.DiscreteQueueFull;
            return;
        }
        ++m_Count.DiscreteInEvents[bank];
    }
    Emit(EventDiscreteIn, bank, (in.Accepted ^ in.Invert) & kLines, changed, in.Sequence, cause, t);
}

void DiscreteBanks::EmitOut(unsigned bank, uint32_t changed, uint8_t cause, uint64_t t)
{
    OutBank& out = m_Out[bank];
    if (cause != OutReadAnswer) {
        ++out.Sequence;
        ++m_Count.DiscreteOutEvents[bank];
    }
    Emit(EventDiscreteOut, bank, out.State, changed, out.Sequence, cause, t);
}

void DiscreteBanks::Emit(
    unsigned type, unsigned bank, uint32_t state, uint32_t changed, uint16_t seq, uint8_t cause, uint64_t t)
{
    uint8_t p[15];
    le::Put32(p, m_Clock(t));
    le::Put32(p + 4, state);
    le::Put32(p + 8, changed);
    le::Put16(p + 12, seq);
    p[14] = cause;
    m_Emit(type, bank, p, sizeof p);
}

} // namespace hdwsim
