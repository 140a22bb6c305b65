#pragma once
// An emulated Halden unit and an application that talks to it through the
// whole library: manager, driver, ports, services, frames on a
// pseudo-terminal or over UDP on 127.0.0.1.

#include <HdwLib/HdwLib.h>
#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace halden_test {

// Polls `done` until it holds or `timeoutMs` passes.
inline bool WaitUntil(const std::function<bool()>& done, unsigned timeoutMs = 10000)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < end) {
        if (done())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return done();
}

// Time-outs for units that answer late because the machine is busy (a
// pseudo-terminal's bytes can take hundreds of milliseconds to cross then),
// given where a test is not about the time-out itself.
constexpr unsigned kEchoTimeoutMs = 5000; // the library's default is 500
constexpr unsigned kOpenTimeoutMs = 5000; // a port's Open, 1000 by default

// Enumerates `link` with `manager`, again while nothing answers (a probe
// waits only 200 ms for the unit) until `timeoutMs` passes; the link's
// last result stays in `link.Result`.
inline void EnumerateLink(CKVX_HdwManager& manager, CKVX_HdwManager::CInitPortDesc& link,
                          unsigned timeoutMs = 10000)
{
    WaitUntil(
        [&] {
            EXPECT_EQ(manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan), 0u);
            return link.Result == 0;
        },
        timeoutMs);
}

inline hdwsim::Emulator::Options EmulatorOptions(bool udp, bool pacing)
{
    hdwsim::Emulator::Options o;
    o.Pty = !udp;
    o.Udp = udp;
    o.Pacing = pacing;
    o.ClockStartUs = 1000;
    return o;
}

class Rig {
public:
    explicit Rig(bool udp = false, bool pacing = false)
        : Sim(hdwsim::HaldenModel(), EmulatorOptions(udp, pacing)), m_Udp(udp)
    {
        Device->SetEchoTimeout(kEchoTimeoutMs);
    }
    ~Rig() { Manager.Stop(); }

    // Starts the emulator, enumerates it through the manager and runs.
    void Start()
    {
        std::string error;
        ASSERT_TRUE(Sim.Start(&error)) << error;
        ASSERT_EQ(Manager.AttachDevice(Device.get()), 0u);
        CKVX_HdwManager::CInitPortDesc link(3, LinkText());
        EnumerateLink(Manager, link);
        ASSERT_EQ(link.Result, 0u) << "no unit answered on " << LinkText();
        ASSERT_EQ(Manager.Run(), 0u);
    }

    std::string LinkText() const
    {
        return m_Udp ? "udp:127.0.0.1:" + std::to_string(Sim.UdpPort()) : Sim.PtyPath();
    }

    CKVX_HdwPort* Port(unsigned type, unsigned num) { return Manager.GetPort(type, num); }

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

    hdwsim::Emulator Sim;
    std::unique_ptr<CKVX_HdwKvxHaldenDevice> Device = std::make_unique<CKVX_HdwKvxHaldenDevice>();
    CKVX_HdwManager Manager;

private:
    bool m_Udp;
};

// Reads everything an ARINC 429 input service receives until `count` words
// are in or the deadline passes.
inline std::vector<CKVX_HdwArinc429Message> ReadWords(CKVX_HdwArinc429InBufferService* in, size_t count,
                                                      unsigned timeoutMs = 10000)
{
    std::vector<CKVX_HdwArinc429Message> got;
    std::vector<CKVX_HdwArinc429Message> chunk(512);
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
