// Send ARINC 429 words and CAN frames through a Halden unit whose buses are
// wired back to back, and take them in as they come, on one wait object.
//
//     halden_loopback LINK [COUNT]
//
//   LINK   where the unit is: /dev/ttyUSB0, COM5, udp:192.168.1.40:55003;
//          the emulator (hdwsim --unit halden --pty) prints a /dev/pts/N
//   COUNT  words per ARINC 429 transmitter and frames per CAN channel (100)
//
// Wiring: ARINC 429 transmitter k to receiver k (k = 0..3), CAN 0 with
// CAN 1; the emulator is wired this way. Exit status 0 when everything
// came back in order before the deadline.
//
// The pattern of a bus monitor: an input buffer per receiver holds the data
// with its time stamps; a signal service per receiver, all in one
// CKVX_HdwSignalGroup, wakes the program when the tick has put something
// there. Every call answers a result code (0 = success); nothing throws.
//
// Build against an installed library:
//     g++ -std=c++20 halden_loopback.cpp $(pkg-config --cflags --libs hdwlib)
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

using Unit = CKVX_HdwKvxHaldenDevice;

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

template <class S>
S* Enable(CKVX_HdwPort* port, unsigned type, CKVX_HdwService::CParameters* params, const char* what)
{
    CKVX_HdwService* s = nullptr;
    if (!port || Failed(what, port->EnableService(type, &s, params)))
        return nullptr;
    return dynamic_cast<S*>(s);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::printf("usage: %s LINK [COUNT]   (LINK: /dev/ttyUSB0, COM5, udp:HOST:PORT)\n", argv[0]);
        return 2;
    }
    const unsigned count = argc > 2 ? unsigned(std::atoi(argv[2])) : 100;

    Unit unit;
    CKVX_HdwManager manager;
    if (Failed("AttachDevice", manager.AttachDevice(&unit)))
        return 1;
    CKVX_HdwManager::CInitPortDesc link(unit.GetDeviceCode(), argv[1]);
    if (Failed("Enumerate", manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan)) ||
        Failed("the unit on that link", link.Result) || Failed("Run", manager.Run()))
        return 1;

    CKVX_HdwSignalGroup group;
    CKVX_HdwSignalService::CParameters wakeA429, wakeCan;
    wakeA429.SignalMask = 1u << (HDW_SIGNAL_ARINC429_RECEIVED - 1);
    wakeCan.SignalMask = 1u << (HDW_SIGNAL_CAN_RECEIVED - 1);
    std::vector<CKVX_HdwSignalService*> wakers;
    CKVX_HdwArinc429InBufferService* rx[4] = {};
    CKVX_HdwArinc429OutBufferService* tx[4] = {};
    CKVX_HdwCanInBufferService* canIn[2] = {};
    CKVX_HdwCanOutBufferService* canOut[2] = {};

    // Services are enabled before the port opens; receivers open first so
    // that nothing sent is missed.
    for (unsigned k = 0; k < 4; ++k) {
        CKVX_HdwPort* rxPort = manager.GetPort(HDW_PORT_ARINC429_RX, k);
        CKVX_HdwPort* txPort = manager.GetPort(HDW_PORT_ARINC429_TX, k);
        rx[k] = Enable<CKVX_HdwArinc429InBufferService>(rxPort, HDW_SERVICE_ARINC429_IN_BUFFER, nullptr, "receive");
        tx[k] = Enable<CKVX_HdwArinc429OutBufferService>(txPort, HDW_SERVICE_ARINC429_OUT_BUFFER, nullptr, "send");
        auto* wake = Enable<CKVX_HdwSignalService>(rxPort, HDW_SERVICE_SIGNAL, &wakeA429, "signals");
        if (!rx[k] || !tx[k] || !wake)
            return 1;
        wakers.push_back(wake);
        CKVX_HdwArinc429RxPort::CParameters rp; // 12.5 kbit/s unless changed
        rp.BaudRate = rp.HighSpeed;
        CKVX_HdwArinc429TxPort::CParameters tp;
        tp.BaudRate = tp.HighSpeed;
        // The default gap between words (319 µs) is that of 12.5 kbit/s.
        tp.WordIntergap = CKVX_HdwArinc429TxPort::CalcWordIntergap(tp.BaudRate, 4);
        if (Failed("open an ARINC 429 receiver", rxPort->Open(&rp)) ||
            Failed("open an ARINC 429 transmitter", txPort->Open(&tp)))
            return 1;
    }
    for (unsigned k = 0; k < 2; ++k) {
        CKVX_HdwPort* port = manager.GetPort(HDW_PORT_CAN, k);
        canIn[k] = Enable<CKVX_HdwCanInBufferService>(port, HDW_SERVICE_CAN_IN_BUFFER, nullptr, "receive");
        canOut[k] = Enable<CKVX_HdwCanOutBufferService>(port, HDW_SERVICE_CAN_OUT_BUFFER, nullptr, "send");
        auto* wake = Enable<CKVX_HdwSignalService>(port, HDW_SERVICE_SIGNAL, &wakeCan, "signals");
        if (!canIn[k] || !canOut[k] || !wake || Failed("open a CAN channel", port->Open(nullptr))) // 1 Mbit/s
            return 1;
        wakers.push_back(wake);
    }
    for (CKVX_HdwSignalService* s : wakers)
        s->JoinGroup(&group);

    // Label 0100 + k carries a running number in its data field on
    // transmitter k; CAN k sends identifiers 0x100 * (k + 1) + n.
    for (unsigned k = 0; k < 4; ++k) {
        std::vector<CKVX_HdwArinc429Message> words(count);
        for (unsigned n = 0; n < count; ++n) {
            words[n].Label = uint8_t(0100 + k);
            words[n].Data = n;
        }
        if (Failed("Write", tx[k]->Write(words.data(), count, 0)))
            return 1;
    }
    for (unsigned k = 0; k < 2; ++k) {
        std::vector<CKVX_HdwCanMessage> frames(count);
        for (unsigned n = 0; n < count; ++n) {
            frames[n].Identifier = 0x100 * (k + 1) + n;
            frames[n].Dlc = 2;
            frames[n].Data[0] = uint8_t(n);
            frames[n].Data[1] = uint8_t(n >> 8);
        }
        if (Failed("Write", canOut[k]->Write(frames.data(), count, 0)))
            return 1;
    }

    unsigned words[4] = {}, frames[2] = {}, wrong = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10 + count / 200);
    auto done = [&] {
        for (unsigned k = 0; k < 4; ++k)
            if (words[k] < count)
                return false;
        return frames[0] == count && frames[1] == count;
    };
    while (!done() && std::chrono::steady_clock::now() < deadline && wrong == 0) {
        WaitFor(group, 100);
        // Empty the signals first: whatever arrives after this still leaves one.
        CKVX_HdwSignalService::CSignal signals[64];
        for (CKVX_HdwSignalService* s : wakers) {
            unsigned n = 0;
            do
                s->ReadSignals(signals, 64, n);
            while (n == 64);
        }
        for (unsigned k = 0; k < 4; ++k) {
            CKVX_HdwArinc429Message got[256];
            unsigned n = 0;
            const unsigned rc = rx[k]->Read(got, 256, n);
            if (rc != 0 && rc != HDW_ERR_NOTHING_TO_READ && Failed("Read", rc))
                return 1;
            for (unsigned i = 0; i < n; ++i, ++words[k])
                if (got[i].Label != 0100 + k || got[i].Data != words[k]) {
                    std::printf("receiver %u: word %u came with label %o, data %u\n", k, words[k],
                        unsigned(got[i].Label), unsigned(got[i].Data));
                    ++wrong;
                }
        }
        for (unsigned k = 0; k < 2; ++k) {
            CKVX_HdwCanMessage got[128];
            unsigned n = 0;
            const unsigned rc = canIn[k]->Read(got, 128, n);
            if (rc != 0 && rc != HDW_ERR_NOTHING_TO_READ && Failed("Read", rc))
                return 1;
            // CAN k receives what the other channel sent.
            for (unsigned i = 0; i < n; ++i, ++frames[k])
                if (got[i].Identifier != 0x100 * (2 - k) + frames[k]) {
                    std::printf(
                        "CAN %u: frame %u came with identifier 0x%X\n", k, frames[k], unsigned(got[i].Identifier));
                    ++wrong;
                }
        }
    }
    for (unsigned k = 0; k < 4; ++k)
        std::printf("ARINC 429 receiver %u: %u of %u words\n", k, words[k], count);
    for (unsigned k = 0; k < 2; ++k)
        std::printf("CAN %u: %u of %u frames\n", k, frames[k], count);
    manager.Stop();
    return done() && wrong == 0 ? 0 : 1;
}
