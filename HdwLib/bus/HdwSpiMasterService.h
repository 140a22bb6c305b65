#pragma once
// SPI master service (type 14): full-duplex block transfers, run and
// reported in the order submitted. As the I2C master service: this class
// keeps the queues and the wait, Submit answers 8 here and the unit driver
// overrides it, sends the transfers and feeds their results through Complete.
// Lock rule: the queues only under the device lock.

#include <HdwLib/bus/HdwSpiTransfer.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <functional>
#include <memory>

class HDWLIB_EXPORT CKVX_HdwSpiMasterService : public CKVX_HdwService {
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

    explicit CKVX_HdwSpiMasterService(CKVX_HdwObject* port);
    ~CKVX_HdwSpiMasterService() override;

    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    // Queues `t`: 2 when its Check fails, 10 when the queue is full. 8 here.
    virtual unsigned Submit(CKVX_HdwSpiTransfer& t);

    unsigned ReadResult(CKVX_HdwSpiTransfer& t);
    unsigned Transfer(CKVX_HdwSpiTransfer& t, unsigned waitMs);
    unsigned GetPendingCount(unsigned& count);
    unsigned GetResultCount(unsigned& count);
    unsigned ResetResults();

protected:
    // Driver's side, caller holds the device lock (see the I2C service).
    unsigned Enqueue(const CKVX_HdwSpiTransfer& t);
    bool Complete(uint32_t wireTag, unsigned result, const uint8_t* data, unsigned count, uint64_t time);
    void FailPending();
    void FailSent(unsigned result);

    // The oldest submitted transfer whose command is not attached yet (its
    // wire tag in `wireTag`), or null.
    CKVX_HdwSpiTransfer* PeekUnsent(uint32_t& wireTag);
    // That transfer's command is attached, at unit time `nowMs`.
    void MarkSent(uint64_t nowMs);
    // Transfers attached and not finished.
    unsigned GetInFlightCount();
    // The oldest attached transfer and when it was attached; null when none.
    const CKVX_HdwSpiTransfer* PeekOldestSent(uint64_t& sentAtMs);
    // One tick of the driver's sending (see the I2C service).
    bool PumpTransfers(uint64_t nowMs, unsigned maxOnUnit,
        const std::function<bool(const CKVX_HdwSpiTransfer&, uint64_t)>& overdue,
        const std::function<bool(uint32_t, const CKVX_HdwSpiTransfer&)>& attach);

private:
    struct SQueue;
    std::unique_ptr<SQueue> m_Transfers;
};
