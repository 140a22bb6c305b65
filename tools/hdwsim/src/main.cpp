// hdwsim: serves one emulated unit until SIGINT or SIGTERM. It first prints
// one line per endpoint ("pty /dev/pts/7", "udp 127.0.0.1:55003") so that a
// script can read where to connect. SIGUSR1 unplugs the unit, SIGUSR2 plugs
// it back; each prints a line ("unplugged", "plugged").

#include <hdwsim/Emulator.h>
#include <hdwsim/MilStd1553Options.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <pthread.h>

namespace {

void Usage(FILE* out)
{
    std::fprintf(out,
        "usage: hdwsim --unit NAME [--pty] [--udp PORT] [--pace] [--monotonic-clock]\n"
        "              [--clock-start US] [--realtime] [--serial SN] [--link PATH]\n"
        "              [--mil1553-rt TA,TA...] [--mil1553-fault TA:BUS:KIND[:N]]...\n"
        "              [--can-fault CH:STATE[:ERR0[:ERR1]]]... [--counters] [--verbose]\n"
        "\n"
        "Serves one emulated interface unit wired in loopback (ARINC 429 transmitter k\n"
        "to receiver k, CAN 0 with 1, UART 0 with 1, MIL-STD-1553 0 and 1 on one bus,\n"
        "discrete output bank k to input bank k; the sorrel's six UARTs 0-1, 2-3, 4-5,\n"
        "over UDP only, always paced) until SIGINT or SIGTERM.\n"
        "\n"
        "  --unit NAME   the unit to emulate:");
    for (const hdwsim::UnitModel& m : hdwsim::UnitModels())
        std::fprintf(out, " %.*s", static_cast<int>(m.Name.size()), m.Name.data());
    std::fprintf(out,
        "\n"
        "  --pty         serve the unit on a new pseudo-terminal; prints \"pty PATH\"\n"
        "  --udp PORT    serve the unit over HOE on UDP 127.0.0.1:PORT (0: any free\n"
        "                port; \"default\": the unit's own port); prints \"udp 127.0.0.1:PORT\"\n"
        "                Without --pty and --udp, both are served where the unit has them.\n"
        "  --pace        transmit ARINC 429 words and CAN frames at the buses' bit rates\n"
        "  --monotonic-clock\n"
        "                the unit's microsecond clock (event time stamps) reads\n"
        "                CLOCK_MONOTONIC, low 32 bits, so a host can compare it with its own\n"
        "  --clock-start US\n"
        "                the unit's microsecond clock starts at US (0 to 4294967295;\n"
        "                4294965296 wraps 2 s after the start)\n"
        "  --realtime    serve at real-time priority (SCHED_FIFO) where allowed, so that\n"
        "                a busy host does not make the unit late\n"
        "  --serial SN   serial number reported to Detect (default: the unit's)\n"
        "  --link PATH   with --pty: a symbolic link at PATH to the pseudo-terminal, made\n"
        "                again to the new one when the unit is plugged back; prints\n"
        "                \"link PATH\"\n"
        "  SIGUSR1 / SIGUSR2\n"
        "                unplug the unit (the pseudo-terminal closes and PATH goes; over UDP\n"
        "                it falls silent and forgets its session) / plug it back\n"
        "  --mil1553-rt TA,TA...\n"
        "                simulated MIL-STD-1553 terminals at these addresses (0 to 30), for\n"
        "                addresses no channel in RT mode owns; each transmits on a\n"
        "                subaddress the words last received there (zeros before)\n"
        "  --mil1553-fault TA:BUS:KIND[:N]\n"
        "                disturb terminal TA's answers on BUS (A, B or AB): KIND noresponse,\n"
        "                wordcount (one data word short, or one too many) or parity (its\n"
        "                status word), for the next N attempts (default: until exit);\n"
        "                may be given more than once\n"
        "  --can-fault CH:STATE[:ERR0[:ERR1]]\n"
        "                CAN channel CH reports fault state STATE (1 error passive, 2 bus\n"
        "                off) and those error-register bytes (decimal) once started; frames\n"
        "                still flow\n"
        "  --counters    at exit print the bus counters to stdout, one line per counter:\n"
        "                \"NAME v0 v1 ...\" with one value per channel\n"
        "  --verbose     log sessions, hang-ups and a counter summary at exit to stderr\n"
        "  --help        this text\n"
        "\n"
        "example:\n"
        "  hdwsim --unit halden --pty --udp 0 --pace\n"
        "  pty /dev/pts/7\n"
        "  udp 127.0.0.1:40811\n");
}

bool ParsePort(const char* text, uint16_t& port, bool& useDefault)
{
    if (std::strcmp(text, "default") == 0) {
        useDefault = true;
        return true;
    }
    char* end = nullptr;
    const unsigned long v = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0' || v > 65535)
        return false;
    port = static_cast<uint16_t>(v);
    return true;
}

void PrintPerChannel(const char* name, const hdwsim::Counters::PerChannel& values, unsigned channels)
{
    std::printf("%s", name);
    for (unsigned ch = 0; ch < channels && ch < values.size(); ++ch)
        std::printf(" %llu", static_cast<unsigned long long>(values[ch]));
    std::printf("\n");
}

// The bus counters, for a load test in another process to compare with what
// it read.
void PrintCounters(const hdwsim::UnitModel& model, const hdwsim::Counters& c)
{
    std::printf("frames-sent %llu\nevents-sent %llu\n", static_cast<unsigned long long>(c.FramesSent),
        static_cast<unsigned long long>(c.EventsSent));
    PrintPerChannel("a429-pushed", c.A429Pushed, model.Arinc429TxChannels);
    PrintPerChannel("a429-transmitted", c.A429Transmitted, model.Arinc429TxChannels);
    PrintPerChannel("a429-fifo-dropped", c.A429FifoDropped, model.Arinc429TxChannels);
    PrintPerChannel("a429-received", c.A429Received, model.Arinc429RxChannels);
    PrintPerChannel("can-pushed", c.CanPushed, model.CanChannels);
    PrintPerChannel("can-transmitted", c.CanTransmitted, model.CanChannels);
    PrintPerChannel("can-fifo-dropped", c.CanFifoDropped, model.CanChannels);
    PrintPerChannel("can-received", c.CanReceived, model.CanChannels);
    if (model.MilStd1553Channels > 0) {
        PrintPerChannel("mil1553-transfers", c.Mil1553Transfers, model.MilStd1553Channels);
        PrintPerChannel("mil1553-rt-accesses", c.Mil1553RtAccesses, model.MilStd1553Channels);
        PrintPerChannel("mil1553-monitor-records", c.Mil1553MonitorRecords, model.MilStd1553Channels);
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    const hdwsim::UnitModel* model = nullptr;
    hdwsim::Emulator::Options o;
    bool pty = false, udp = false, verbose = false, defaultPort = false, counters = false;
    uint16_t port = 0;
    std::vector<hdwsim::MilStd1553FaultOption> milFaults;
    std::vector<std::array<unsigned, 4>> canFaults; // channel, state, error bytes
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--help" || a == "-h") {
            Usage(stdout);
            return 0;
        } else if (a == "--unit" && hasValue) {
            model = hdwsim::FindUnitModel(argv[++i]);
            if (!model) {
                std::fprintf(stderr, "hdwsim: unknown unit '%s'\n", argv[i]);
                return 2;
            }
        } else if (a == "--pty") {
            pty = true;
        } else if (a == "--udp" && hasValue) {
            udp = true;
            if (!ParsePort(argv[++i], port, defaultPort)) {
                std::fprintf(stderr, "hdwsim: bad UDP port '%s'\n", argv[i]);
                return 2;
            }
        } else if (a == "--pace") {
            o.Pacing = true;
        } else if (a == "--monotonic-clock") {
            o.MonotonicClock = true;
        } else if (a == "--clock-start" && hasValue) {
            char* end = nullptr;
            const unsigned long long v = std::strtoull(argv[++i], &end, 0);
            if (end == argv[i] || *end != '\0' || v > 0xFFFFFFFFull) {
                std::fprintf(stderr, "hdwsim: bad clock start '%s'\n", argv[i]);
                return 2;
            }
            o.ClockStartUs = uint32_t(v);
        } else if (a == "--realtime") {
            o.RealTime = true;
        } else if (a == "--counters") {
            counters = true;
        } else if (a == "--serial" && hasValue) {
            o.SerialNumber = argv[++i];
        } else if (a == "--link" && hasValue) {
            o.LinkPath = argv[++i];
        } else if (a == "--mil1553-rt" && hasValue) {
            if (!hdwsim::ParseMilStd1553Terminals(argv[++i], o.MilStd1553Terminals)) {
                std::fprintf(stderr, "hdwsim: bad terminal addresses '%s'\n", argv[i]);
                return 2;
            }
        } else if (a == "--mil1553-fault" && hasValue) {
            hdwsim::MilStd1553FaultOption f;
            if (!hdwsim::ParseMilStd1553Fault(argv[++i], f)) {
                std::fprintf(stderr, "hdwsim: bad MIL-STD-1553 fault '%s' (TA:BUS:KIND[:N])\n", argv[i]);
                return 2;
            }
            milFaults.push_back(f);
        } else if (a == "--can-fault" && hasValue) {
            std::array<unsigned, 4> f{};
            char tail = 0;
            const int n = std::sscanf(argv[++i], "%u:%u:%u:%u%c", &f[0], &f[1], &f[2], &f[3], &tail);
            if (n < 2 || n > 4 || f[1] < 1 || f[1] > 2 || f[2] > 0xFF || f[3] > 0xFF) {
                std::fprintf(stderr, "hdwsim: bad CAN fault '%s' (CH:STATE[:ERR0[:ERR1]], STATE 1 or 2)\n", argv[i]);
                return 2;
            }
            canFaults.push_back(f);
        } else if (a == "--verbose") {
            verbose = true;
        } else {
            std::fprintf(stderr, "hdwsim: bad argument '%s' (see --help)\n", a.c_str());
            return 2;
        }
    }
    if (!model) {
        std::fprintf(stderr, "hdwsim: --unit is required (see --help)\n");
        return 2;
    }
    if (!pty && !udp) {
        pty = model->Serial;
        udp = model->Ethernet;
        defaultPort = true;
    }
    o.Pty = pty;
    o.Udp = udp;
    o.UdpPort = defaultPort ? model->UdpPort : port;
    if (verbose)
        o.Log = [](const std::string& line) { std::fprintf(stderr, "hdwsim: %s\n", line.c_str()); };

