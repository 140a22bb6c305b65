// Full load through the emulated unit on a pseudo-terminal, paced at the
// buses' rates: 4 ARINC 429 channels at 100 kbit/s and 2 CAN channels at
// 1 Mbit/s for the given number of seconds (default 60). Reports words and
// frames lost (emulator counters against what the application read), the
// process's CPU time (the emulator runs in this process too, so this is an
// upper bound of the library's), and the delay from the unit's event to the
// Read that returned it (99th percentile, in milliseconds).
//
//     load_halden_paced [seconds]
#include <HdwLib/HdwLib.h>
#include <hdwsim/Emulator.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

int main(int argc, char** argv)
{
    const unsigned seconds = argc > 1 ? unsigned(std::atoi(argv[1])) : 60;
    using D = CKVX_HdwKvxHaldenDevice;
    hdwsim::Emulator::Options o;
    o.Pacing = true;
    hdwsim::Emulator sim(hdwsim::HaldenModel(), o);
    std::string error;
    if (!sim.Start(&error)) {
        std::fprintf(stderr, "emulator: %s\n", error.c_str());
        return 1;
    }
    auto device = std::make_unique<D>();
    CKVX_HdwManager manager;
    manager.AttachDevice(device.get());
    CKVX_HdwManager::CInitPortDesc link(3, sim.PtyPath());
    if (manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan) != 0 || link.Result != 0 || manager.Run() != 0) {
        std::fprintf(stderr, "no unit\n");
        return 1;
    }
    D::CArinc429InBufferService* ain[4];
    D::CArinc429OutBufferService* aout[4];
    for (unsigned ch = 0; ch < 4; ++ch) {
        CKVX_HdwService* s = nullptr;
        manager.GetPort(HDW_PORT_ARINC429_RX, ch)->EnableService(HDW_SERVICE_ARINC429_IN_BUFFER, &s, nullptr);
        ain[ch] = static_cast<D::CArinc429InBufferService*>(s);
        manager.GetPort(HDW_PORT_ARINC429_TX, ch)->EnableService(HDW_SERVICE_ARINC429_OUT_BUFFER, &s, nullptr);
        aout[ch] = static_cast<D::CArinc429OutBufferService*>(s);
        CKVX_HdwArinc429RxPort::CParameters rp;
        rp.BaudRate = 100000;
        CKVX_HdwArinc429TxPort::CParameters tp;
        tp.BaudRate = 100000;
        manager.GetPort(HDW_PORT_ARINC429_RX, ch)->Open(&rp);
        manager.GetPort(HDW_PORT_ARINC429_TX, ch)->Open(&tp);
    }
    D::CCanInBufferService* cin[2];
    D::CCanOutBufferService* cout[2];
    for (unsigned ch = 0; ch < 2; ++ch) {
        CKVX_HdwService* s = nullptr;
        manager.GetPort(HDW_PORT_CAN, ch)->EnableService(HDW_SERVICE_CAN_IN_BUFFER, &s, nullptr);
        cin[ch] = static_cast<D::CCanInBufferService*>(s);
        manager.GetPort(HDW_PORT_CAN, ch)->EnableService(HDW_SERVICE_CAN_OUT_BUFFER, &s, nullptr);
        cout[ch] = static_cast<D::CCanOutBufferService*>(s);
    }
    for (unsigned ch = 0; ch < 2; ++ch)
        manager.GetPort(HDW_PORT_CAN, ch)->Open(nullptr);

    uint64_t aRead = 0, cRead = 0;
    std::vector<double> delays;
    std::vector<CKVX_HdwArinc429Message> abuf(4096);
    std::vector<CKVX_HdwCanMessage> cbuf(1024);
    const clock_t cpu0 = std::clock();
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(seconds);
    unsigned seq = 0;
    while (std::chrono::steady_clock::now() < end) {
        // Keep every transmitter busy: top up to about a second's worth.
        for (unsigned ch = 0; ch < 4; ++ch) {
            unsigned pending = 0;
            aout[ch]->GetMessagesToBeWritten(pending);
            if (pending < 2000) {
                std::vector<CKVX_HdwArinc429Message> w(1000);
                for (auto& m : w) {
                    m.Label = uint8_t(ch + 1);
                    m.Data = ++seq & 0x7FFFF;
                }
                aout[ch]->Write(w.data(), unsigned(w.size()), 0);
            }
        }
        for (unsigned ch = 0; ch < 2; ++ch) {
            unsigned pending = 0;
            cout[ch]->GetMessagesToBeWritten(pending);
            if (pending < 4000) {
                std::vector<CKVX_HdwCanMessage> f(2000);
                for (auto& m : f) {
                    m.Identifier = ++seq & 0x1FFFFFFF;
                    m.Dlc = 8;
                }
                cout[ch]->Write(f.data(), unsigned(f.size()), 0);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (unsigned ch = 0; ch < 4; ++ch) {
            unsigned n = 0;
            ain[ch]->Read(abuf.data(), unsigned(abuf.size()), n);
            const uint32_t now = sim.ClockUs();
            for (unsigned i = 0; i < n; ++i)
                delays.push_back(double(uint32_t(now - uint32_t(abuf[i].TimeStamp))) / 1000.0);
            aRead += n;
        }
        for (unsigned ch = 0; ch < 2; ++ch) {
            unsigned n = 0;
            cin[ch]->Read(cbuf.data(), unsigned(cbuf.size()), n);
            cRead += n;
        }
    }
    const double cpu = double(std::clock() - cpu0) / CLOCKS_PER_SEC;
    // Let what is on its way arrive, then compare with the unit's counters.
    for (unsigned ch = 0; ch < 4; ++ch)
        aout[ch]->ResetWriteBuffer();
    for (unsigned ch = 0; ch < 2; ++ch)
        cout[ch]->ResetWriteBuffer();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    for (unsigned ch = 0; ch < 4; ++ch) {
        unsigned n = 0;
        while (ain[ch]->Read(abuf.data(), unsigned(abuf.size()), n) == 0 && n > 0)
            aRead += n;
    }
    for (unsigned ch = 0; ch < 2; ++ch) {
        unsigned n = 0;
        while (cin[ch]->Read(cbuf.data(), unsigned(cbuf.size()), n) == 0 && n > 0)
            cRead += n;
    }
    const hdwsim::Counters c = sim.GetCounters();
    uint64_t aSent = 0, cSent = 0, dropped = 0;
    for (unsigned ch = 0; ch < 4; ++ch) {
        aSent += c.A429Received[ch];
        dropped += c.A429FifoDropped[ch];
    }
    for (unsigned ch = 0; ch < 2; ++ch) {
        cSent += c.CanReceived[ch];
        dropped += c.CanFifoDropped[ch];
    }
    std::sort(delays.begin(), delays.end());
    const double p99 = delays.empty() ? 0.0 : delays[size_t(double(delays.size() - 1) * 0.99)];
    std::printf("duration %u s\n", seconds);
    std::printf("ARINC 429 words: unit received %llu, application read %llu, lost %lld\n",
                (unsigned long long)aSent, (unsigned long long)aRead, (long long)(aSent - aRead));
    std::printf("CAN frames: unit received %llu, application read %llu, lost %lld\n", (unsigned long long)cSent,
                (unsigned long long)cRead, (long long)(cSent - cRead));
    std::printf("FIFO overflows at the unit: %llu\n", (unsigned long long)dropped);
    std::printf("CPU (process, emulator included): %.1f %% of one core\n", 100.0 * cpu / seconds);
    std::printf("event to Read, 99th percentile: %.2f ms\n", p99);
    manager.Stop();
    return (aSent == aRead && cSent == cRead && dropped == 0) ? 0 : 2;
}
