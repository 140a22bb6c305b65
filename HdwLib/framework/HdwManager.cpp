#include <HdwLib/framework/HdwManager.h>

#include <algorithm>
#include <vector>

CKVX_HdwManager::CParameters::~CParameters() = default;
CKVX_HdwManager::CPortDescriptor::~CPortDescriptor() = default;
CKVX_HdwManager::CPortInfo::~CPortInfo() = default;
CKVX_HdwManager::CSysEthPort::~CSysEthPort() = default;

CKVX_HdwManager::CKVX_HdwManager()
{
    m_SysEthPorts.Create(SysEthPortCount);
    for (unsigned i = 0; i < SysEthPortCount; ++i)
        m_SysEthPorts[i].Port = static_cast<unsigned short>(SysEthPortFirst + i);
}

CKVX_HdwManager::~CKVX_HdwManager()
{
    Stop();
    for (CKVX_HdwDevice* d : m_DeviceList)
        if (d->m_Manager == this)
            d->m_Manager = nullptr;
}

unsigned CKVX_HdwManager::AttachDevice(CKVX_HdwDevice* device)
{
    if (IsRunning())
        return HDW_ERR_WRONG_STATE;
    if (!device)
        return HDW_ERR_ARGUMENT;
    for (CKVX_HdwDevice* d : m_DeviceList)
        if (d == device || d->GetDeviceCode() == device->GetDeviceCode())
            return HDW_ERR_ALREADY_ATTACHED;
    device->m_Manager = this;
    m_DeviceList += device;
    return 0;
}

unsigned CKVX_HdwManager::Enumerate()
{
    return Enumerate(nullptr, 0, 0);
}

unsigned CKVX_HdwManager::Enumerate(CInitPortDesc* links, unsigned count, unsigned flags)
{
    if (IsRunning())
        return HDW_ERR_WRONG_STATE;
    if (count && !links)
        return HDW_ERR_ARGUMENT;
    const bool scan = (flags & EnumerateNoScan) == 0;
    m_PortTable.DeleteAll();
    for (unsigned i = 0; i < count; ++i)
        links[i].Result = FindDevice(links[i].DeviceCode) ? CInitPortDesc::ResultNotTried : HDW_ERR_ARGUMENT;

    for (CKVX_HdwDevice* device : m_DeviceList) {
        std::vector<CInitPortDesc*> mine;
        for (unsigned i = 0; i < count; ++i)
            if (links[i].DeviceCode == device->GetDeviceCode())
                mine.push_back(&links[i]);
        device->SetEnumerationLinks(mine, scan);
        // A driver with nothing to look at keeps no units from an earlier run.
        if (mine.empty() && !scan) {
            device->DestroyPorts();
            device->DestroyDeviceList();
        } else {
            device->Init(static_cast<unsigned>(mine.size()));
        }
        device->SetEnumerationLinks({}, scan);
        FillPortTable(device);
    }
    return 0;
}

void CKVX_HdwManager::FillPortTable(CKVX_HdwDevice* device)
{
    CKVX_HdwDevice::CPortDescriptorsMatrix& matrix = device->GetPortDescriptors();
    for (unsigned inst = 0; inst < matrix.GetLength(); ++inst) {
        for (CKVX_HdwDevice::CPortDescriptor& d : matrix[inst]) {
            if (!d.Port)
                continue;
            const unsigned type = d.PortType ? d.PortType : d.Port->GetPortType();
            const unsigned abs = GetFirstFreeAbsoluteNum(type);
            d.AbsNum = static_cast<int>(abs);
            CPortDescriptor m;
            m.AbsNum = abs;
            m.PortType = type;
            m.Port = d.Port;
            m.Device = device;
            m.DeviceInstance = inst;
            m.Manufacturer = d.Manufacturer;
            m.FullName = d.FullName;
            m.Revision = d.Revision;
            m.SerialNumber = d.SerialNumber;
            m.IntChannel = d.IntChannel;
            m.Link = d.Link;
            m.Description = d.Description;
            CPortIdentifier id;
            if (id.Set(abs, m) == 0)
                m.Key = id.GetKeyString();
            if (type >= m_PortTable.GetLength())
                m_PortTable.Items().resize(type + 1);
            m_PortTable[type] += std::move(m);
        }
    }
}

