#pragma once
// Signal service of a command-protocol unit's ports: ARINC 429 words
// received and sent, CAN frames received and sent, as signals (CAN status
// changes come through the port's fault status, MIL-STD-1553 messages
// through its port), discrete bank changes (state in Value, changed lines in
// Aux). The end of the tick publishes the readiness.

#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxSignalService : public CKVX_HdwSignalService {
public:
    explicit CKVX_HdwKvxSignalService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxSignalService() override;

    // On a transmitter or CAN port, Start also makes sure the channel is
    // configured so that the unit reports what it sends.
    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};
