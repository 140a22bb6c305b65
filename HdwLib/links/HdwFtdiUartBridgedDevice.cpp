#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>
#include <HdwLib/links/internal/SerialPortEnum.h>

#include <cctype>
#include <string>

namespace {

std::string Lower(const std::string& text)
{
    std::string out = text;
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// "0x0403", "0403" and "403" name the same identifier.
std::string NormalHexId(const std::string& text)
{
    std::string s = Lower(text);
    if (s.rfind("0x", 0) == 0)
        s.erase(0, 2);
    const size_t first = s.find_first_not_of('0');
    return first == std::string::npos ? std::string("0") : s.substr(first);
}

} // namespace

// ---- CDeviceInstance -------------------------------------------------------

CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance::CDeviceInstance() = default;

CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance::~CDeviceInstance()
{
    Uart.Close();
}

CKVX_HdwFtdiUartBridgedDevice::CUartCandidate::~CUartCandidate() = default;

// ---- CKVX_HdwFtdiUartBridgedDevice -----------------------------------------

CKVX_HdwFtdiUartBridgedDevice::CKVX_HdwFtdiUartBridgedDevice() = default;

CKVX_HdwFtdiUartBridgedDevice::~CKVX_HdwFtdiUartBridgedDevice()
{
    // Ports first (they may still be open on a link), then the instances,
    // whose destructors close the serial ports.
    DestroyPorts();
    DestroyDeviceList();
}

bool CKVX_HdwFtdiUartBridgedDevice::IsSerialLinkName(const CKVX_String& link)
{
    return !link.IsEmpty() && link.FindFromBegin("udp:") != 0;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::GetWriteTimeoutMs() const
{
    return m_LinkTimeout ? m_LinkTimeout : DefaultWriteTimeoutMs;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Init(unsigned)
{
    std::vector<CUartCandidate> candidates;
    CollectUartCandidates(candidates);
    std::vector<CDeviceInstance*> found;
    ProbeUartCandidates(candidates, found);
    return InstallInstances(found);
}

void CKVX_HdwFtdiUartBridgedDevice::CollectUartCandidates(std::vector<CUartCandidate>& candidates)
{
    // The instances of an earlier enumeration hold their ports open
    // exclusively; they go before anything is probed.
    DestroyPorts();
    DestroyDeviceList();

    std::vector<hdw::platform::SerialPortInfo> ports;
    const bool scan = IsScanRequested();
    if (scan || GetEnumerationLinkCount() != 0)
        ports = hdw::platform::EnumerateSerialPorts();

    for (unsigned i = 0; i < GetEnumerationLinkCount(); ++i) {
        CKVX_HdwInitPortDesc* link = GetEnumerationLink(i);
        if (!link || !IsSerialLinkName(link->Link))
            continue;
        CUartCandidate c;
        c.PortName = link->Link;
        c.InitLink = link;
        // A bridge named explicitly still reports its USB identity.
        for (const auto& p : ports) {
            if (link->Link == p.Name.c_str() && p.IsUsb) {
                c.SerialNumber = p.SerialNumber;
                c.Revision = p.Revision;
                c.UsbDescription = p.Description;
            }
        }
        if (c.SerialNumber.IsEmpty()) {
            c.SerialNumber = link->Link;
            c.Revision = "";
        }
        candidates.push_back(std::move(c));
    }
    if (!scan)
        return;

    const std::string vid = NormalHexId(m_UsbVendorId.str());
    const std::string pid = NormalHexId(m_UsbProductId.str());
    for (const auto& p : ports) {
        if (!p.IsUsb || m_UsbVendorId.IsEmpty() || m_UsbProductId.IsEmpty())
            continue;
        if (NormalHexId(p.VendorId) != vid || NormalHexId(p.ProductId) != pid)
            continue;
        if (!m_UsbDescription.IsEmpty() && !(m_UsbDescription == p.Description.c_str()))
            continue;
        bool listed = false;
        for (const CUartCandidate& c : candidates)
            listed = listed || c.PortName == p.Name.c_str();
        if (listed)
            continue;
        CUartCandidate c;
        c.PortName = p.Name;
        c.SerialNumber = p.SerialNumber;
        c.Revision = p.Revision;
        c.UsbDescription = p.Description;
        candidates.push_back(std::move(c));
    }
}

void CKVX_HdwFtdiUartBridgedDevice::ProbeUartCandidates(
    const std::vector<CUartCandidate>& candidates, std::vector<CDeviceInstance*>& found)
{
    for (const CUartCandidate& c : candidates) {
        CDeviceInstance* tmp = CreateDeviceInstance();
        unsigned rc = HDW_ERR_LINK;
        if (tmp) {
            tmp->PortName = c.PortName;
            tmp->Link = c.PortName;
            tmp->SerialNumber = c.SerialNumber;
            tmp->Revision = c.Revision;
            tmp->UsbDescription = c.UsbDescription;
            rc = ProbeUartLink(tmp, c.PortName);
            Com_Close(tmp);
        }
        if (rc == 0) {
            found.push_back(tmp);
        } else {
            delete tmp;
        }
        if (c.InitLink)
            c.InitLink->Result = rc == 0 ? 0u : unsigned(HDW_ERR_LINK);
    }
}

unsigned CKVX_HdwFtdiUartBridgedDevice::InstallInstances(std::vector<CDeviceInstance*>& found)
{
    const unsigned count = AdoptInstances(found);
    for (unsigned i = 0; i < count; ++i)
        CreateInstancePorts(i);
    return 0;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Open(unsigned instance)
{
    CDeviceInstance* inst = GetUartInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    inst->Lock();
    unsigned rc = 0;
    if (!inst->IsOpen()) {
        rc = Com_Open(inst);
        if (rc == 0)
            inst->SetOpen(true);
    }
    inst->Unlock();
    return rc;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Close(unsigned instance)
{
    CDeviceInstance* inst = GetUartInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    if (!CanClose(instance))
        return 0;
    inst->Lock();
    if (inst->IsOpen()) {
        Com_Close(inst);
        inst->SetOpen(false);
    }
    inst->Unlock();
    return 0;
}

CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* CKVX_HdwFtdiUartBridgedDevice::CreateDeviceInstance()
{
    return new CDeviceInstance;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::ProbeUartLink(CDeviceInstance*, const CKVX_String&)
{
    return HDW_ERR_LINK;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::CreateInstancePorts(unsigned)
{
    return 0;
}

CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* CKVX_HdwFtdiUartBridgedDevice::GetUartInstance(unsigned instance)
{
    // Every instance of this device comes from CreateDeviceInstance.
    return static_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}

unsigned CKVX_HdwFtdiUartBridgedDevice::GetDevPathIndentifier(unsigned instance, CKVX_String& path)
{
    path = "";
    CDeviceInstance* inst = GetUartInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    path = inst->Link.IsEmpty() ? inst->PortName : inst->Link;
    return 0;
}

unsigned CKVX_HdwFtdiUartBridgedDevice::IdentifyAddictionalUart(
    const CKVX_String& portName, unsigned& instance, bool& additional)
{
    instance = NoInstance;
    additional = false;
    if (!IsSerialLinkName(portName))
        return HDW_ERR_ARGUMENT;
    const unsigned count = GetInstanceCount();
    for (unsigned i = 0; i < count; ++i) {
        const CDeviceInstance* inst = GetUartInstance(i);
        if (inst && inst->PortName == portName) {
            instance = i;
            return 0;
        }
    }
    // Another port: the system tells which bridge it sits on.
    const std::vector<hdw::platform::SerialPortInfo> ports = hdw::platform::EnumerateSerialPorts();
    auto find = [&ports](const CKVX_String& name) -> const hdw::platform::SerialPortInfo* {
        for (const auto& p : ports)
            if (name == p.Name.c_str())
                return &p;
        return nullptr;
    };
    const hdw::platform::SerialPortInfo* asked = find(portName);
    if (!asked || !asked->IsUsb)
        return 0;
    for (unsigned i = 0; i < count; ++i) {
        const CDeviceInstance* inst = GetUartInstance(i);
        if (!inst || inst->PortName.IsEmpty())
            continue;
        const hdw::platform::SerialPortInfo* own = find(inst->PortName);
        if (own && hdw::platform::SameUsbBridge(*asked, *own)) {
            instance = i;
            additional = true;
            return 0;
        }
    }
    return 0;
}

// ---- the byte link ----------------------------------------------------------

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Open(CDeviceInstance* instance)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    if (instance->Uart.IsOpen())
        return 0;
    CKVX_HdwUartPort::CParameters params = m_LinkParameters;
    return instance->Uart.Open(instance->PortName, &params) == 0 ? 0u : unsigned(HDW_ERR_LINK);
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Close(CDeviceInstance* instance)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->Uart.Close();
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Read(
    CDeviceInstance* instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->Uart.Read(buffer, maxBytes, bytesRead);
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Write(CDeviceInstance* instance, unsigned char* data, unsigned count)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->Uart.Write(data, count, GetWriteTimeoutMs());
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_GetReadBufferBytes(CDeviceInstance* instance, unsigned& count)
{
    count = 0;
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->Uart.GetReadBufferBytes(count);
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Open(unsigned instance)
{
    return Com_Open(GetUartInstance(instance));
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Close(unsigned instance)
{
    return Com_Close(GetUartInstance(instance));
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Read(
    unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    return Com_Read(GetUartInstance(instance), buffer, maxBytes, bytesRead);
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_Write(unsigned instance, unsigned char* data, unsigned count)
{
    return Com_Write(GetUartInstance(instance), data, count);
}

unsigned CKVX_HdwFtdiUartBridgedDevice::Com_GetReadBufferBytes(unsigned instance, unsigned& count)
{
    return Com_GetReadBufferBytes(GetUartInstance(instance), count);
}

void CKVX_HdwFtdiUartBridgedDevice::SetUnitIdentity(uint64_t deviceCode, const char* manufacturer, const char* model,
    const char* usbDescription, const char* vendorId, const char* productId, unsigned baudRate, unsigned linkTimeoutMs)
{
    m_DeviceCode = deviceCode;
    m_Manufacturer = manufacturer;
    m_ModelName = model;
    m_Description = usbDescription;
    m_UsbDescription = usbDescription;
    m_UsbVendorId = vendorId;
    m_UsbProductId = productId;
    m_LinkParameters.BaudRate = baudRate;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = static_cast<unsigned short>(linkTimeoutMs);
}
