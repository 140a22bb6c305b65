#pragma once
// SPI master service of a command-protocol unit (Wendal): as the I2C master
// service (KvxI2cMasterService.h), with blocks of 1..240 bytes, whole words
// of the port's word size. A transfer without a result 500 ms plus its
// shifting time at the running clock after it was sent fails the service.

#include <HdwLib/bus/HdwSpiMasterService.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwKvxSpiMasterService : public CKVX_HdwSpiMasterService {
public:
    static constexpr unsigned MaxBytes = 240;
    static constexpr unsigned UnitQueue = 8;

    explicit CKVX_HdwKvxSpiMasterService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxSpiMasterService() override;

    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    // 29 stopped, 15 failed, 2 a bad transfer, 10 the queue full.
    unsigned Submit(CKVX_HdwSpiTransfer& t) override;

protected:
    CKVX_HdwKvxSpiPort* m_UnitPort;
};
