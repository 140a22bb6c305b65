// Full load through an emulated Halden unit, paced at the buses' rates:
// 4 ARINC 429 channels at 100 kbit/s and 2 CAN channels at 1 Mbit/s, every
// transmitter kept busy and every receiver read, for the given number of
// seconds (default 60). It is also the soak test: `load_halden_paced 3600`
// runs the load for an hour (not in CI) with memory that does not grow with
// the duration (delays go into a fixed histogram).
//
//     load_halden_paced [--per-service] [--no-traffic] [--tick MS] [seconds [hdwsim program (a path, or a name looked
//     up in PATH)]]
//
// --no-traffic opens the same ports and services but sends nothing: the cost
// of the tick itself, the floor under the figures with traffic. --tick sets
// the manager's timer period (default: the manager's default, 1 ms).
//
// The emulator runs as its own process (hdwsim on a pseudo-terminal), so the
// CPU time of this process is the library's plus this small application's.
// The application blocks on the descriptor of a signal group that holds one
// signal service per receiving port (with --per-service: on the six
// services' own descriptors) and reads the input buffers when it turns
// readable; it never sleeps to poll.
//
// Latency is taken per received word and frame: from its unit time stamp to
// the moment Read returned it. hdwsim runs with --monotonic-clock, so the
// unit's microsecond clock is CLOCK_MONOTONIC (low 32 bits), the clock this
// program reads after each Read; the time stamp is when the word's or
// frame's last bit left the transmitter at the emulator.
//
// Reported: words and frames the unit received (hdwsim's counters, printed
// at its exit) against what the application read, FIFO overflows at the
// unit, the library's own loss counters (input buffer drops, signal ring
// drops, output writes refused, the unit link's bad frames, lost echoes and
// dropped commands), latency percentiles, CPU time of the process and of its
// threads, and the resident memory after setup, after a tenth of the run and
// at the end.
#include <HdwLib/HdwLib.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CpuTime.h"
#include "EmptyTick.h"

#ifndef HDWSIM_PROGRAM
#define HDWSIM_PROGRAM "hdwsim"
#endif

namespace {

using D = CKVX_HdwKvxHaldenDevice;

uint64_t MonotonicNs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return uint64_t(t.tv_sec) * 1'000'000'000u + uint64_t(t.tv_nsec);
}

// The unit's clock as hdwsim --monotonic-clock keeps it.
uint32_t UnitClockUs()
{
    return uint32_t(MonotonicNs() / 1000);
}

// hdwsim as a child process: its stdout gives the pty path, and at exit
// (SIGTERM) the bus counters.
class CEmulatorProcess {
public:
    bool Start(const char* program)
    {
        int out[2];
        if (pipe(out) != 0)
            return false;
        m_Pid = fork();
        if (m_Pid < 0)
            return false;
        if (m_Pid == 0) {
            dup2(out[1], STDOUT_FILENO);
            close(out[0]);
            close(out[1]);
            execlp(program, program, "--unit", "halden", "--pty", "--pace", "--monotonic-clock", "--realtime",
                "--counters", static_cast<char*>(nullptr));
            std::fprintf(stderr, "cannot run %s: %s\n", program, std::strerror(errno));
            _exit(127);
        }
        close(out[1]);
        m_Out = fdopen(out[0], "r");
        char line[512];
        if (!m_Out || !std::fgets(line, sizeof line, m_Out) || std::strncmp(line, "pty ", 4) != 0)
            return false;
        m_PtyPath = line + 4;
        while (!m_PtyPath.empty() && (m_PtyPath.back() == '\n' || m_PtyPath.back() == '\r'))
            m_PtyPath.pop_back();
        return true;
    }

    // Stops the emulator and collects its counters ("name v0 v1 ...").
    std::map<std::string, std::vector<uint64_t>> Stop()
    {
        std::map<std::string, std::vector<uint64_t>> counters;
        if (m_Pid <= 0)
            return counters;
        kill(m_Pid, SIGTERM);
        char line[512];
        while (m_Out && std::fgets(line, sizeof line, m_Out)) {
            std::istringstream in(line);
            std::string name;
            in >> name;
            uint64_t v = 0;
            while (in >> v)
                counters[name].push_back(v);
        }
        int status = 0;
        waitpid(m_Pid, &status, 0);
        m_Pid = -1;
        if (m_Out)
            std::fclose(m_Out);
        m_Out = nullptr;
        return counters;
    }

