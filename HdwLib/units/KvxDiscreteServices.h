#pragma once
// Discrete services of a command-protocol unit's banks. Input: the state and
// change events of the bank's input events (type 11). Output: set, clear,
// toggle, write and pulse as output commands, the read-back from the bank's
// output events (type 12). Start of either asks the unit for its bank's
// state, which also gives the sequence base; Refresh asks again.
// The operations check in this order: service running (29 stopped, 15
// failed), arguments (2, nothing sent), then attach under the device lock.

#include <HdwLib/bus/HdwDiscreteInService.h>
#include <HdwLib/bus/HdwDiscreteOutService.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxDiscreteInService : public CKVX_HdwDiscreteInService {
public:
    explicit CKVX_HdwKvxDiscreteInService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxDiscreteInService() override;

    unsigned Start() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Refresh() override;
};

class HDWLIB_EXPORT CKVX_HdwKvxDiscreteOutService : public CKVX_HdwDiscreteOutService {
public:
    explicit CKVX_HdwKvxDiscreteOutService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxDiscreteOutService() override;

    unsigned Start() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Set(uint32_t mask) override;
    unsigned Clear(uint32_t mask) override;
    unsigned Toggle(uint32_t mask) override;
    unsigned WriteAll(uint32_t state) override;
    unsigned Pulse(uint32_t mask, uint32_t lengthUs) override;
    unsigned Refresh() override;

private:
    // One write operation (code 44) on this bank; the commanded state
    // follows once the command is attached.
    unsigned Write(unsigned operation, uint32_t mask, uint32_t value);
};
