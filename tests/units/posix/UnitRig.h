#pragma once
// An emulated unit reached through the whole library, on a pseudo-terminal or UDP on 127.0.0.1.
#include <HdwLib/HdwLib.h>
#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include "support/Mil1553Messages.h"
#include "support/Wait.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace halden_test {

using testsupport::WaitUntil;

// Generous echo and open time-outs (a pseudo-terminal can be 800 ms late); tests of those time-outs set their own.
constexpr unsigned kEchoTimeoutMs = 5000;
constexpr unsigned kOpenTimeoutMs = 10000;

// Calls `f` with the driver as a command-protocol unit; false when it is not one.
template <class F>
bool WithCommandDevice(CKVX_HdwDevice* device, F&& f)
{
    auto* d = dynamic_cast<CKVX_HdwKvxCommandUnit*>(device);
    if (d)
        f(*d);
    return d != nullptr;
}

// The unit on a pseudo-terminal or UDP, its buses paced or not, with the MIL-STD-1553 `terminals` it simulates.
inline hdwsim::Emulator::Options EmulatorOptions(bool udp, bool pacing = false, std::vector<unsigned> terminals = {})
{
    hdwsim::Emulator::Options o;
    std::tie(o.Pty, o.Udp, o.Pacing, o.ClockStartUs) = std::tuple(!udp, udp, pacing, 1000u);
    o.MilStd1553Terminals = std::move(terminals);
    return o;
}

// A unit as its description gives it (not read from driver or emulator: a wrong table shows).
struct UnitCase {
    const char* Sim; // emulator row name
    uint64_t Code; // device code = kind number
    std::function<CKVX_HdwDevice*()> Make;
    unsigned Atx, Arx, Can;
    bool Ethernet;
    unsigned EthernetLimit; // payload limit of one frame over Ethernet
    uint8_t AtxConfigBase, ArxConfigBase, CanConfigBase, CanPushBase;
    bool KeepAlive;
};

// Names the unit in failure messages and ctest's log instead of the row's bytes.
inline void PrintTo(const UnitCase& u, std::ostream* os)
{
    *os << u.Sim;
}

template <class D>
CKVX_HdwDevice* Create()
{
    return new D;
}

inline std::vector<UnitCase> AllUnits()
{
    return {
        {"halden", 3, Create<CKVX_HdwKvxHaldenDevice>, 4, 4, 2, true, 1345, 20, 24, 48, 50, false},
        {"arvane", 6, Create<CKVX_HdwKvxArvaneDevice>, 8, 8, 0, true, 4000, 64, 72, 0, 0, false},
        {"haldensmall", 8, Create<CKVX_HdwKvxHaldenSmallDevice>, 2, 2, 1, false, 0, 20, 24, 48, 50, false},
        {"pellor", 10, Create<CKVX_HdwKvxPellorDevice>, 16, 16, 0, true, 1345, 80, 96, 0, 0, true},
        {"mirrow", 12, Create<CKVX_HdwKvxMirrowDevice>, 2, 2, 0, false, 0, 20, 24, 0, 0, false},
        {"bexley", 4, Create<CKVX_HdwKvxBexleyDevice>, 0, 0, 4, false, 0, 0, 0, 48, 56, false},
        {"quillan", 11, Create<CKVX_HdwKvxQuillanDevice>, 0, 0, 2, false, 0, 0, 0, 48, 50, false},
    };
}

// A unit of the table, or one without ARINC 429 and CAN, which the table's tests leave out.
inline UnitCase UnitNamed(const std::string& name)
{
    std::vector<UnitCase> all = AllUnits();
    all.push_back({"travin", 5, Create<CKVX_HdwKvxTravinDevice>, 0, 0, 0, false, 0, 0, 0, 0, 0, false});
    all.push_back({"wendal", 7, Create<CKVX_HdwKvxWendalDevice>, 0, 0, 0, false, 0, 0, 0, 0, 0, false});
    all.push_back({"sorrel", 9, Create<CKVX_HdwKvxSorrelDevice>, 0, 0, 0, false, 0, 0, 0, 0, 0, false});
    for (const UnitCase& u : all)
        if (name == u.Sim)
            return u;
    ADD_FAILURE() << "no unit " << name;
    return AllUnits().front();
}

