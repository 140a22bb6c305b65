// An ARINC 429 bus monitor on a Halden unit: receiver 0 prints every word with
// its unit time, while transmitter 0 runs the data generator as the avionics
// box under test would; at the end every count is checked for a loss.
//
//     arinc429_monitor LINK [SECONDS] [--quiet]
//
//   LINK     where the unit is: /dev/ttyUSB0, COM5, udp:192.168.1.40:55003;
//            the emulator (hdwsim --unit halden --pty) prints a /dev/pts/N
//   SECONDS  how long the generator runs (3)
//
// Wiring: ARINC 429 transmitter 0 to receiver 0, both at 100 kbit/s (the
// emulator is wired this way). Exit status 0 when every generated word came
// in, in order, and the counter label carried the values it should.
//
// What a monitor needs beside the words: the unit's 32-bit time stamps
// widened to 64 bits and mapped onto the host's clocks (the unit instance),
// and the counters that tell a loss: the input buffer's dropped words, the
// generator's skipped transmissions and what the unit's link lost.
//
// Build against an installed library:
//     g++ -std=c++20 arinc429_monitor.cpp $(pkg-config --cflags --libs hdwlib)
#include <HdwLib/HdwLib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using Generator = CKVX_HdwDataGeneratorService;

bool Failed(const char* what, unsigned rc)
{
    if (rc == 0)
        return false;
    std::printf("%s failed: %u (%s)\n", what, rc, CKVX_HdwObject::GetResultText(rc));
    return true;
}

