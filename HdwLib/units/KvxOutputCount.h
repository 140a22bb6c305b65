#pragma once
// The state that the output services of the command-protocol units keep
// about the unit's transmit FIFO: items pushed and not yet confirmed by a
// transmit event, and the periodic status request that corrects that count
// should a confirmation be lost with a damaged frame. The push itself is
// written once in internal/KvxOutputQueue.h.
//
// Lock rule: under the device lock (the tick, and the services' calls under
// their service lock).

#include <HdwLib/core/KvxObject.h>

#include <algorithm>
#include <cstdint>

// Limits of the unit's transmit FIFOs.
inline constexpr unsigned KvxArinc429TxFifoWords = 512;
inline constexpr unsigned KvxCanTxFifoFrames = 64;
// Ticks between two status requests that re-synchronise the count of words
// or frames waiting in a transmit FIFO, while some are outstanding.
inline constexpr unsigned KvxFifoStatusPollTicks = 250;

// Items a push may add to a transmit FIFO of `capacity` that holds `used`.
// Each push costs a link write, so a FIFO is topped up only once it is half
// empty; but when a frame goes out anyway (`frameDue`: commands wait for the
// next one), filling it costs no write and puts off its next refill, so the
// outputs of a unit come to refill in the same frames.
inline unsigned TopUpRoom(uint64_t used, unsigned capacity, bool frameDue)
{
    if (used >= capacity || (!frameDue && used > capacity / 2))
        return 0;
    return unsigned(capacity - used);
}

// An output's items in the unit's FIFO.
class HDWLIB_EXPORT CKVX_HdwKvxOutputCount {
public:
    void Reset()
    {
        InFlight = 0;
        Pushed = 0;
    }
    void Sent(uint64_t n)
    {
        InFlight += n;
        Pushed += n;
    }
    // Transmit confirmations of `n` items.
    void Confirm(uint64_t n) { InFlight -= std::min(InFlight, n); }
    // A status answer: `waiting` items were in the FIFO when the unit took
    // the request attached at Pushed == `mark`; what was pushed since is
    // behind them.
    void Resync(uint64_t waiting, uint64_t mark) { InFlight = waiting + (Pushed >= mark ? Pushed - mark : 0); }

    uint64_t InFlight = 0; // pushed, not yet confirmed
    uint64_t Pushed = 0; // pushed in all: the mark of a status request
};

// The periodic FIFO status request of an output that asks for it itself:
// one outstanding at a time, the next a poll period after the last, while
// items are in flight; an answer that does not come within four periods is
// taken as lost.
class HDWLIB_EXPORT CKVX_HdwKvxFifoStatusPoll {
public:
    // Forgets an outstanding request.
    void Reset() { m_Pending = false; }
    // A request went out at `tick`, attached when the count's Pushed was `mark`.
    void Requested(uint64_t mark, uint64_t tick)
    {
        m_Pending = true;
        m_Mark = mark;
        m_Tick = tick;
    }
    // The tick: true when a request is due now.
    bool Due(uint64_t ticks, uint64_t inFlight)
    {
        m_LastTick = ticks;
        if (m_Tick == 0)
            m_Tick = ticks; // the first poll waits a full period
        if (m_Pending && ticks - m_Tick > 4 * KvxFifoStatusPollTicks)
            m_Pending = false; // the answer was lost
        return !m_Pending && inFlight > 0 && ticks - m_Tick >= KvxFifoStatusPollTicks;
    }
    // A status answer: true, with the request's mark, when one was outstanding.
    bool Answer(uint64_t& mark)
    {
        if (!m_Pending)
            return false;
        m_Pending = false;
        mark = m_Mark;
        return true;
    }
    // The tick seen last (a request attached outside the tick dates from it).
    uint64_t LastTick() const { return m_LastTick; }

private:
    bool m_Pending = false;
    uint64_t m_Mark = 0;
    uint64_t m_Tick = 0;
    uint64_t m_LastTick = 0;
};
