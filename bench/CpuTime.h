#pragma once
// CPU time (user + system) of the load programs' threads and processes.

#include <sys/resource.h>

namespace bench {

// Seconds of CPU used by `who`: RUSAGE_SELF (the process) or RUSAGE_THREAD
// (the calling thread).
inline double CpuSeconds(int who)
{
    rusage u{};
    getrusage(who, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

} // namespace bench
