#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/internal/PlatformDebug.h>

#include <atomic>
#include <cstring>

namespace {
std::atomic<CKVX_HdwObject::t_DebugOutput> g_DebugSink{nullptr};

struct BusName {
    unsigned code;
    const char* name;
};
constexpr BusName kBusNames[] = {
    {0, "Internal"},
    {1, "ISA"},
    {2, "EISA"},
    {3, "MicroChannel"},
    {4, "TurboChannel"},
    {5, "PCI"},
    {6, "VME"},
    {7, "NU"},
    {8, "PCMCIA"},
    {9, "CBUS"},
    {10, "MPI"},
    {11, "MPSA"},
    {12, "Processor"},
    {13, "InternalPowerBus"},
    {14, "PNPISA"},
    {15, "PNP"},
    {16, "VMCS"},
    {17, "ACPI"},
    {1000, "Ethernet"},
    {1001, "USB"},
};
} // namespace

CKVX_HdwObject::~CKVX_HdwObject() = default;

CKVX_String CKVX_HdwObject::GetBusName(unsigned busType)
{
    for (const auto& b : kBusNames)
        if (b.code == busType)
            return CKVX_String(b.name);
    return CKVX_String("Unknown");
}

unsigned CKVX_HdwObject::GetBusType(void* handle)
{
    if (!handle)
        return 0;
    unsigned v;
    std::memcpy(&v, handle, sizeof v);
    return v;
}

void CKVX_HdwObject::SetDebugOutput(t_DebugOutput sink)
{
    g_DebugSink.store(sink, std::memory_order_release);
}

CKVX_HdwObject::t_DebugOutput CKVX_HdwObject::GetDebugOutput()
{
    return g_DebugSink.load(std::memory_order_acquire);
}

void CKVX_HdwObject::DebugOutput(const char* text)
{
    if (!text)
        return;
    if (auto sink = g_DebugSink.load(std::memory_order_acquire))
        sink(text);
    hdw::platform::WriteDebugString(text);
}

const char* CKVX_HdwObject::GetResultText(unsigned code)
{
    switch (code) {
    case 0: return "success";
    case 1: return "service change on an open port";
    case 2: return "argument out of range or not representable by the unit";
    case 4: return "nothing to read";
    case 7: return "device already attached";
    case 8: return "operation not supported by the generic class";
    case 10: return "wrong state (manager not running, port or unit open, or service not admitted)";
    case 11: return "malformed or too short unit event";
    case 13: return "a status, read or socket call failed";
    case 14: return "link could not be opened, echo time-out, or command could not be queued";
    case 15: return "no service, or a service failed";
    case 18: return "port already open";
    case 19: return "port not open";
    case 21: return "no local UDP port available";
    case 22: return "nothing complete yet during a probe";
    case 23: return "write time-out";
    case 26: return "a service of that type is already enabled";
    case 29: return "service not running";
    case 32: return "out of resources";
    case 33: return "I2C address or data byte not acknowledged";
    case 34: return "I2C bus fault (clock held, data line stuck or arbitration lost)";
    default: return "unknown result code";
    }
}
