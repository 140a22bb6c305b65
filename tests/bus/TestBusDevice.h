#pragma once
// A test unit with one port of each bus type; events are offered under the unit's lock.

#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <type_traits>
#include <vector>

namespace bustest {

enum : unsigned {
    EventFailure = 1, // the unit failed the channel's service
    EventArinc429Rx = 100, // an ARINC 429 word was received
    EventCanRx = 101, // a CAN frame was received
    EventCanStatus = 102, // the CAN controller reported its status
    EventDiscrete = 103, // a discrete bank reported its state
};

class CTestEvent : public CKVX_HdwEvent {
public:
    CTestEvent(unsigned code, const char* channel, uint64_t time)
    {
        SetEventCode(code);
        SetChannelId(channel);
        Time = time;
    }
    uint64_t Time = 0;
    CKVX_HdwArinc429Message Word;
    CKVX_HdwCanMessage Frame;
    CKVX_HdwCanPort::CFaultStatus Status;
    uint32_t State = 0;
    uint32_t Changed = 0;
    uint16_t Sequence = 0;
    bool IsChange = true;
};

// A generic service with a driver's receive path: stores events of code Code.
template <class Base, unsigned Code>
class CDriven : public Base {
public:
    using Base::Base;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override
    {
        const CTestEvent& e = *static_cast<CTestEvent*>(event);
        if (e.GetEventCode() == EventFailure)
            this->SetStatus(HDW_SERVICE_FAILED);
        if (e.GetEventCode() != Code)
            return 0;
        if constexpr (std::is_same_v<Base, CKVX_HdwArinc429InBufferService>)
            this->AppendReceived(e.Word, e.Time);
        else if constexpr (std::is_same_v<Base, CKVX_HdwCanInBufferService>)
            this->AppendReceived(e.Frame, e.Time);
        else if constexpr (std::is_same_v<Base, CKVX_HdwArinc429InLbloService>) {
            if (this->GetStatus() == HDW_SERVICE_RUNNING)
                this->StoreReceived(e.Word, e.Time);
        } else if constexpr (std::is_same_v<Base, CKVX_HdwDiscreteInService>)
            this->UpdateState(e.State, e.Changed, e.Sequence, e.Time, e.IsChange);
        else if constexpr (std::is_same_v<Base, CKVX_HdwDiscreteOutService>)
            this->UpdateDriven(e.State, e.Changed, e.Sequence, e.Time);
        else if constexpr (std::is_same_v<Base, CKVX_HdwArinc429ByteInBufferService>)
            this->AppendWord(e.Word, e.Time);
        else if constexpr (std::is_same_v<Base, CKVX_HdwSignalService>)
            this->PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, e.Word, e.Time);
        else
            this->AppendFrame(e.Frame, e.Time);
        return 0;
    }
};

class CTestArinc429InService : public CDriven<CKVX_HdwArinc429InBufferService, EventArinc429Rx> {
public:
    using CDriven::CDriven;
    unsigned Read(CKVX_HdwArinc429Message* messages, unsigned maxCount, unsigned& readCount) override
    {
        return ReadMessages(messages, maxCount, readCount);
    }
    unsigned GetReadMessagesNumber(unsigned& count) override { return CountMessages(count); }
    unsigned char Filter(CKVX_HdwArinc429Message& m) { return ApplyFilter(m, LabelFilter); }
};

class CTestCanInService : public CDriven<CKVX_HdwCanInBufferService, EventCanRx> {
public:
    using CDriven::CDriven;
    unsigned Read(CKVX_HdwCanMessage* messages, unsigned maxCount, unsigned& readCount) override
    {
        return ReadMessages(messages, maxCount, readCount);
    }
};

using CTestArinc429InLbloService = CDriven<CKVX_HdwArinc429InLbloService, EventArinc429Rx>;
using CTestDiscreteInService = CDriven<CKVX_HdwDiscreteInService, EventDiscrete>;
using CTestDiscreteOutService = CDriven<CKVX_HdwDiscreteOutService, EventDiscrete>;
using CTestArinc429ByteInService = CDriven<CKVX_HdwArinc429ByteInBufferService, EventArinc429Rx>;
using CTestCanByteInService = CDriven<CKVX_HdwCanByteInBufferService, EventCanRx>;
using CTestSignalService = CDriven<CKVX_HdwSignalService, EventArinc429Rx>;

