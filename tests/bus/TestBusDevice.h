#pragma once
// A small device that plays the unit driver for the bus classes: one unit
// with an ARINC 429 receiver ("RX0"), a transmitter ("TX0"), a CAN port
// ("CAN0") and a MIL-STD-1553 port ("MIL0"). Its ports create the generic services (or driver-like
// subclasses of them) once the generic EnableService has admitted the type;
// its events are offered through ProcessEventHandlers under the unit's lock,
// as a real receive path does.

#include <HdwLib/HdwLib.h>

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <vector>

namespace bustest {

// Event codes of the test unit.
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
    // Discrete bank report: state, changed lines, sequence, change or read answer.
    uint32_t State = 0;
    uint32_t Changed = 0;
    uint16_t Sequence = 0;
    bool IsChange = true;
};

// A generic service with the receive path a unit driver gives it: an event
// of code Code is stored, a failure fails the service.
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
        else
            this->AppendFrame(e.Frame, e.Time);
        return 0;
    }
};

// The reads a unit driver gives the buffered inputs.
class CTestArinc429InService : public CDriven<CKVX_HdwArinc429InBufferService, EventArinc429Rx> {
public:
    using CDriven::CDriven;
    unsigned Read(CKVX_HdwArinc429Message* messages, unsigned maxCount, unsigned& readCount) override
    {
        return ReadMessages(messages, maxCount, readCount);
    }
    unsigned GetReadMessagesNumber(unsigned& count) override { return CountMessages(count); }
    // Exposes the protected filter check to the tests.
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

// Posts what the unit reports on the channel, as a driver does.
class CTestSignalService : public CKVX_HdwSignalService {
public:
    using CKVX_HdwSignalService::CKVX_HdwSignalService;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};

// An I2C master whose Submit checks and queues as a driver does; the test
// plays the unit through Send, Finish and Fail.
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

// Stand-in for the services no generic class exists for yet (the data
// generator): they only carry their type code.
class CTypedService : public CKVX_HdwService {
public:
    CTypedService(CKVX_HdwObject* port, unsigned type) : CKVX_HdwService(port) { m_ServiceType = type; }
};

// Once the generic check passed (rc 0), appends a new service of the class
// the test unit uses for that type.
unsigned AddService(CKVX_HdwPort* port, unsigned type, unsigned rc, CKVX_HdwService** out);

// A port of the test unit: the generic EnableService decides, then the
// service of that type is created (each type maps to one class whatever the port).
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
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};

class CTestBusDevice : public CKVX_HdwDevice {
public:
    static constexpr uint64_t Code = 0x7E5701;
    CTestBusDevice() { m_DeviceCode = Code; }
    ~CTestBusDevice() override;
    unsigned Init(unsigned instanceCount) override;
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;

    // Offers an event to the unit's ports of that type, under the unit lock.
    unsigned Deliver(unsigned portType, CKVX_HdwEvent& event);
};

// A running manager with the test device attached and enumerated.
class CBusRig {
public:
    CBusRig();
    ~CBusRig();
    CTestRxPort* Rx() { return static_cast<CTestRxPort*>(Manager.GetPort(HDW_PORT_ARINC429_RX, 0)); }
    CTestTxPort* Tx() { return static_cast<CTestTxPort*>(Manager.GetPort(HDW_PORT_ARINC429_TX, 0)); }
    CTestCanPort* Can() { return static_cast<CTestCanPort*>(Manager.GetPort(HDW_PORT_CAN, 0)); }
    CTestMilPort* Mil() { return static_cast<CTestMilPort*>(Manager.GetPort(HDW_PORT_MILSTD1553, 0)); }
    // Banks of 8 lines.
    CTestDiscreteInPort* DiscreteIn()
    {
        return static_cast<CTestDiscreteInPort*>(Manager.GetPort(HDW_PORT_DISCRETE_IN, 0));
    }
    CTestDiscreteOutPort* DiscreteOut()
    {
        return static_cast<CTestDiscreteOutPort*>(Manager.GetPort(HDW_PORT_DISCRETE_OUT, 0));
    }
    CTestI2cPort* I2c() { return static_cast<CTestI2cPort*>(Manager.GetPort(HDW_PORT_I2C, 0)); }
    CTestSpiPort* Spi() { return static_cast<CTestSpiPort*>(Manager.GetPort(HDW_PORT_SPI, 0)); }
    // The unit reports a received word or frame, or a failure of the channel's services.
    void ReceiveWord(const CKVX_HdwArinc429Message& word, uint64_t time);
    void ReceiveFrame(const CKVX_HdwCanMessage& frame, uint64_t time);
    void Fail(unsigned portType, const char* channel);
    // The unit reports a discrete bank's state ("DIN0" or "DOUT0").
    void ReportDiscrete(
        unsigned portType, uint32_t state, uint32_t changed, uint16_t sequence, uint64_t time, bool isChange = true);

    std::unique_ptr<CTestBusDevice> Device; // outlives the manager
    CKVX_HdwManager Manager;
};

// An ARINC 429 word with these fields.
inline CKVX_HdwArinc429Message Word(unsigned label, unsigned sdi, unsigned ssm = 0, unsigned data = 0)
{
    CKVX_HdwArinc429Message m;
    m.Label = uint8_t(label);
    m.Sdi = uint8_t(sdi);
    m.Ssm = uint8_t(ssm);
    m.Data = data;
    return m;
}

// Enables a service and returns it as its class (null on refusal).
template <typename S>
S* Enable(CKVX_HdwPort* port, unsigned type)
{
    CKVX_HdwService* service = nullptr;
    return port->EnableService(type, &service, nullptr) == 0 ? dynamic_cast<S*>(service) : nullptr;
}

} // namespace bustest
