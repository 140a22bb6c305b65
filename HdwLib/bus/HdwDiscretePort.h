#pragma once
// What a bank of discrete lines is, input or output: its width (set by the
// driver from its unit, 1..32 lines) and the mask of its lines. Bit n of
// every state, mask and value word is line n; the input and output ports
// add their parameters.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwDiscretePort : public CKVX_HdwPort {
public:
    static constexpr unsigned MaxLines = 32;

    ~CKVX_HdwDiscretePort() override;

    unsigned GetLineCount() const { return m_LineCount; }
    // Bits of the lines of the bank.
    uint32_t GetLineMask() const;

protected:
    // `lineCount` 0 is taken as 1, above 32 as 32.
    CKVX_HdwDiscretePort(
        CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId, unsigned lineCount);

    unsigned m_LineCount;
};