template <class S>
S* Enable(CKVX_HdwPort* port, unsigned type, CKVX_HdwService::CParameters* params)
{
    CKVX_HdwService* s = nullptr;
    if (!port || Failed("EnableService", port->EnableService(type, &s, params)))
        return nullptr;
    return dynamic_cast<S*>(s);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::printf("usage: %s LINK [SECONDS] [--quiet]\n", argv[0]);
        return 2;
    }
    const double seconds = argc > 2 ? std::atof(argv[2]) : 3.0;
    const bool quiet = argc > 3 && std::strcmp(argv[3], "--quiet") == 0;

    CKVX_HdwKvxHaldenDevice unit;
    CKVX_HdwManager manager;
    CKVX_HdwManager::CInitPortDesc link(unit.GetDeviceCode(), argv[1]);
    if (Failed("AttachDevice", manager.AttachDevice(&unit)) ||
        Failed("Enumerate", manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan)) ||
        Failed("the unit on that link", link.Result) || Failed("Run", manager.Run()))
        return 1;

    CKVX_HdwPort* rxPort = manager.GetPort(HDW_PORT_ARINC429_RX, 0);
    CKVX_HdwPort* txPort = manager.GetPort(HDW_PORT_ARINC429_TX, 0);
    CKVX_HdwArinc429InBufferService::CParameters inParams;
    inParams.BufferSize = 100000; // a default-made CParameters means no bound
    CKVX_HdwSignalService::CParameters wake;
    wake.SignalMask = 1u << (HDW_SIGNAL_ARINC429_RECEIVED - 1);
    auto* in = Enable<CKVX_HdwArinc429InBufferService>(rxPort, HDW_SERVICE_ARINC429_IN_BUFFER, &inParams);
    auto* signals = Enable<CKVX_HdwSignalService>(rxPort, HDW_SERVICE_SIGNAL, &wake);
    // The driver's class: GetWordsInUnit tells when the unit has sent everything.
    auto* gen = Enable<CKVX_HdwKvxArinc429TxDataGeneratorService>(txPort, HDW_SERVICE_DATA_GENERATOR, nullptr);
    if (!in || !signals || !gen)
        return 1;
    CKVX_HdwArinc429RxPort::CParameters rp;
    rp.BaudRate = rp.HighSpeed;
    CKVX_HdwArinc429TxPort::CParameters tp;
    tp.BaudRate = tp.HighSpeed;
    tp.WordIntergap = CKVX_HdwArinc429TxPort::CalcWordIntergap(tp.BaudRate, 4);
    if (Failed("open the receiver", rxPort->Open(&rp)) || Failed("open the transmitter", txPort->Open(&tp)))
        return 1;

    // The labels are defined once the transmitter is open (its Open starts
    // the generator with an empty table); they send from the next tick on.
    Generator::CLabelDef defs[3] = {
        Generator::CLabelDef(0203, 50.0), Generator::CLabelDef(0204, 25.0), Generator::CLabelDef(0310, 12.5)};
    defs[0].Pattern = Generator::PatternCounter;
    defs[1].Pattern = Generator::PatternBnr; // a sine from -100 to 100, 1 s period
    defs[1].Low = -100;
    defs[1].High = 100;
    defs[2].Data = 0x1234;
    if (Failed("SetLabels", gen->SetLabels(defs, 3)))
        return 1;

    CKVX_HdwKvxUnitInstance* clock = unit.GetUnitInstance(rxPort->GetDeviceId());
    uint64_t received = 0, counterWords = 0, wrong = 0, lastUs = 0;
    auto drain = [&] {
        CKVX_HdwSignalService::CSignal s[64];
        unsigned n = 0;
        do
            signals->ReadSignals(s, 64, n);
        while (n == 64);
        CKVX_HdwArinc429Message words[256];
        do {
            if (Failed("Read", in->Read(words, 256, n)))
                return;
            for (unsigned i = 0; i < n; ++i, ++received) {
                const CKVX_HdwArinc429Message& w = words[i];
                const uint64_t unitUs = clock->UnwrapUnitTime(w.TimeStamp);
                // Wall-clock time, once a reception has paired the clocks.
                uint64_t hostUs = 0, wallUs = 0;
                const bool mapped = clock->MapUnitTime(unitUs, hostUs, wallUs);
                if (!quiet)
                    std::printf("%17.6f  unit %.6f  label %03o sdi %u ssm %u data 0x%05X\n",
                        mapped ? wallUs / 1e6 : 0.0, unitUs / 1e6, unsigned(w.Label), unsigned(w.Sdi), unsigned(w.Ssm),
                        unsigned(w.Data));
                if (unitUs < lastUs)
                    ++wrong;
                lastUs = unitUs;
                // Transmission n of the counter label carries Min + n x Step.
                if (w.Label == defs[0].Label && w != Generator::ComputeWord(defs[0], counterWords++, 0.0))
                    ++wrong;
            }
        } while (n == 256);
    };

    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        CKVX_HdwSignalService::CSignal first;
        if (signals->WaitSignal(first, 100) == 0)
            drain();
    }
    // Stop generating, then let the unit send what its FIFO still holds.
    Failed("Disable", gen->Disable());
    for (int i = 0; i < 500 && gen->GetWordsInUnit() != 0; ++i)
        CKVX_HdwTimer::MsSleep(10);
    // The last words are on their way back; wait for them, but not forever.
    const uint64_t generated = gen->GetGeneratedCount();
    for (int i = 0; i < 500 && received < generated; ++i) {
        drain();
        if (received < generated)
            CKVX_HdwTimer::MsSleep(10);
    }

    const CKVX_HdwKvxUnitInstance::CLossCounters loss = clock->GetLossCounters();
    std::printf("generated %llu, skipped %llu; received %llu, dropped %llu, wrong %llu; link: %llu bad frames, "
                "%llu lost echoes\n",
        static_cast<unsigned long long>(generated), static_cast<unsigned long long>(gen->GetMissedCount()),
        static_cast<unsigned long long>(received), static_cast<unsigned long long>(in->GetDroppedCount()),
        static_cast<unsigned long long>(wrong), static_cast<unsigned long long>(loss.BadFrames()),
        static_cast<unsigned long long>(loss.LostEchoes()));
    manager.Stop();
    return generated > 0 && received == generated && gen->GetMissedCount() == 0 && wrong == 0 ? 0 : 1;
}
