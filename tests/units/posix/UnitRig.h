#pragma once
// Any command-protocol unit emulated and enumerated through the whole
// library, described by a table row (UnitCase) so that one set of tests runs
// against every unit.

#include "HaldenRig.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace unit_test {

using halden_test::WaitUntil;
using halden_test::Word;

// What a test needs to know of a unit, written from the unit's description
// (not read from the driver or the emulator, so that a wrong table in either
// shows).
struct UnitCase {
    const char* Sim; // emulator row name
    uint64_t Code; // device code = kind number
    std::function<CKVX_HdwDevice*()> Make;
    unsigned Atx, Arx, Can, Uart, Mil;
    bool Ethernet;
    unsigned EthernetLimit; // payload limit of one frame over Ethernet
    uint8_t AtxConfigBase, ArxConfigBase, CanConfigBase, CanPushBase;
    bool KeepAlive;
    const char* Model;
};

inline std::ostream& operator<<(std::ostream& os, const UnitCase& u)
{
    return os << u.Sim;
}

inline std::vector<UnitCase> AllUnits()
{
    return {
        {"halden", 3, [] { return new CKVX_HdwKvxHaldenDevice; }, 4, 4, 2, 2, 2, true, 1345, 20, 24, 48, 50, false,
            "Halden"},
        {"arvane", 6, [] { return new CKVX_HdwKvxArvaneDevice; }, 8, 8, 0, 0, 0, true, 4000, 64, 72, 0, 0, false,
            "Arvane"},
        {"haldensmall", 8, [] { return new CKVX_HdwKvxHaldenSmallDevice; }, 2, 2, 1, 0, 0, false, 0, 20, 24, 48, 50,
            false, "Halden Small"},
        {"pellor", 10, [] { return new CKVX_HdwKvxPellorDevice; }, 16, 16, 0, 0, 0, true, 1345, 80, 96, 0, 0, true,
            "Pellor"},
        {"mirrow", 12, [] { return new CKVX_HdwKvxMirrowDevice; }, 2, 2, 0, 0, 0, false, 0, 20, 24, 0, 0, false,
            "Mirrow"},
        {"bexley", 4, [] { return new CKVX_HdwKvxBexleyDevice; }, 0, 0, 4, 0, 0, false, 0, 0, 0, 48, 56, false,
            "Bexley"},
        {"quillan", 11, [] { return new CKVX_HdwKvxQuillanDevice; }, 0, 0, 2, 0, 0, false, 0, 0, 0, 48, 50, false,
            "Quillan"},
    };
}

inline UnitCase UnitNamed(const std::string& name)
{
    for (const UnitCase& u : AllUnits())
        if (name == u.Sim)
            return u;
    ADD_FAILURE() << "no unit " << name;
    return AllUnits().front();
}

using halden_test::EmulatorOptions;

// One emulated unit and a manager with the unit's driver attached.
class UnitRig : public halden_test::BasicRig<CKVX_HdwDevice> {
public:
    UnitRig(const UnitCase& unit, bool udp, const std::string& serial = "")
        : UnitRig(unit, EmulatorOptions(udp, false, serial))
    {}
    UnitRig(const UnitCase& unit, const hdwsim::Emulator::Options& options)
        : BasicRig(*hdwsim::FindUnitModel(unit.Sim), unit.Make(), unit.Code, options),
          Unit(unit)
    {}

    UnitCase Unit;
};

// The status request builder of whichever link base the unit's driver has.
inline unsigned AttachStatusRequest(CKVX_HdwDevice* device, unsigned channel, unsigned kind)
{
    unsigned rc = 2;
    EXPECT_TRUE(
        halden_test::WithCommandDevice(device, [&](auto& d) { rc = d.AttachStatusRequestCommand(0, channel, kind); }));
    return rc;
}

inline CKVX_HdwCanMessage Frame(uint32_t id, uint8_t dlc, uint8_t seed, bool extended = false)
{
    CKVX_HdwCanMessage m;
    m.Identifier = id;
    m.Extended = extended ? 1 : 0;
    m.Dlc = dlc;
    for (unsigned i = 0; i < 8; ++i)
        m.Data[i] = i < dlc ? uint8_t(seed + i) : 0;
    return m;
}

using halden_test::ReadAll;

// Opens ARINC 429 pair `ch` at 100 kbit/s and sends `count` words through
// it; returns what the receiver read.
inline std::vector<CKVX_HdwArinc429Message> Arinc429RoundTrip(UnitRig& rig, unsigned ch, unsigned count)
{
    const auto pair = rig.OpenArinc429Pair(ch, 100000);
    if (!pair.In || !pair.Out)
        return {};
    std::vector<CKVX_HdwArinc429Message> words;
    for (unsigned i = 0; i < count; ++i)
        words.push_back(Word(0x20 + ch, i * 16 + ch, i & 3));
    EXPECT_EQ(pair.Out->Write(words.data(), count, 0), 0u);
    return ReadAll<CKVX_HdwArinc429Message>(pair.In, count);
}

// The i-th frame sent from CAN channel `from`: every length, standard and
// extended identifiers up to the highest, some remote frames.
inline CKVX_HdwCanMessage BusFrame(unsigned from, unsigned i)
{
    const bool extended = i % 2 == 1;
    CKVX_HdwCanMessage m = Frame((extended ? 0x1FFFFFFF : 0x7FF) - i - from, uint8_t(i % 9), uint8_t(i), extended);
    m.Rtr = i % 5 == 4 ? 1 : 0;
    return m;
}

// Opens CAN channels `from` and `to` (sharing a bus on the unit; the same
// channel on a unit with one) at 500 kbit/s and sends `count` frames.
inline std::vector<CKVX_HdwCanMessage> CanRoundTrip(UnitRig& rig, unsigned from, unsigned to, unsigned count)
{
    auto* out = rig.Enable<CKVX_HdwCanOutBufferService>(HDW_PORT_CAN, from, HDW_SERVICE_CAN_OUT_BUFFER);
    auto* in = rig.Enable<CKVX_HdwCanInBufferService>(HDW_PORT_CAN, to, HDW_SERVICE_CAN_IN_BUFFER);
    if (!in || !out)
        return {};
    CKVX_HdwCanPort::CParameters p;
    p.BitRate = 500000;
    EXPECT_EQ(rig.Open(HDW_PORT_CAN, to, p), 0u);
    if (to != from) {
        EXPECT_EQ(rig.Open(HDW_PORT_CAN, from, p), 0u);
    }
    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < count; ++i)
        frames.push_back(BusFrame(from, i));
    EXPECT_EQ(out->Write(frames.data(), count, 0), 0u);
    return ReadAll<CKVX_HdwCanMessage>(in, count);
}

} // namespace unit_test
