#include <HdwLib/links/HdwUdpEmulatorDevice.h>
#include <HdwLib/links/internal/ByteQueue.h>
#include <HdwLib/links/internal/HoeEnumeration.h>
#include <HdwLib/links/internal/LineByteServices.h>

#include <vector>

CKVX_HdwUdpEmulatorDevice::CDeviceInstance::CDeviceInstance() = default;
CKVX_HdwUdpEmulatorDevice::CDeviceInstance::~CDeviceInstance() = default;

CKVX_HdwUdpEmulatorDevice::CKVX_HdwUdpEmulatorDevice() : m_RxBuffer(new unsigned char[MaxDatagram])
{
    m_DeviceCode = UdpEmulatorDeviceCode;
    m_Manufacturer = "HdwLib";
    m_ModelName = "UDP emulator";
    m_Description = "Serial unit over UDP";
}

CKVX_HdwUdpEmulatorDevice::~CKVX_HdwUdpEmulatorDevice()
{
    DestroyPorts();
    DestroyDeviceList();
    delete[] m_RxBuffer;
}

CKVX_HdwUdpEmulatorDevice::CDeviceInstance* CKVX_HdwUdpEmulatorDevice::GetEmulatorInstance(unsigned instance)
{
    return dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}

// ---- CUdpUartPort ----------------------------------------------------------

CKVX_HdwUdpEmulatorDevice::CUdpUartPort::CUdpUartPort(CKVX_HdwObject* device, unsigned deviceInstance)
    : CKVX_HdwUartPort(device, deviceInstance, "0")
{}

CKVX_HdwUdpEmulatorDevice::CUdpUartPort::~CUdpUartPort() = default;

unsigned CKVX_HdwUdpEmulatorDevice::CUdpUartPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwUartPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::links::EnableLineByteService(*this, serviceType, service, params);
}

CKVX_HdwUdpEmulatorDevice::CDeviceInstance* CKVX_HdwUdpEmulatorDevice::CUdpUartPort::Instance()
{
    auto* device = static_cast<CKVX_HdwUdpEmulatorDevice*>(GetHdwDevice());
    return device ? device->GetEmulatorInstance(m_DeviceInstance) : nullptr;
}

bool CKVX_HdwUdpEmulatorDevice::CUdpUartPort::LineIsOpen()
{
    CDeviceInstance* inst = Instance();
    return inst && inst->IsOpen() && inst->Socket.IsOpen();
}

unsigned CKVX_HdwUdpEmulatorDevice::CUdpUartPort::LineRead(
    unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    CDeviceInstance* inst = Instance();
    if (!inst)
        return HDW_ERR_PORT_NOT_OPEN;
    bytesRead = hdw::links::TakeFront(inst->RxList, buffer, maxBytes);
    return 0;
}

unsigned CKVX_HdwUdpEmulatorDevice::CUdpUartPort::LineWriteRoom()
{
    return CKVX_HdwLineByteOutBufferService::MaxWritePerTick;
}

// One datagram: the socket takes it whole or fails.
unsigned CKVX_HdwUdpEmulatorDevice::CUdpUartPort::LineWrite(
    const unsigned char* data, unsigned count, unsigned& written)
{
    written = 0;
    CDeviceInstance* inst = Instance();
    if (!inst)
        return HDW_ERR_PORT_NOT_OPEN;
    if (inst->Socket.SendTo(data, count, inst->UnitAddress, inst->UnitPort) != 0)
        return HDW_ERR_SYSTEM_CALL;
    written = count;
    return 0;
}

unsigned CKVX_HdwUdpEmulatorDevice::CUdpUartPort::LineWriteTimeout()
{
    return m_Parameters.Timeout;
}

unsigned CKVX_HdwUdpEmulatorDevice::CUdpUartPort::LineQueued()
{
    return 0;
}

// ---- CKVX_HdwUdpEmulatorDevice ---------------------------------------------

