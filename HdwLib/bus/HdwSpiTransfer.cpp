#include <HdwLib/bus/HdwSpiTransfer.h>
#include <HdwLib/framework/HdwObject.h>

CKVX_HdwSpiTransfer::~CKVX_HdwSpiTransfer() = default;

unsigned CKVX_HdwSpiTransfer::Check(unsigned wordBits) const
{
    const unsigned n = Out.GetLength();
    if (n == 0 || n > MaxBytes)
        return HDW_ERR_ARGUMENT;
    if (wordBits > 8 && n % 2 != 0)
        return HDW_ERR_ARGUMENT;
    return 0;
}