// An I2C master queueing as a driver does; the test plays the unit.
class CTestI2cMaster : public CKVX_HdwI2cMasterService {
public:
    using CKVX_HdwI2cMasterService::CKVX_HdwI2cMasterService;
    unsigned Submit(CKVX_HdwI2cTransfer& t) override
    {
        if (const unsigned rc = t.Check())
            return rc;
        CKVX_HdwServiceLock lock(*this);
        return Enqueue(t);
    }
    // Sends the oldest unsent transfer; its wire tag.
    uint32_t Send(uint64_t nowMs)
    {
        CKVX_HdwServiceLock lock(*this);
        uint32_t tag = ~0u;
        EXPECT_NE(PeekUnsent(tag), nullptr);
        MarkSent(nowMs);
        return tag;
    }
    bool Finish(uint32_t tag, unsigned result, std::vector<uint8_t> data = {}, bool nackOnAddress = false)
    {
        CKVX_HdwServiceLock lock(*this);
        return Complete(tag, result, 2, nackOnAddress, 1, data.data(), unsigned(data.size()), 1234);
    }
    unsigned InFlight()
    {
        CKVX_HdwServiceLock lock(*this);
        return GetInFlightCount();
    }
    void Fail()
    {
        CKVX_HdwServiceLock lock(*this);
        FailPending();
    }
};

// Stand-in for the services with no generic class yet (the data generator).
class CTypedService : public CKVX_HdwService {
public:
    CTypedService(CKVX_HdwObject* port, unsigned type) : CKVX_HdwService(port) { m_ServiceType = type; }
};

// Once the generic check passed (rc 0), appends the test unit's service of that type.
inline unsigned AddService(CKVX_HdwPort* port, unsigned type, unsigned rc, CKVX_HdwService** out)
{
    if (rc != 0)
        return rc;
    CKVX_HdwService* s = nullptr;
    switch (type) {
    case HDW_SERVICE_SIGNAL: s = new CTestSignalService(port); break;
    case HDW_SERVICE_BYTE_IN_BUFFER: s = new CKVX_HdwByteInBufferService(port); break;
    case HDW_SERVICE_BYTE_OUT_BUFFER: s = new CKVX_HdwByteOutBufferService(port); break;
    case HDW_SERVICE_ARINC429_IN_BUFFER: s = new CTestArinc429InService(port); break;
    case HDW_SERVICE_ARINC429_LABEL_IN: s = new CTestArinc429InLbloService(port); break;
    case HDW_SERVICE_ARINC429_OUT_BUFFER: s = new CKVX_HdwArinc429OutBufferService(port); break;
    case HDW_SERVICE_ARINC429_LABEL_OUT: s = new CKVX_HdwArinc429OutLbloService(port); break;
    case HDW_SERVICE_CAN_IN_BUFFER: s = new CTestCanInService(port); break;
    case HDW_SERVICE_CAN_OUT_BUFFER: s = new CKVX_HdwCanOutBufferService(port); break;
    case HDW_SERVICE_MIL1553_BC: s = new CKVX_HdwMilStd1553BcService(port); break;
    case HDW_SERVICE_MIL1553_RT: s = new CKVX_HdwMilStd1553SingleRtService(port); break;
    case HDW_SERVICE_DISCRETE_IN: s = new CTestDiscreteInService(port); break;
    case HDW_SERVICE_DISCRETE_OUT: s = new CTestDiscreteOutService(port); break;
    case HDW_SERVICE_I2C_MASTER: s = new CTestI2cMaster(port); break;
    case HDW_SERVICE_SPI_MASTER: s = new CKVX_HdwSpiMasterService(port); break;
    default: s = new CTypedService(port, type);
    }
    port->GetServiceList() += s;
    if (out)
        *out = s;
    return 0;
}

