#include <HdwLib/bus/HdwI2cTransfer.h>
#include <HdwLib/framework/HdwObject.h>

CKVX_HdwI2cTransfer::~CKVX_HdwI2cTransfer() = default;

unsigned CKVX_HdwI2cTransfer::Check() const
{
    const unsigned top = TenBit ? 0x3FF : 0x7F;
    if (Address > top || Write.GetLength() > MaxBytes || ReadLength > MaxBytes)
        return HDW_ERR_ARGUMENT;
    return 0;
}

void CKVX_HdwI2cTransfer::ClearResults()
{
    Result = 0;
    Fault = 0;
    Acked = 0;
    Read.DeleteAll();
    NackOnAddress = false;
    TimeStamp = 0;
}
