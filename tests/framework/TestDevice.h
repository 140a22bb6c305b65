#pragma once
// A device, port and service that record, in order, what the framework asks of them.

#include <HdwLib/HdwLib.h>

#include "support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace fwtest {

class CallLog {
public:
    void Add(const std::string& entry)
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Entries.push_back(entry);
    }
    std::vector<std::string> Take()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return std::exchange(m_Entries, {});
    }

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Entries;
};

class TestService : public CKVX_HdwService {
public:
    TestService(CKVX_HdwObject* port, unsigned type, CallLog* log, std::string name)
        : CKVX_HdwService(port),
          m_Log(log),
          m_Name(std::move(name))
    {
        m_ServiceType = type;
    }
    ~TestService() override { m_Log->Add(m_Name + ".deleted"); }

    unsigned Start() override
    {
        m_Log->Add(m_Name + ".Start" + (GetHdwPort()->IsOpen() ? "(port open)" : "(port closed)"));
        if (StartResult == 0)
            SetStatus(HDW_SERVICE_RUNNING);
        return StartResult;
    }
    unsigned Stop() override
    {
        m_Log->Add(m_Name + ".Stop");
        SetStatus(HDW_SERVICE_STOPPED);
        return 0;
    }
    unsigned HdwTimerHandler(uint64_t ticks) override
    {
        lastTick = ticks;
        ++tickCount;
        if (LogTicks)
            m_Log->Add(m_Name + ".Tick");
        return TickResult;
    }
    unsigned ProcessEvent(CKVX_HdwEvent*) override
    {
        ++eventCount;
        return EventResult;
    }

    unsigned StartResult = 0;
    std::atomic<unsigned> TickResult{0};
    unsigned EventResult = 0;
    bool LogTicks = false;
    std::atomic<uint64_t> lastTick{0};
    std::atomic<unsigned> tickCount{0};
    std::atomic<unsigned> eventCount{0};

private:
    CallLog* m_Log;
    std::string m_Name;
};

class TestPort : public CKVX_HdwPort {
public:
    TestPort(CKVX_HdwObject* device, unsigned instance, const CKVX_String& channel, unsigned type, CallLog* log)
        : CKVX_HdwPort(device, instance, channel),
          m_Log(log)
    {
        m_PortType = type;
    }

    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override
    {
        if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
            return rc;
        const std::string name = "port" + std::to_string(GetDeviceId()) + GetChannelId().c_str();
        auto* s = new TestService(this, serviceType, m_Log, name + ".svc" + std::to_string(m_Services.GetLength()));
        m_Services += s;
        if (service)
            *service = s;
        return 0;
    }

private:
    CallLog* m_Log;
};

class TestInstance : public CKVX_HdwDevice::CDeviceInstance {
public:
    TestInstance(CallLog* log, unsigned index) : m_Log(log), m_Index(index) {}
    unsigned OpenPort(CKVX_HdwPort* port, CKVX_HdwPort::CParameters*) override
    {
        m_Log->Add("inst" + std::to_string(m_Index) + ".OpenPort:" + port->GetChannelId().c_str());
        return OpenPortResult;
    }
    unsigned ClosePort(CKVX_HdwPort* port) override
    {
        m_Log->Add("inst" + std::to_string(m_Index) + ".ClosePort:" + port->GetChannelId().c_str());
        return 0;
    }
    unsigned OpenPortResult = 0;

private:
    CallLog* m_Log;
    unsigned m_Index;
};

class TestDevice : public CKVX_HdwDevice {
public:
    TestDevice(uint64_t code, unsigned instances, std::vector<std::pair<unsigned, const char*>> ports)
        : m_Ports(std::move(ports))
    {
        for (unsigned i = 0; i < instances; ++i)
            Serials.push_back("SN" + std::to_string(i));
        m_DeviceCode = code;
    }
    ~TestDevice() override
    {
        DestroyPorts();
        DestroyDeviceList();
    }

