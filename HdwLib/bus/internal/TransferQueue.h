#pragma once
// The transfer bookkeeping of the bus master services (I2C, SPI): transfers
// submitted and not finished, in submission order, each with the wire tag
// the driver sends it with; finished transfers waiting to be read; and the
// wake-up of an application thread waiting in Transfer for its own one.
//
// Lock rule: Pending, Done and the counters only under the device lock; the
// generation count under its own mutex, taken after the device lock and
// never the other way round.

#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/bus/internal/ServiceParameters.h>
#include <HdwLib/framework/HdwService.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

namespace hdw::bus {

// Bounds of the services' BufferSize.
inline constexpr uint32_t TransferBufferMin = 1;
inline constexpr uint32_t TransferBufferMax = 1024;
inline constexpr uint32_t TransferBufferDefault = 64;

template <class T>
struct SPendingTransfer {
    T Transfer;
    uint64_t Id = 0; // host-side number, never reused
    uint32_t WireTag = 0; // the number the unit returns with the result
    bool Sent = false; // its command is attached
    uint64_t SentAtMs = 0; // unit time of the attach, for the driver's time-out
};

template <class T>
struct SDoneTransfer {
    T Transfer;
    uint64_t Id = 0;
};

template <class T>
class CTransferQueue {
public:
    std::deque<SPendingTransfer<T>> Pending;
    std::deque<SDoneTransfer<T>> Done;
    uint32_t Bound = TransferBufferDefault;
    uint32_t NextWireTag = 0;
    uint64_t LastId = 0; // Id of the latest Enqueue

    // Back to a fresh start: wire tags from 0 again; waiting threads wake up.
    void Reset()
    {
        Pending.clear();
        Done.clear();
        NextWireTag = 0;
        Notify();
    }

    // 10 when the transfers submitted and not read back fill the bound.
    unsigned Enqueue(const T& t)
    {
        if (Pending.size() + Done.size() >= Bound)
            return HDW_ERR_WRONG_STATE;
        SPendingTransfer<T> p;
        p.Transfer = t;
        p.Id = ++LastId;
        p.WireTag = NextWireTag++;
        Pending.push_back(std::move(p));
        return 0;
    }

    // Transfers whose commands are attached and whose results have not come.
    unsigned InFlight() const
    {
        unsigned n = 0;
        for (const auto& p : Pending)
            n += p.Sent ? 1 : 0;
        return n;
    }

    // The oldest transfer whose command is not attached yet, or null.
    SPendingTransfer<T>* FirstUnsent()
    {
        for (auto& p : Pending)
            if (!p.Sent)
                return &p;
        return nullptr;
    }

    // The oldest transfer when its command is attached, or null.
    SPendingTransfer<T>* OldestSent() { return !Pending.empty() && Pending.front().Sent ? &Pending.front() : nullptr; }

    // Moves the oldest pending transfer, with its results filled in, to Done.
    void FinishOldest()
    {
        SDoneTransfer<T> d{std::move(Pending.front().Transfer), Pending.front().Id};
        Pending.pop_front();
        Done.push_back(std::move(d));
        Notify();
    }

    // Every pending transfer ends with `result`, in order.
    void FailAll(unsigned result)
    {
        while (!Pending.empty()) {
            Pending.front().Transfer.Result = result;
            FinishOldest();
        }
    }

    // Every transfer whose command is attached ends with `result`, in order;
    // the others stay queued (they are the later ones: transfers go out in order).
    void FailSent(unsigned result)
    {
        while (!Pending.empty() && Pending.front().Sent) {
            Pending.front().Transfer.Result = result;
            FinishOldest();
        }
    }

    bool TakeOldest(T& out)
    {
        if (Done.empty())
            return false;
        out = std::move(Done.front().Transfer);
        Done.pop_front();
        return true;
    }

    bool Take(uint64_t id, T& out)
    {
        for (auto it = Done.begin(); it != Done.end(); ++it)
            if (it->Id == id) {
                out = std::move(it->Transfer);
                Done.erase(it);
                return true;
            }
        return false;
    }

    bool IsPending(uint64_t id) const
    {
        for (const auto& p : Pending)
            if (p.Id == id)
                return true;
        return false;
    }

    uint64_t Generation()
    {
        std::lock_guard<std::mutex> lock(m_WaitMutex);
        return m_Generation;
    }

