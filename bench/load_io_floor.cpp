// What the full Halden load's input and output cost the kernel and the
// machine with no library code at all: a thread that wakes every 1 ms at an
// absolute deadline, reads a pseudo-terminal until a read comes back short,
// writes a command frame every few ticks and wakes an application thread
// through an eventfd when bytes came in. A child process plays the unit: it
// writes the input in five slices a millisecond and drains what it is sent.
// The defaults are what the library's timer thread reads and writes under
// load_halden_paced (strace: about 985 bytes read a tick, a 1,200-byte frame
// every fourth tick). The difference between load_halden_paced's library
// figure and this one's thread figure is what the library's own code costs.
// Usage: load_io_floor [SECONDS=20 [BYTES_IN_PER_MS=985 [BYTES_OUT=1200 [OUT_EVERY_TICKS=4]]]]
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "CpuTime.h"

namespace {

struct Setup {
    unsigned ticks = 20000;
    unsigned bytesIn = 985; // per millisecond, from the unit
    unsigned bytesOut = 1200; // one command frame
    unsigned outEvery = 4; // ticks between command frames
};

int g_Slave = -1;
int g_Event = -1;
Setup g_Setup;
double g_TickCpu = 0;
std::atomic<bool> g_Done{false};

void AddNs(timespec& t, long ns)
{
    t.tv_nsec += ns;
    while (t.tv_nsec >= 1000000000L) {
        t.tv_nsec -= 1000000000L;
        ++t.tv_sec;
    }
}

// SCHED_FIFO as the library's timer thread and hdwsim --realtime ask for;
// without the privilege the thread stays as it is, as theirs do.
void TryRealtime(int priority)
{
    sched_param p{};
    p.sched_priority = priority;
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &p);
}

void* TickThread(void*)
{
    TryRealtime(10);
    std::vector<uint8_t> chunk(4096), frame(g_Setup.bytesOut, 0x55);
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const double cpu0 = bench::CpuSeconds(RUSAGE_THREAD);
    for (unsigned tick = 0; tick < g_Setup.ticks; ++tick) {
        AddNs(next, 1000000L);
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        size_t got = 0;
        for (;;) {
            const ssize_t r = read(g_Slave, chunk.data(), chunk.size());
            if (r <= 0)
                break;
            got += size_t(r);
            if (size_t(r) < chunk.size())
                break;
        }
        if (g_Setup.outEvery && g_Setup.bytesOut && tick % g_Setup.outEvery == 0)
            (void)!write(g_Slave, frame.data(), frame.size());
        if (got) {
            const uint64_t one = 1;
            (void)!write(g_Event, &one, sizeof one);
        }
    }
    g_TickCpu = bench::CpuSeconds(RUSAGE_THREAD) - cpu0;
    g_Done = true;
    return nullptr;
}

[[noreturn]] void PlayUnit(int master, unsigned bytesPerMs)
{
    TryRealtime(20);
    std::vector<uint8_t> out(4096, 0xAA), in(4096);
    const unsigned slice = bytesPerMs / 5;
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (;;) {
        AddNs(next, 200000L);
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        if (slice)
            (void)!write(master, out.data(), slice);
        pollfd p{master, POLLIN, 0};
        while (poll(&p, 1, 0) > 0 && read(master, in.data(), in.size()) > 0) {}
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1)
        g_Setup.ticks = unsigned(std::atof(argv[1]) * 1000);
    if (argc > 2)
        g_Setup.bytesIn = unsigned(std::atoi(argv[2]));
    if (argc > 3)
        g_Setup.bytesOut = unsigned(std::atoi(argv[3]));
    if (argc > 4)
        g_Setup.outEvery = unsigned(std::atoi(argv[4]));

    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        std::perror("pseudo-terminal");
        return 1;
    }
    g_Slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios t{};
    if (g_Slave < 0 || tcgetattr(g_Slave, &t) != 0) {
        std::perror("pseudo-terminal slave");
        return 1;
    }
    cfmakeraw(&t);
    tcsetattr(g_Slave, TCSANOW, &t);
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);

    const pid_t unit = fork();
    if (unit == 0)
        PlayUnit(master, g_Setup.bytesIn);
    g_Event = eventfd(0, 0);

    pthread_t tick;
    pthread_create(&tick, nullptr, TickThread, nullptr);
    const double app0 = bench::CpuSeconds(RUSAGE_THREAD);
    uint64_t wakes = 0;
    while (!g_Done) {
        pollfd p{g_Event, POLLIN, 0};
        uint64_t value = 0;
        if (poll(&p, 1, 100) > 0 && read(g_Event, &value, sizeof value) == sizeof value)
            ++wakes;
    }
    pthread_join(tick, nullptr);
    const double app = bench::CpuSeconds(RUSAGE_THREAD) - app0;
    kill(unit, SIGKILL);
    waitpid(unit, nullptr, 0);

    const double seconds = g_Setup.ticks / 1000.0;
    double load[3] = {0, 0, 0};
    getloadavg(load, 3);
    std::printf("%.1f s: %u bytes in a millisecond, %u bytes out every %u ticks; load average %.2f\n", seconds,
        g_Setup.bytesIn, g_Setup.bytesOut, g_Setup.outEvery, load[0]);
    std::printf("tick thread %.2f %% of one core, application thread %.2f %% (%.0f wake-ups a second)\n",
        100.0 * g_TickCpu / seconds, 100.0 * app / seconds, double(wakes) / seconds);
    return 0;
}
