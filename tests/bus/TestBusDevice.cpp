#include "TestBusDevice.h"

namespace bustest {

namespace {
// Appends a new service of class S to the port once the generic check passed.
template <typename S, typename... A>
unsigned Add(CKVX_HdwPort* port, unsigned rc, CKVX_HdwService** out, A... args)
{
    if (rc != 0)
        return rc;
    auto* s = new S(port, args...);
    port->GetServiceList() += s;
    if (out)
        *out = s;
    return 0;
}
} // namespace

unsigned CTestArinc429InService::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventArinc429Rx) {
        AppendReceived(e->Word, e->Time);
    } else if (e->GetEventCode() == EventFailure) {
        SetStatus(HDW_SERVICE_FAILED);
    }
    return 0;
}

unsigned CTestArinc429InLbloService::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventArinc429Rx && GetStatus() == HDW_SERVICE_RUNNING)
        StoreReceived(e->Word, e->Time);
    else if (e->GetEventCode() == EventFailure)
        SetStatus(HDW_SERVICE_FAILED);
    return 0;
}

unsigned CTestCanInService::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventCanRx)
        AppendReceived(e->Frame, e->Time);
    else if (e->GetEventCode() == EventFailure)
        SetStatus(HDW_SERVICE_FAILED);
    return 0;
}

unsigned CTestSignalService::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventArinc429Rx)
        PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, e->Word, e->Time);
    else if (e->GetEventCode() == EventCanRx)
        PostCan(HDW_SIGNAL_CAN_RECEIVED, e->Frame, e->Time);
    return 0;
}

unsigned CTestRxPort::EnableService(unsigned type, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    const unsigned rc = CKVX_HdwArinc429RxPort::EnableService(type, service, params);
    switch (type) {
    case HDW_SERVICE_SIGNAL:
        return Add<CTestSignalService>(this, rc, service);
    case HDW_SERVICE_BYTE_IN_BUFFER:
        return Add<CKVX_HdwByteInBufferService>(this, rc, service);
    case HDW_SERVICE_ARINC429_IN_BUFFER:
        return Add<CTestArinc429InService>(this, rc, service);
    case HDW_SERVICE_ARINC429_LABEL_IN:
        return Add<CTestArinc429InLbloService>(this, rc, service);
    default:
        return Add<CTypedService>(this, rc, service, type);
    }
}

unsigned CTestTxPort::EnableService(unsigned type, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    const unsigned rc = CKVX_HdwArinc429TxPort::EnableService(type, service, params);
    switch (type) {
    case HDW_SERVICE_SIGNAL:
        return Add<CTestSignalService>(this, rc, service);
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return Add<CKVX_HdwByteOutBufferService>(this, rc, service);
    case HDW_SERVICE_ARINC429_OUT_BUFFER:
        return Add<CKVX_HdwArinc429OutBufferService>(this, rc, service);
    case HDW_SERVICE_ARINC429_LABEL_OUT:
        return Add<CKVX_HdwArinc429OutLbloService>(this, rc, service);
    default:
        return Add<CTypedService>(this, rc, service, type);
    }
}

unsigned CTestCanPort::EnableService(unsigned type, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    const unsigned rc = CKVX_HdwCanPort::EnableService(type, service, params);
    switch (type) {
    case HDW_SERVICE_SIGNAL:
        return Add<CTestSignalService>(this, rc, service);
    case HDW_SERVICE_BYTE_IN_BUFFER:
        return Add<CKVX_HdwByteInBufferService>(this, rc, service);
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return Add<CKVX_HdwByteOutBufferService>(this, rc, service);
    case HDW_SERVICE_CAN_IN_BUFFER:
        return Add<CTestCanInService>(this, rc, service);
    case HDW_SERVICE_CAN_OUT_BUFFER:
        return Add<CKVX_HdwCanOutBufferService>(this, rc, service);
    default:
        return Add<CTypedService>(this, rc, service, type);
    }
}

unsigned CTestCanPort::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventCanStatus)
        UpdateFaultStatus(e->Status, e->Time);
    return CKVX_HdwCanPort::ProcessEvent(event);
}

unsigned CTestMilPort::EnableService(unsigned type, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    const unsigned rc = CKVX_HdwMilStd1553Port::EnableService(type, service, params);
    if (type == HDW_SERVICE_SIGNAL)
        return Add<CTestSignalService>(this, rc, service);
    return Add<CTypedService>(this, rc, service, type);
}

CTestBusDevice::~CTestBusDevice() = default;

unsigned CTestBusDevice::Init(unsigned)
{
    // A scan finds the one test unit.
    if (const unsigned rc = CKVX_HdwDevice::Init(1))
        return rc;
    m_DeviceList.Create(1);
    m_DeviceList[0] = new CDeviceInstance;
    AddPortDescriptor(0, new CTestRxPort(this, 0, "RX0"), 0, "ARINC 429 RX 0");
    AddPortDescriptor(0, new CTestTxPort(this, 0, "TX0"), 0, "ARINC 429 TX 0");
    AddPortDescriptor(0, new CTestCanPort(this, 0, "CAN0"), 0, "CAN 0");
    AddPortDescriptor(0, new CTestMilPort(this, 0, "MIL0"), 0, "MIL-STD-1553 0");
    return 0;
}

unsigned CTestBusDevice::Open(unsigned instance)
{
    CDeviceInstance* inst = GetDeviceInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    inst->SetOpen(true);
    inst->Unlock();
    return 0;
}

unsigned CTestBusDevice::Close(unsigned instance)
{
    CDeviceInstance* inst = GetDeviceInstance(instance);
    if (!inst || !CanClose(instance))
        return 0;
    inst->Lock();
    inst->SetOpen(false);
    inst->Unlock();
    return 0;
}

unsigned CTestBusDevice::Deliver(unsigned portType, CKVX_HdwEvent& event)
{
    DeviceLock(0);
    const unsigned rc = ProcessEventHandlers(0, portType, &event);
    DeviceUnlock(0);
    return rc;
}

CBusRig::CBusRig() : Device(new CTestBusDevice)
{
    Manager.AttachDevice(Device.get());
    Manager.Enumerate();
    Manager.Run();
}

CBusRig::~CBusRig()
{
    Manager.Stop();
}

} // namespace bustest