    // False when `deadline` passed with no change since `seen`.
    bool WaitChange(uint64_t seen, std::chrono::steady_clock::time_point deadline)
    {
        std::unique_lock<std::mutex> lock(m_WaitMutex);
        return m_Changed.wait_until(lock, deadline, [&] { return m_Generation != seen; });
    }

private:
    void Notify()
    {
        {
            std::lock_guard<std::mutex> lock(m_WaitMutex);
            ++m_Generation;
        }
        m_Changed.notify_all();
    }

    std::mutex m_WaitMutex;
    std::condition_variable m_Changed;
    uint64_t m_Generation = 0;
};

// Transfer of a master service: Submit (under the device lock, so that the
// transfer's number is its own), then waits for that transfer alone. 22 when
// it has not finished within `waitMs` (its result later goes to ReadResult);
// the service's run state when it was dropped by a Stop.
template <class S, class T>
unsigned RunTransfer(S& service, CTransferQueue<T>& queue, T& t, unsigned waitMs)
{
    uint64_t id = 0;
    {
        CKVX_HdwServiceLock lock(service);
        if (const unsigned rc = service.Submit(t))
            return rc;
        id = queue.LastId;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    for (;;) {
        const uint64_t seen = queue.Generation();
        {
            CKVX_HdwServiceLock lock(service);
            if (queue.Take(id, t))
                return t.Result;
            if (!queue.IsPending(id))
                return service.GetStatus() == HDW_SERVICE_FAILED ? unsigned(HDW_ERR_SERVICE)
                                                                 : unsigned(HDW_ERR_SERVICE_NOT_RUNNING);
        }
        if (!queue.WaitChange(seen, deadline)) {
            CKVX_HdwServiceLock lock(service);
            return queue.Take(id, t) ? t.Result : unsigned(HDW_ERR_PROBE_INCOMPLETE);
        }
    }
}

// One tick of a driver's sending, caller holds the device lock. True (and
// nothing sent) when the oldest attached transfer is `overdue(t, sentAtMs)`;
// else attaches the unsent ones in order, at `nowMs`, while fewer than
// `maxOnUnit` are attached and `attach(wireTag, t)` takes them.
template <class T, class Overdue, class Attach>
bool PumpTransfers(CTransferQueue<T>& queue, uint64_t nowMs, unsigned maxOnUnit, Overdue&& overdue, Attach&& attach)
{
    if (const SPendingTransfer<T>* oldest = queue.OldestSent(); oldest && overdue(oldest->Transfer, oldest->SentAtMs))
        return true;
    while (queue.InFlight() < maxOnUnit) {
        SPendingTransfer<T>* p = queue.FirstUnsent();
        if (!p || !attach(p->WireTag, p->Transfer))
            break;
        p->Sent = true;
        p->SentAtMs = nowMs;
    }
    return false;
}

// The operations both master services share, each under the device lock.

template <class S, class T>
void ResetTransfers(S& service, CTransferQueue<T>& queue)
{
    CKVX_HdwServiceLock lock(service);
    queue.Reset();
}

template <class S, class T>
unsigned ReadOldestTransfer(S& service, CTransferQueue<T>& queue, T& t)
{
    CKVX_HdwServiceLock lock(service);
    return queue.TakeOldest(t) ? 0u : unsigned(HDW_ERR_NOTHING_TO_READ);
}

template <class S, class T>
unsigned CountTransfers(S& service, CTransferQueue<T>& queue, unsigned& count, bool finished)
{
    CKVX_HdwServiceLock lock(service);
    count = unsigned(finished ? queue.Done.size() : queue.Pending.size());
    return 0;
}

template <class S, class T>
unsigned DropFinishedTransfers(S& service, CTransferQueue<T>& queue)
{
    CKVX_HdwServiceLock lock(service);
    queue.Done.clear();
    return 0;
}

template <class P, class T>
unsigned GetTransferParameters(CKVX_HdwService& service, CTransferQueue<T>& queue, P* params)
{
    return CopyParametersOut(service, params, [&](P& p) { p.BufferSize = queue.Bound; });
}

// 2 for a BufferSize outside 1..1024.
template <class P, class T>
unsigned SetTransferParameters(CKVX_HdwService& service, CTransferQueue<T>& queue, P* params)
{
    if (params && (params->BufferSize < TransferBufferMin || params->BufferSize > TransferBufferMax))
        return HDW_ERR_ARGUMENT;
    return CopyParametersIn(service, params, [&](const P& p) { queue.Bound = p.BufferSize; });
}

} // namespace hdw::bus