template <typename Base>
class CTestPort : public Base {
public:
    using Base::Base;
    unsigned EnableService(unsigned type, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override
    {
        return AddService(this, type, Base::EnableService(type, service, params), service);
    }
};
using CTestRxPort = CTestPort<CKVX_HdwArinc429RxPort>;
using CTestTxPort = CTestPort<CKVX_HdwArinc429TxPort>;
using CTestMilPort = CTestPort<CKVX_HdwMilStd1553Port>;
using CTestDiscreteInPort = CTestPort<CKVX_HdwDiscreteInPort>;
using CTestDiscreteOutPort = CTestPort<CKVX_HdwDiscreteOutPort>;
using CTestI2cPort = CTestPort<CKVX_HdwI2cPort>;
using CTestSpiPort = CTestPort<CKVX_HdwSpiPort>;

class CTestCanPort : public CTestPort<CKVX_HdwCanPort> {
public:
    using CTestPort<CKVX_HdwCanPort>::CTestPort;
    // The status path: fault status first, then the services.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override
    {
        auto* e = static_cast<CTestEvent*>(event);
        if (e->GetEventCode() == EventCanStatus)
            UpdateFaultStatus(e->Status, e->Time);
        return CKVX_HdwCanPort::ProcessEvent(event);
    }
};

class CTestBusDevice : public CKVX_HdwDevice {
public:
    CTestBusDevice() { m_DeviceCode = 0x7E5701; }
    unsigned Init(unsigned) override
    {
        if (const unsigned rc = CKVX_HdwDevice::Init(1))
            return rc;
        m_DeviceList.Create(1);
        m_DeviceList[0] = new CDeviceInstance;
        AddPortDescriptor(0, new CTestRxPort(this, 0, "RX0"), 0, "ARINC 429 RX 0");
        AddPortDescriptor(0, new CTestTxPort(this, 0, "TX0"), 0, "ARINC 429 TX 0");
        AddPortDescriptor(0, new CTestCanPort(this, 0, "CAN0"), 0, "CAN 0");
        AddPortDescriptor(0, new CTestMilPort(this, 0, "MIL0"), 0, "MIL-STD-1553 0");
        AddPortDescriptor(0, new CTestDiscreteInPort(this, 0, "DIN0", 8), 0, "discrete in 0");
        AddPortDescriptor(0, new CTestDiscreteOutPort(this, 0, "DOUT0", 8), 0, "discrete out 0");
        AddPortDescriptor(0, new CTestI2cPort(this, 0, "I2C0"), 0, "I2C 0");
        AddPortDescriptor(0, new CTestSpiPort(this, 0, "SPI0"), 0, "SPI 0");
        return 0;
    }
    unsigned Open(unsigned instance) override { return SetOpen(instance, true); }
    unsigned Close(unsigned instance) override { return CanClose(instance) ? SetOpen(instance, false) : 0u; }
    // Offers an event to the unit's ports of that type, under the unit lock.
    unsigned Deliver(unsigned portType, CKVX_HdwEvent& event)
    {
        DeviceLock(0);
        const unsigned rc = ProcessEventHandlers(0, portType, &event);
        DeviceUnlock(0);
        return rc;
    }

private:
    unsigned SetOpen(unsigned instance, bool open)
    {
        CDeviceInstance* inst = GetDeviceInstance(instance);
        if (!inst)
            return HDW_ERR_ARGUMENT;
        inst->Lock();
        inst->SetOpen(open);
        inst->Unlock();
        return 0;
    }
};

// A running manager with the test device attached and enumerated.
class CBusRig {
public:
    CBusRig()
    {
        Manager.AttachDevice(Device.get());
        Manager.Enumerate();
        Manager.Run();
    }
    ~CBusRig() { Manager.Stop(); }
    template <class P>
    P* Get(unsigned portType)
    {
        return static_cast<P*>(Manager.GetPort(portType, 0));
    }
    CTestRxPort* Rx() { return Get<CTestRxPort>(HDW_PORT_ARINC429_RX); }
    CTestTxPort* Tx() { return Get<CTestTxPort>(HDW_PORT_ARINC429_TX); }
    CTestCanPort* Can() { return Get<CTestCanPort>(HDW_PORT_CAN); }
    CTestMilPort* Mil() { return Get<CTestMilPort>(HDW_PORT_MILSTD1553); }
    CTestDiscreteInPort* DiscreteIn() { return Get<CTestDiscreteInPort>(HDW_PORT_DISCRETE_IN); } // banks of 8 lines
    CTestDiscreteOutPort* DiscreteOut() { return Get<CTestDiscreteOutPort>(HDW_PORT_DISCRETE_OUT); }
    CTestI2cPort* I2c() { return Get<CTestI2cPort>(HDW_PORT_I2C); }
    CTestSpiPort* Spi() { return Get<CTestSpiPort>(HDW_PORT_SPI); }

