// Discrete input change to application latency through an emulated Travin
// on a pseudo-terminal: an input line is driven from outside (hdwsim's
// DriveInput, debounce 0), the application waits on the input bank's signal
// service, and the latency of each change is from its unit time stamp to the
// moment WaitSignal returned it. The emulator runs in this process with
// Options::MonotonicClock, so the unit's microsecond clock is CLOCK_MONOTONIC
// (low 32 bits), the clock this program reads.
//
//     load_travin_latency [changes (default 2000)]
//
// Reported: changes driven, changes received, changes lost (the unit's
// sequence), latency p50, p99 and the largest, in microseconds.
#include <HdwLib/HdwLib.h>
#include <hdwsim/Emulator.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

uint32_t MonotonicMicroseconds32()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint32_t(uint64_t(ts.tv_sec) * 1000000u + uint64_t(ts.tv_nsec) / 1000u);
}

uint32_t Percentile(std::vector<uint32_t> v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(p * double(v.size() - 1) + 0.5))];
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned changes = argc > 1 ? unsigned(std::strtoul(argv[1], nullptr, 10)) : 2000;
    hdwsim::Emulator::Options o;
    o.Pty = true;
    o.MonotonicClock = true;
    o.RealTime = true;
    hdwsim::Emulator sim(*hdwsim::FindUnitModel("travin"), o);
    std::string error;
    if (!sim.Start(&error)) {
        std::fprintf(stderr, "load_travin_latency: emulator: %s\n", error.c_str());
        return 1;
    }
    CKVX_HdwKvxTravinDevice device;
    CKVX_HdwManager manager;
    manager.AttachDevice(&device);
    CKVX_HdwManager::CInitPortDesc link(5, sim.PtyPath());
    if (manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan) != 0 || link.Result != 0 || manager.Run() != 0) {
        std::fprintf(stderr, "load_travin_latency: the unit did not answer\n");
        return 1;
    }
    CKVX_HdwPort* port = manager.GetPort(HDW_PORT_DISCRETE_IN, 0);
    CKVX_HdwService* s = nullptr;
    CKVX_HdwSignalService::CParameters sp;
    sp.BufferSize = 100000;
    if (!port || port->EnableService(HDW_SERVICE_SIGNAL, &s, &sp) != 0) {
        std::fprintf(stderr, "load_travin_latency: no discrete input port\n");
        return 1;
    }
    auto* signals = static_cast<CKVX_HdwSignalService*>(s);
    CKVX_HdwDiscreteInPort::CParameters p;
    p.DebounceUs = 0;
    p.Timeout = 10000;
    if (port->Open(&p) != 0) {
        std::fprintf(stderr, "load_travin_latency: cannot open din:0\n");
        return 1;
    }
    std::vector<uint32_t> latencies;
    latencies.reserve(changes);
    unsigned received = 0;
    for (unsigned i = 0; i < changes; ++i) {
        sim.DriveInput(0, 0x01, (i % 2 == 0) ? 0x01 : 0x00);
        CKVX_HdwSignalService::CSignal sig;
        if (signals->WaitSignal(sig, 5000) != 0)
            break;
        const uint32_t now = MonotonicMicroseconds32();
        ++received;
        latencies.push_back(now - uint32_t(sig.TimeStamp));
    }
    const uint64_t sent = sim.GetCounters().DiscreteInEvents[0];
    port->Close();
    manager.Stop();
    std::printf("changes driven %u, received %u, sent by the unit %llu\n", changes, received,
        static_cast<unsigned long long>(sent));
    std::printf("latency change -> application (us): p50 %u, p99 %u, max %u\n", Percentile(latencies, 0.5),
        Percentile(latencies, 0.99), latencies.empty() ? 0u : *std::max_element(latencies.begin(), latencies.end()));
    return received == changes ? 0 : 1;
}
