#pragma once
// Per-application notification queue (service type 1). Enabled on any port,
// it receives a small record for everything worth telling the application
// about that channel: ARINC 429 words received or sent, CAN frames received
// or sent, CAN fault-status and error-register changes, CAN transceiver
// errors, discrete input and output states, MIL-STD-1553 messages, UART
// bytes received or sent (their counts). The unit driver posts them from the
// tick or its receive path; the application takes them from its own thread:
//
//     CKVX_HdwSignalService::CSignal s;
//     while (signals->WaitSignal(s, 1000) == 0) { ... }      // or:
//     pollfd p{signals->GetFileDescriptor(), POLLIN, 0};      // Linux
//
// The queue is bounded (CParameters::BufferSize); when full, the oldest
// signal is dropped and GetDroppedCount tells how many were lost.
//
// Several services can share one wait object: see CKVX_HdwSignalGroup.
//
// Lock rule: the queue has its own mutex. The driver posts while it holds
// the device lock and takes the queue mutex inside it; the application's
// calls take only the queue mutex, never the device lock, so a waiting
// application never holds up the tick.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/framework/HdwService.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

class CKVX_HdwPort;
class CKVX_HdwSignalGroup;

// What a signal reports (CSignal::Kind, and bit (kind - 1) of SignalMask).
enum t_HdwSignalKind : unsigned {
    HDW_SIGNAL_ARINC429_RECEIVED = 1,
    HDW_SIGNAL_ARINC429_SENT = 2,
    HDW_SIGNAL_CAN_RECEIVED = 3,
    HDW_SIGNAL_CAN_SENT = 4,
    HDW_SIGNAL_CAN_STATUS_CHANGED = 5, // CFaultStatus::Status changed
    HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED = 6, // ErrReg0 or ErrReg1 changed
    HDW_SIGNAL_DISCRETE_INPUT = 7,
    HDW_SIGNAL_DISCRETE_OUTPUT = 8,
    HDW_SIGNAL_MIL1553_MESSAGE = 9,
    HDW_SIGNAL_CAN_TRANSCEIVER_ERROR = 10, // see CCanTranceiverErrorSignal
    // The unit behind the port was lost (reconnect on): Value = its outages
    // so far, Aux = items its output services had pushed unconfirmed.
    HDW_SIGNAL_UNIT_LOST = 11,
    // It answers again and its channels are configured: Value = its returns
    // so far, Aux = milliseconds it was away.
    HDW_SIGNAL_UNIT_BACK = 12,
    // A block of bytes reached a UART receiver: Value = how many, Aux = the
    // receiver's status byte. The bytes are read from the port's byte input
    // service, which holds them when the signal is read.
    HDW_SIGNAL_UART_RECEIVED = 13,
    // The unit confirmed bytes the port's byte output service pushed as sent
    // on the line: Value = how many, Aux = the unit's transmit-record count.
    HDW_SIGNAL_UART_SENT = 14,
};

