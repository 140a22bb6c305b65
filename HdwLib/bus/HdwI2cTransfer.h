#pragma once
// One I2C transfer as the application asks for it and as it comes back: an
// address, bytes to write, a count to read (after a repeated start when both
// are given), and the results the unit reports.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxVector.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwI2cTransfer : public CKVX_Object {
public:
    static constexpr unsigned MaxBytes = 4096; // per direction
    static constexpr uint8_t FaultTimeout = 1; // SCL held or SDA stuck
    static constexpr uint8_t FaultArbitration = 2;

    CKVX_HdwI2cTransfer() = default;
    CKVX_HdwI2cTransfer(const CKVX_HdwI2cTransfer&) = default;
    CKVX_HdwI2cTransfer(CKVX_HdwI2cTransfer&&) = default;
    CKVX_HdwI2cTransfer& operator=(const CKVX_HdwI2cTransfer&) = default;
    CKVX_HdwI2cTransfer& operator=(CKVX_HdwI2cTransfer&&) = default;
    ~CKVX_HdwI2cTransfer() override;

    // 0, or 2 for an address beyond the mode's range or a block over MaxBytes.
    unsigned Check() const;
    // Empties the results, keeping the request.
    void ClearResults();

    uint16_t Address = 0; // 0x00..0x7F, or 0x000..0x3FF with TenBit
    bool TenBit = false;
    CKVX_Uint8Vector Write; // empty with no read: an address probe
    uint32_t ReadLength = 0;
    uint32_t Tag = 0; // the application's, returned unchanged

    uint32_t Result = 0; // 0, 33 no acknowledge, 34 bus fault, 2 refused, 15 service failed
    uint8_t Fault = 0; // with 34: FaultTimeout or FaultArbitration
    uint32_t Acked = 0; // bytes written and acknowledged, the address not counted
    CKVX_Uint8Vector Read;
    bool NackOnAddress = false; // with 33: the address itself got no acknowledge
    uint64_t TimeStamp = 0; // unit time at the end of the transfer, microseconds
};
