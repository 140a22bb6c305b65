#pragma once
// Discrete input service (type 17) of one bank: the state the unit last
// reported and the queue of its change events. This class keeps both; the
// unit driver feeds them with UpdateState under the device lock it already
// holds, and overrides Refresh (8 here), which needs the unit.
// Lock rule: every member below only under the device lock.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwDiscreteInService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 4096; // change records kept, 1..1,048,576
    };

    // One reported change of the bank.
    class HDWLIB_EXPORT CChange : public CKVX_Object {
    public:
        CChange() = default;
        CChange(const CChange&) = default;
        CChange& operator=(const CChange&) = default;
        ~CChange() override;

        uint32_t State = 0; // all lines after the change
        uint32_t Changed = 0; // the lines that changed
        uint64_t TimeStamp = 0; // unit time of the change, unwrapped, µs
        uint32_t Lost = 0; // changes missed just before this one
    };

    static constexpr uint32_t MaxBufferSize = 1048576;

    explicit CKVX_HdwDiscreteInService(CKVX_HdwObject* port);
    ~CKVX_HdwDiscreteInService() override;

    // Both empty the queue and forget the reported state; Start also zeroes
    // the lost count and sets the service running.
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    // 2 for a BufferSize outside 1..1,048,576; 10 while the port is open.
    virtual unsigned SetParameters(CParameters* params);
    // Asks the unit for the bank's state now (the driver's; 8 here).
    virtual unsigned Refresh();

    // All lines at once: the last state the unit reported and its unit time;
    // 4 before the first report.
    unsigned GetState(uint32_t& state, uint64_t& timeStamp);
    // One line of that state: 2 for a line beyond the bank, 4 before the first report.
    unsigned GetInput(unsigned line, bool& level);
    // Takes up to `max` of the oldest changes, in order: 4 when none waits,
    // 2 for no array, 29 stopped, 15 failed.
    unsigned Read(CChange* changes, unsigned max, unsigned& count);
    // Changes waiting (29 stopped, 15 failed).
    unsigned GetChangeCount(unsigned& count);
    // Drops the waiting changes (29 stopped, 15 failed).
    unsigned ResetChanges();
    // Changes the full queue dropped plus those the unit's sequence shows missing.
    unsigned GetLostCount(uint64_t& count);

protected:
    // The driver's receive path, caller holds the device lock: stores the
    // state; for a change (isChange) of a running service also queues it,
    // with Lost from the gap in the 16-bit sequence once a first sequence is
    // known. A read answer (not a change) sets the sequence base.
    void UpdateState(uint32_t state, uint32_t changed, uint16_t sequence, uint64_t time, bool isChange);
    // Lines of the port's bank (32 when the port is no discrete input).
    uint32_t BankLineMask() const;

    std::deque<CChange> m_Changes;
    uint32_t m_BufferSize = 4096;
    uint32_t m_State = 0;
    uint64_t m_StateTime = 0;
    bool m_HaveState = false;
    uint16_t m_Sequence = 0;
    bool m_HaveSequence = false;
    uint64_t m_Lost = 0;
};
