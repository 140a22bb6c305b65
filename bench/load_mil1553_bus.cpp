// MIL-STD-1553 under load through an emulated Halden: the bus controller on
// channel 0 runs a major frame that keeps the bus about 90 % busy (four
// 10 ms minor frames, each 13 messages of 32 data words to or from four
// simulated terminals) for the given number of seconds (default 60), and
// the application reads every completed transfer.
//
//     load_mil1553_bus [seconds [hdwsim program (a path, or a name looked up in PATH)]]
//
// The emulator runs as its own process (hdwsim on a pseudo-terminal with
// --monotonic-clock), so the CPU time of this process is the library's plus
// this small application's. The application blocks in WaitSignal on a signal
// service of the port (one 1553 signal per transfer) and then reads the
// controller's list; it never sleeps to poll.
//
// Latency is taken per transfer, from its unit time stamp (the start of its
// command word, on CLOCK_MONOTONIC's low 32 bits) to the moment Read
// returned it; it includes the transfer's own time on the bus (about 0.7 ms
// for 32 words).
//
// Reported: transfers read against what the unit sent (hdwsim's counters),
// failed and lost transfers (the controller's lost count and a gap in the
// order of the messages), the bus load by the timing rule, latency p50 and
// p99, and CPU of the process per transfer.
#include <HdwLib/HdwLib.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CpuTime.h"

#ifndef HDWSIM_PROGRAM
#define HDWSIM_PROGRAM "hdwsim"
#endif

extern char** environ;

namespace {

using Msg = CKVX_HdwMilStd1553Message;
constexpr unsigned kMinorFrames = 4, kPerMinor = 13, kMinorUs = 10000;

uint32_t UnitClockUs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint32_t(uint64_t(t.tv_sec) * 1000000u + uint64_t(t.tv_nsec) / 1000u);
}

double Percentile(std::vector<uint32_t> v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return double(v[std::min(v.size() - 1, size_t(p * double(v.size() - 1) + 0.5))]) / 1000.0;
}

