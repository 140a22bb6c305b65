// Readiness event on Linux: an eventfd whose counter is 1 while set.
#include <HdwLib/bus/internal/PlatformSignal.h>

#include <cstdint>
#include <new>
#include <sys/eventfd.h>
#include <unistd.h>

namespace hdw::platform {

namespace {
struct Readiness {
    int Fd = -1;
};
} // namespace

void* ReadinessCreate()
{
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0)
        return nullptr;
    auto* r = new (std::nothrow) Readiness;
    if (!r) {
        close(fd);
        return nullptr;
    }
    r->Fd = fd;
    return r;
}

void ReadinessDestroy(void* readiness)
{
    auto* r = static_cast<Readiness*>(readiness);
    if (!r)
        return;
    close(r->Fd);
    delete r;
}

void ReadinessSet(void* readiness)
{
    if (auto* r = static_cast<Readiness*>(readiness)) {
        const uint64_t one = 1;
        // Cannot block (the counter is 0 or 1); a failure leaves it as it was.
        [[maybe_unused]] const ssize_t n = write(r->Fd, &one, sizeof one);
    }
}

void ReadinessReset(void* readiness)
{
    if (auto* r = static_cast<Readiness*>(readiness)) {
        uint64_t value = 0;
        // One read zeroes the counter; EAGAIN when it already was 0.
        [[maybe_unused]] const ssize_t n = read(r->Fd, &value, sizeof value);
    }
}

int ReadinessDescriptor(void* readiness)
{
    const auto* r = static_cast<const Readiness*>(readiness);
    return r ? r->Fd : -1;
}

void* ReadinessHandle(void*)
{
    return nullptr;
}

} // namespace hdw::platform
