#pragma once
// CAN frame services of a command-protocol unit. Input: the frames of the
// channel's receive events, kept until Read while RxFlag is set. Output:
// the application's frames wait here; every tick SendImmediate pushes as
// many as keep at most 64 in the unit's FIFO (shared with the channel's
// byte output); transmit events confirm them, and the port's status answers
// correct the count should a confirmation be lost.
// A critical-failure event sets either service to failed.

#include <HdwLib/bus/HdwCanInBufferService.h>
#include <HdwLib/bus/HdwCanOutBufferService.h>
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxOutputCount.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxCanInBufferService : public CKVX_HdwCanInBufferService {
public:
    explicit CKVX_HdwKvxCanInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxCanInBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Read(CKVX_HdwCanMessage* messages, unsigned int maxCount, unsigned int& readCount) override;
    // RxFlag 1: received frames are kept; 0: dropped.
    unsigned EnableRx() override;
    unsigned DisableRx() override;
    unsigned ResetRx() override;
};

class HDWLIB_EXPORT CKVX_HdwKvxCanOutBufferService : public CKVX_HdwCanOutBufferService {
public:
    explicit CKVX_HdwKvxCanOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxCanOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Write(CKVX_HdwCanMessage* messages, unsigned int count, unsigned char option) override;
    // Pushes queued frames, keeping at most 64 in the unit's FIFO.
    unsigned SendImmediate();
    unsigned ResetWriteBuffer() override;
    // Frames queued here plus frames in the unit's FIFO not yet on the bus.
    unsigned GetMessagesToBeWritten(unsigned int& count) override;

    // Frames pushed since the service was made (the mark of a status
    // request). Caller holds the lock.
    uint64_t GetPushedCount() const { return m_Count.Pushed; }
    // Frames pushed and not yet confirmed. Caller holds the lock.
    uint64_t GetInFlightCount() const { return m_Count.InFlight; }

protected:
    CKVX_HdwKvxOutputCount m_Count;
    uint64_t m_LastTick = 0;
    // The port it was enabled on (null when that is no unit CAN port).
    CKVX_HdwKvxCanPort* m_UnitPort;
    // Frame objects the tick has pushed, kept for the next Write instead of
    // a heap block per frame each way. Under the lock.
    std::vector<CKVX_HdwCanMessage*> m_Spare;
};