    unsigned Init(unsigned) override
    {
        for (unsigned i = 0; i < GetEnumerationLinkCount(); ++i) {
            CKVX_HdwInitPortDesc* link = GetEnumerationLink(i);
            link->Result = link->Link == "dead" ? unsigned(HDW_ERR_LINK) : 0u;
            seenLinks.push_back(link->Link.c_str());
        }
        seenScan = IsScanRequested();
        const auto count = unsigned(Serials.size());
        if (const unsigned rc = CKVX_HdwDevice::Init(count))
            return rc;
        for (unsigned i = 0; i < count; ++i) {
            auto* inst = new TestInstance(&log, i);
            inst->SerialNumber = Serials[i].c_str();
            inst->Link.Format("/dev/pts/%u", i);
            m_DeviceList += inst;
            for (unsigned ch = 0; ch < m_Ports.size(); ++ch)
                AddPortDescriptor(
                    i, new TestPort(this, i, m_Ports[ch].second, m_Ports[ch].first, &log), ch, m_Ports[ch].second);
        }
        return 0;
    }
    unsigned Run() override
    {
        log.Add("dev" + std::to_string(GetDeviceCode()) + ".Run");
        return RunResult;
    }
    unsigned Stop() override
    {
        log.Add("dev" + std::to_string(GetDeviceCode()) + ".Stop");
        return SkipBaseStop ? 0 : CKVX_HdwDevice::Stop();
    }
    unsigned Open(unsigned instance) override
    {
        log.Add("dev.Open(" + std::to_string(instance) + ")");
        if (OpenResult)
            return OpenResult;
        GetDeviceInstance(instance)->SetOpen(true);
        return 0;
    }
    unsigned Close(unsigned instance) override
    {
        log.Add("dev.Close(" + std::to_string(instance) + ")");
        if (CanClose(instance))
            if (CDeviceInstance* inst = GetDeviceInstance(instance))
                inst->SetOpen(false);
        return 0;
    }
    unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t) override
    {
        if (LogTicks)
            log.Add("start" + std::to_string(instance));
        if (OnStartHandler)
            OnStartHandler(instance);
        return instance == FailStartInstance ? 1u : 0u;
    }
    unsigned HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t) override
    {
        if (LogTicks)
            log.Add("end" + std::to_string(instance));
        return instance == FailEndInstance ? 1u : 0u;
    }

    TestPort* Port(unsigned instance, unsigned index)
    {
        CPortDescriptorsVector* v = nullptr;
        if (GetPortDescriptor(instance, &v) != 0 || index >= v->GetLength())
            return nullptr;
        return static_cast<TestPort*>((*v)[index].Port);
    }

    CallLog log;
    unsigned RunResult = 0;
    unsigned OpenResult = 0;
    bool SkipBaseStop = false;
    bool LogTicks = false;
    unsigned FailStartInstance = ~0u;
    unsigned FailEndInstance = ~0u;
    std::function<void(unsigned)> OnStartHandler;
    // Serial numbers the next scan finds ("" for a unit without one).
    std::vector<std::string> Serials;
    std::vector<std::string> seenLinks;
    bool seenScan = false;

private:
    std::vector<std::pair<unsigned, const char*>> m_Ports;
};

// A running manager with the test device attached and enumerated; the set-up's calls are taken from the log.
class RunningDevice : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        ASSERT_EQ(manager.Enumerate(), 0u);
        ASSERT_NE(port = device.Port(0, 0), nullptr);
        ASSERT_EQ(manager.Run(), 0u);
        device.log.Take();
    }
    void TearDown() override { manager.Stop(); }
    static TestService* Enable(TestPort* p)
    {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(p->EnableService(HDW_SERVICE_SIGNAL, &s, nullptr), 0u);
        return static_cast<TestService*>(s);
    }

    TestDevice device{60, 2, {{HDW_PORT_CAN, "0"}, {HDW_PORT_CAN, "1"}}};
    CKVX_HdwManager manager;
    TestPort* port = nullptr; // unit 0, channel 0
};

using testsupport::WaitUntil;

} // namespace fwtest
