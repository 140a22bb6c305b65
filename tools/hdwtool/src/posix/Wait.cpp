#include "../Wait.h"

#include <poll.h>

namespace hdwtool {

bool WaitReadable(int fd, unsigned timeoutMs)
{
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, int(timeoutMs)) == 1 && (p.revents & POLLIN);
}

} // namespace hdwtool
