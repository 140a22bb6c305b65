// Arbitrary line speeds with termios2 (TCGETS2/TCSETS2 and BOTHER): the
// classic Bxxx constants stop at 4,000,000 and have no 6,000,000 or 8,000,000.
#include <HdwLib/links/internal/UartBaudRate.h>

#include <asm/termbits.h>
#include <sys/ioctl.h>

bool hdw::platform::SetUartBaudRate(int fd, unsigned baud)
{
    if (baud == 0)
        return false;
    termios2 tio{};
    if (ioctl(fd, TCGETS2, &tio) != 0)
        return false;
    tio.c_cflag &= ~(CBAUD | (CBAUD << IBSHIFT));
    tio.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
    tio.c_ispeed = baud;
    tio.c_ospeed = baud;
    return ioctl(fd, TCSETS2, &tio) == 0;
}

bool hdw::platform::GetUartBaudRate(int fd, unsigned& baud)
{
    termios2 tio{};
    if (ioctl(fd, TCGETS2, &tio) != 0)
        return false;
    baud = tio.c_ospeed;
    return true;
}