unsigned CKVX_HdwManager::GetFirstFreeAbsoluteNum(unsigned portType)
{
    if (portType >= m_PortTable.GetLength())
        return 0;
    // Numbers are handed out in order, so the next free one is one past the highest.
    unsigned next = 0;
    for (const CPortDescriptor& d : m_PortTable[portType])
        next = std::max(next, d.AbsNum + 1);
    return next;
}

namespace {
CKVX_HdwManager::CPortInfo MakeInfo(const CKVX_HdwManager::CPortDescriptor& d)
{
    CKVX_HdwManager::CPortInfo info;
    info.PortType = d.PortType;
    info.AbsNum = d.AbsNum;
    info.Port = d.Port;
    info.DeviceCode = d.Device ? d.Device->GetDeviceCode() : 0;
    info.DeviceInstance = d.DeviceInstance;
    info.ChannelId = d.Port ? d.Port->GetChannelId() : CKVX_String();
    info.Manufacturer = d.Manufacturer;
    info.FullName = d.FullName;
    info.Revision = d.Revision;
    info.SerialNumber = d.SerialNumber;
    info.IntChannel = d.IntChannel;
    info.Link = d.Link;
    info.Description = d.Description;
    info.Key = d.Key;
    return info;
}
} // namespace

unsigned CKVX_HdwManager::GetPortList(CPortInfoVector& list)
{
    std::vector<const CPortDescriptor*> all;
    for (const CPortDescriptorVector& v : m_PortTable)
        for (const CPortDescriptor& d : v)
            all.push_back(&d);
    std::stable_sort(all.begin(), all.end(),
        [](const CPortDescriptor* a, const CPortDescriptor* b) { return PortSorter(*a, *b) < 0; });
    list.DeleteAll();
    for (const CPortDescriptor* d : all)
        list += MakeInfo(*d);
    return 0;
}

unsigned CKVX_HdwManager::GetPortList(unsigned portType, CPortInfoVector& list)
{
    list.DeleteAll();
    if (portType >= m_PortTable.GetLength())
        return 0;
    std::vector<const CPortDescriptor*> all;
    for (const CPortDescriptor& d : m_PortTable[portType])
        all.push_back(&d);
    std::stable_sort(all.begin(), all.end(),
        [](const CPortDescriptor* a, const CPortDescriptor* b) { return PortSorter(*a, *b) < 0; });
    for (const CPortDescriptor* d : all)
        list += MakeInfo(*d);
    return 0;
}

CKVX_HdwPort* CKVX_HdwManager::GetPort(unsigned portType, unsigned absNum)
{
    const CPortDescriptor* d = GetPortDescriptor(portType, absNum);
    return d ? d->Port : nullptr;
}

const CKVX_HdwManager::CPortDescriptor* CKVX_HdwManager::GetPortDescriptor(unsigned portType, unsigned absNum) const
{
    if (portType >= m_PortTable.GetLength())
        return nullptr;
    for (const CPortDescriptor& d : m_PortTable[portType])
        if (d.AbsNum == absNum)
            return &d;
    return nullptr;
}

unsigned CKVX_HdwManager::GetPortCount(unsigned portType) const
{
    return portType < m_PortTable.GetLength() ? m_PortTable[portType].GetLength() : 0;
}

CKVX_HdwPort* CKVX_HdwManager::FindPort(const CKVX_String& key, unsigned* absNum)
{
    CPortIdentifier wanted;
    if (wanted.Set(key) != 0)
        return nullptr;
    const unsigned type = wanted.GetPortType();
    if (type >= m_PortTable.GetLength())
        return nullptr;
    for (const CPortDescriptor& d : m_PortTable[type]) {
        if (!d.Key.IsEmpty() && wanted.CheckMatch(d.Key)) {
            if (absNum)
                *absNum = d.AbsNum;
            return d.Port;
        }
    }
    return nullptr;
}

int CKVX_HdwManager::PortSorter(const CPortDescriptor& a, const CPortDescriptor& b)
{
    if (a.AbsNum > b.AbsNum)
        return 1;
    if (a.AbsNum < b.AbsNum)
        return -1;
    return 0;
}

