#pragma once
// Platform half of the signal service's readiness object
// (posix/PlatformSignal.cpp, win32/PlatformSignal.cpp): an event that an
// application can wait on with the system's own multiplexing (poll/epoll on
// Linux, WaitForMultipleObjects on Windows). Set and reset are idempotent;
// the caller serialises them.

namespace hdw::platform {

// Null when the system refuses.
void* ReadinessCreate();
void ReadinessDestroy(void* readiness);
void ReadinessSet(void* readiness);
void ReadinessReset(void* readiness);
// The descriptor that polls readable while set, or -1 where there is none.
int ReadinessDescriptor(void* readiness);
// The system handle that is signalled while set, or null where there is none.
void* ReadinessHandle(void* readiness);

} // namespace hdw::platform
