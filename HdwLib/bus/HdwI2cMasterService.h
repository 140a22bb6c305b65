#pragma once
// I2C master service (type 16): transfers run one after the other in the
// order submitted, and their results come back in that order. This class
// keeps the queues of submitted and finished transfers and lets an
// application wait for one transfer; Submit needs the unit and answers 8
// here. The unit driver overrides Submit (checks, then Enqueue), sends the
// queued transfers and feeds their results through Complete.
// Lock rule: the queues only under the device lock.

#include <HdwLib/bus/HdwI2cTransfer.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <functional>
#include <memory>

class HDWLIB_EXPORT CKVX_HdwI2cMasterService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 64; // transfers submitted and not yet read back, 1..1024
    };

    explicit CKVX_HdwI2cMasterService(CKVX_HdwObject* port);
    ~CKVX_HdwI2cMasterService() override;

    // Both empty the queues (a thread waiting in Transfer returns) and set
    // the run state; wire tags count from 0 again.
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    // 2 for a BufferSize outside 1..1024.
    virtual unsigned SetParameters(CParameters* params);
    // Queues `t`: 2 when its Check fails, 10 when the queue is full. 8 here.
    virtual unsigned Submit(CKVX_HdwI2cTransfer& t);

    // The oldest finished transfer with its results; 4 when none.
    unsigned ReadResult(CKVX_HdwI2cTransfer& t);
    // Submits `t` and waits up to `waitMs` for it: fills `t` with its results
    // and answers its Result, or what Submit answered, or 22 when it has not
    // finished in time (it stays submitted; its result goes to ReadResult).
    // Never from the timer thread.
    unsigned Transfer(CKVX_HdwI2cTransfer& t, unsigned waitMs);
    // Transfers submitted and not finished; finished and not read.
    unsigned GetPendingCount(unsigned& count);
    unsigned GetResultCount(unsigned& count);
    // Drops the finished transfers not read.
    unsigned ResetResults();

protected:
    // Driver's side, caller holds the device lock.
    // Queues a checked transfer with the next wire tag; 10 when full.
    unsigned Enqueue(const CKVX_HdwI2cTransfer& t);
    // Completes the oldest submitted transfer; false (nothing changed) when
    // there is none or `wireTag` is not its tag.
    bool Complete(uint32_t wireTag, unsigned result, uint32_t acked, bool nackOnAddress, uint8_t fault,
        const uint8_t* data, unsigned count, uint64_t time);
    // Every submitted transfer ends with 15 and the service fails.
    void FailPending();
    // The transfers on the unit end with `result` (they may or may not have
    // run); those not sent yet stay queued and the service keeps running.
    void FailSent(unsigned result);

    // The oldest submitted transfer whose command is not attached yet (its
    // wire tag in `wireTag`), or null.
    CKVX_HdwI2cTransfer* PeekUnsent(uint32_t& wireTag);
    // That transfer's command is attached, at unit time `nowMs`.
    void MarkSent(uint64_t nowMs);
    // Transfers attached and not finished.
    unsigned GetInFlightCount();
    // The oldest attached transfer and when it was attached; null when none.
    const CKVX_HdwI2cTransfer* PeekOldestSent(uint64_t& sentAtMs);
    // One tick of the driver's sending: true (nothing sent) when the oldest
    // transfer on the unit is overdue(t, sentAtMs); else the unsent ones go
    // to attach(wireTag, t), in order, while fewer than maxOnUnit are on the
    // unit and attach takes them (they count as sent at nowMs).
    bool PumpTransfers(uint64_t nowMs, unsigned maxOnUnit,
        const std::function<bool(const CKVX_HdwI2cTransfer&, uint64_t)>& overdue,
        const std::function<bool(uint32_t, const CKVX_HdwI2cTransfer&)>& attach);

private:
    struct SQueue;
    std::unique_ptr<SQueue> m_Transfers;
};
