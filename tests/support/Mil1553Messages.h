#pragma once
// MIL-STD-1553 messages and minor frames as the tests write them.

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <vector>

namespace mil1553test {

using Msg = CKVX_HdwMilStd1553Message;
using Words = std::vector<uint16_t>;

inline Msg BcToRt(uint8_t ta, uint8_t sa, const Words& data)
{
    Msg m;
    m.TerminalAddress = ta;
    m.Subaddress = sa;
    m.WordCount = uint8_t(data.size() & 0x1F);
    m.Data = data;
    return m;
}

inline Msg RtToBc(uint8_t ta, uint8_t sa, unsigned words)
{
    Msg m = BcToRt(ta, sa, {});
    m.Transmit = 1;
    m.WordCount = uint8_t(words & 0x1F);
    return m;
}

inline Msg ModeCode(uint8_t ta, bool transmit, uint8_t code)
{
    Msg m = BcToRt(ta, 0, {});
    m.Transmit = transmit ? 1 : 0;
    m.WordCount = code;
    return m;
}

// RT-to-RT: terminal `rx` subaddress `rsa` receives `words` from `tx`/`tsa`.
inline Msg RtToRt(uint8_t rx, uint8_t rsa, uint8_t tx, uint8_t tsa, unsigned words)
{
    Msg m = RtToBc(rx, rsa, words);
    m.Transmit = 0;
    m.RtToRt = 1;
    m.TxTerminalAddress = tx;
    m.TxSubaddress = tsa;
    return m;
}

inline CKVX_HdwMilStd1553MinorFrame Minor(uint32_t periodUs, std::vector<uint16_t> messages)
{
    CKVX_HdwMilStd1553MinorFrame f;
    f.PeriodUs = periodUs;
    f.Messages = std::move(messages);
    return f;
}

} // namespace mil1553test