unsigned CKVX_HdwManager::Run()
{
    if (IsRunning())
        return 0;
    m_DeviceVector.DeleteAll();
    m_DeviceVector.Create(m_DeviceList.GetLength());
    unsigned i = 0;
    for (CKVX_HdwDevice* d : m_DeviceList)
        m_DeviceVector[i++] = d;
    for (CKVX_HdwDevice* d : m_DeviceVector)
        if (const unsigned rc = d->Run())
            return rc;
    m_Running.store(true, std::memory_order_release);
    if (StartMainTimer(m_TimerPeriod) != 0) {
        // No tick, no running manager: undo what the devices started.
        for (CKVX_HdwDevice* d : m_DeviceVector)
            d->Stop();
        m_Running.store(false, std::memory_order_release);
        return HDW_ERR_SYSTEM_CALL;
    }
    return 0;
}

unsigned CKVX_HdwManager::Stop()
{
    if (!IsRunning())
        return 0;
    StopMainTimer();
    for (CKVX_HdwDevice* d : m_DeviceVector)
        d->Stop();
    m_Running.store(false, std::memory_order_release);
    return 0;
}

unsigned CKVX_HdwManager::StartMainTimer(unsigned periodMs)
{
    return m_MainTimer.Start(periodMs, &CKVX_HdwManager::HdwTimerHandler, this);
}

unsigned CKVX_HdwManager::StopMainTimer()
{
    return m_MainTimer.Stop();
}

void CKVX_HdwManager::HdwTimerHandler(uint64_t ticks, void* manager)
{
    auto* self = static_cast<CKVX_HdwManager*>(manager);
    for (CKVX_HdwDevice* d : self->m_DeviceVector)
        d->HdwTimerHandler(ticks);
}

unsigned CKVX_HdwManager::SetParameters(const CParameters& params)
{
    if (IsRunning())
        return HDW_ERR_WRONG_STATE;
    if (params.TimerPeriod == 0 || params.TimerPeriod > 1000)
        return HDW_ERR_ARGUMENT;
    m_TimerPeriod = params.TimerPeriod;
    m_Reconnect = params.Reconnect;
    return 0;
}

unsigned CKVX_HdwManager::GetParameters(CParameters& params) const
{
    params.TimerPeriod = m_TimerPeriod;
    params.Reconnect = m_Reconnect;
    return 0;
}

unsigned CKVX_HdwManager::GetSysEthPort(unsigned short& port)
{
    m_SysEthMutex.Lock();
    const unsigned n = m_SysEthPorts.GetLength();
    if (n == 0) {
        m_SysEthMutex.Unlock();
        return HDW_ERR_NO_LOCAL_PORT;
    }
    if (m_SysEthCursor >= n)
        m_SysEthCursor = 0;
    // One lap from the cursor; every entry in use answers 21.
    for (unsigned step = 0; step < n; ++step) {
        CSysEthPort& e = m_SysEthPorts[m_SysEthCursor];
        m_SysEthCursor = (m_SysEthCursor + 1) % n;
        if (!e.InUse) {
            e.InUse = 1;
            port = e.Port;
            m_SysEthMutex.Unlock();
            return 0;
        }
    }
    m_SysEthMutex.Unlock();
    return HDW_ERR_NO_LOCAL_PORT;
}

void CKVX_HdwManager::ReleaseSysEthPort(unsigned short port)
{
    if (port == 0)
        return;
    m_SysEthMutex.Lock();
    for (CSysEthPort& e : m_SysEthPorts)
        if (e.Port == port)
            e.InUse = 0;
    m_SysEthMutex.Unlock();
}

CKVX_HdwDevice* CKVX_HdwManager::GetDevice(unsigned index)
{
    unsigned i = 0;
    for (CKVX_HdwDevice* d : m_DeviceList)
        if (i++ == index)
            return d;
    return nullptr;
}

CKVX_HdwDevice* CKVX_HdwManager::FindDevice(uint64_t deviceCode)
{
    for (CKVX_HdwDevice* d : m_DeviceList)
        if (d->GetDeviceCode() == deviceCode)
            return d;
    return nullptr;
}

void CKVX_HdwManager::Destroy()
{
    m_PortTable.DeleteAll();
    DestroyDeviceList();
}

void CKVX_HdwManager::DestroyDeviceList()
{
    m_DeviceList.DeleteAll();
    m_DeviceVector.DeleteAll();
}
