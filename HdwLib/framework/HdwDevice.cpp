#include <HdwLib/core/KvxException.h>
#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwEvent.h>

#include <new>

// ---- CDeviceInstance -------------------------------------------------------

CKVX_HdwDevice::CDeviceInstance::CDeviceInstance()
{
    m_Mutex = new (std::nothrow) CKVX_Mutex;
    if (!m_Mutex || !m_Mutex->IsValid()) {
        delete m_Mutex;
        m_Mutex = nullptr;
        throw CKVX_Exception(HDW_ERR_RESOURCES, this, 0);
    }
}

CKVX_HdwDevice::CDeviceInstance::~CDeviceInstance()
{
    delete m_Mutex;
}

unsigned CKVX_HdwDevice::CDeviceInstance::OpenPort(CKVX_HdwPort*, CKVX_HdwPort::CParameters*)
{
    return 0;
}
unsigned CKVX_HdwDevice::CDeviceInstance::ClosePort(CKVX_HdwPort*)
{
    return 0;
}

bool CKVX_HdwDevice::CDeviceInstance::Lock()
{
    return m_Mutex->Lock() == 0;
}

bool CKVX_HdwDevice::CDeviceInstance::Unlock()
{
    return m_Mutex->Unlock() == 0;
}

// ---- CPortDescriptor -------------------------------------------------------

CKVX_HdwDevice::CPortDescriptor::CPortDescriptor() : Tag(DefaultTag) {}
CKVX_HdwDevice::CPortDescriptor::~CPortDescriptor() = default;

bool CKVX_HdwDevice::CPortDescriptor::operator==(const CPortDescriptor& o) const
{
    return Tag == o.Tag && Manufacturer == o.Manufacturer && FullName == o.FullName && Revision == o.Revision &&
        SerialNumber == o.SerialNumber && IntChannel == o.IntChannel && Link == o.Link &&
        Description == o.Description && PortType == o.PortType && AbsNum == o.AbsNum && Channel == o.Channel &&
        Port == o.Port;
}

// ---- CKVX_HdwDevice --------------------------------------------------------

CKVX_HdwDevice::CKVX_HdwDevice() = default;

