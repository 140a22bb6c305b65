#pragma once
// The few things the tool asks of the operating system's terminal and
// signals; one file per OS implements them.

namespace hdwtool {

// True when the descriptor (1 = stdout) is a terminal.
bool IsTerminal(int fd);
// Ctrl-C (and SIGTERM) set a flag instead of ending the process, so that
// ports are closed and the unit is left quiet.
void InstallStopHandler();
bool StopRequested();
// Columns of the terminal on stdout, 80 when unknown.
unsigned TerminalWidth();

} // namespace hdwtool