// Enumerates `links`, again when a unit missed the probe's fixed 200 ms.
inline void EnumerateLinks(CKVX_HdwManager& manager, CKVX_HdwManager::CInitPortDesc* links, unsigned count)
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        ASSERT_EQ(manager.Enumerate(links, count, CKVX_HdwManager::EnumerateNoScan), 0u);
        if (std::all_of(links, links + count, [](const auto& link) { return link.Result == 0; }))
            return;
    }
    FAIL() << "a unit did not answer on " << links[0].Link.c_str();
}

class UnitRig {
public:
    UnitRig(const UnitCase& unit, bool udp) : UnitRig(unit, EmulatorOptions(udp)) {}
    UnitRig(const UnitCase& unit, const hdwsim::Emulator::Options& o)
        : Sim(*hdwsim::FindUnitModel(unit.Sim), o),
          Device(unit.Make()),
          Unit(unit),
          m_Udp(o.Udp)
    {
        WithCommandDevice(Device.get(), [](auto& d) { d.SetEchoTimeout(kEchoTimeoutMs); });
    }
    ~UnitRig() { Manager.Stop(); }

    void StartSim()
    {
        std::string error;
        ASSERT_TRUE(Sim.Start(&error)) << error;
    }

    void SetEchoTimeout(unsigned ms)
    {
        EXPECT_TRUE(WithCommandDevice(Device.get(), [ms](auto& d) { d.SetEchoTimeout(ms); }));
    }

    // Starts the emulator, enumerates it (by its link path if any) with Reconnect set, and runs.
    void Start()
    {
        StartSim();
        ASSERT_EQ(Manager.AttachDevice(Device.get()), 0u);
        CKVX_HdwManager::CParameters mp;
        ASSERT_EQ(Manager.GetParameters(mp), 0u);
        EXPECT_FALSE(mp.Reconnect); // off unless asked for
        mp.Reconnect = Reconnect;
        ASSERT_EQ(Manager.SetParameters(mp), 0u);
        ASSERT_NO_FATAL_FAILURE(Enumerate());
        ASSERT_EQ(Manager.Run(), 0u);
    }

    void Enumerate()
    {
        const std::string path = Sim.LinkPath().empty() ? Sim.PtyPath() : Sim.LinkPath();
        CKVX_HdwManager::CInitPortDesc link(Unit.Code, m_Udp ? "udp:127.0.0.1:" + std::to_string(Sim.UdpPort()) : path);
        EnumerateLinks(Manager, &link, 1);
    }

    CKVX_HdwPort* Port(unsigned type, unsigned num) { return Manager.GetPort(type, num); }

    template <class P>
    unsigned Open(unsigned type, unsigned num, P params, unsigned timeoutMs = kOpenTimeoutMs)
    {
        params.Timeout = timeoutMs;
        return Port(type, num)->Open(&params);
    }
    unsigned Open(unsigned type, unsigned num)
    {
        switch (type) {
        case HDW_PORT_ARINC429_RX: return Open(type, num, CKVX_HdwArinc429RxPort::CParameters());
        case HDW_PORT_ARINC429_TX: return Open(type, num, CKVX_HdwArinc429TxPort::CParameters());
        case HDW_PORT_CAN: return Open(type, num, CKVX_HdwCanPort::CParameters());
        case HDW_PORT_MILSTD1553: return Open(type, num, CKVX_HdwMilStd1553Port::CParameters());
        case HDW_PORT_I2C: return Open(type, num, CKVX_HdwI2cPort::CParameters());
        case HDW_PORT_SPI: return Open(type, num, CKVX_HdwSpiPort::CParameters());
        default: ADD_FAILURE() << "no port type " << type; return 2;
        }
    }

    template <class S>
    S* Enable(unsigned portType, unsigned num, unsigned serviceType, CKVX_HdwService::CParameters* params = nullptr)
    {
        CKVX_HdwPort* port = Port(portType, num);
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(port ? port->EnableService(serviceType, &s, params) : ~0u, 0u) << "port " << portType << "/" << num;
        auto* typed = dynamic_cast<S*>(s);
        EXPECT_NE(typed, nullptr);
        return typed;
    }
    // Enables a service, then opens its port (with `params`, or the defaults).
    template <class S, class P = std::nullptr_t>
    S* OpenWith(unsigned portType, unsigned num, unsigned serviceType, P params = nullptr,
        CKVX_HdwService::CParameters* serviceParams = nullptr)
    {
        S* s = Enable<S>(portType, num, serviceType, serviceParams);
        if constexpr (std::is_null_pointer_v<P>)
            EXPECT_EQ(Open(portType, num), 0u);
        else
            EXPECT_EQ(Open(portType, num, params), 0u);
        return s;
    }

