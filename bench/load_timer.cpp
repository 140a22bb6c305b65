// Timer lateness and drift: runs the main timer for N ticks at 1 ms and
// reports how late each callback came relative to its absolute deadline
// (start + (n + 1) * period), as percentiles, plus the cumulative drift over
// the run, and the CPU time of the timer thread, whose callback here does
// nothing: what a 1 ms tick costs on this machine before any work.
// Usage: load_timer [ticks=10000] [period_ms=1]
#include <HdwLib/HdwLib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "CpuTime.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Run {
    std::vector<int64_t> arrivalsNs;
    double cpuAtFirst = 0, cpuAtLast = 0; // the timer thread's, at the first and last counted tick
    size_t wanted = 0;
    std::atomic<bool> done{false};
};

void OnTick(uint64_t, void* ctx)
{
    auto* run = static_cast<Run*>(ctx);
    if (run->arrivalsNs.size() < run->wanted) {
        run->arrivalsNs.push_back(Clock::now().time_since_epoch().count());
        if (run->arrivalsNs.size() == 1)
            run->cpuAtFirst = bench::CpuSeconds(RUSAGE_THREAD);
        if (run->arrivalsNs.size() == run->wanted) {
            run->cpuAtLast = bench::CpuSeconds(RUSAGE_THREAD);
            run->done.store(true);
        }
    }
}

double Percentile(std::vector<int64_t> v, double p)
{
    std::sort(v.begin(), v.end());
    const size_t i = std::min(v.size() - 1, static_cast<size_t>(p / 100.0 * double(v.size())));
    return double(v[i]) / 1000.0;
}

} // namespace

int main(int argc, char** argv)
{
    const size_t ticks = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10000;
    const unsigned periodMs = argc > 2 ? unsigned(std::strtoul(argv[2], nullptr, 10)) : 1;
    if (ticks < 2 || periodMs == 0) {
        std::fprintf(stderr, "usage: load_timer [ticks>=2] [period_ms>=1]\n");
        return 2;
    }
    Run run;
    run.wanted = ticks;
    run.arrivalsNs.reserve(ticks);

    CKVX_HdwTimer timer;
    const int64_t startNs = Clock::now().time_since_epoch().count();
    if (timer.Start(periodMs, &OnTick, &run) != 0) {
        std::fprintf(stderr, "load_timer: the timer could not be started\n");
        return 1;
    }
    while (!run.done.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    timer.Stop();

    const int64_t periodNs = int64_t(periodMs) * 1000000;
    std::vector<int64_t> fromStart(ticks);
    for (size_t n = 0; n < ticks; ++n)
        fromStart[n] = run.arrivalsNs[n] - (startNs + int64_t(n + 1) * periodNs);
    // The timer thread takes its start time a little after Start was called
    // (thread creation); align the deadline grid on the earliest tick so that
    // this constant offset is not counted as lateness.
    const int64_t offset = *std::min_element(fromStart.begin(), fromStart.end());
    std::vector<int64_t> lateness(ticks);
    for (size_t n = 0; n < ticks; ++n)
        lateness[n] = fromStart[n] - offset;
    // Drift: how far the last tick's lateness moved from the first ticks'
    // (median of the first 100 against the median of the last 100).
    const size_t w = std::min<size_t>(100, ticks / 2);
    std::vector<int64_t> head(lateness.begin(), lateness.begin() + long(w));
    std::vector<int64_t> tail(lateness.end() - long(w), lateness.end());
    const double driftUs = Percentile(tail, 50) - Percentile(head, 50);

    std::printf("ticks %zu period_ms %u\n", ticks, periodMs);
    std::printf("lateness_us p50 %.1f p90 %.1f p99 %.1f p99.9 %.1f max %.1f\n", Percentile(lateness, 50),
        Percentile(lateness, 90), Percentile(lateness, 99), Percentile(lateness, 99.9), Percentile(lateness, 100));
    std::printf("start_offset_us %.1f (thread start, excluded above)\n", double(offset) / 1000.0);
    std::printf("drift_us %.1f over %.3f s\n", driftUs, double(ticks) * periodMs / 1000.0);
    const double spanS = double(run.arrivalsNs.back() - run.arrivalsNs.front()) / 1e9;
    std::printf("timer_thread_cpu %.2f %% of one core (empty callback)\n",
        spanS > 0 ? 100.0 * (run.cpuAtLast - run.cpuAtFirst) / spanS : 0.0);
    return 0;
}