// Messages alternate receive and transmit over terminals 1..4, subaddresses
// 1..13, 32 words each; message i of the major frame is sent as index i.
CKVX_HdwMilStd1553BusController Schedule()
{
    CKVX_HdwMilStd1553BusController c;
    for (unsigned i = 0; i < kMinorFrames * kPerMinor; ++i) {
        Msg m;
        m.TerminalAddress = uint8_t(1 + i % 4);
        m.Subaddress = uint8_t(1 + i % kPerMinor);
        m.Transmit = uint8_t(i % 2);
        m.WordCount = 0; // 32 words
        if (!m.Transmit)
            for (unsigned w = 0; w < 32; ++w)
                m.Data.push_back(uint16_t(i << 8 | w));
        c.MajorFrame.Messages.push_back(m);
    }
    for (unsigned f = 0; f < kMinorFrames; ++f) {
        CKVX_HdwMilStd1553MinorFrame minor;
        minor.PeriodUs = kMinorUs;
        for (unsigned k = 0; k < kPerMinor; ++k)
            minor.Messages.push_back(uint16_t(f * kPerMinor + k));
        c.MajorFrame.MinorFrames.push_back(minor);
    }
    return c;
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60;
    const char* program = argc > 2 ? argv[2] : HDWSIM_PROGRAM;
    // hdwsim on a pseudo-terminal; its first line names it.
    int out[2];
    if (pipe(out) != 0)
        return 1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const char* simArgs[] = {program, "--unit", "halden", "--pty", "--monotonic-clock", "--realtime", "--mil1553-rt",
        "1,2,3,4", "--counters", nullptr};
    pid_t sim = -1;
    const int spawned = posix_spawnp(&sim, program, &actions, nullptr, const_cast<char* const*>(simArgs), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    FILE* simOut = fdopen(out[0], "r");
    char line[512] = {};
    if (spawned != 0 || !simOut || !std::fgets(line, sizeof line, simOut) || std::strncmp(line, "pty ", 4) != 0) {
        std::fprintf(stderr, "load_mil1553_bus: emulator %s did not start\n", program);
        return 1;
    }
    std::string pty = line + 4;
    pty.erase(pty.find_last_not_of("\r\n") + 1);

    CKVX_HdwKvxHaldenDevice device;
    CKVX_HdwManager manager;
    manager.AttachDevice(&device);
    CKVX_HdwManager::CInitPortDesc link(3, pty.c_str());
    if (manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan) != 0 || link.Result != 0 || manager.Run() != 0) {
        std::fprintf(stderr, "load_mil1553_bus: no unit on %s\n", pty.c_str());
        return 1;
    }
    CKVX_HdwPort* port = manager.GetPort(HDW_PORT_MILSTD1553, 0);
    CKVX_HdwService *s = nullptr, *b = nullptr;
    CKVX_HdwSignalService::CParameters sp;
    sp.BufferSize = 100000;
    sp.SignalMask = 1u << (HDW_SIGNAL_MIL1553_MESSAGE - 1);
    CKVX_HdwMilStd1553BcService::CParameters bp;
    bp.BufferSize = 100000;
    if (!port || port->EnableService(HDW_SERVICE_SIGNAL, &s, &sp) != 0 ||
        port->EnableService(HDW_SERVICE_MIL1553_BC, &b, &bp) != 0 || port->Open(nullptr) != 0) {
        std::fprintf(stderr, "load_mil1553_bus: cannot open 1553:0\n");
        return 1;
    }
    auto* signals = static_cast<CKVX_HdwSignalService*>(s);
    auto* bc = static_cast<CKVX_HdwMilStd1553BcService*>(b);
    const CKVX_HdwMilStd1553BusController schedule = Schedule();
    unsigned busUs = 0;
    for (unsigned f = 0; f < kMinorFrames; ++f)
        busUs += schedule.MajorFrame.GetMinorFrameTimeUs(f, 8); // the emulated terminals answer in 8 us
    if (bc->BuildConfiguration(schedule) != 0 || bc->LoadConfiguration() != 0 || bc->RunBc() != 0) {
        std::fprintf(stderr, "load_mil1553_bus: the schedule was refused\n");
        return 1;
    }

    std::vector<uint32_t> latencies;
    latencies.reserve(size_t(seconds * 1400));
    uint64_t read = 0, failed = 0, outOfOrder = 0;
    unsigned nextIndex = 0;
    bool started = false;
    CKVX_HdwMilStd1553Buffer buffer;
    std::vector<CKVX_HdwSignalService::CSignal> sigs(4096);
    auto drain = [&] {
        unsigned n = 0;
        while (signals->ReadSignals(sigs.data(), unsigned(sigs.size()), n) == 0 && n == sigs.size()) {}
        buffer.Clear();
        bc->Read(buffer, 100000, n);
        const uint32_t now = UnitClockUs();
        for (unsigned i = 0; i < buffer.Count(); ++i) {
            const Msg& m = buffer.At(i);
            latencies.push_back(now - uint32_t(m.TimeStamp));
            failed += (m.Flags & (Msg::FlagNoResponse | Msg::FlagBadWordCount | Msg::FlagParityError)) ? 1 : 0;
            const unsigned index = m.TransferId & 0x3FFF;
            outOfOrder += started && index != nextIndex ? 1 : 0;
            started = true;
            nextIndex = (index + 1) % (kMinorFrames * kPerMinor);
        }
        read += buffer.Count();
    };
    const double cpu0 = bench::CpuSeconds(RUSAGE_SELF);
    const uint32_t start = UnitClockUs();
    while (double(UnitClockUs() - start) < seconds * 1e6) {
        CKVX_HdwSignalService::CSignal sig;
        if (signals->WaitSignal(sig, 100) == 0)
            drain();
    }
    bc->StopBc();
    for (int i = 0; i < 200 && bc->IsRunning(); ++i) {
        CKVX_HdwSignalService::CSignal sig;
        signals->WaitSignal(sig, 10);
    }
    drain();
    const double cpu = bench::CpuSeconds(RUSAGE_SELF) - cpu0;
    const double elapsed = double(UnitClockUs() - start) / 1e6;
    const uint64_t lost = bc->GetLostCount() + outOfOrder;
    port->Close();
    manager.Stop();

    kill(sim, SIGTERM);
    uint64_t unitTransfers = 0;
    while (std::fgets(line, sizeof line, simOut))
        if (std::strncmp(line, "mil1553-transfers ", 18) == 0)
            unitTransfers = std::strtoull(line + 18, nullptr, 10); // channel 0
    waitpid(sim, nullptr, 0);

    std::printf("duration %.1f s, bus busy %.0f %% by the timing rule (8 us responses)\n", elapsed,
        100.0 * busUs / (kMinorFrames * kMinorUs));
    std::printf("transfers: unit sent %llu, application read %llu (%.0f/s), failed %llu, lost %llu\n",
        static_cast<unsigned long long>(unitTransfers), static_cast<unsigned long long>(read), double(read) / elapsed,
        static_cast<unsigned long long>(failed), static_cast<unsigned long long>(lost));
    std::printf("event to Read (%zu transfers): p50 %.2f ms, p99 %.2f ms\n", latencies.size(),
        Percentile(latencies, 0.5), Percentile(latencies, 0.99));
    std::printf("CPU: process (library + application) %.2f %% of one core, %.1f us per transfer\n",
        100.0 * cpu / elapsed, read ? cpu * 1e6 / double(read) : 0.0);
    return lost == 0 && failed == 0 && read > 0 && (unitTransfers == 0 || unitTransfers == read) ? 0 : 1;
}
