// Six Sorrel UARTs at 921,600 bit/s together, both ways on every wired pair
// (0-1, 2-3, 4-5), for the given number of seconds (default 10), through
// the whole library over UDP on 127.0.0.1.
//
//     load_sorrel_uarts [--signals] [seconds]
//
// The emulated unit runs in a child process (forked before any thread
// starts), paced at the real line rate, so that the CPU time of this process
// is the library's plus this small application's: it keeps each output
// topped up, reads every input each millisecond and checks every byte
// against the stream the wired UART sent. With --signals it sleeps instead
// on one signal group of the six ports' signal services, which the tick
// makes readable when bytes came in or the unit took bytes.
//
// Reported: bytes sent and received per UART, bytes lost or out of order
// (must be 0), the unit's receive-buffer drops and framing errors, CPU time
// of this process per byte moved (sent plus received), and the resends.
#include <HdwLib/HdwLib.h>
#include <hdwsim/Emulator.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CpuTime.h"

namespace {

constexpr unsigned kUarts = 6;
constexpr uint32_t kRate = 921600;
constexpr unsigned kTopUp = 32768;

// The byte at position n of UART u's stream.
uint8_t StreamByte(unsigned u, uint64_t n)
{
    uint64_t x = (n + 1) * 0x9E3779B97F4A7C15ull ^ (uint64_t(u) << 56);
    x ^= x >> 29;
    return static_cast<uint8_t>(x * 0xBF58476D1CE4E5B9ull >> 56);
}

// The child: serves the unit until SIGTERM, then writes its drop and framing counts.
[[noreturn]] void RunUnit(int portPipe, int countPipe)
{
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &term, nullptr);
    hdwsim::Emulator::Options o;
    o.Pty = false;
    o.Udp = true;
    o.RealTime = true;
    hdwsim::Emulator sim(*hdwsim::FindUnitModel("sorrel"), o);
    std::string error;
    if (!sim.Start(&error)) {
        std::fprintf(stderr, "emulator: %s\n", error.c_str());
        _exit(1);
    }
    const uint16_t port = sim.UdpPort();
    [[maybe_unused]] ssize_t w = write(portPipe, &port, sizeof port);
    int sig = 0;
    sigwait(&term, &sig);
    sim.Stop();
    const hdwsim::Counters c = sim.GetCounters();
    uint64_t out[3] = {0, 0, c.PortDataResends};
    for (unsigned u = 0; u < kUarts; ++u) {
        out[0] += c.UartRxDropped[u];
        out[1] += c.UartFramingErrors[u];
    }
    w = write(countPipe, out, sizeof out);
    _exit(0);
}

} // namespace

