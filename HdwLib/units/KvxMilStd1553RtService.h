#pragma once
// MIL-STD-1553 single remote terminal on a command-protocol unit's channel
// (docs/mil-std-1553.md): the subaddress and mode-code tables and the
// buffers go to the channel's SRAM, transmit data updates as one record per
// subaddress, status bits by sending the configuration again. Access records
// become the messages Read hands out; monitor records those of ReadMonitor.
// A terminal address of NoTerminal runs the channel idle with the monitor:
// a passive bus monitor. When the unit comes back after a loss, the tables,
// the buffers with the latest transmit data and the configuration are
// written again. A critical-failure event sets the service to failed.

#include <HdwLib/bus/HdwMilStd1553SingleRtService.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwKvxMilStd1553RtService : public CKVX_HdwMilStd1553SingleRtService {
public:
    explicit CKVX_HdwKvxMilStd1553RtService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxMilStd1553RtService() override;

    // Puts the channel to idle (also when the port closes).
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    // Sends queued transmit updates and changed status bits.
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // 29/15 when the service does not run; then the generic checks.
    unsigned BuildBufferInit(const CKVX_HdwMilStd1553RemoteTerminal& rt) override;
    unsigned BuildSubaddressConfiguration(const CKVX_HdwMilStd1553RemoteTerminal& rt) override;
    // 10 unless both were built.
    unsigned RunRt() override;
    unsigned StopRt() override;

protected:
    // Caller holds the device lock.
    unsigned AttachConfig(bool run);
    // The unit is back with a fresh session (its memory cleared).
    void Restore();
};
