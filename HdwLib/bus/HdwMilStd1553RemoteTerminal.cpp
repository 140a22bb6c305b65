#include <HdwLib/bus/HdwMilStd1553RemoteTerminal.h>
#include <HdwLib/framework/HdwObject.h>

CKVX_HdwMilStd1553RemoteTerminal::CSubaddress::~CSubaddress() = default;
CKVX_HdwMilStd1553RemoteTerminal::CModeCode::~CModeCode() = default;

namespace {

bool IsFlag(uint8_t v)
{
    return v <= 1;
}

} // namespace

CKVX_HdwMilStd1553RemoteTerminal::CKVX_HdwMilStd1553RemoteTerminal()
{
    // Subaddresses 0 and 31 are the mode-code entries.
    for (unsigned s : {0u, 31u}) {
        Receive[s].Legal = 0;
        Receive[s].BroadcastLegal = 0;
        Transmit[s].Legal = 0;
        Transmit[s].BroadcastLegal = 0;
    }
    for (CSubaddress& t : Transmit)
        t.BroadcastLegal = 0;
    // Reserved mode codes are illegal.
    for (unsigned m = 9; m < 16; ++m)
        ModeCodes[m].Legal = 0;
    for (unsigned m = 22; m < 32; ++m)
        ModeCodes[m].Legal = 0;
}

CKVX_HdwMilStd1553RemoteTerminal::~CKVX_HdwMilStd1553RemoteTerminal() = default;

unsigned CKVX_HdwMilStd1553RemoteTerminal::Check() const
{
    if (TerminalAddress > 30 && TerminalAddress != NoTerminal)
        return HDW_ERR_ARGUMENT;
    if (!IsFlag(BusA) || !IsFlag(BusB) || !IsFlag(Monitor) || !(BusA || BusB) || StatusBits > 0x1F)
        return HDW_ERR_ARGUMENT;
    if (ResponseTimeUs != 0 && (ResponseTimeUs < 4 || ResponseTimeUs > 12))
        return HDW_ERR_ARGUMENT;
    for (unsigned s = 0; s < 32; ++s) {
        for (const CSubaddress* sa : {&Receive[s], &Transmit[s]}) {
            if (!IsFlag(sa->Legal) || !IsFlag(sa->Report) || !IsFlag(sa->BroadcastLegal))
                return HDW_ERR_ARGUMENT;
            if ((s == 0 || s == 31) && sa->Legal)
                return HDW_ERR_ARGUMENT;
        }
        if (Transmit[s].Data.size() > 32 || Transmit[s].BroadcastLegal)
            return HDW_ERR_ARGUMENT;
        if (!IsFlag(ModeCodes[s].Legal) || !IsFlag(ModeCodes[s].Report))
            return HDW_ERR_ARGUMENT;
    }
    return 0;
}
