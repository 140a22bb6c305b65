#pragma once
// CAN channel of a command-protocol unit: configured on the unit when it
// opens (confirmed before Open returns), switched off when it closes. Status
// requests (at opening, then now and then) keep the port's fault status; each
// request carries a mark (the frame output's push count when it was
// attached) so that its answer can correct the output's count of frames in
// the unit's transmit FIFO.

#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwKvxCanPort : public CKVX_HdwCanPort {
public:
    CKVX_HdwKvxCanPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxCanPort() override;

    // HDW_ERR_ARGUMENT when BitRate and SamplePoint give no bit timing.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;
    // Polls the controller's status now and then, then ticks the services.
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Status events update the fault status (and signal its changes).
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;

    unsigned GetChannel() const { return m_Channel; }
    // The unit this port belongs to (null when its device is none).
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);
    // Status request of `kind` (2 status, 3 transmit state), both answered
    // with a kind-2 status event; the output service's transmit count is
    // marked so that the answer can correct it. Caller holds the lock.
    unsigned AttachStatusRequest(unsigned kind);
    // Mark of the status request the last status event answered (valid
    // while a status event is being dispatched).
    bool TakeStatusMark(uint64_t& mark);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
    uint64_t m_LastPollTick = 0;
    // One entry per outstanding status request: the output service's push
    // count when it was attached, and the tick it was attached in.
    struct SStatusMark {
        uint64_t Mark = 0;
        uint64_t Tick = 0;
    };
    std::deque<SStatusMark> m_StatusMarks;
    uint64_t m_LastTick = 0;
    bool m_HaveCurrentMark = false;
    uint64_t m_CurrentMark = 0;
};
