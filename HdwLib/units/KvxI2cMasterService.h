#pragma once
// I2C master service of a command-protocol unit (Wendal). Submit checks the
// transfer against what one record carries (240 bytes each way) and queues
// it; every tick the oldest unsent transfers become transfer records, at
// most 8 on the unit per master; each result event completes the oldest
// transfer sent, whose wire tag it must carry (else the frame is refused
// with 11). A transfer without a result BusTimeoutMs x (bytes + 3) + 500 ms
// after it was sent fails the service: its transfers end with 15.

#include <HdwLib/bus/HdwI2cMasterService.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwKvxI2cMasterService : public CKVX_HdwI2cMasterService {
public:
    static constexpr unsigned MaxBytes = 240; // each way, one record
    static constexpr unsigned UnitQueue = 8; // transfers the unit holds per master

    explicit CKVX_HdwKvxI2cMasterService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxI2cMasterService() override;

    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    // 29 stopped, 15 failed, 2 a bad transfer, 10 the queue full.
    unsigned Submit(CKVX_HdwI2cTransfer& t) override;

protected:
    CKVX_HdwKvxI2cPort* m_UnitPort;
};
