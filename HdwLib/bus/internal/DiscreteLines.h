#pragma once
// What the discrete ports and services share: the bank's width as a mask,
// and Open with the parameters checked against the bank before they are
// installed.

#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

namespace hdw::bus {

// A bank has 1..32 lines; a width outside is taken as the nearest.
inline unsigned BankWidth(unsigned lineCount)
{
    return lineCount == 0 ? 1u : (lineCount > 32 ? 32u : lineCount);
}

// Bit n set for each line n of a bank of `lineCount` lines.
inline uint32_t LineMaskOf(unsigned lineCount)
{
    return lineCount >= 32 ? 0xFFFFFFFFu : (1u << lineCount) - 1u;
}

// True when `bits` names only lines of the bank.
inline bool WithinBank(uint32_t bits, uint32_t lineMask)
{
    return (bits & ~lineMask) == 0;
}

// Events of a bank carry a 16-bit count of the events so far: the number
// missed between the last one seen and `sequence` (0 before a first one is
// known), which then becomes the last one seen.
inline uint32_t TakeSequenceGap(bool& haveLast, uint16_t& last, uint16_t sequence)
{
    const uint32_t gap = haveLast ? uint16_t(sequence - last - 1u) : 0u;
    haveLast = true;
    last = sequence;
    return gap;
}

// Open of a discrete port `Port`: a parameter object of another class, or
// one the port's CheckParameters refuses, answers 2 and keeps the old ones.
template <typename Port>
unsigned OpenDiscrete(Port& port, typename Port::CParameters& stored, CKVX_HdwPort::CParameters* params)
{
    if (params) {
        const auto* own = dynamic_cast<const typename Port::CParameters*>(params);
        if (!own || port.CheckParameters(*own) != 0)
            return HDW_ERR_ARGUMENT;
    }
    return OpenWithParameters(port, stored, params);
}

} // namespace hdw::bus
