#pragma once
// A Halden on the emulator with its two MIL-STD-1553 channels on one bus:
// a bus controller on channel 0, a remote terminal on channel 1, and
// helpers that build messages and collect what the services read.

#include "UnitRig.h"

#include <vector>

namespace halden_test {

using Bc = CKVX_HdwKvxHaldenDevice::CMilStd1553BcService;
using Rt = CKVX_HdwKvxHaldenDevice::CMilStd1553SingleRtService;
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
    Msg m;
    m.TerminalAddress = ta;
    m.Transmit = 1;
    m.Subaddress = sa;
    m.WordCount = uint8_t(words & 0x1F);
    return m;
}

inline CKVX_HdwMilStd1553MinorFrame Minor(uint32_t periodUs, std::vector<uint16_t> messages)
{
    CKVX_HdwMilStd1553MinorFrame f;
    f.PeriodUs = periodUs;
    f.Messages = std::move(messages);
    return f;
}

inline hdwsim::Emulator::Options MilOptions(bool udp, std::vector<unsigned> terminals = {})
{
    hdwsim::Emulator::Options o = EmulatorOptions(udp);
    o.MilStd1553Terminals = std::move(terminals);
    return o;
}

// Reads `service` (Read or ReadMonitor through `read`) until `count`
// messages are in or the deadline passes.
template <class S, class F>
std::vector<Msg> Collect(S* service, size_t count, F read, unsigned timeoutMs = 20000)
{
    std::vector<Msg> out;
    WaitUntil(
        [&] {
            CKVX_HdwMilStd1553Buffer b;
            unsigned n = 0;
            if ((service->*read)(b, 1000, n) == 0)
                for (unsigned i = 0; i < b.Count(); ++i)
                    out.push_back(b.At(i));
            return out.size() >= count;
        },
        timeoutMs);
    return out;
}

template <class S>
std::vector<Msg> ReadTransfers(S* service, size_t count, unsigned timeoutMs = 20000)
{
    return Collect(service, count, &S::Read, timeoutMs);
}

} // namespace halden_test
