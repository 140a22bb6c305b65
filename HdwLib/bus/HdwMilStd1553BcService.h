#pragma once
// MIL-STD-1553 bus controller (service type 10). This class checks and keeps
// what the application gives (the bus controller, major frame changes,
// one-shot messages, data updates) and the transfers the unit reports until
// they are read; the operations that talk to the unit answer 8 here and are
// overridden by the unit driver, which calls this class's version first
// where it does work.
//
// Lock rule: every member below is read and written under the device lock.

#include <HdwLib/bus/HdwMilStd1553BusController.h>
#include <HdwLib/bus/HdwMilStd1553Frame.h>
#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/bus/HdwMilStd1553Service.h>

#include <cstdint>
#include <deque>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwMilStd1553BcService : public CKVX_HdwMilStd1553Service {
public:
    explicit CKVX_HdwMilStd1553BcService(CKVX_HdwObject* port);
    ~CKVX_HdwMilStd1553BcService() override;

    // Empty the lists and the queues, forget what was loaded, set the run state.
    unsigned Start() override;
    unsigned Stop() override;

    // Checks `bc` against the port's response time-out (2) and keeps it as
    // the configuration to load; 10 while the controller runs.
    virtual unsigned BuildConfiguration(const CKVX_HdwMilStd1553BusController& bc);
    // Unit driver: the built configuration as SRAM writes.
    virtual unsigned BuildSramMemoryCommands();
    // Unit driver: the SRAM writes and the channel in bus-controller mode, stopped.
    virtual unsigned LoadConfiguration();
    // Forgets the built and the loaded configuration; 10 while running.
    virtual unsigned DestroyConfiguration();
    // Unit driver: runs the loaded major frame.
    virtual unsigned RunBc();
    // Unit driver: stops it; done when the unit reports the stop.
    virtual unsigned StopBc();
    // Checks `frame` (2) and keeps it as the next major frame; 10 when not
    // running or a change is pending. The unit driver writes and switches.
    virtual unsigned ChangeMajorFrame(const CKVX_HdwMilStd1553MajorFrame& frame);

    // Queues a one-shot message: 2 when its Check or the buses refuse it,
    // or while the controller runs when it is longer by the timing rule than
    // the longest minor frame of the running major frame (it could never
    // run); 29/15 when the service does not run. Up to 32 go to the unit as
    // one list, the next list once all of the previous one completed or the
    // list's time-out passed (its messages not run are then read with
    // FlagNotSent).
    unsigned SendOneShot(const CKVX_HdwMilStd1553Message& message);
    // New data words for message `index` of the running (or loaded) major
    // frame, sent as one SRAM record: 2 for a bad index or words not of the
    // size the message sends, 10 with nothing loaded.
    unsigned UpdateData(unsigned index, const std::vector<uint16_t>& words);
    // Read: completed transfers, one-shot and scheduled, in the order they
    // completed. IsRunning: from RunBc until the unit reports the stop.

protected:
    // The port's response time-out (µs) that the checks use.
    unsigned ResponseTimeoutUs();

    CKVX_HdwMilStd1553BusController m_Built;
    bool m_HaveBuilt = false;
    // The major frame in each table half (0 A, 1 B) of the unit, the half
    // that runs or was loaded, and whether one was loaded.
    CKVX_HdwMilStd1553MajorFrame m_Tables[2];
    unsigned m_ActiveHalf = 0;
    bool m_Loaded = false;
    bool m_StopPending = false;
    bool m_ChangePending = false;
    // A change accepted by ChangeMajorFrame that the driver has not sent yet.
    CKVX_HdwMilStd1553MajorFrame m_NextFrame;
    bool m_HaveNextFrame = false;
    std::deque<CKVX_HdwMilStd1553Message> m_OneShotQueue;
    struct SDataUpdate {
        unsigned Half = 0;
        unsigned Index = 0;
        std::vector<uint16_t> Words;
    };
    std::deque<SDataUpdate> m_DataUpdates;
};