unsigned CKVX_HdwUdpEmulatorDevice::Init(unsigned)
{
    std::vector<CDeviceInstance*> found;
    for (unsigned n = 0; n < GetEnumerationLinkCount(); ++n) {
        CKVX_HdwInitPortDesc* link = GetEnumerationLink(n);
        if (!link)
            continue;
        CKVX_IpAddress address;
        unsigned short port = 0;
        if (!hdw::links::IsUdpLink(link->Link) || !hdw::links::CHoeSession::ParseLink(link->Link, address, port)) {
            link->Result = HDW_ERR_ARGUMENT;
            continue;
        }
        auto* inst = new CDeviceInstance;
        inst->UnitAddress = address;
        inst->UnitPort = port;
        inst->Link = link->Link;
        inst->SerialNumber = link->Link;
        found.push_back(inst);
        link->Result = 0;
    }
    const unsigned count = AdoptInstances(found);
    for (unsigned i = 0; i < count; ++i)
        AddPortDescriptor(i, new CUdpUartPort(this, i), 0, "UART 0");
    return 0;
}

unsigned CKVX_HdwUdpEmulatorDevice::Open(unsigned instance)
{
    CDeviceInstance* inst = GetEmulatorInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    unsigned rc = 0;
    if (!inst->IsOpen()) {
        inst->RxList.DeleteAll();
        rc = inst->Socket.Open();
        if (rc == 0)
            inst->SetOpen(true);
        else
            rc = HDW_ERR_SYSTEM_CALL;
    }
    inst->Unlock();
    return rc;
}

unsigned CKVX_HdwUdpEmulatorDevice::Close(unsigned instance)
{
    CDeviceInstance* inst = GetEmulatorInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    if (!CanClose(instance))
        return 0;
    inst->Lock();
    inst->Socket.Close();
    inst->SetOpen(false);
    inst->Unlock();
    return 0;
}

unsigned CKVX_HdwUdpEmulatorDevice::HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t)
{
    CDeviceInstance* inst = GetEmulatorInstance(instance);
    if (!inst || !inst->Socket.IsOpen())
        return 0;
    // A bounded number of datagrams per tick; the rest waits for the next one.
    for (unsigned n = 0; n < MaxDatagramsPerTick; ++n) {
        unsigned got = 0;
        CKVX_IpAddress from;
        unsigned short fromPort = 0;
        const unsigned rc = inst->Socket.ReceiveFrom(m_RxBuffer, MaxDatagram, got, from, fromPort, 0);
        if (rc == HDW_ERR_NOTHING_TO_READ)
            return 0;
        if (rc == HDW_ERR_SYSTEM_CALL)
            continue; // an oversized datagram is dropped
        if (rc != 0)
            return HDW_ERR_LINK;
        // Only the unit's own datagrams belong to its byte stream.
        if (from != inst->UnitAddress || fromPort != inst->UnitPort)
            continue;
        hdw::links::Append(inst->RxList, m_RxBuffer, got);
    }
    return 0;
}

unsigned CKVX_HdwUdpEmulatorDevice::UartWrite(unsigned instance, const unsigned char* data, unsigned count)
{
    CDeviceInstance* inst = GetEmulatorInstance(instance);
    if (!inst || (!data && count) || count > MaxDatagram)
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    unsigned rc = HDW_ERR_PORT_NOT_OPEN;
    if (inst->IsOpen())
        rc = inst->Socket.SendTo(data, count, inst->UnitAddress, inst->UnitPort) == 0 ? 0u
                                                                                      : unsigned(HDW_ERR_SYSTEM_CALL);
    inst->Unlock();
    return rc;
}

unsigned CKVX_HdwUdpEmulatorDevice::UartRead(
    unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    CDeviceInstance* inst = GetEmulatorInstance(instance);
    if (!inst || (!buffer && maxBytes))
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    unsigned rc = HDW_ERR_PORT_NOT_OPEN;
    if (inst->IsOpen()) {
        bytesRead = hdw::links::TakeFront(inst->RxList, buffer, maxBytes);
        rc = 0;
    }
    inst->Unlock();
    return rc;
}

unsigned CKVX_HdwUdpEmulatorDevice::UartGetReadBufferBytes(unsigned instance, unsigned& count)
{
    count = 0;
    CDeviceInstance* inst = GetEmulatorInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    const unsigned rc = inst->IsOpen() ? 0u : unsigned(HDW_ERR_PORT_NOT_OPEN);
    if (rc == 0)
        count = inst->RxList.GetLength();
    inst->Unlock();
    return rc;
}
