#pragma once
// Waiting on a library wait object; one file per OS implements it.

namespace hdwtool {

// Blocks until the descriptor is readable or timeoutMs passed (or a signal
// such as Ctrl-C came); true when readable.
bool WaitReadable(int fd, unsigned timeoutMs);

} // namespace hdwtool