class HDWLIB_EXPORT CKVX_HdwSignalService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        static constexpr uint32_t AllSignals = 0xFFFFFFFFu;

        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 1000; // queue bound in signals; 0 counts as 1
        uint32_t SignalMask = AllSignals; // bit (kind - 1) set: queue that kind
    };

    // One notification. Only the payload member of its kind is meaningful
    // (Value and Aux are 0 for the ARINC 429 and CAN kinds).
    class HDWLIB_EXPORT CSignal : public CKVX_Object {
    public:
        CSignal() = default;
        CSignal(const CSignal&) = default;
        CSignal& operator=(const CSignal&) = default;
        ~CSignal() override;

        unsigned Kind = 0; // t_HdwSignalKind
        CKVX_HdwPort* Port = nullptr; // the port the service runs on
        uint64_t TimeStamp = 0; // event time of the unit event
        CKVX_HdwArinc429Message Arinc429; // ARINC 429 kinds
        CKVX_HdwCanMessage Can; // CAN frame kinds
        CKVX_HdwCanPort::CFaultStatus FaultStatus; // CAN status kinds: the new status
        // Discrete kinds: the channel's state bits. MIL-STD-1553: the
        // transfer identifier (transfer completed) or command word (terminal
        // access, monitor) in the low 16 bits, the first status word in the
        // high 16 bits.
        uint32_t Value = 0;
        uint32_t Aux = 0; // MIL-STD-1553: the transfer flags, the event kind in bits 24..31
    };

    // CAN transceiver error (HDW_SIGNAL_CAN_TRANSCEIVER_ERROR): the port's
    // controller went error passive (fault state 1) or bus off (2), where a
    // faulty or unpowered transceiver, an open or shorted bus or a bus with
    // no other node leaves it. Posted after the status-change signal of the
    // same status, whenever the fault state changes to one of these two.
    // FaultStatus holds the new status with its error registers, Value the
    // fault state before. The queue holds CSignal records: the application
    // reads as usual and views a signal of this kind through this class:
    //     if (CKVX_HdwSignalService::CCanTranceiverErrorSignal::Is(s)) {
    //         CKVX_HdwSignalService::CCanTranceiverErrorSignal e(s);
    //         if (e.IsBusOff()) ...
    class HDWLIB_EXPORT CCanTranceiverErrorSignal : public CSignal {
    public:
        // Kind is HDW_SIGNAL_CAN_TRANSCEIVER_ERROR.
        CCanTranceiverErrorSignal();
        // A copy of `signal`, whatever its kind (see Is).
        explicit CCanTranceiverErrorSignal(const CSignal& signal);
        CCanTranceiverErrorSignal(const CCanTranceiverErrorSignal&) = default;
        CCanTranceiverErrorSignal& operator=(const CCanTranceiverErrorSignal&) = default;
        ~CCanTranceiverErrorSignal() override;

        static bool Is(const CSignal& signal) { return signal.Kind == HDW_SIGNAL_CAN_TRANSCEIVER_ERROR; }
        // Fault states that show a transceiver or bus error.
        static bool IsErrorState(uint32_t faultState) { return faultState == 1 || faultState == 2; }

        bool IsBusOff() const { return FaultStatus.Status == 2; }
        uint32_t GetPreviousFaultState() const { return Value; }
    };

    explicit CKVX_HdwSignalService(CKVX_HdwObject* port);
    ~CKVX_HdwSignalService() override;

    // Start empties the queue, resets the dropped count and sizes the queue
    // to BufferSize; Stop empties it. Abort wakes every waiting reader.
    unsigned Start() override;
    unsigned Stop() override;
    unsigned Abort() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);

    // ---- application side (queue mutex only) ----
    // Oldest waiting signal: 0, 4 when none waits, 29 stopped, 15 failed.
    unsigned GetSignal(CSignal& signal);
    // As GetSignal, but waits up to timeoutMs for one (4 on time-out).
    unsigned WaitSignal(CSignal& signal, unsigned timeoutMs);
    // Up to maxCount signals, oldest first, without waiting (readCount may be 0).
    unsigned ReadSignals(CSignal* signals, unsigned maxCount, unsigned& readCount);
    unsigned GetSignalsNumber(unsigned& count);
    // Signals dropped because the queue was full since Start; with `reset`
    // the count starts again from 0.
    unsigned GetDroppedCount(uint64_t& count, bool reset);
    // Linux: a descriptor that polls readable while a signal waits (or the
    // service has failed); -1 where there is none. Do not read or close it.
    int GetFileDescriptor() const;
    // Windows: a manual-reset event handle, set under the same rule; null
    // where there is none. Do not close it.
    void* GetWaitHandle() const;
    // Makes the service a member of `group` (leaving any other): from now on
    // the group's descriptor / handle shows this service's readiness and the
    // service's own stays unset. 0, or 2 for a null group.
    unsigned JoinGroup(CKVX_HdwSignalGroup* group);
    // Back to the service's own descriptor / handle; 0 also when not in a group.
    unsigned LeaveGroup();
    CKVX_HdwSignalGroup* GetGroup() const;

    // ---- driver side (caller holds the device lock) ----
    // Queues a copy; Port is filled in. 29 when not running; a masked kind
    // is ignored and answers 0.
    unsigned Post(const CSignal& signal);
    unsigned PostArinc429(unsigned kind, const CKVX_HdwArinc429Message& message, uint64_t eventTime);
    unsigned PostCan(unsigned kind, const CKVX_HdwCanMessage& message, uint64_t eventTime);
    // Status-change signal when Status differs, then a transceiver-error
    // signal when it changed to an error state, then an error-register
    // signal when a register byte differs; nothing when they are equal.
    unsigned PostCanFaultStatus(const CKVX_HdwCanPort::CFaultStatus& previous,
        const CKVX_HdwCanPort::CFaultStatus& current, uint64_t eventTime);
    unsigned PostValue(unsigned kind, uint32_t value, uint32_t aux, uint64_t eventTime);

    // The signal service enabled on `port`, or null.
    static CKVX_HdwSignalService* FindOn(CKVX_HdwPort* port);

    // Sets the descriptor / handle for what was posted while it was held
    // back (see HoldReadinessUntilPublished).
    void PublishReadiness();

protected:
    // A driver that calls PublishReadiness at the end of its tick holds the
    // descriptor back until then: an application woken by it then finds the
    // device unlocked and the whole tick's data in place, instead of waiting
    // for the lock the tick still holds. WaitSignal readers wake at once.
    void HoldReadinessUntilPublished() { m_HoldReadiness = true; }

    // Caller holds m_QueueMutex.
    bool PopLocked(CSignal& signal);
    void UpdateReadinessLocked();
    unsigned RunStateLocked() const;

    uint32_t BufferSize = 1000;
    uint32_t SignalMask = CParameters::AllSignals;

private:
    mutable std::mutex m_QueueMutex;
    std::condition_variable m_QueueCv;
    std::vector<CSignal> m_Ring; // capacity fixed at Start
    unsigned m_Head = 0; // oldest
    unsigned m_Count = 0;
    unsigned m_Waiters = 0; // WaitSignal callers asleep on m_QueueCv
    uint64_t m_Dropped = 0;
    void* m_Readiness = nullptr; // platform event behind the descriptor / handle
    bool m_Ready = false; // what m_Readiness shows
    bool m_HoldReadiness = false; // Post leaves m_Readiness to PublishReadiness
    std::atomic<uint32_t> m_WantedKinds{CParameters::AllSignals}; // SignalMask, read by posts without the mutex
    CKVX_HdwSignalGroup* m_Group = nullptr; // shows m_Ready instead of m_Readiness

    friend class CKVX_HdwSignalGroup;
    // Leaves the group if it is `only` (any group when null).
    void LeaveGroupIf(CKVX_HdwSignalGroup* only);
    // Shows `ready` on the group or on the service's own object.
    void ShowReadinessLocked(bool ready);
    template <class Fill>
    unsigned PostWith(unsigned kind, uint64_t eventTime, Fill&& fill);
};
