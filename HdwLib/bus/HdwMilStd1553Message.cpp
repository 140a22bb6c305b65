#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/framework/HdwObject.h>

CKVX_HdwMilStd1553Message::~CKVX_HdwMilStd1553Message() = default;
CKVX_HdwMilStd1553Buffer::~CKVX_HdwMilStd1553Buffer() = default;

namespace {

constexpr unsigned WordUs = 20;
constexpr unsigned DefaultGapUs = 4;
constexpr uint8_t FirstModeCodeWithData = 16;

uint16_t CommandWord(unsigned address, unsigned transmit, unsigned subaddress, unsigned count)
{
    return uint16_t((address & 0x1F) << 11 | (transmit & 1) << 10 | (subaddress & 0x1F) << 5 | (count & 0x1F));
}

} // namespace

unsigned CKVX_HdwMilStd1553Message::GetDataWordCount() const
{
    if (IsModeCode())
        return WordCount >= FirstModeCodeWithData ? 1u : 0u;
    return WordCount == 0 ? MaxDataWords : WordCount;
}

unsigned CKVX_HdwMilStd1553Message::GetSentWordCount() const
{
    if (RtToRt || Transmit)
        return 0;
    return GetDataWordCount();
}

uint16_t CKVX_HdwMilStd1553Message::GetCommandWord() const
{
    return CommandWord(TerminalAddress, RtToRt ? 0 : Transmit, Subaddress, WordCount);
}

uint16_t CKVX_HdwMilStd1553Message::GetCommandWord2() const
{
    return RtToRt ? CommandWord(TxTerminalAddress, 1, TxSubaddress, WordCount) : uint16_t(0);
}

unsigned CKVX_HdwMilStd1553Message::Check() const
{
    if (TerminalAddress > 31 || Transmit > 1 || Subaddress > 31 || WordCount > 31 || RtToRt > 1 ||
        TxTerminalAddress > 31 || TxSubaddress > 31 || Bus > 1 || Retry > RetryOtherBus || Data.size() > MaxDataWords)
        return HDW_ERR_ARGUMENT;
    if (Data.size() != GetSentWordCount())
        return HDW_ERR_ARGUMENT; // also data given to a mode code without one
    if (RtToRt) {
        const bool txModeCode = TxSubaddress == 0 || TxSubaddress == 31;
        if (Transmit || IsModeCode() || txModeCode || TxTerminalAddress == BroadcastAddress ||
            TxTerminalAddress == TerminalAddress)
            return HDW_ERR_ARGUMENT;
        return 0;
    }
    if (IsBroadcast() && Transmit) {
        // Nobody may answer a broadcast with data; mode codes without data
        // (synchronize, reset ...) may go to all terminals.
        if (!IsModeCode() || WordCount >= FirstModeCodeWithData)
            return HDW_ERR_ARGUMENT;
    }
    return 0;
}

unsigned CKVX_HdwMilStd1553Message::GetBusTimeUs(unsigned responseTimeoutUs) const
{
    const unsigned n = GetDataWordCount();
    const bool broadcast = IsBroadcast();
    // Per response: the terminal's response time plus its status word.
    const unsigned response = responseTimeoutUs + WordUs;
    unsigned t = 0;
    if (RtToRt)
        t = 2 * WordUs + response + n * WordUs + (broadcast ? 0 : response);
    else if (IsModeCode())
        t = WordUs + n * WordUs + (broadcast ? 0 : response);
    else if (Transmit)
        t = WordUs + response + n * WordUs;
    else
        t = (1 + n) * WordUs + (broadcast ? 0 : response);
    t += GapUs == 0 ? DefaultGapUs : GapUs;
    return Retry != RetryNone ? 2 * t : t;
}
