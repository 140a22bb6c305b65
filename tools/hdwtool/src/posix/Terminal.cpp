#include "../Terminal.h"

#include <atomic>
#include <csignal>
#include <sys/ioctl.h>
#include <unistd.h>

namespace hdwtool {

namespace {
std::atomic<bool> g_Stop{false};

void OnSignal(int)
{
    g_Stop.store(true);
}
} // namespace

bool IsTerminal(int fd)
{
    return isatty(fd) == 1;
}

void InstallStopHandler()
{
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool StopRequested()
{
    return g_Stop.load();
}

unsigned TerminalWidth()
{
    winsize ws{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 20)
        return ws.ws_col;
    return 80;
}

} // namespace hdwtool
