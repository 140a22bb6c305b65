// A first program with HdwLib: create the manager, look at its parameters,
// run it for a few ticks and stop it, checking every result code.
//
// No driver is attached yet, so there are no ports; a real program attaches
// its drivers (AttachDevice) and enumerates (Enumerate) before Run.
//
// Build against an installed library:
//     g++ -std=c++20 manager_example.cpp $(pkg-config --cflags --libs hdwlib)
#include <HdwLib/HdwLib.h>

#include <cstdio>

namespace {

// Every operation returns 0 on success or a result code; nothing throws for a
// bad argument or a wrong state.
bool Check(const char* what, unsigned rc, unsigned expected = 0)
{
    std::printf("%-40s -> %2u (%s)\n", what, rc, CKVX_HdwObject::GetResultText(rc));
    if (rc != expected) {
        std::printf("  expected %u (%s)\n", expected, CKVX_HdwObject::GetResultText(expected));
        return false;
    }
    return true;
}

} // namespace

int main()
{
    CKVX_HdwManager manager;
    bool ok = true;

    CKVX_HdwManager::CParameters params;
    ok &= Check("GetParameters", manager.GetParameters(params));
    std::printf("  main-timer period: %u ms\n", params.TimerPeriod);
    std::printf("  local UDP ports for Ethernet units: %u to %u\n", unsigned(CKVX_HdwManager::SysEthPortFirst),
        unsigned(CKVX_HdwManager::SysEthPortFirst + CKVX_HdwManager::SysEthPortCount - 1));

    // A period of 0 ms is out of range: refused with 2, nothing changes.
    CKVX_HdwManager::CParameters bad = params;
    bad.TimerPeriod = 0;
    ok &= Check("SetParameters(TimerPeriod = 0)", manager.SetParameters(bad), HDW_ERR_ARGUMENT);

    params.TimerPeriod = 10;
    ok &= Check("SetParameters(TimerPeriod = 10)", manager.SetParameters(params));

    ok &= Check("Run", manager.Run());
    if (!manager.IsRunning())
        return 1;

    // While running, the parameters are fixed: 10 (wrong state).
    ok &= Check("SetParameters while running", manager.SetParameters(params), HDW_ERR_WRONG_STATE);

    // Let the main timer tick a few times (at most 5 s on a loaded machine).
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    while (manager.GetTickCounter() < 5 && CKVX_HdwTimer::GetElapsedTicks(start) < 5000)
        CKVX_HdwTimer::MsSleep(10);
    std::printf("  ticks so far: %llu\n", static_cast<unsigned long long>(manager.GetTickCounter()));
    ok &= manager.GetTickCounter() >= 5;

    // Without a driver there are no ports: no ARINC 429 transmitter (type 2).
    std::printf("  ARINC 429 transmitters: %u\n", manager.GetPortCount(2));

    ok &= Check("Stop", manager.Stop());
    std::printf("  running: %s\n", manager.IsRunning() ? "yes" : "no");

    std::printf("%s\n", ok ? "example finished" : "example FAILED");
    return ok ? 0 : 1;
}
