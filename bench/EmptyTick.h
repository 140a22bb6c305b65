#pragma once
// What a tick that does nothing costs this machine now: the library's timer
// with an empty callback for a few seconds, the timer thread's CPU time over
// the span between its first and last tick. On a virtual machine the wake
// of a halted CPU can cost anything from 1 % to 4 % of a core per 1,000
// wakes a second, from host to host and hour to hour, so the load programs
// report it beside their own figure.

#include <HdwLib/HdwLib.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "CpuTime.h"

namespace bench {

namespace empty_tick {
struct Run {
    uint64_t Wanted = 0;
    uint64_t Seen = 0;
    double CpuFirst = 0, CpuLast = 0;
    std::chrono::steady_clock::time_point First, Last;
    std::atomic<bool> Done{false};
};

inline void OnTick(uint64_t, void* context)
{
    auto* run = static_cast<Run*>(context);
    if (run->Seen >= run->Wanted)
        return;
    if (++run->Seen == 1) {
        run->CpuFirst = CpuSeconds(RUSAGE_THREAD);
        run->First = std::chrono::steady_clock::now();
    } else if (run->Seen == run->Wanted) {
        run->CpuLast = CpuSeconds(RUSAGE_THREAD);
        run->Last = std::chrono::steady_clock::now();
        run->Done.store(true);
    }
}
} // namespace empty_tick

// Percent of one core; negative when the timer could not be started.
inline double EmptyTickPercent(unsigned periodMs, unsigned seconds)
{
    empty_tick::Run run;
    run.Wanted = uint64_t(seconds) * 1000u / periodMs + 1;
    CKVX_HdwTimer timer;
    if (timer.Start(periodMs, &empty_tick::OnTick, &run) != 0)
        return -1;
    while (!run.Done.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    timer.Stop();
    const double span = std::chrono::duration<double>(run.Last - run.First).count();
    return span > 0 ? 100.0 * (run.CpuLast - run.CpuFirst) / span : 0.0;
}

} // namespace bench