    // Blocked before the emulator's thread starts, so that only sigwait takes them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGUSR1);
    sigaddset(&stopSignals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    hdwsim::Emulator sim(*model, o);
    std::string error;
    if (!sim.Start(&error)) {
        std::fprintf(stderr, "hdwsim: %s\n", error.c_str());
        return 1;
    }
    for (const hdwsim::MilStd1553FaultOption& f : milFaults)
        for (unsigned bus : f.Buses)
            sim.SetMilStd1553Fault(f.Address, bus, f.Fault, f.Transfers);
    for (const auto& f : canFaults)
        if (!sim.SetCanFault(f[0], f[1], uint8_t(f[2]), uint8_t(f[3]))) {
            std::fprintf(stderr, "hdwsim: the unit has no CAN channel %u\n", f[0]);
            return 2;
        }
    if (pty)
        std::printf("pty %s\n", sim.PtyPath().c_str());
    if (pty && !o.LinkPath.empty())
        std::printf("link %s\n", o.LinkPath.c_str());
    if (udp)
        std::printf("udp 127.0.0.1:%u\n", static_cast<unsigned>(sim.UdpPort()));
    std::fflush(stdout);

    for (;;) {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        if (signal == SIGUSR1) {
            sim.Unplug();
            std::printf("unplugged\n");
        } else if (signal == SIGUSR2) {
            std::string why;
            if (sim.Plug(&why))
                std::printf("plugged\n");
            else
                std::printf("plug failed: %s\n", why.c_str());
        } else {
            break;
        }
        std::fflush(stdout);
    }
    sim.Stop();
    if (counters)
        PrintCounters(*model, sim.GetCounters());
    if (verbose) {
        const hdwsim::Counters c = sim.GetCounters();
        std::fprintf(stderr, "hdwsim: frames %llu, bad CRC %llu, commands %llu, events %llu\n",
            static_cast<unsigned long long>(c.FramesReceived), static_cast<unsigned long long>(c.FramesBadCrc),
            static_cast<unsigned long long>(c.CommandsReceived), static_cast<unsigned long long>(c.EventsSent));
    }
    return 0;
}
