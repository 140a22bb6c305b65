#pragma once
// SPI master of a command-protocol unit (Wendal): the clock is the unit's
// 30 MHz base divided by 1..65536, never faster than asked; configured on
// the unit when it opens (confirmed before Open returns), switched off when
// it closes. Its one service: the SPI master (14).

#include <HdwLib/bus/HdwSpiPort.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwKvxSpiPort : public CKVX_HdwSpiPort {
public:
    static constexpr uint32_t BaseClockHz = 30000000;
    static constexpr uint32_t MinClockHz = 1000;
    static constexpr uint8_t ChipSelects = 4;

    CKVX_HdwKvxSpiPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxSpiPort() override;

    // 2 also for a clock outside 1000..30,000,000 Hz or a chip select above 3.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    const CParameters& GetSpiParameters() const { return m_Parameters; }
    // The clock the master runs while open (device lock held).
    uint32_t GetRunningClockHz() const { return m_ActualClockHz; }
    // Attaches the master's configuration (caller holds the device lock).
    unsigned AttachConfiguration(bool enable);

    // The divider d for a clock: ceil(30 MHz / hz) - 1; the clock it gives
    // is 30 MHz / (d + 1).
    static uint16_t ClockDivider(uint32_t hz);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
};
