#pragma once
// MIL-STD-1553 channel of a command-protocol unit. Opening sends nothing to
// the unit (the bus-controller and remote-terminal services send the
// channel's memory and configuration through this port); the port forwards the unit's MIL-STD-1553 events of its
// channel to its signal service as HDW_SIGNAL_MIL1553_MESSAGE signals:
//   - transfer completed (kind 1): Value = transfer identifier (low 16 bits)
//     | first status word << 16; Aux = the transfer's error/status flags;
//   - remote-terminal access or monitor record (kind 2): Value = command
//     word 1 | first status word << 16; Aux = the transfer flags;
//   - other kinds: Value 0, Aux 0.
//   In every case bits 24..31 of Aux hold the kind.

#include <HdwLib/bus/HdwMilStd1553Port.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxMilStd1553Port : public CKVX_HdwMilStd1553Port {
public:
    CKVX_HdwKvxMilStd1553Port(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxMilStd1553Port() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // MIL-STD-1553 events become signals; every event then goes to the services.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;

    unsigned GetChannel() const { return m_Channel; }
    // The unit this port belongs to (null when its device is none).
    CKVX_HdwKvxCommandUnit* GetUnit() const { return m_Unit; }
    // MIL-STD-1553 events of this channel since it was opened.
    uint64_t GetMessageCount();

    // Attaches the channel configuration `config` with the port's coupling
    // and response time-out filled in; the unit's record keeps it with the
    // triggers cleared. Caller holds the device lock. Both attach nothing
    // (and answer 0) while the unit is lost or its fresh session starts:
    // the services write the channel again when it is back.
    unsigned AttachConfiguration(const CKVX_HdwKvxMilStd1553Config& config);
    // Attaches SRAM writes of `words` at `address`, relative to the
    // channel's block. Caller holds the device lock.
    unsigned AttachSramWrite(uint32_t address, const std::vector<uint16_t>& words);

protected:
    unsigned m_Channel;
    CKVX_HdwKvxCommandUnit* m_Unit;
    uint64_t m_Messages = 0; // under the device lock
};
