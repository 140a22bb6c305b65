#pragma once
// MIL-STD-1553 bus controller on a command-protocol unit's channel
// (docs/mil-std-1553.md). The built configuration becomes descriptors 32..271,
// their buffers and major frame table A; a major frame change goes to the
// half that does not run (table B after A, then A again) and is switched at
// a minor-frame boundary. One-shot messages go to descriptors 0..31 as one
// list at a time. Transfer-completed events become the messages Read hands
// out, with the command fields of the service's copy of the message.
// A one-shot list that has not completed within its time-out is given up:
// its messages not run are read with FlagNotSent and the next list goes.
// When the unit comes back after a loss, the table that runs (or was
// loaded), its descriptors and buffers with the latest data and the
// configuration are written again, and the controller runs again if it ran.
// A critical-failure event sets the service to failed.

#include <HdwLib/bus/HdwMilStd1553BcService.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxMilStd1553BcService : public CKVX_HdwMilStd1553BcService {
public:
    explicit CKVX_HdwKvxMilStd1553BcService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxMilStd1553BcService() override;

    unsigned Start() override;
    // Puts the channel to idle (also when the port closes).
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    // Sends queued data updates and the next one-shot list.
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // 10 with nothing built or while running; 29/15 when the service does not run.
    unsigned BuildSramMemoryCommands() override;
    unsigned LoadConfiguration() override;
    unsigned DestroyConfiguration() override;
    unsigned RunBc() override;
    unsigned StopBc() override;
    unsigned ChangeMajorFrame(const CKVX_HdwMilStd1553MajorFrame& frame) override;

protected:
    // Caller holds the device lock.
    unsigned AttachConfig(uint8_t extraFlags, uint8_t count, uint8_t tablePage);
    unsigned AttachImage(unsigned half, const CKVX_HdwMilStd1553MajorFrame& frame);
    void SendOneShots(uint64_t nowMs);
    // Gives up the list in flight once its time-out passed.
    void ExpireOneShots(uint64_t nowMs);
    void TransferCompleted(const CKVX_HdwKvxMilStd1553Event& event);
    // The unit was lost: the one-shot list in flight is lost with it.
    void UnitLost(CKVX_HdwKvxUnitLinkEvent& event);
    // The unit is back with a fresh session (its memory cleared).
    void Restore();

    // The one-shot list the unit runs, by slot, and those not completed yet.
    std::vector<CKVX_HdwMilStd1553Message> m_OneShotsInFlight;
    unsigned m_OneShotsLeft = 0;
    uint16_t m_OneShotNumber = 0;
    uint64_t m_OneShotsDueMs = 0; // unit time the list in flight times out
    // The controller ran when the unit was lost.
    bool m_RanAtLoss = false;
    // Scheduled transfers reported since the controller's run started.
    uint64_t m_ScheduledSeen = 0;
    // Major frame cycles of a StopAfter schedule that were left when the
    // unit came back (0: the schedule's own StopAfter).
    uint8_t m_CyclesLeft = 0;
};