CKVX_HdwDevice::~CKVX_HdwDevice()
{
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwDevice::Init(unsigned instanceCount)
{
    if (instanceCount == 0)
        return HDW_ERR_ARGUMENT;
    DestroyDeviceList();
    DestroyPorts();
    m_PortDescriptors.Create(instanceCount);
    return 0;
}

unsigned CKVX_HdwDevice::Autobridge(CPortDescriptorMatrix&)
{
    return 0;
}
unsigned CKVX_HdwDevice::Run()
{
    return 0;
}

unsigned CKVX_HdwDevice::Stop()
{
    if (m_PortDescriptors.IsEmpty())
        return 0;
    for (CPortDescriptorsVector& v : m_PortDescriptors) {
        for (CPortDescriptor& d : v) {
            if (d.Port) {
                d.Port->DisableAllServices();
                d.Port->Close();
            }
        }
    }
    for (unsigned i = 0; i < m_DeviceList.GetLength(); ++i)
        Close(i);
    return 0;
}

unsigned CKVX_HdwDevice::Open(unsigned)
{
    return 0;
}
unsigned CKVX_HdwDevice::Close(unsigned)
{
    return 0;
}

unsigned CKVX_HdwDevice::HdwTimerHandler(uint64_t ticks)
{
    const unsigned count = m_DeviceList.GetLength();
    // Pass 1: the unit drivers read their links and dispatch events.
    for (unsigned i = 0; i < count; ++i) {
        CDeviceInstance* inst = m_DeviceList[i];
        inst->Lock();
        if (inst->IsOpen() && HdwTimerStartDeviceIntanceHandler(i, ticks) != 0)
            AbortAllServices(i);
        inst->Unlock();
    }
    // Pass 2: open ports and their services do their periodic work.
    for (unsigned i = 0; i < count; ++i) {
        CDeviceInstance* inst = m_DeviceList[i];
        inst->Lock();
        if (inst->IsOpen()) {
            for (CKVX_HdwPort* port : inst->GetPortList()) {
                if (port->HdwTimerHandler(ticks) != 0) {
                    AbortAllServices(i);
                    break;
                }
            }
        }
        inst->Unlock();
    }
    // Pass 3: the drivers send what the ports and services queued.
    for (unsigned i = 0; i < count; ++i) {
        CDeviceInstance* inst = m_DeviceList[i];
        inst->Lock();
        if (inst->IsOpen() && HdwTimerEndDeviceIntanceHandler(i, ticks) != 0)
            AbortAllServices(i);
        inst->Unlock();
    }
    return 0;
}

unsigned CKVX_HdwDevice::HdwTimerStartDeviceIntanceHandler(unsigned, uint64_t)
{
    return 0;
}
unsigned CKVX_HdwDevice::HdwTimerEndDeviceIntanceHandler(unsigned, uint64_t)
{
    return 0;
}

CKVX_HdwDevice::CDeviceInstance* CKVX_HdwDevice::GetDeviceInstance(unsigned instance)
{
    return instance < m_DeviceList.GetLength() ? m_DeviceList[instance] : nullptr;
}

unsigned CKVX_HdwDevice::GetPortDescriptor(unsigned instance, CPortDescriptorsVector** out)
{
    if (instance >= m_PortDescriptors.GetLength())
        return HDW_ERR_ARGUMENT;
    if (out)
        *out = &m_PortDescriptors[instance];
    return 0;
}

unsigned CKVX_HdwDevice::SetLinkTimeout(unsigned short timeout)
{
    for (unsigned i = 0; i < m_DeviceList.GetLength(); ++i)
        if (m_DeviceList[i]->IsOpen())
            return HDW_ERR_WRONG_STATE;
    m_LinkTimeout = timeout;
    return 0;
}

bool CKVX_HdwDevice::CanClose(unsigned instance)
{
    CDeviceInstance* inst = GetDeviceInstance(instance);
    if (!inst || !inst->IsOpen())
        return true;
    inst->Lock();
    bool none = true;
    for (CKVX_HdwPort* port : inst->GetPortList()) {
        if (port->IsOpen()) {
            none = false;
            break;
        }
    }
    inst->Unlock();
    return none;
}

void CKVX_HdwDevice::DeviceLock(unsigned instance)
{
    if (CDeviceInstance* inst = GetDeviceInstance(instance))
        inst->Lock();
}

void CKVX_HdwDevice::DeviceUnlock(unsigned instance)
{
    if (CDeviceInstance* inst = GetDeviceInstance(instance))
        inst->Unlock();
}

unsigned CKVX_HdwDevice::AttachPortToHdwTimer(unsigned instance, CKVX_HdwPort* port)
{
    if (CDeviceInstance* inst = GetDeviceInstance(instance)) {
        inst->Lock();
        inst->GetPortList() += port;
        inst->Unlock();
    }
    return 0;
}

unsigned CKVX_HdwDevice::DetachPortFromHdwTimer(unsigned instance, CKVX_HdwPort* port)
{
    if (CDeviceInstance* inst = GetDeviceInstance(instance)) {
        inst->Lock();
        if (inst->GetPortList().FindToStart(port))
            inst->GetPortList().DeleteItem();
        inst->Unlock();
    }
    return 0;
}

unsigned CKVX_HdwDevice::ProcessEventHandlers(unsigned instance, CKVX_HdwEvent* event)
{
    CDeviceInstance* inst = GetDeviceInstance(instance);
    if (!inst)
        return 0;
    for (CKVX_HdwPort* port : inst->GetPortList())
        if (const unsigned rc = port->ProcessEvent(event))
            return rc;
    return 0;
}

unsigned CKVX_HdwDevice::ProcessEventHandlers(unsigned instance, unsigned portType, CKVX_HdwEvent* event)
{
    CDeviceInstance* inst = GetDeviceInstance(instance);
    if (!inst || !event)
        return 0;
    const CKVX_String& channel = event->GetChannelId();
    const unsigned length = channel.GetLength();
    const char first = channel.c_str()[0];
    for (CKVX_HdwPort* port : inst->GetPortList()) {
        if (port->GetPortType() != portType)
            continue;
        // Channel names are short ("0" ... "15"): most differ in length or
        // in their first character, which spares the text comparison.
        const CKVX_String& own = port->GetChannelIdRef();
        if (own.GetLength() != length || own.c_str()[0] != first || !(own == channel))
            continue;
        if (const unsigned rc = port->ProcessEvent(event))
            return rc;
    }
    return 0;
}

void CKVX_HdwDevice::SetEnumerationLinks(const std::vector<CKVX_HdwInitPortDesc*>& links, bool scan)
{
    m_EnumLinks = links;
    m_EnumScan = scan;
}

CKVX_HdwInitPortDesc* CKVX_HdwDevice::GetEnumerationLink(unsigned index) const
{
    return index < m_EnumLinks.size() ? m_EnumLinks[index] : nullptr;
}

void CKVX_HdwDevice::AbortAllServices(unsigned instance)
{
    CDeviceInstance* inst = GetDeviceInstance(instance);
    if (!inst)
        return;
    for (CKVX_HdwPort* port : inst->GetPortList())
        port->AbortAllServices();
}

void CKVX_HdwDevice::DestroyPorts()
{
    for (CPortDescriptorsVector& v : m_PortDescriptors) {
        for (CPortDescriptor& d : v) {
            if (d.Port) {
                d.Port->Close();
                delete d.Port;
                d.Port = nullptr;
            }
        }
    }
    m_PortDescriptors.DeleteAll();
}

void CKVX_HdwDevice::DestroyDeviceList()
{
    for (CDeviceInstance* inst : m_DeviceList)
        delete inst;
    m_DeviceList.DeleteAll();
}

CKVX_HdwDevice::CPortDescriptor& CKVX_HdwDevice::AddPortDescriptor(
    unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description)
{
    if (instance >= m_PortDescriptors.GetLength()) {
        m_PortDescriptors.Items().resize(instance + 1);
    }
    CPortDescriptor d;
    d.Manufacturer = m_Manufacturer;
    d.FullName = m_ModelName;
    if (CDeviceInstance* inst = GetDeviceInstance(instance)) {
        // A unit with no serial number of its own is known by its link.
        d.SerialNumber = inst->SerialNumber.IsEmpty() ? inst->Link : inst->SerialNumber;
        d.Revision = inst->Revision;
        d.Link = inst->Link;
    }
    d.IntChannel.Format("%08u", channel);
    d.Description = description;
    d.PortType = port ? port->GetPortType() : 0;
    d.Channel = channel;
    d.Port = port;
    m_PortDescriptors[instance] += std::move(d);
    CPortDescriptorsVector& v = m_PortDescriptors[instance];
    return v[v.GetLength() - 1];
}