    // The buffer services of the wired ARINC 429 pair `ch`, open at `rate` (0: the default).
    struct Arinc429Pair {
        CKVX_HdwArinc429InBufferService* In = nullptr;
        CKVX_HdwArinc429OutBufferService* Out = nullptr;
    };
    Arinc429Pair OpenArinc429Pair(unsigned ch, uint32_t rate = 0)
    {
        Arinc429Pair c;
        c.In = Enable<CKVX_HdwArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_IN_BUFFER);
        c.Out = Enable<CKVX_HdwArinc429OutBufferService>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_ARINC429_OUT_BUFFER);
        if (!c.In || !c.Out) // already reported; no ports to open
            return {};
        CKVX_HdwArinc429RxPort::CParameters rp;
        CKVX_HdwArinc429TxPort::CParameters tp;
        if (rate)
            rp.BaudRate = tp.BaudRate = rate;
        EXPECT_EQ(Open(HDW_PORT_ARINC429_RX, ch, rp), 0u);
        EXPECT_EQ(Open(HDW_PORT_ARINC429_TX, ch, tp), 0u);
        return c;
    }

    hdwsim::Emulator Sim;
    std::unique_ptr<CKVX_HdwDevice> Device;
    CKVX_HdwManager Manager;
    UnitCase Unit;
    bool Reconnect = false; // the manager's reconnect switch, set before Start

private:
    bool m_Udp;
};

// A Halden whose deadlines read a clock the test steps (ms; 0: the system's).
class SteppedHaldenDevice : public CKVX_HdwKvxHaldenDevice {
public:
    uint64_t GetUnitTime() override
    {
        const uint64_t c = Now.load();
        return c ? c : CKVX_HdwKvxHaldenDevice::GetUnitTime();
    }
    std::atomic<uint64_t> Now{0};
};

inline UnitCase SteppedHalden()
{
    UnitCase u = UnitNamed("halden");
    u.Make = [] { return new SteppedHaldenDevice; };
    return u;
}
inline std::atomic<uint64_t>& ClockOf(UnitRig& rig)
{
    return dynamic_cast<SteppedHaldenDevice&>(*rig.Device).Now;
}

// Appends what input service `in` holds to `got`.
template <class TItem, class TService>
void TakeAll(TService* in, std::vector<TItem>& got)
{
    TItem chunk[256];
    unsigned n = 0;
    while (in->Read(chunk, 256, n) == 0 && n > 0)
        got.insert(got.end(), chunk, chunk + n);
}

// Reads from an input service until `count` items are in or the deadline passes.
template <class TItem, class TService>
std::vector<TItem> ReadAll(TService* in, size_t count, unsigned timeoutMs = 10000)
{
    std::vector<TItem> got;
    WaitUntil([&] { return TakeAll(in, got), got.size() >= count; }, timeoutMs);
    return got;
}

template <class S>
bool Idle(S* out)
{
    unsigned pending = 1;
    if constexpr (requires { out->GetBytesToBeWritten(pending); })
        return out->GetBytesToBeWritten(pending) == 0 && pending == 0;
    else
        return out->GetMessagesToBeWritten(pending) == 0 && pending == 0;
}

inline CKVX_HdwArinc429Message Word(unsigned label, unsigned data, unsigned sdi = 0, unsigned ssm = 0)
{
    CKVX_HdwArinc429Message m;
    std::tie(m.Label, m.Data, m.Sdi, m.Ssm) = std::tuple(uint8_t(label), data & 0x7FFFF, uint8_t(sdi), uint8_t(ssm));
    m.SetParity(0);
    return m;
}

// Bytes that differ per stream and position: a lost or swapped block shows.
inline std::vector<uint8_t> Pattern(size_t size, uint32_t seed)
{
    std::vector<uint8_t> out(size);
    std::generate(out.begin(), out.end(), [random = std::mt19937(seed)]() mutable { return uint8_t(random()); });
    return out;
}

// `count` words of `label`, their data counting up from `first`.
inline std::vector<CKVX_HdwArinc429Message> Sequence(unsigned label, unsigned count, unsigned first = 0)
{
    std::vector<CKVX_HdwArinc429Message> words;
    for (unsigned i = 0; i < count; ++i)
        words.push_back(Word(label, first + i));
    return words;
}

