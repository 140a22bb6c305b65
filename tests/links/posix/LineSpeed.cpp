// termios2 in a file of its own: the kernel's and the C library's headers clash.
#include <asm/termbits.h>
#include <sys/ioctl.h>

long ReadLineSpeed(int fd)
{
    termios2 t{};
    if (ioctl(fd, TCGETS2, &t) != 0)
        return -1;
    return static_cast<long>(t.c_ospeed);
}