    ~CEmulatorProcess() { Stop(); }

    const std::string& PtyPath() const { return m_PtyPath; }

private:
    pid_t m_Pid = -1;
    FILE* m_Out = nullptr;
    std::string m_PtyPath;
};

uint64_t Sum(const std::vector<uint64_t>& v)
{
    uint64_t s = 0;
    for (uint64_t x : v)
        s += x;
    return s;
}

// Delays in 10 µs steps up to 1 s (and one step beyond for longer ones):
// fixed memory however long the run.
class CDelayHistogram {
public:
    static constexpr uint32_t StepUs = 10;
    static constexpr size_t Steps = 100000;

    CDelayHistogram() : m_Counts(Steps + 1, 0) {}
    void Add(uint32_t us)
    {
        ++m_Counts[std::min<size_t>(us / StepUs, Steps)];
        ++m_Total;
        m_MaxUs = std::max(m_MaxUs, us);
    }
    void Merge(const CDelayHistogram& o)
    {
        for (size_t i = 0; i <= Steps; ++i)
            m_Counts[i] += o.m_Counts[i];
        m_Total += o.m_Total;
        m_MaxUs = std::max(m_MaxUs, o.m_MaxUs);
    }
    uint64_t Count() const { return m_Total; }
    double MaxMs() const { return double(m_MaxUs) / 1000.0; }
    // The delay (ms, upper edge of its step) below which a fraction q lies.
    double Percentile(double q) const
    {
        if (m_Total == 0)
            return 0.0;
        const uint64_t rank = uint64_t(double(m_Total - 1) * q);
        uint64_t seen = 0;
        for (size_t i = 0; i <= Steps; ++i) {
            seen += m_Counts[i];
            if (seen > rank)
                return i == Steps ? MaxMs() : double((i + 1) * StepUs) / 1000.0;
        }
        return MaxMs();
    }

private:
    std::vector<uint64_t> m_Counts;
    uint64_t m_Total = 0;
    uint32_t m_MaxUs = 0;
};