inline CKVX_HdwI2cTransfer I2c(
    uint16_t address, const std::vector<uint8_t>& write, uint32_t read = 0, bool tenBit = false)
{
    CKVX_HdwI2cTransfer t;
    std::tie(t.Address, t.TenBit, t.ReadLength) = std::tuple(address, tenBit, read);
    t.Write = CKVX_Uint8Vector(write.data(), unsigned(write.size()));
    return t;
}

inline CKVX_HdwSpiTransfer Spi(
    const std::vector<uint8_t>& out, uint8_t chipSelect = CKVX_HdwSpiTransfer::PortChipSelect)
{
    CKVX_HdwSpiTransfer t;
    t.Out = CKVX_Uint8Vector(out.data(), unsigned(out.size()));
    t.ChipSelect = chipSelect;
    return t;
}

inline CKVX_HdwCanMessage Frame(uint32_t id, uint8_t dlc, uint8_t seed, bool extended = false)
{
    CKVX_HdwCanMessage m;
    std::tie(m.Identifier, m.Extended, m.Dlc) = std::tuple(id, extended ? 1 : 0, dlc);
    for (unsigned i = 0; i < 8; ++i)
        m.Data[i] = i < dlc ? uint8_t(seed + i) : 0;
    return m;
}

// The i-th word sent on ARINC 429 pair `ch`: labels, SDI and SSM vary.
inline CKVX_HdwArinc429Message PairWord(unsigned ch, unsigned i)
{
    return Word(0x20 + ch + (i & 0xC0), i * 16 + ch, i & 3, (i >> 2) & 3);
}

// Writes to every pair at 100 kbit/s before reading any: each receiver reads its words in order, rising
// stamps, all through its pair on `sim` (or the rig's), configured with the unit's own codes, none dropped.
inline void ExpectArinc429RoundTrip(
    UnitRig& rig, const std::vector<std::pair<unsigned, unsigned>>& channelCounts, hdwsim::Emulator* sim = nullptr)
{
    const UnitCase& u = rig.Unit;
    std::vector<UnitRig::Arinc429Pair> pairs;
    for (const auto& [ch, count] : channelCounts) {
        pairs.push_back(rig.OpenArinc429Pair(ch, 100000));
        ASSERT_TRUE(pairs.back().In && pairs.back().Out) << "channel " << ch;
    }
    for (size_t k = 0; k < pairs.size(); ++k) {
        const auto [ch, count] = channelCounts[k];
        std::vector<CKVX_HdwArinc429Message> words;
        for (unsigned i = 0; i < count; ++i)
            words.push_back(PairWord(ch, i));
        ASSERT_EQ(pairs[k].Out->Write(words.data(), count, 0), 0u);
    }
    for (size_t k = 0; k < pairs.size(); ++k) {
        const auto [ch, count] = channelCounts[k];
        const auto got = ReadAll<CKVX_HdwArinc429Message>(pairs[k].In, count, 30000);
        ASSERT_EQ(got.size(), count) << "channel " << ch;
        for (unsigned i = 0; i < count; ++i) {
            ASSERT_EQ(got[i], PairWord(ch, i)) << "channel " << ch << " word " << i;
            ASSERT_GE(got[i].TimeStamp, i > 0 ? got[i - 1].TimeStamp : 1); // the emulator's clock starts at 1000 us
        }
        EXPECT_TRUE(WaitUntil([&] { return Idle(pairs[k].Out); }));
        const hdwsim::Counters c = (sim ? *sim : rig.Sim).GetCounters();
        EXPECT_EQ(
            std::tuple(c.A429Pushed[ch], c.A429Received[ch], c.A429FifoDropped[ch]), std::tuple(count, count, 0u));
        EXPECT_GE(c.CommandsByCode[u.AtxConfigBase + ch], 1u);
        EXPECT_GE(c.CommandsByCode[u.ArxConfigBase + ch], 1u);
    }
}

// A Halden's two MIL-STD-1553 channels on one bus: controller on 0, terminal on 1.
using namespace mil1553test;
using Bc = CKVX_HdwKvxHaldenDevice::CMilStd1553BcService;
using Rt = CKVX_HdwKvxHaldenDevice::CMilStd1553SingleRtService;

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

namespace unit_test = halden_test;
