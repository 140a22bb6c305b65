#pragma once
// An emulated Halden unit and an application that talks to it through the
// whole library: manager, driver, ports, services, frames on a
// pseudo-terminal or over UDP on 127.0.0.1.

#include <HdwLib/HdwLib.h>
#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include "support/Wait.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace halden_test {

using testsupport::WaitUntil;

// Generous time-outs for a loaded machine, where bytes crossing a
// pseudo-terminal between threads can come 200 to 800 ms late: the driver's
// echo time-out and the ports' open time-out. Tests of those time-outs set
// their own.
constexpr unsigned kEchoTimeoutMs = 5000;
constexpr unsigned kOpenTimeoutMs = 10000;

// Calls `f` with the driver as the command-protocol device of whichever link
// base it has; false when it is neither.
template <class F>
bool WithCommandDevice(CKVX_HdwDevice* device, F&& f)
{
    if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>*>(device)) {
        f(*d);
        return true;
    }
    if (auto* d = dynamic_cast<CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>*>(device)) {
        f(*d);
        return true;
    }
    return false;
}

inline hdwsim::Emulator::Options EmulatorOptions(bool udp, bool pacing = false, const std::string& serial = "")
{
    hdwsim::Emulator::Options o;
    o.Pty = !udp;
    o.Udp = udp;
    o.Pacing = pacing;
    o.ClockStartUs = 1000;
    o.SerialNumber = serial;
    return o;
}

// An emulated unit and the application side: a manager with the unit's
// driver (`device`, device code `code`) attached.
template <class TDevice>
class BasicRig {
public:
    BasicRig(const hdwsim::UnitModel& model, TDevice* device, uint64_t code, const hdwsim::Emulator::Options& o)
        : Sim(model, o),
          Device(device),
          m_Code(code),
          m_Udp(o.Udp)
    {
        SetEchoTimeout(kEchoTimeoutMs);
    }
    ~BasicRig() { Manager.Stop(); }

    void StartSim()
    {
        std::string error;
        ASSERT_TRUE(Sim.Start(&error)) << error;
    }

    void SetEchoTimeout(unsigned ms)
    {
        EXPECT_TRUE(WithCommandDevice(Device.get(), [ms](auto& d) { d.SetEchoTimeout(ms); }));
    }

    // Starts the emulator, enumerates it through the manager and runs.
    void Start()
    {
        StartSim();
        ASSERT_EQ(Manager.AttachDevice(Device.get()), 0u);
        ASSERT_NO_FATAL_FAILURE(Enumerate());
        ASSERT_EQ(Manager.Run(), 0u);
    }

