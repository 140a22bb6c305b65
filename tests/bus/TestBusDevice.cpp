#include "TestBusDevice.h"

namespace bustest {

unsigned CTestSignalService::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventArinc429Rx)
        PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, e->Word, e->Time);
    else if (e->GetEventCode() == EventCanRx)
        PostCan(HDW_SIGNAL_CAN_RECEIVED, e->Frame, e->Time);
    return 0;
}

unsigned AddService(CKVX_HdwPort* port, unsigned type, unsigned rc, CKVX_HdwService** out)
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

unsigned CTestCanPort::ProcessEvent(CKVX_HdwEvent* event)
{
    auto* e = static_cast<CTestEvent*>(event);
    if (e->GetEventCode() == EventCanStatus)
        UpdateFaultStatus(e->Status, e->Time);
    return CKVX_HdwCanPort::ProcessEvent(event);
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
    AddPortDescriptor(0, new CTestDiscreteInPort(this, 0, "DIN0", 8), 0, "discrete in 0");
    AddPortDescriptor(0, new CTestDiscreteOutPort(this, 0, "DOUT0", 8), 0, "discrete out 0");
    AddPortDescriptor(0, new CTestI2cPort(this, 0, "I2C0"), 0, "I2C 0");
    AddPortDescriptor(0, new CTestSpiPort(this, 0, "SPI0"), 0, "SPI 0");
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

void CBusRig::ReceiveWord(const CKVX_HdwArinc429Message& word, uint64_t time)
{
    CTestEvent e(EventArinc429Rx, "RX0", time);
    e.Word = word;
    Device->Deliver(HDW_PORT_ARINC429_RX, e);
}

void CBusRig::ReceiveFrame(const CKVX_HdwCanMessage& frame, uint64_t time)
{
    CTestEvent e(EventCanRx, "CAN0", time);
    e.Frame = frame;
    Device->Deliver(HDW_PORT_CAN, e);
}

void CBusRig::Fail(unsigned portType, const char* channel)
{
    CTestEvent e(EventFailure, channel, 0);
    Device->Deliver(portType, e);
}

void CBusRig::ReportDiscrete(
    unsigned portType, uint32_t state, uint32_t changed, uint16_t sequence, uint64_t time, bool isChange)
{
    CTestEvent e(EventDiscrete, portType == HDW_PORT_DISCRETE_IN ? "DIN0" : "DOUT0", time);
    e.State = state;
    e.Changed = changed;
    e.Sequence = sequence;
    e.IsChange = isChange;
    Device->Deliver(portType, e);
}

CBusRig::~CBusRig()
{
    Manager.Stop();
}

} // namespace bustest