// Resident memory of this process (MiB).
double ResidentMiB()
{
    FILE* f = std::fopen("/proc/self/statm", "r");
    unsigned long pages = 0, resident = 0;
    if (f) {
        if (std::fscanf(f, "%lu %lu", &pages, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

} // namespace

int main(int argc, char** argv)
{
    bool perService = false, noTraffic = false;
    unsigned tickMs = CKVX_HdwManager::DefaultTimerPeriod;
    for (; argc > 1 && argv[1][0] == '-'; --argc, ++argv) {
        if (std::strcmp(argv[1], "--per-service") == 0)
            perService = true;
        else if (std::strcmp(argv[1], "--no-traffic") == 0)
            noTraffic = true;
        else if (std::strcmp(argv[1], "--tick") == 0 && argc > 2 && std::atoi(argv[2]) > 0) {
            tickMs = unsigned(std::atoi(argv[2]));
            --argc, ++argv;
        } else {
            std::fprintf(stderr, "unknown option %s\n", argv[1]);
            return 2;
        }
    }
    const unsigned seconds = argc > 1 ? unsigned(std::atoi(argv[1])) : 60;
    const char* program = argc > 2 ? argv[2] : HDWSIM_PROGRAM;

    CEmulatorProcess sim;
    if (!sim.Start(program)) {
        std::fprintf(stderr, "emulator %s did not start\n", program);
        return 1;
    }
    auto device = std::make_unique<D>();
    CKVX_HdwManager manager;
    CKVX_HdwManager::CParameters mp;
    mp.TimerPeriod = tickMs;
    if (manager.SetParameters(mp) != 0) {
        std::fprintf(stderr, "timer period %u ms refused\n", tickMs);
        return 2;
    }
    manager.AttachDevice(device.get());
    CKVX_HdwManager::CInitPortDesc link(3, sim.PtyPath().c_str());
    if (manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan) != 0 || link.Result != 0 || manager.Run() != 0) {
        std::fprintf(stderr, "no unit on %s\n", sim.PtyPath().c_str());
        return 1;
    }

    // Receivers: an input buffer and a signal service that wakes the
    // application; transmitters: an output buffer.
    CKVX_HdwSignalService::CParameters a429Signals;
    a429Signals.BufferSize = 1u << 16;
    a429Signals.SignalMask = 1u << (HDW_SIGNAL_ARINC429_RECEIVED - 1);
    CKVX_HdwSignalService::CParameters canSignals = a429Signals;
    canSignals.SignalMask = 1u << (HDW_SIGNAL_CAN_RECEIVED - 1);

    D::CArinc429InBufferService* ain[4];
    D::CArinc429OutBufferService* aout[4];
    D::CCanInBufferService* cin[2];
    D::CCanOutBufferService* cout[2];
    std::vector<CKVX_HdwSignalService*> signals;
    bool ok = true;
    for (unsigned ch = 0; ch < 4; ++ch) {
        CKVX_HdwService* s = nullptr;
        CKVX_HdwPort* rx = manager.GetPort(HDW_PORT_ARINC429_RX, ch);
        CKVX_HdwPort* tx = manager.GetPort(HDW_PORT_ARINC429_TX, ch);
        ok = ok && rx->EnableService(HDW_SERVICE_ARINC429_IN_BUFFER, &s, nullptr) == 0;
        ain[ch] = static_cast<D::CArinc429InBufferService*>(s);
        ok = ok && rx->EnableService(HDW_SERVICE_SIGNAL, &s, &a429Signals) == 0;
        signals.push_back(static_cast<CKVX_HdwSignalService*>(s));
        ok = ok && tx->EnableService(HDW_SERVICE_ARINC429_OUT_BUFFER, &s, nullptr) == 0;
        aout[ch] = static_cast<D::CArinc429OutBufferService*>(s);
        CKVX_HdwArinc429RxPort::CParameters rp;
        rp.BaudRate = 100000;
        CKVX_HdwArinc429TxPort::CParameters tp;
        tp.BaudRate = 100000;
        ok = ok && rx->Open(&rp) == 0 && tx->Open(&tp) == 0;
    }
    for (unsigned ch = 0; ch < 2; ++ch) {
        CKVX_HdwService* s = nullptr;
        CKVX_HdwPort* can = manager.GetPort(HDW_PORT_CAN, ch);
        ok = ok && can->EnableService(HDW_SERVICE_CAN_IN_BUFFER, &s, nullptr) == 0;
        cin[ch] = static_cast<D::CCanInBufferService*>(s);
        ok = ok && can->EnableService(HDW_SERVICE_CAN_OUT_BUFFER, &s, nullptr) == 0;
        cout[ch] = static_cast<D::CCanOutBufferService*>(s);
        ok = ok && can->EnableService(HDW_SERVICE_SIGNAL, &s, &canSignals) == 0;
        signals.push_back(static_cast<CKVX_HdwSignalService*>(s));
        ok = ok && can->Open(nullptr) == 0;
    }
    CKVX_HdwSignalGroup group;
    std::vector<pollfd> fds;
    if (perService) {
        for (CKVX_HdwSignalService* s : signals)
            fds.push_back({s->GetFileDescriptor(), POLLIN, 0});
    } else {
        for (CKVX_HdwSignalService* s : signals)
            ok = ok && s->JoinGroup(&group) == 0;
        fds.push_back({group.GetFileDescriptor(), POLLIN, 0});
    }
    if (!ok || std::any_of(fds.begin(), fds.end(), [](const pollfd& p) { return p.fd < 0; })) {
        std::fprintf(stderr, "could not set up the ports\n");
        return 1;
    }

    uint64_t aRead = 0, cRead = 0;
    CDelayHistogram aDelays, cDelays;
    std::vector<CKVX_HdwArinc429Message> abuf(4096);
    std::vector<CKVX_HdwCanMessage> cbuf(4096);
    std::vector<CKVX_HdwSignalService::CSignal> sbuf(4096);
    std::vector<CKVX_HdwArinc429Message> words(1000);
    std::vector<CKVX_HdwCanMessage> frames(2000);
    unsigned seq = 0;
    uint64_t wakeUps = 0;
    unsigned failure = 0; // first non-zero result of a Read

    // Keeps every transmitter busy: each output buffer holds at least about
    // half a second of traffic.
    auto topUp = [&] {
        if (noTraffic)
            return;
        for (unsigned ch = 0; ch < 4; ++ch) {
            unsigned pending = 0;
            aout[ch]->GetMessagesToBeWritten(pending);
            if (pending < 2000) {
                for (auto& m : words) {
                    m.Label = uint8_t(ch + 1);
                    m.Data = ++seq & 0x7FFFF;
                }
                aout[ch]->Write(words.data(), unsigned(words.size()), 0);
            }
        }
        for (unsigned ch = 0; ch < 2; ++ch) {
            unsigned pending = 0;
            cout[ch]->GetMessagesToBeWritten(pending);
            if (pending < 4000) {
                for (auto& m : frames) {
                    m.Identifier = ++seq & 0x1FFFFFFF;
                    m.Extended = 1;
                    m.Dlc = 8;
                }
                cout[ch]->Write(frames.data(), unsigned(frames.size()), 0);
            }
        }
    };
    // Empties one input buffer; with `measure` each item's delay is recorded.
    auto drain = [&](auto* service, auto& buffer, CDelayHistogram& delays, uint64_t& total, bool measure) {
        unsigned got = 0, n = 0;
        do {
            if (const unsigned rc = service->Read(buffer.data(), unsigned(buffer.size()), n); rc && !failure)
                failure = rc;
            const uint32_t now = UnitClockUs();
            if (measure)
                for (unsigned i = 0; i < n; ++i)
                    delays.Add(now - uint32_t(buffer[i].TimeStamp));
            got += n;
        } while (n == buffer.size());
        total += got;
        return got;
    };
    // Takes the signals that woke us, then reads every receiver; returns
    // how many items came.
    auto readAll = [&](bool measure) {
        for (CKVX_HdwSignalService* s : signals) {
            unsigned n = 0;
            do
                s->ReadSignals(sbuf.data(), unsigned(sbuf.size()), n);
            while (n == sbuf.size());
        }
        unsigned got = 0;
        for (unsigned ch = 0; ch < 4; ++ch)
            got += drain(ain[ch], abuf, aDelays, aRead, measure);
        for (unsigned ch = 0; ch < 2; ++ch)
            got += drain(cin[ch], cbuf, cDelays, cRead, measure);
        return got;
    };

    const double rssStart = ResidentMiB();
    double rssWarm = rssStart;
    topUp();
    const double cpu0 = bench::CpuSeconds(RUSAGE_SELF);
    const double app0 = bench::CpuSeconds(RUSAGE_THREAD);
    const uint64_t start = MonotonicNs();
    const uint64_t end = start + uint64_t(seconds) * 1'000'000'000u;
    uint64_t nextTopUp = start;
    const uint64_t warm = start + (end - start) / 10;
    bool warmTaken = false;
    for (uint64_t now = start; now < end && !failure; now = MonotonicNs()) {
        if (!warmTaken && now >= warm) {
            rssWarm = ResidentMiB();
            warmTaken = true;
        }
        if (now >= nextTopUp) {
            topUp();
            nextTopUp = now + 20'000'000;
        }
        const int timeoutMs = int(std::min<uint64_t>((nextTopUp - now) / 1'000'000 + 1, 20));
        if (poll(fds.data(), nfds_t(fds.size()), timeoutMs) > 0) {
            ++wakeUps;
            readAll(true);
        }
    }
    const double elapsed = double(MonotonicNs() - start) / 1e9;
    const double cpu = bench::CpuSeconds(RUSAGE_SELF) - cpu0;
    const double app = bench::CpuSeconds(RUSAGE_THREAD) - app0;
    const double rssEnd = ResidentMiB();

    // Stop feeding, then take what is still on its way until the line has
    // been quiet for half a second (at most 10 s).
    for (unsigned ch = 0; ch < 4; ++ch)
        aout[ch]->ResetWriteBuffer();
    for (unsigned ch = 0; ch < 2; ++ch)
        cout[ch]->ResetWriteBuffer();
    const uint64_t drainEnd = MonotonicNs() + 10'000'000'000u;
    uint64_t quietSince = MonotonicNs();
    while (MonotonicNs() < drainEnd && MonotonicNs() - quietSince < 500'000'000u) {
        poll(fds.data(), nfds_t(fds.size()), 50);
        if (readAll(false) > 0)
            quietSince = MonotonicNs();
    }
    // The library's own loss counters, before the ports close.
    uint64_t inDropped = 0, signalDropped = 0, unplaced = 0;
    for (unsigned ch = 0; ch < 4; ++ch) {
        inDropped += ain[ch]->GetDroppedCount();
        unplaced += aout[ch]->GetUnplacedCount();
    }
    for (unsigned ch = 0; ch < 2; ++ch) {
        inDropped += cin[ch]->GetDroppedCount();
        unplaced += cout[ch]->GetUnplacedCount();
    }
    for (CKVX_HdwSignalService* s : signals) {
        uint64_t n = 0;
        if (s->GetDroppedCount(n, false) == 0)
            signalDropped += n;
    }
    const CKVX_HdwKvxUnitInstance::CLossCounters unitLoss = device->GetUnitInstance(0)->GetLossCounters();
    manager.Stop();
    auto counters = sim.Stop();
    // The host's price of the tick alone, in the same minute as the run.
    const double emptyTick = bench::EmptyTickPercent(tickMs, 3);

    const uint64_t aSent = Sum(counters["a429-received"]);
    const uint64_t cSent = Sum(counters["can-received"]);
    const uint64_t dropped = Sum(counters["a429-fifo-dropped"]) + Sum(counters["can-fifo-dropped"]);
    CDelayHistogram allDelays = aDelays;
    allDelays.Merge(cDelays);
    double load[3] = {0, 0, 0};
    getloadavg(load, 3);

    if (failure)
        std::printf("STOPPED EARLY: Read answered %u (the unit's services failed)\n", failure);
    std::printf("waiting on %s\n", perService ? "six signal descriptors" : "one signal group");
    std::printf("duration %.1f s, load average at the end %.2f %.2f %.2f\n", elapsed, load[0], load[1], load[2]);
    std::printf("ARINC 429 words: unit received %llu, application read %llu, lost %lld (%.0f words/s)\n",
        (unsigned long long)aSent, (unsigned long long)aRead, (long long)(aSent - aRead), double(aSent) / elapsed);
    std::printf("CAN frames: unit received %llu, application read %llu, lost %lld (%.0f frames/s)\n",
        (unsigned long long)cSent, (unsigned long long)cRead, (long long)(cSent - cRead), double(cSent) / elapsed);
    std::printf("FIFO overflows at the unit: %llu\n", (unsigned long long)dropped);
    std::printf("library: input buffers dropped %llu, signal rings dropped %llu, writes refused %llu items; "
                "link: %llu CRC errors, %llu malformed and %llu failed frames, %llu stale echoes, "
                "%llu echo time-outs, %llu commands lost\n",
        (unsigned long long)inDropped, (unsigned long long)signalDropped, (unsigned long long)unplaced,
        (unsigned long long)unitLoss.CrcErrors, (unsigned long long)unitLoss.MalformedFrames,
        (unsigned long long)unitLoss.FailedFrames, (unsigned long long)unitLoss.StaleEchoes,
        (unsigned long long)unitLoss.EchoTimeouts, (unsigned long long)unitLoss.LostCommands);
    std::printf("resident memory: %.1f MiB after setup, %.1f MiB after a tenth of the run, %.1f MiB at the end\n",
        rssStart, rssWarm, rssEnd);
    std::printf("CPU: process (library + application) %.2f %% of one core; application thread %.2f %%, "
                "library threads %.2f %%\n",
        100.0 * cpu / elapsed, 100.0 * app / elapsed, 100.0 * (cpu - app) / elapsed);
    std::printf("application wake-ups: %.0f per second\n", double(wakeUps) / elapsed);
    if (emptyTick >= 0)
        std::printf("host: an empty tick costs %.2f %% of one core (3 s after the run); the library's threads "
                    "spent %.2f %% more\n",
            emptyTick, 100.0 * (cpu - app) / elapsed - emptyTick);
    const auto report = [](const char* what, const CDelayHistogram& d) {
        std::printf("event to Read, %s (%llu): p50 %.2f ms, p90 %.2f ms, p99 %.2f ms, p99.9 %.2f ms, max %.2f ms\n",
            what, (unsigned long long)d.Count(), d.Percentile(0.5), d.Percentile(0.9), d.Percentile(0.99),
            d.Percentile(0.999), d.MaxMs());
    };
    report("all", allDelays);
    report("ARINC 429", aDelays);
    report("CAN", cDelays);
    const bool trafficOk = noTraffic || (aSent > 0 && cSent > 0);
    const bool libraryOk = inDropped == 0 && signalDropped == 0 && unplaced == 0 && unitLoss.BadFrames() == 0 &&
        unitLoss.EchoTimeouts == 0 && unitLoss.LostCommands == 0;
    return (!failure && aSent == aRead && cSent == cRead && dropped == 0 && trafficOk && libraryOk) ? 0 : 2;
}
