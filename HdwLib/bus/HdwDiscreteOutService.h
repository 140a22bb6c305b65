#pragma once
// Discrete output service (type 18) of one bank. This class keeps the
// read-back (what the unit last reported driving), the state the
// application last asked for and the count of read-backs missed; the unit
// driver overrides the operations that need the unit (8 here) and feeds the
// read-back with UpdateDriven under the device lock it already holds.
// Lock rule: every member below only under the device lock.

#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwDiscreteOutService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;
    };

    static constexpr uint32_t MinPulseUs = 10;
    static constexpr uint32_t MaxPulseUs = 10000000;

    explicit CKVX_HdwDiscreteOutService(CKVX_HdwObject* port);
    ~CKVX_HdwDiscreteOutService() override;

    // Start forgets the read-back, zeroes the lost count, takes the port's
    // InitialState as the commanded state and sets the service running.
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    // The operations that need the unit (the driver's; 8 here). Masks and
    // states name lines of the bank (else 2); an empty mask sends nothing.
    virtual unsigned Set(uint32_t mask);
    virtual unsigned Clear(uint32_t mask);
    virtual unsigned Toggle(uint32_t mask);
    virtual unsigned WriteAll(uint32_t state);
    // Lines in mask take the opposite of their level for lengthUs
    // (10..10,000,000), then return.
    virtual unsigned Pulse(uint32_t mask, uint32_t lengthUs);
    // Asks the unit what it drives now.
    virtual unsigned Refresh();

    // The state the unit last reported driving and its unit time; 4 before
    // the first report.
    unsigned GetDriven(uint32_t& state, uint64_t& timeStamp);
    // The state the application last asked for.
    unsigned GetCommanded(uint32_t& state);
    // Read-back events the unit's sequence shows missing.
    unsigned GetLostCount(uint64_t& count);

protected:
    // The driver's read-back path, caller holds the device lock: stores the
    // state and counts gaps in the 16-bit sequence. An event carrying the
    // last sequence again is a read answer and leaves the count alone.
    void UpdateDriven(uint32_t state, uint32_t changed, uint16_t sequence, uint64_t time);
    // Lines of the port's bank (32 when the port is no discrete output).
    uint32_t BankLineMask() const;
    // The argument checks of the operations: 0, or 2 for a mask beyond the
    // bank or a pulse length out of range.
    unsigned CheckMask(uint32_t mask) const;
    unsigned CheckPulse(uint32_t mask, uint32_t lengthUs) const;

    uint32_t m_Commanded = 0;
    uint32_t m_Driven = 0;
    uint64_t m_DrivenTime = 0;
    bool m_HaveDriven = false;
    uint16_t m_Sequence = 0;
    bool m_HaveSequence = false;
    uint64_t m_Lost = 0;
};
