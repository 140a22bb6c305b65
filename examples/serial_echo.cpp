// Open a serial port by name, write a few bytes and read back their echo.
//
//     serial_echo PORT [BAUD]     a real port: COM5, /dev/ttyUSB0, /dev/ttyS0 ...
//                                 with a loopback plug (TX wired to RX) or a
//                                 device that echoes what it receives
//     serial_echo --self-test     Linux: makes its own pseudo-terminal pair,
//                                 echoes on one end and runs the same code
//                                 against the other end's name (/dev/pts/N)
//
// CUart is the library's serial line: open by name, non-blocking Read of what
// has arrived, Write that waits for completion up to a time-out. Every call
// answers a result code (0 = success); nothing throws.
//
// Build against an installed library:
//     g++ -std=c++20 serial_echo.cpp $(pkg-config --cflags --libs hdwlib) -lutil
#include <HdwLib/HdwLib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#if defined(__linux__)
#define SERIAL_ECHO_HAS_PTY 1
#include <atomic>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace {

bool Failed(const char* what, unsigned rc)
{
    if (rc == 0)
        return false;
    std::printf("%s failed: %u (%s)\n", what, rc, CKVX_HdwObject::GetResultText(rc));
    return true;
}

// The part a program of your own would contain.
int EchoThrough(const std::string& portName, uint32_t baudRate)
{
    CUart uart;
    CKVX_HdwUartPort::CParameters line; // 9600 8N1, no flow control unless changed
    line.BaudRate = baudRate;
    line.Parity = CKVX_HdwUartPort::CParameters::ParityNone;
    line.StopBits = CKVX_HdwUartPort::CParameters::StopBitsOne;
    line.DataBits = 8;

    // 14: no such port, or it refused the settings (a pseudo-terminal, for
    // instance, cannot hold parity).
    if (Failed("Open", uart.Open(portName.c_str(), &line)))
        return 1;
    std::printf("opened %s at %u bit/s\n", portName.c_str(), unsigned(baudRate));

    unsigned char message[] = "hello, serial line";
    const unsigned length = sizeof message - 1;
    // 23: the bytes did not go out within 1000 ms (the rest was discarded).
    if (Failed("Write", uart.Write(message, length, 1000))) {
        uart.Close();
        return 1;
    }
    std::printf("wrote %u bytes\n", length);

    // Read returns at once with what has arrived so far (perhaps nothing),
    // so collect the echo for up to 2 s.
    unsigned char echo[64] = {};
    unsigned received = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (received < length && std::chrono::steady_clock::now() < deadline) {
        unsigned got = 0;
        // 13: the line failed (unplugged, the far side hung up).
        if (Failed("Read", uart.Read(echo + received, length - received, got))) {
            uart.Close();
            return 1;
        }
        received += got;
        if (got == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    uart.Close(); // always answers 0

    std::printf("read %u bytes: \"%.*s\"\n", received, int(received), reinterpret_cast<char*>(echo));
    if (received != length || std::memcmp(echo, message, length) != 0) {
        std::printf("no echo (is the far side wired back or echoing?)\n");
        return 1;
    }
    std::printf("echo matches\n");
    return 0;
}

#ifdef SERIAL_ECHO_HAS_PTY
// A pseudo-terminal pair as a stand-in for a device: echoes on the master
// whatever is written to the slave, until told to stop.
int SelfTest()
{
    int master = -1;
    int slave = -1;
    char name[256] = {};
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0) {
        std::perror("openpty");
        return 1;
    }
    termios raw{};
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);

    std::atomic<bool> stop{false};
    std::thread echo([&] {
        unsigned char buf[256];
        while (!stop) {
            pollfd p{master, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0)
                continue;
            const ssize_t n = read(master, buf, sizeof buf);
            if (n > 0 && write(master, buf, size_t(n)) != n)
                break;
        }
    });
    std::printf("self-test: echoing on the master of %s\n", name);
    const int rc = EchoThrough(name, 115200);
    stop = true;
    echo.join();
    close(slave);
    close(master);
    return rc;
}
#endif

} // namespace

int main(int argc, char** argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "--self-test") == 0) {
#ifdef SERIAL_ECHO_HAS_PTY
        return SelfTest();
#else
        std::printf("--self-test needs pseudo-terminals (Linux)\n");
        return 2;
#endif
    }
    if (argc < 2 || argv[1][0] == '-') {
        std::printf("usage: %s PORT [BAUD]   (COM5, /dev/ttyUSB0 ...)\n"
                    "       %s --self-test\n",
            argv[0], argv[0]);
        return 2;
    }
    const uint32_t baud = argc >= 3 ? uint32_t(std::strtoul(argv[2], nullptr, 10)) : 115200;
    return EchoThrough(argv[1], baud);
}
