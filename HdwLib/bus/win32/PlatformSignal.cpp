// Readiness event on Windows: a manual-reset event, signalled while set.
// There is no descriptor to poll.
#include <HdwLib/bus/internal/PlatformSignal.h>

#include <windows.h>

namespace hdw::platform {

void* ReadinessCreate()
{
    HANDLE h = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    return h;
}

void ReadinessDestroy(void* readiness)
{
    if (readiness)
        CloseHandle(static_cast<HANDLE>(readiness));
}

void ReadinessSet(void* readiness)
{
    if (readiness)
        SetEvent(static_cast<HANDLE>(readiness));
}

void ReadinessReset(void* readiness)
{
    if (readiness)
        ResetEvent(static_cast<HANDLE>(readiness));
}

int ReadinessDescriptor(void*)
{
    return -1;
}

void* ReadinessHandle(void* readiness)
{
    return readiness;
}

} // namespace hdw::platform
