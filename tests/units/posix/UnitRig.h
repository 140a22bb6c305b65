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

using halden_test::EnumerateLink;
using halden_test::kEchoTimeoutMs;
using halden_test::kOpenTimeoutMs;
using halden_test::WaitUntil;
using halden_test::Word;

// What a test needs to know of a unit, written from the unit's description
// (not read from the driver or the emulator, so that a wrong table in either
// shows).
struct UnitCase {
    const char* Sim;   // emulator row name
    uint64_t Code;     // device code = kind number
    std::function<CKVX_HdwDevice*()> Make;
    unsigned Atx, Arx, Can;
    bool Ethernet;
    unsigned EthernetLimit; // payload limit of one frame over Ethernet
    uint8_t AtxConfigBase, ArxConfigBase, CanConfigBase, CanPushBase;
    bool KeepAlive;
    const char* Model;
};

inline std::ostream& operator<<(std::ostream& os, const UnitCase& u) { return os << u.Sim; }

inline std::vector<UnitCase> AllUnits()
{
    return {
        {"arvane", 6, [] { return new CKVX_HdwKvxArvaneDevice; }, 8, 8, 0, true, 4000, 64, 72, 0, 0, false, "Arvane"},
        {"haldensmall", 8, [] { return new CKVX_HdwKvxHaldenSmallDevice; }, 2, 2, 1, false, 0, 20, 24, 48, 50, false,
         "Halden Small"},
        {"pellor", 10, [] { return new CKVX_HdwKvxPellorDevice; }, 16, 16, 0, true, 1345, 80, 96, 0, 0, true,
         "Pellor"},
        {"mirrow", 12, [] { return new CKVX_HdwKvxMirrowDevice; }, 2, 2, 0, false, 0, 20, 24, 0, 0, false, "Mirrow"},
        {"bexley", 4, [] { return new CKVX_HdwKvxBexleyDevice; }, 0, 0, 4, false, 0, 0, 0, 48, 56, false, "Bexley"},
        {"quillan", 11, [] { return new CKVX_HdwKvxQuillanDevice; }, 0, 0, 2, false, 0, 0, 0, 48, 50, false,
         "Quillan"},
    };
}

inline hdwsim::Emulator::Options SimOptions(bool udp, const std::string& serial = "")
{
    hdwsim::Emulator::Options o;
    o.Pty = !udp;
    o.Udp = udp;
    o.ClockStartUs = 1000;
    o.SerialNumber = serial;
    return o;
}

// One emulated unit and a manager with the unit's driver attached.
class UnitRig {
public:
    UnitRig(const UnitCase& unit, bool udp, const std::string& serial = "")
        : Unit(unit), Sim(*hdwsim::FindUnitModel(unit.Sim), SimOptions(udp, serial)), Device(unit.Make()),
          m_Udp(udp)
    {
        if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>*>(Device.get()))
            d->SetEchoTimeout(kEchoTimeoutMs);
        if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>*>(Device.get()))
            d->SetEchoTimeout(kEchoTimeoutMs);
    }
    ~UnitRig() { Manager.Stop(); }

    void StartSim()
    {
        std::string error;
        ASSERT_TRUE(Sim.Start(&error)) << error;
    }

    // Starts the emulator, enumerates it through the manager and runs.
    void Start()
    {
        StartSim();
        ASSERT_EQ(Manager.AttachDevice(Device.get()), 0u);
        CKVX_HdwManager::CInitPortDesc link(Unit.Code, LinkText());
        EnumerateLink(Manager, link);
        ASSERT_EQ(link.Result, 0u) << "no " << Unit.Sim << " answered on " << LinkText();
        ASSERT_EQ(Manager.Run(), 0u);
    }

    std::string LinkText() const
    {
        return m_Udp ? "udp:127.0.0.1:" + std::to_string(Sim.UdpPort()) : Sim.PtyPath();
    }

    CKVX_HdwPort* Port(unsigned type, unsigned num) { return Manager.GetPort(type, num); }

    template <class S>
    S* Enable(unsigned portType, unsigned num, unsigned serviceType)
    {
        CKVX_HdwPort* port = Port(portType, num);
        EXPECT_NE(port, nullptr);
        if (!port)
            return nullptr;
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(port->EnableService(serviceType, &s, nullptr), 0u);
        auto* typed = dynamic_cast<S*>(s);
        EXPECT_NE(typed, nullptr);
        return typed;
    }

    UnitCase Unit;
    hdwsim::Emulator Sim;
    std::unique_ptr<CKVX_HdwDevice> Device;
    CKVX_HdwManager Manager;

private:
    bool m_Udp;
};

// The status request builder of whichever link base the unit's driver has.
inline unsigned AttachStatusRequest(CKVX_HdwDevice* device, unsigned channel, unsigned kind)
{
    if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>*>(device))
        return d->AttachStatusRequestCommand(0, channel, kind);
    if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>*>(device))
        return d->AttachStatusRequestCommand(0, channel, kind);
    ADD_FAILURE() << "not a command-protocol unit";
    return 2;
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

// Reads from an input service until `count` items are in or 10 s pass.
template <class TItem, class TService>
std::vector<TItem> ReadAll(TService* in, size_t count)
{
    std::vector<TItem> got;
    std::vector<TItem> chunk(64);
    WaitUntil([&] {
        unsigned n = 0;
        if (in->Read(chunk.data(), unsigned(chunk.size()), n) == 0)
            got.insert(got.end(), chunk.begin(), chunk.begin() + n);
        return got.size() >= count;
    });
    return got;
}

// Opens ARINC 429 pair `ch` (transmitter and receiver of the same channel,
// wired together on the unit) at 100 kbit/s and sends `count` words through
// it; returns what the receiver read.
inline std::vector<CKVX_HdwArinc429Message> Arinc429RoundTrip(UnitRig& rig, unsigned ch, unsigned count)
{
    auto* in = rig.Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* out =
        rig.Enable<CKVX_HdwArinc429OutBufferService>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_ARINC429_OUT_BUFFER);
    if (!in || !out)
        return {};
    CKVX_HdwArinc429RxPort::CParameters rp;
    rp.BaudRate = 100000;
    rp.Timeout = kOpenTimeoutMs;
    CKVX_HdwArinc429TxPort::CParameters tp;
    tp.BaudRate = 100000;
    tp.Timeout = kOpenTimeoutMs;
    EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_RX, ch)->Open(&rp), 0u);
    EXPECT_EQ(rig.Port(HDW_PORT_ARINC429_TX, ch)->Open(&tp), 0u);
    std::vector<CKVX_HdwArinc429Message> words;
    for (unsigned i = 0; i < count; ++i)
        words.push_back(Word(0x20 + ch, i * 16 + ch, i & 3));
    EXPECT_EQ(out->Write(words.data(), count, 0), 0u);
    return ReadAll<CKVX_HdwArinc429Message>(in, count);
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
    p.Timeout = kOpenTimeoutMs;
    EXPECT_EQ(rig.Port(HDW_PORT_CAN, to)->Open(&p), 0u);
    if (to != from) {
        EXPECT_EQ(rig.Port(HDW_PORT_CAN, from)->Open(&p), 0u);
    }
    std::vector<CKVX_HdwCanMessage> frames;
    for (unsigned i = 0; i < count; ++i)
        frames.push_back(Frame(0x100 + i + from, uint8_t(i % 9), uint8_t(i), i % 2 == 1));
    EXPECT_EQ(out->Write(frames.data(), count, 0), 0u);
    return ReadAll<CKVX_HdwCanMessage>(in, count);
}

} // namespace unit_test
