#pragma once
// What the MIL-STD-1553 bus controller and remote terminal services share:
// the lists of transfers kept until read (the service's own and the
// channel's monitor records), the count of what was lost, the run state and
// the BufferSize parameter. It adds no virtual operation, so each service's
// operations keep their order after those of the service base.
//
// Lock rule: every member below is read and written under the device lock.

#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwMilStd1553Service : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // Transfers (and monitor records) kept until read, each list (0 = no
        // bound); a full list drops its oldest.
        uint32_t BufferSize = 10000;
    };

    CKVX_HdwMilStd1553Service(CKVX_HdwObject* port, unsigned serviceType);
    ~CKVX_HdwMilStd1553Service() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    unsigned GetParameters(CParameters* params);
    unsigned SetParameters(CParameters* params);

    // Appends up to maxCount of the service's transfers (the controller's
    // completed transfers, the terminal's accesses), in the order the unit
    // reported them: 29 stopped, 15 failed.
    unsigned Read(CKVX_HdwMilStd1553Buffer& buffer, unsigned maxCount, unsigned& readCount);
    // The same for every transfer the channel's monitor saw.
    unsigned ReadMonitor(CKVX_HdwMilStd1553Buffer& buffer, unsigned maxCount, unsigned& readCount);
    // Transfers dropped because a list was full, those the unit flagged as
    // dropped and those lost while the unit was away, since Start.
    uint64_t GetLostCount();
    // True while the controller or terminal runs.
    bool IsRunning();

protected:
    // Start: empties both lists and the lost count, sets the service running.
    // Caller holds the device lock.
    void ResetTransfers();
    // Appends a record the unit reported to the service's list or the
    // monitor's, counting what the unit or a full list dropped.
    void AppendTransfer(CKVX_HdwMilStd1553Message&& message, bool monitor);

    uint32_t BufferSize = 10000;
    bool m_Running = false;
    std::deque<CKVX_HdwMilStd1553Message> m_Transfers;
    std::deque<CKVX_HdwMilStd1553Message> m_Monitor;
    uint64_t m_Lost = 0;
};