    // Enumerates the unit's link, a few times when no unit answered: the
    // probe waits a fixed 200 ms, which a loaded machine can miss.
    void Enumerate()
    {
        CKVX_HdwManager::CInitPortDesc link(m_Code, LinkText());
        for (int attempt = 0; attempt < 5; ++attempt) {
            ASSERT_EQ(Manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan), 0u);
            if (link.Result == 0)
                return;
        }
        FAIL() << "no unit answered on " << LinkText();
    }

    std::string LinkText() const { return m_Udp ? "udp:127.0.0.1:" + std::to_string(Sim.UdpPort()) : Sim.PtyPath(); }

    CKVX_HdwPort* Port(unsigned type, unsigned num) { return Manager.GetPort(type, num); }

    // Opens a port with `params` and the generous open time-out.
    template <class P>
    unsigned Open(unsigned type, unsigned num, P params, unsigned timeoutMs = kOpenTimeoutMs)
    {
        params.Timeout = timeoutMs;
        return Port(type, num)->Open(&params);
    }
    // The same with the port's default settings.
    unsigned Open(unsigned type, unsigned num)
    {
        switch (type) {
        case HDW_PORT_ARINC429_RX: return Open(type, num, CKVX_HdwArinc429RxPort::CParameters());
        case HDW_PORT_ARINC429_TX: return Open(type, num, CKVX_HdwArinc429TxPort::CParameters());
        case HDW_PORT_CAN: return Open(type, num, CKVX_HdwCanPort::CParameters());
        case HDW_PORT_UART: return Open(type, num, CKVX_HdwUartPort::CParameters());
        case HDW_PORT_MILSTD1553: return Open(type, num, CKVX_HdwMilStd1553Port::CParameters());
        default: ADD_FAILURE() << "no port type " << type; return 2;
        }
    }

    template <class S>
    S* Enable(unsigned portType, unsigned num, unsigned serviceType, CKVX_HdwService::CParameters* params = nullptr)
    {
        CKVX_HdwPort* port = Port(portType, num);
        EXPECT_NE(port, nullptr);
        if (!port)
            return nullptr;
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(port->EnableService(serviceType, &s, params), 0u);
        auto* typed = dynamic_cast<S*>(s);
        EXPECT_NE(typed, nullptr);
        return typed;
    }

    // Enables the buffer services of ARINC 429 pair `ch` (transmitter and
    // receiver wired together on the unit) and opens both ports at `rate`
    // (0: the ports' defaults).
    struct Arinc429Pair {
        CKVX_HdwArinc429InBufferService* In = nullptr;
        CKVX_HdwArinc429OutBufferService* Out = nullptr;
    };
    template <class TIn = CKVX_HdwArinc429InBufferService, class TOut = CKVX_HdwArinc429OutBufferService>
    Arinc429Pair OpenArinc429Pair(unsigned ch, uint32_t rate = 0)
    {
        Arinc429Pair c;
        c.In = Enable<TIn>(HDW_PORT_ARINC429_RX, ch, HDW_SERVICE_ARINC429_IN_BUFFER);
        c.Out = Enable<TOut>(HDW_PORT_ARINC429_TX, ch, HDW_SERVICE_ARINC429_OUT_BUFFER);
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
    std::unique_ptr<TDevice> Device;
    CKVX_HdwManager Manager;

private:
    uint64_t m_Code;
    bool m_Udp;
};

class Rig : public BasicRig<CKVX_HdwKvxHaldenDevice> {
public:
    explicit Rig(bool udp = false, bool pacing = false)
        : BasicRig(hdwsim::HaldenModel(), new CKVX_HdwKvxHaldenDevice, 3, EmulatorOptions(udp, pacing))
    {}
    // The pair's services are the driver's own classes.
    Arinc429Pair OpenPair(unsigned ch, uint32_t rate = 0)
    {
        return OpenArinc429Pair<CKVX_HdwKvxHaldenDevice::CArinc429InBufferService,
            CKVX_HdwKvxHaldenDevice::CArinc429OutBufferService>(ch, rate);
    }
};

// Reads from an input service until `count` items are in or the deadline passes.
template <class TItem, class TService>
std::vector<TItem> ReadAll(TService* in, size_t count, unsigned timeoutMs = 10000)
{
    std::vector<TItem> got;
    std::vector<TItem> chunk(512);
    WaitUntil(
        [&] {
            unsigned n = 0;
            if (in->Read(chunk.data(), unsigned(chunk.size()), n) == 0)
                got.insert(got.end(), chunk.begin(), chunk.begin() + n);
            return got.size() >= count;
        },
        timeoutMs);
    return got;
}

inline std::vector<CKVX_HdwArinc429Message> ReadWords(
    CKVX_HdwArinc429InBufferService* in, size_t count, unsigned timeoutMs = 10000)
{
    return ReadAll<CKVX_HdwArinc429Message>(in, count, timeoutMs);
}

inline CKVX_HdwArinc429Message Word(unsigned label, unsigned data, unsigned sdi = 0, unsigned ssm = 0)
{
    CKVX_HdwArinc429Message m;
    m.Label = uint8_t(label);
    m.Data = data & 0x7FFFF;
    m.Sdi = uint8_t(sdi);
    m.Ssm = uint8_t(ssm);
    m.SetParity(0);
    return m;
}

} // namespace halden_test
