#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>
#include <HdwLib/links/HdwStdUartDevice.h>
#include <HdwLib/links/internal/LineByteServices.h>
#include <HdwLib/links/internal/SerialPortEnum.h>

#include <vector>

// ---- CDeviceInstance -------------------------------------------------------

CKVX_HdwStdUartDevice::CDeviceInstance::CDeviceInstance() = default;

CKVX_HdwStdUartDevice::CDeviceInstance::~CDeviceInstance()
{
    Uart.Close();
}

unsigned CKVX_HdwStdUartDevice::CDeviceInstance::OpenPort(CKVX_HdwPort*, CKVX_HdwPort::CParameters* params)
{
    if (Uart.IsOpen())
        return 0;
    CKVX_HdwUartPort::CParameters line;
    if (auto* p = dynamic_cast<CKVX_HdwUartPort::CParameters*>(params))
        line = *p;
    return Uart.Open(PortName, &line) == 0 ? 0u : unsigned(HDW_ERR_LINK);
}

unsigned CKVX_HdwStdUartDevice::CDeviceInstance::ClosePort(CKVX_HdwPort*)
{
    return Uart.Close();
}

// ---- CStdUartPort ----------------------------------------------------------

CKVX_HdwStdUartDevice::CStdUartPort::CStdUartPort(CKVX_HdwObject* device, unsigned deviceInstance)
    : CKVX_HdwUartPort(device, deviceInstance, "0")
{}

CKVX_HdwStdUartDevice::CStdUartPort::~CStdUartPort() = default;

unsigned CKVX_HdwStdUartDevice::CStdUartPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwUartPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::links::EnableLineByteService(*this, serviceType, service, params);
}

bool CKVX_HdwStdUartDevice::CStdUartPort::LineIsOpen()
{
    CUart* line = Line();
    return line && line->IsOpen();
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::LineRead(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    CUart* line = Line();
    return line ? line->Read(buffer, maxBytes, bytesRead) : unsigned(HDW_ERR_PORT_NOT_OPEN);
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::LineWriteRoom()
{
    const unsigned queued = LineQueued();
    return queued < OutputHighWater ? OutputHighWater - queued : 0u;
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::LineWrite(const unsigned char* data, unsigned count, unsigned& written)
{
    written = 0;
    CUart* line = Line();
    if (!line)
        return HDW_ERR_PORT_NOT_OPEN;
    return line->WriteSome(data, count, written);
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::LineWriteTimeout()
{
    return m_Parameters.Timeout;
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::LineQueued()
{
    unsigned queued = 0;
    if (CUart* line = Line())
        line->GetBytesToBeWritten(queued);
    return queued;
}

CUart* CKVX_HdwStdUartDevice::CStdUartPort::Line()
{
    auto* device = static_cast<CKVX_HdwStdUartDevice*>(GetHdwDevice());
    CDeviceInstance* inst = device ? device->GetStdInstance(m_DeviceInstance) : nullptr;
    return inst ? &inst->Uart : nullptr;
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::Read(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    CUart* line = Line();
    if (!IsOpen() || !line)
        return HDW_ERR_PORT_NOT_OPEN;
    DeviceLock();
    const unsigned rc = line->Read(buffer, maxBytes, bytesRead);
    DeviceUnlock();
    return rc;
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::Write(unsigned char* data, unsigned count)
{
    CUart* line = Line();
    if (!IsOpen() || !line)
        return HDW_ERR_PORT_NOT_OPEN;
    DeviceLock();
    const unsigned rc = line->Write(data, count, m_Parameters.Timeout);
    DeviceUnlock();
    return rc;
}

unsigned CKVX_HdwStdUartDevice::CStdUartPort::GetReadBufferBytes(unsigned& count)
{
    count = 0;
    CUart* line = Line();
    if (!IsOpen() || !line)
        return HDW_ERR_PORT_NOT_OPEN;
    DeviceLock();
    const unsigned rc = line->GetReadBufferBytes(count);
    DeviceUnlock();
    return rc;
}

// ---- CKVX_HdwStdUartDevice -------------------------------------------------

CKVX_HdwStdUartDevice::CKVX_HdwStdUartDevice()
{
    m_DeviceCode = StdUartDeviceCode;
    m_Manufacturer = "PC";
    m_ModelName = "Serial port";
}

CKVX_HdwStdUartDevice::~CKVX_HdwStdUartDevice()
{
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwStdUartDevice::Init(unsigned)
{
    DestroyPorts();
    DestroyDeviceList();

    struct Found {
        CKVX_String Name, SerialNumber, Revision;
    };
    std::vector<Found> found;
    const auto ports = hdw::platform::EnumerateSerialPorts();
    auto identity = [&ports](const CKVX_String& name) {
        Found f{name, name, ""};
        for (const auto& p : ports) {
            if (name == p.Name.c_str() && p.IsUsb && !p.SerialNumber.empty()) {
                f.SerialNumber = p.SerialNumber;
                f.Revision = p.Revision;
            }
        }
        return f;
    };

    for (unsigned i = 0; i < GetEnumerationLinkCount(); ++i) {
        CKVX_HdwInitPortDesc* link = GetEnumerationLink(i);
        if (!link || !CKVX_HdwFtdiUartBridgedDevice::IsSerialLinkName(link->Link))
            continue;
        // An explicit link counts when the line can be opened.
        CUart probe;
        CKVX_HdwUartPort::CParameters defaults;
        const unsigned rc = probe.Open(link->Link, &defaults);
        probe.Close();
        link->Result = rc == 0 ? 0u : unsigned(HDW_ERR_LINK);
        if (rc == 0)
            found.push_back(identity(link->Link));
    }
    if (IsScanRequested()) {
        for (const auto& p : ports) {
            bool listed = false;
            for (const Found& f : found)
                listed = listed || f.Name == p.Name.c_str();
            if (!listed)
                found.push_back(identity(p.Name));
        }
    }
    if (found.empty())
        return 0;

    CKVX_HdwDevice::Init(static_cast<unsigned>(found.size()));
    for (unsigned i = 0; i < found.size(); ++i) {
        auto* inst = new CDeviceInstance;
        inst->PortName = found[i].Name;
        inst->Link = found[i].Name;
        inst->SerialNumber = found[i].SerialNumber;
        inst->Revision = found[i].Revision;
        m_DeviceList += inst;
        CKVX_String description = "Serial port ";
        description += found[i].Name;
        AddPortDescriptor(i, new CStdUartPort(this, i), 0, description);
    }
    return 0;
}

unsigned CKVX_HdwStdUartDevice::Open(unsigned instance)
{
    CDeviceInstance* inst = GetStdInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    inst->SetOpen(true);
    inst->Unlock();
    return 0;
}

unsigned CKVX_HdwStdUartDevice::Close(unsigned instance)
{
    CDeviceInstance* inst = GetStdInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    if (!CanClose(instance))
        return 0;
    inst->Lock();
    inst->SetOpen(false);
    inst->Uart.Close();
    inst->Unlock();
    return 0;
}

CKVX_HdwStdUartDevice::CDeviceInstance* CKVX_HdwStdUartDevice::GetStdInstance(unsigned instance)
{
    // Every instance of this device is created by Init above.
    return static_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}