int main(int argc, char** argv)
{
    const bool signals = argc > 1 && std::string(argv[1]) == "--signals";
    if (signals) {
        --argc;
        ++argv;
    }
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
    int portPipe[2], countPipe[2];
    if (pipe(portPipe) != 0 || pipe(countPipe) != 0)
        return 1;
    const pid_t child = fork();
    if (child == 0)
        RunUnit(portPipe[1], countPipe[1]);
    uint16_t port = 0;
    if (read(portPipe[0], &port, sizeof port) != sizeof port)
        return 1;

    CKVX_HdwManager manager;
    CKVX_HdwKvxSorrelDevice device;
    manager.AttachDevice(&device);
    CKVX_HdwManager::CInitPortDesc link(9, "udp:127.0.0.1:" + std::to_string(port));
    if (manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan) != 0 || link.Result != 0 || manager.Run() != 0) {
        std::fprintf(stderr, "no Sorrel answered\n");
        kill(child, SIGTERM);
        return 1;
    }
    CKVX_HdwByteInBufferService* in[kUarts];
    CKVX_HdwByteOutBufferService* out[kUarts];
    CKVX_HdwSignalService* wake[kUarts] = {};
    CKVX_HdwSignalGroup group;
    for (unsigned u = 0; u < kUarts; ++u) {
        CKVX_HdwPort* p = manager.GetPort(HDW_PORT_UART, u);
        if (signals) {
            CKVX_HdwService* s = nullptr;
            p->EnableService(HDW_SERVICE_SIGNAL, &s, nullptr);
            wake[u] = static_cast<CKVX_HdwSignalService*>(s);
            if (!wake[u] || wake[u]->JoinGroup(&group) != 0) {
                std::fprintf(stderr, "UART %u takes no signal service\n", u);
                kill(child, SIGTERM);
                return 1;
            }
        }
        CKVX_HdwByteInBufferService::CParameters inParams;
        inParams.BufferSize = 1u << 20;
        CKVX_HdwService* s = nullptr;
        p->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, &inParams);
        in[u] = static_cast<CKVX_HdwByteInBufferService*>(s);
        p->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr);
        out[u] = static_cast<CKVX_HdwByteOutBufferService*>(s);
        CKVX_HdwUartPort::CParameters line;
        line.BaudRate = kRate;
        if (p->Open(&line) != 0) {
            std::fprintf(stderr, "UART %u did not open\n", u);
            kill(child, SIGTERM);
            return 1;
        }
    }

    uint64_t sent[kUarts] = {}, got[kUarts] = {}, wrong[kUarts] = {};
    std::vector<uint8_t> chunk(kTopUp);
    uint8_t buf[65536];
    auto drain = [&] {
        for (unsigned u = 0; u < kUarts; ++u) {
            unsigned n = 0;
            while (in[u]->Read(buf, sizeof buf, n) == 0 && n) {
                for (unsigned i = 0; i < n; ++i)
                    wrong[u] += buf[i] != StreamByte(u ^ 1u, got[u] + i);
                got[u] += n;
            }
        }
    };
    const double cpu0 = bench::CpuSeconds(RUSAGE_SELF);
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        for (unsigned u = 0; u < kUarts; ++u) {
            unsigned waiting = 0;
            out[u]->GetBytesToBeWritten(waiting);
            if (waiting >= kTopUp)
                continue;
            const unsigned n = kTopUp - waiting;
            for (unsigned i = 0; i < n; ++i)
                chunk[i] = StreamByte(u, sent[u] + i);
            if (out[u]->Write(chunk.data(), n, 0) == 0)
                sent[u] += n;
        }
        drain();
        if (!signals) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        pollfd pf{group.GetFileDescriptor(), POLLIN, 0};
        poll(&pf, 1, 100);
        // The signals only wake the loop (the group stays readable until
        // all are read); the buffers say what came.
        CKVX_HdwSignalService::CSignal taken[64];
        for (CKVX_HdwSignalService* w : wake) {
            unsigned n = 0;
            do
                w->ReadSignals(taken, 64, n);
            while (n == 64);
        }
    }
    // What was handed over drains at the line rate; wait for it.
    const auto settle = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    bool done = false;
    while (!done && std::chrono::steady_clock::now() < settle) {
        drain();
        done = true;
        for (unsigned u = 0; u < kUarts; ++u)
            done = done && got[u] >= sent[u ^ 1u];
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double cpu = bench::CpuSeconds(RUSAGE_SELF) - cpu0;
    uint64_t resends = 0;
    for (unsigned u = 0; u < kUarts; ++u)
        resends += static_cast<CKVX_HdwKvxSorrelByteOutBufferService*>(out[u])->GetResendCount();
    for (unsigned u = 0; u < kUarts; ++u)
        manager.GetPort(HDW_PORT_UART, u)->Close();
    manager.Stop();
    kill(child, SIGTERM);
    uint64_t unit[3] = {};
    [[maybe_unused]] ssize_t r = read(countPipe[0], unit, sizeof unit);
    waitpid(child, nullptr, 0);

    uint64_t moved = 0, lost = 0, bad = 0;
    std::printf("six UARTs at %u bit/s, %.1f s (settled after %.1f s)\n", kRate, seconds, elapsed);
    for (unsigned u = 0; u < kUarts; ++u) {
        const uint64_t expected = sent[u ^ 1u];
        const uint64_t missing = got[u] < expected ? expected - got[u] : 0;
        std::printf("UART %u: sent %llu, received %llu of %llu, missing %llu, wrong %llu, input drops %llu\n", u,
            (unsigned long long)sent[u], (unsigned long long)got[u], (unsigned long long)expected,
            (unsigned long long)missing, (unsigned long long)wrong[u], (unsigned long long)in[u]->GetDroppedCount());
        moved += sent[u] + got[u];
        lost += missing;
        bad += wrong[u];
    }
    std::printf("lost %llu, wrong %llu; unit: receive-buffer drops %llu, framing errors %llu, resends %llu; host "
                "resends %llu\n",
        (unsigned long long)lost, (unsigned long long)bad, (unsigned long long)unit[0], (unsigned long long)unit[1],
        (unsigned long long)unit[2], (unsigned long long)resends);
    std::printf("CPU %.3f s for %llu bytes (sent + received): %.1f ns/byte, %.1f %% of one core\n", cpu,
        (unsigned long long)moved, moved ? cpu * 1e9 / double(moved) : 0.0, 100.0 * cpu / elapsed);
    return lost == 0 && bad == 0 && unit[0] == 0 ? 0 : 2;
}
