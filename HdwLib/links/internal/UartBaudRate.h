#pragma once
// Linux only: arbitrary line speeds through termios2 (posix/UartBaudRate.cpp).
// Kept apart because the kernel's <asm/termbits.h> and the C library's
// <termios.h> cannot be included in the same file.

namespace hdw::platform {

// Sets input and output speed of the open terminal `fd` to `baud` bit/s
// (any value, with BOTHER). Returns false when the driver refuses.
bool SetUartBaudRate(int fd, unsigned baud);
// The output speed the driver holds now, in bit/s; false when it cannot be read.
bool GetUartBaudRate(int fd, unsigned& baud);

} // namespace hdw::platform