    void ReceiveWord(const CKVX_HdwArinc429Message& word, uint64_t time)
    {
        CTestEvent e(EventArinc429Rx, "RX0", time);
        e.Word = word;
        Device->Deliver(HDW_PORT_ARINC429_RX, e);
    }
    void ReceiveFrame(const CKVX_HdwCanMessage& frame, uint64_t time)
    {
        CTestEvent e(EventCanRx, "CAN0", time);
        e.Frame = frame;
        Device->Deliver(HDW_PORT_CAN, e);
    }
    void ReportCanStatus(uint64_t time, uint8_t status, uint8_t reg0, uint8_t reg1 = 0)
    {
        CTestEvent e(EventCanStatus, "CAN0", time);
        e.Status.Status = status;
        e.Status.ErrReg0 = reg0;
        e.Status.ErrReg1 = reg1;
        Device->Deliver(HDW_PORT_CAN, e);
    }
    void ReportDiscrete(
        unsigned portType, uint32_t state, uint32_t changed, uint16_t sequence, uint64_t time, bool isChange = true)
    {
        CTestEvent e(EventDiscrete, portType == HDW_PORT_DISCRETE_IN ? "DIN0" : "DOUT0", time);
        std::tie(e.State, e.Changed, e.Sequence, e.IsChange) = std::tuple(state, changed, sequence, isChange);
        Device->Deliver(portType, e);
    }
    void Fail(unsigned portType, const char* channel)
    {
        CTestEvent e(EventFailure, channel, 0);
        Device->Deliver(portType, e);
    }

    std::unique_ptr<CTestBusDevice> Device = std::make_unique<CTestBusDevice>(); // outlives the manager
    CKVX_HdwManager Manager;
};

// A running rig's ARINC 429 ports, with the input and output services the test puts on them.
template <class In, class Out = CKVX_HdwService>
class CArinc429Rig : public ::testing::Test {
protected:
    CBusRig rig;
    CTestRxPort* rx = rig.Rx();
    CTestTxPort* tx = rig.Tx();
    In* in = nullptr;
    Out* out = nullptr;
};

inline CKVX_HdwArinc429Message Word(unsigned label, unsigned sdi, unsigned ssm = 0, unsigned data = 0)
{
    CKVX_HdwArinc429Message m;
    m.Label = uint8_t(label);
    m.Sdi = uint8_t(sdi);
    m.Ssm = uint8_t(ssm);
    m.Data = data;
    return m;
}

inline CKVX_HdwCanMessage Frame(uint32_t id, uint8_t extended, std::vector<uint8_t> data, uint8_t rtr = 0)
{
    CKVX_HdwCanMessage m;
    m.Identifier = id;
    m.Extended = extended;
    m.Rtr = rtr;
    m.Dlc = uint8_t(data.size());
    for (size_t i = 0; i < data.size() && i < 8; ++i)
        m.Data[i] = data[i];
    return m;
}

// Enables a service and returns it as its class (null on refusal).
template <typename S>
S* Enable(CKVX_HdwPort* port, unsigned type)
{
    CKVX_HdwService* service = nullptr;
    return port->EnableService(type, &service, nullptr) == 0 ? dynamic_cast<S*>(service) : nullptr;
}

// Installs a service as a driver's EnableService does.
template <typename S>
S* Install(CKVX_HdwPort* port)
{
    auto* s = new S(port);
    port->GetServiceList() += s;
    return s;
}

} // namespace bustest
