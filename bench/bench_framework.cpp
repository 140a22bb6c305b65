// Cost of one framework tick with 8 open units x 16 open ports whose
// services do nothing: the three passes, the instance locks and the port and
// service walk, without any unit traffic.
#include <HdwLib/HdwLib.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

class IdleService : public CKVX_HdwService {
public:
    explicit IdleService(CKVX_HdwObject* port) : CKVX_HdwService(port) { m_ServiceType = HDW_SERVICE_SIGNAL; }
};

class IdlePort : public CKVX_HdwPort {
public:
    IdlePort(CKVX_HdwObject* device, unsigned instance, const CKVX_String& channel)
        : CKVX_HdwPort(device, instance, channel)
    {
        m_PortType = HDW_PORT_CAN;
    }
    unsigned EnableService(unsigned type, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override
    {
        if (const unsigned rc = CKVX_HdwPort::EnableService(type, service, params))
            return rc;
        auto* s = new IdleService(this);
        m_Services += s;
        if (service)
            *service = s;
        return 0;
    }
};

class IdleDevice : public CKVX_HdwDevice {
public:
    IdleDevice(unsigned instances, unsigned ports) : m_Instances(instances), m_Ports(ports) { m_DeviceCode = 900; }
    ~IdleDevice() override
    {
        DestroyPorts();
        DestroyDeviceList();
    }
    unsigned Init(unsigned) override
    {
        if (const unsigned rc = CKVX_HdwDevice::Init(m_Instances))
            return rc;
        for (unsigned i = 0; i < m_Instances; ++i)
            m_DeviceList += new CDeviceInstance;
        for (unsigned i = 0; i < m_Instances; ++i)
            for (unsigned p = 0; p < m_Ports; ++p) {
                CKVX_String channel;
                channel.Format("%u", p);
                AddPortDescriptor(i, new IdlePort(this, i, channel), p, channel);
            }
        return 0;
    }
    unsigned Open(unsigned instance) override
    {
        GetDeviceInstance(instance)->SetOpen(true);
        return 0;
    }
    unsigned Close(unsigned instance) override
    {
        if (CanClose(instance))
            GetDeviceInstance(instance)->SetOpen(false);
        return 0;
    }

private:
    unsigned m_Instances;
    unsigned m_Ports;
};

void BM_FrameworkTick(benchmark::State& state)
{
    const unsigned instances = unsigned(state.range(0));
    const unsigned ports = unsigned(state.range(1));
    IdleDevice device(instances, ports);
    CKVX_HdwManager manager;
    manager.AttachDevice(&device);
    manager.Enumerate();
    manager.Run();
    manager.StopMainTimer(); // the benchmark makes the ticks itself
    for (unsigned i = 0; i < instances; ++i)
        for (unsigned p = 0; p < ports; ++p) {
            CKVX_HdwPort* port = manager.GetPort(HDW_PORT_CAN, i * ports + p);
            CKVX_HdwService* s = nullptr;
            port->EnableService(HDW_SERVICE_SIGNAL, &s, nullptr);
            if (port->Open(nullptr) != 0)
                state.SkipWithError("port did not open");
        }
    uint64_t tick = 0;
    for (auto _ : state)
        CKVX_HdwManager::HdwTimerHandler(tick++, &manager);
    state.counters["ports"] = double(instances * ports);
    manager.Stop();
}
BENCHMARK(BM_FrameworkTick)->Args({1, 1})->Args({8, 16})->Unit(benchmark::kMicrosecond);

} // namespace
