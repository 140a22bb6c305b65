// Send a byte stream each way between two UARTs of a Sorrel unit that are
// wired to each other, and take the bytes in as they come, on one wait object.
//
//     sorrel_uarts LINK [BYTES]
//
//   LINK   where the unit is: udp:192.168.1.50:55009; the emulator
//          (hdwsim --unit sorrel --udp 0) prints its address
//   BYTES  bytes each way (10000)
//
// Wiring: UART 0 with UART 1 (the emulator is wired this way), both at
// 115,200 bit/s, 8 data bits, no parity, 1 stop bit. Exit status 0 when every
// byte came back in order before the deadline.
//
// The pattern of a serial monitor: a byte input service per UART holds what
// came; a signal service per UART, both in one CKVX_HdwSignalGroup, wakes the
// program when the tick has put bytes there (HDW_SIGNAL_UART_RECEIVED, Value =
// bytes). Every call answers a result code (0 = success); nothing throws.
//
// Build against an installed library:
//     g++ -std=c++20 sorrel_uarts.cpp $(pkg-config --cflags --libs hdwlib)
#include <HdwLib/HdwLib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <poll.h>
#endif

namespace {

bool Failed(const char* what, unsigned rc)
{
    if (rc == 0)
        return false;
    std::printf("%s failed: %u (%s)\n", what, rc, CKVX_HdwObject::GetResultText(rc));
    return true;
}

// Blocks until the group is readable or `ms` passed.
void WaitFor(const CKVX_HdwSignalGroup& group, unsigned ms)
{
#if defined(_WIN32)
    WaitForSingleObject(static_cast<HANDLE>(group.GetWaitHandle()), ms);
#else
    pollfd p{group.GetFileDescriptor(), POLLIN, 0};
    poll(&p, 1, int(ms));
#endif
}

// The byte at position n of the stream UART `uart` sends.
unsigned char StreamByte(unsigned uart, unsigned n)
{
    return static_cast<unsigned char>((n * 7 + uart * 101) & 0xFF);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::printf("usage: %s LINK [BYTES]   (LINK: udp:HOST:PORT)\n", argv[0]);
        return 2;
    }
    const unsigned count = argc > 2 ? unsigned(std::atoi(argv[2])) : 10000;

    CKVX_HdwKvxSorrelDevice unit;
    CKVX_HdwManager manager;
    if (Failed("AttachDevice", manager.AttachDevice(&unit)))
        return 1;
    CKVX_HdwManager::CInitPortDesc link(unit.GetDeviceCode(), argv[1]);
    if (Failed("Enumerate", manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan)) ||
        Failed("the unit on that link", link.Result) || Failed("Run", manager.Run()))
        return 1;

    CKVX_HdwSignalGroup group;
    CKVX_HdwSignalService::CParameters wakeOnBytes;
    wakeOnBytes.SignalMask = 1u << (HDW_SIGNAL_UART_RECEIVED - 1);
    CKVX_HdwByteInBufferService* in[2] = {};
    CKVX_HdwByteOutBufferService* out[2] = {};
    CKVX_HdwSignalService* wake[2] = {};
    // Services are enabled before the port opens.
    for (unsigned k = 0; k < 2; ++k) {
        CKVX_HdwPort* port = manager.GetPort(HDW_PORT_UART, k);
        CKVX_HdwService* s = nullptr;
        if (!port || Failed("receive", port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, nullptr)))
            return 1;
        in[k] = dynamic_cast<CKVX_HdwByteInBufferService*>(s);
        if (Failed("send", port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr)))
            return 1;
        out[k] = dynamic_cast<CKVX_HdwByteOutBufferService*>(s);
        if (Failed("signals", port->EnableService(HDW_SERVICE_SIGNAL, &s, &wakeOnBytes)))
            return 1;
        wake[k] = dynamic_cast<CKVX_HdwSignalService*>(s);
        if (!in[k] || !out[k] || !wake[k] || Failed("JoinGroup", wake[k]->JoinGroup(&group)))
            return 1;
        CKVX_HdwUartPort::CParameters line;
        line.BaudRate = 115200;
        if (Failed("open a UART", port->Open(&line)))
            return 1;
    }

    for (unsigned k = 0; k < 2; ++k) {
        std::vector<unsigned char> bytes(count);
        for (unsigned n = 0; n < count; ++n)
            bytes[n] = StreamByte(k, n);
        if (Failed("Write", out[k]->Write(bytes.data(), count, 0)))
            return 1;
    }

    unsigned got[2] = {}, announced[2] = {}, wrong = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10 + count / 5000);
    auto done = [&] { return got[0] == count && got[1] == count; };
    while (!done() && std::chrono::steady_clock::now() < deadline && wrong == 0) {
        WaitFor(group, 100);
        // Empty the signals first: whatever arrives after this still leaves one.
        for (unsigned k = 0; k < 2; ++k) {
            CKVX_HdwSignalService::CSignal signals[64];
            unsigned n = 0;
            do {
                wake[k]->ReadSignals(signals, 64, n);
                for (unsigned i = 0; i < n; ++i)
                    announced[k] += signals[i].Value;
            } while (n == 64);
        }
        for (unsigned k = 0; k < 2; ++k) {
            unsigned char bytes[4096];
            unsigned n = 0;
            const unsigned rc = in[k]->Read(bytes, sizeof bytes, n);
            if (rc != 0 && rc != HDW_ERR_NOTHING_TO_READ && Failed("Read", rc))
                return 1;
            // UART k receives what the other one sent.
            for (unsigned i = 0; i < n && wrong == 0; ++i, ++got[k])
                if (bytes[i] != StreamByte(1 - k, got[k])) {
                    std::printf("UART %u: byte %u came as 0x%02X\n", k, got[k], unsigned(bytes[i]));
                    ++wrong;
                }
        }
    }
    for (unsigned k = 0; k < 2; ++k)
        std::printf("UART %u: %u of %u bytes (signals announced %u)\n", k, got[k], count, announced[k]);
    manager.Stop();
    return done() && wrong == 0 ? 0 : 1;
}
