#pragma once
// One SPI transfer: a block shifted out on one chip select while as many
// bytes are shifted in. Words of more than 8 bits take two bytes each, low
// byte first, so the block's length depends on the port's word size.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxVector.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwSpiTransfer : public CKVX_Object {
public:
    static constexpr unsigned MaxBytes = 4096;
    static constexpr uint8_t PortChipSelect = 0xFF; // the port's ChipSelect

    CKVX_HdwSpiTransfer() = default;
    CKVX_HdwSpiTransfer(const CKVX_HdwSpiTransfer&) = default;
    CKVX_HdwSpiTransfer(CKVX_HdwSpiTransfer&&) = default;
    CKVX_HdwSpiTransfer& operator=(const CKVX_HdwSpiTransfer&) = default;
    CKVX_HdwSpiTransfer& operator=(CKVX_HdwSpiTransfer&&) = default;
    ~CKVX_HdwSpiTransfer() override;

    // 0, or 2 for an empty block, one over MaxBytes, or (wordBits 9..16) an
    // odd number of bytes.
    unsigned Check(unsigned wordBits = 8) const;

    uint8_t ChipSelect = PortChipSelect;
    CKVX_Uint8Vector Out;
    bool KeepSelected = false; // chip select stays asserted for the next transfer
    uint32_t Tag = 0;

    uint32_t Result = 0; // 0, 2 refused by the unit, 15 service failed
    CKVX_Uint8Vector In; // as many bytes as Out
    uint64_t TimeStamp = 0;
};
