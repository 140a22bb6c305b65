#pragma once
// A Halden's two MIL-STD-1553 channels on one bus: controller on 0, terminal on 1.

#include "UnitRig.h"
#include "support/Mil1553Messages.h"

namespace halden_test {

using Bc = CKVX_HdwKvxHaldenDevice::CMilStd1553BcService;
using Rt = CKVX_HdwKvxHaldenDevice::CMilStd1553SingleRtService;
using namespace mil1553test;

// Terminal `ta` whose transmit subaddress 2 sends `tx`.
inline CKVX_HdwMilStd1553RemoteTerminal Terminal(uint8_t ta, const Words& tx = {})
{
    CKVX_HdwMilStd1553RemoteTerminal t;
    t.TerminalAddress = ta;
    t.Transmit[2].Data = tx;
    return t;
}

// The controller on channel 0, its port open.
inline Bc* OpenBc(UnitRig& rig)
{
    auto* bc = rig.Enable<Bc>(HDW_PORT_MILSTD1553, 0, HDW_SERVICE_MIL1553_BC);
    EXPECT_EQ(rig.Open(HDW_PORT_MILSTD1553, 0), 0u);
    return bc;
}

// The terminal service on channel 1, its port open; built and run with `t` unless null.
inline Rt* OpenRt(UnitRig& rig, const CKVX_HdwMilStd1553RemoteTerminal* t)
{
    auto* rt = rig.Enable<Rt>(HDW_PORT_MILSTD1553, 1, HDW_SERVICE_MIL1553_RT);
    EXPECT_EQ(rig.Open(HDW_PORT_MILSTD1553, 1), 0u);
    if (rt && t) {
        EXPECT_EQ(rt->BuildBufferInit(*t), 0u);
        EXPECT_EQ(rt->BuildSubaddressConfiguration(*t), 0u);
        EXPECT_EQ(rt->RunRt(), 0u);
    }
    return rt;
}

// A major frame of `messages` in `minors`, run `stopAfter` times (0: until stopped).
inline CKVX_HdwMilStd1553BusController Schedule(
    std::vector<Msg> messages, std::vector<CKVX_HdwMilStd1553MinorFrame> minors, uint8_t stopAfter = 0)
{
    CKVX_HdwMilStd1553BusController c;
    c.MajorFrame.Messages = std::move(messages);
    c.MajorFrame.MinorFrames = std::move(minors);
    c.StopAfter = stopAfter;
    return c;
}

// The controller on channel 0 built, loaded and run with `c`.
inline Bc* RunSchedule(UnitRig& rig, const CKVX_HdwMilStd1553BusController& c)
{
    Bc* bc = OpenBc(rig);
    if (bc) {
        EXPECT_EQ(bc->BuildConfiguration(c), 0u);
        EXPECT_EQ(bc->LoadConfiguration(), 0u);
        EXPECT_EQ(bc->RunBc(), 0u);
    }
    return bc;
}

// Reads `service` through `read` until `count` messages are in or the deadline.
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
