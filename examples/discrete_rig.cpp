// A discrete I/O rig on a Travin unit: output bank 0 drives lines that come
// back on input bank 0, and every input change is printed with its unit time.
// It checks the debounce through the wiring: a pulse longer than the input's
// debounce gives two changes one pulse length apart, a shorter one none.
//
//     discrete_rig LINK
//
//   LINK  where the unit is: /dev/ttyUSB0, COM5; the emulator
//         (hdwsim --unit travin --pty) prints a /dev/pts/N
//
// Wiring: output bank k line n to input bank k line n (the emulator is wired
// this way). Exit status 0 when every change came as expected.
//
// Build against an installed library:
//     g++ -std=c++20 discrete_rig.cpp $(pkg-config --cflags --libs hdwlib)
#include <HdwLib/HdwLib.h>

#include <chrono>
#include <cstdio>
#include <vector>

namespace {

using Change = CKVX_HdwDiscreteInService::CChange;

bool Failed(const char* what, unsigned rc)
{
    if (rc == 0)
        return false;
    std::printf("%s failed: %u (%s)\n", what, rc, CKVX_HdwObject::GetResultText(rc));
    return true;
}

// The next `count` input changes, woken by the input's signals; fewer when
// they do not come within two seconds.
std::vector<Change> NextChanges(CKVX_HdwDiscreteInService* in, CKVX_HdwSignalService* wake, size_t count)
{
    std::vector<Change> got;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (got.size() < count && std::chrono::steady_clock::now() < end) {
        CKVX_HdwSignalService::CSignal s;
        wake->WaitSignal(s, 50); // 4 on time-out: read anyway
        Change c[16];
        unsigned n = 0;
        while (in->Read(c, 16, n) == 0 && n > 0)
            got.insert(got.end(), c, c + n);
    }
    for (const Change& c : got) {
        char lines[9] = {};
        for (int line = 7; line >= 0; --line)
            lines[7 - line] = (c.State >> line) & 1 ? '1' : '0';
        std::printf("%12.6f  state 0x%02X  changed 0x%02X  %s%s\n", c.TimeStamp / 1e6, unsigned(c.State),
            unsigned(c.Changed), lines, c.Lost ? "  (changes lost before this one)" : "");
    }
    return got;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::printf("usage: %s LINK\n", argv[0]);
        return 2;
    }
    CKVX_HdwKvxTravinDevice unit; // made before the manager, which does not own it
    CKVX_HdwManager manager;
    CKVX_HdwManager::CInitPortDesc link(unit.GetDeviceCode(), argv[1]);
    if (Failed("AttachDevice", manager.AttachDevice(&unit)) ||
        Failed("Enumerate", manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan)) ||
        Failed("the unit on that link", link.Result) || Failed("Run", manager.Run()))
        return 1;

    CKVX_HdwPort* inPort = manager.GetPort(HDW_PORT_DISCRETE_IN, 0);
    CKVX_HdwPort* outPort = manager.GetPort(HDW_PORT_DISCRETE_OUT, 0);
    CKVX_HdwService *inService = nullptr, *wakeService = nullptr, *outService = nullptr;
    if (!inPort || !outPort ||
        Failed("EnableService", inPort->EnableService(HDW_SERVICE_DISCRETE_IN, &inService, nullptr)) ||
        Failed("EnableService", inPort->EnableService(HDW_SERVICE_SIGNAL, &wakeService, nullptr)) ||
        Failed("EnableService", outPort->EnableService(HDW_SERVICE_DISCRETE_OUT, &outService, nullptr)))
        return 1;
    auto* in = dynamic_cast<CKVX_HdwDiscreteInService*>(inService);
    auto* wake = dynamic_cast<CKVX_HdwSignalService*>(wakeService);
    auto* out = dynamic_cast<CKVX_HdwDiscreteOutService*>(outService);

    // The input first, so that it sees everything the output does.
    CKVX_HdwDiscreteInPort::CParameters inParams;
    inParams.DebounceUs = 1000;
    if (Failed("open the input bank", inPort->Open(&inParams)) ||
        Failed("open the output bank", outPort->Open(nullptr)))
        return 1;

    bool ok = true;
    const auto expect = [&ok](bool good, const char* what) {
        if (!good)
            std::printf("not as expected: %s\n", what);
        ok = ok && good;
    };

    // Lines 0 and 2 high: one change naming both, stamped a debounce after the
    // output drove them.
    if (Failed("Set", out->Set(0x05)))
        return 1;
    std::vector<Change> c = NextChanges(in, wake, 1);
    uint32_t driven = 0;
    uint64_t drivenAt = 0;
    out->GetDriven(driven, drivenAt);
    expect(c.size() == 1 && c[0].State == 0x05 && c[0].Changed == 0x05, "one change: lines 0 and 2 high");
    expect(c.size() == 1 && c[0].TimeStamp == drivenAt + inParams.DebounceUs, "stamped a debounce after the output");

    // A 20 ms pulse on line 7: up and down again, 20 ms apart.
    if (Failed("Pulse", out->Pulse(0x80, 20000)))
        return 1;
    c = NextChanges(in, wake, 2);
    expect(c.size() == 2 && c[0].Changed == 0x80 && c[1].Changed == 0x80 && c[0].State == 0x85 && c[1].State == 0x05 &&
            c[1].TimeStamp - c[0].TimeStamp == 20000,
        "a 20 ms pulse on line 7");

    // A pulse shorter than the debounce is filtered out: the next change is
    // that of line 1, which comes after it.
    if (Failed("Pulse", out->Pulse(0x40, 500)) || Failed("Set", out->Set(0x02)))
        return 1;
    c = NextChanges(in, wake, 1);
    expect(c.size() == 1 && c[0].Changed == 0x02 && c[0].State == 0x07, "the 500 us pulse filtered out");

    uint64_t lost = 0;
    in->GetLostCount(lost);
    expect(lost == 0, "no change lost");
    manager.Stop();
    std::printf("%s\n", ok ? "result: as expected" : "result: FAILED");
    return ok ? 0 : 1;
}
