#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/framework/HdwPort.h>

CKVX_HdwPort::CParameters::~CParameters() = default;

CKVX_HdwPort::CKVX_HdwPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : m_Device(device),
      m_DeviceInstance(deviceInstance),
      m_ChannelId(channelId)
{}

CKVX_HdwPort::~CKVX_HdwPort()
{
    for (CKVX_HdwService* s : m_Services)
        delete s;
    m_Services.DeleteAll();
}

CKVX_HdwDevice* CKVX_HdwPort::GetHdwDevice() const
{
    return static_cast<CKVX_HdwDevice*>(m_Device);
}

bool CKVX_HdwPort::IsManagerRunning() const
{
    const CKVX_HdwDevice* device = GetHdwDevice();
    const CKVX_HdwManager* manager = device ? device->GetManager() : nullptr;
    return manager && manager->IsRunning();
}

unsigned CKVX_HdwPort::Open(CParameters* params)
{
    if (!IsManagerRunning())
        return HDW_ERR_WRONG_STATE;
    if (IsOpen())
        return HDW_ERR_PORT_ALREADY_OPEN;
    if (m_Services.IsEmpty())
        return HDW_ERR_SERVICE;
    CKVX_HdwDevice* device = GetHdwDevice();
    // The unit's link first (a second open of an open unit succeeds), then the channel.
    if (device->Open(m_DeviceInstance) != 0)
        return HDW_ERR_LINK;
    if (params)
        m_PortNum = params->PortNum;
    if (const unsigned rc = OnOpening(params))
        return rc;
    // Services run before the port counts as open and before the tick sees it.
    for (CKVX_HdwService* s : m_Services) {
        if (s->Start() != 0) {
            DisableAllServices();
            return HDW_ERR_SERVICE;
        }
    }
    m_Open.store(true, std::memory_order_release);
    AttachHdwTimerToPort();
    return 0;
}

unsigned CKVX_HdwPort::OnOpening(CParameters* params)
{
    CKVX_HdwDevice* device = GetHdwDevice();
    if (!device)
        return HDW_ERR_LINK;
    CKVX_HdwDevice::CDeviceInstance* instance = device->GetDeviceInstance(m_DeviceInstance);
    if (!instance)
        return HDW_ERR_ARGUMENT;
    DeviceLock();
    const unsigned rc = instance->OpenPort(this, params);
    DeviceUnlock();
    return rc;
}

unsigned CKVX_HdwPort::Close()
{
    if (!IsOpen())
        return 0;
    CKVX_HdwDevice* device = GetHdwDevice();
    if (CKVX_HdwDevice::CDeviceInstance* instance = device->GetDeviceInstance(m_DeviceInstance)) {
        DeviceLock();
        instance->ClosePort(this);
        DeviceUnlock();
    }
    if (!IsManagerRunning())
        return HDW_ERR_WRONG_STATE;
    DetachHdwTimerFromPort();
    for (CKVX_HdwService* s : m_Services)
        s->Stop();
    m_Open.store(false, std::memory_order_release);
    device->Close(m_DeviceInstance);
    return 0;
}

unsigned CKVX_HdwPort::EnableService(unsigned, CKVX_HdwService**, CKVX_HdwService::CParameters*)
{
    if (!IsManagerRunning() || IsOpen())
        return HDW_ERR_WRONG_STATE;
    return 0;
}

unsigned CKVX_HdwPort::DisableService(CKVX_HdwService* service)
{
    if (!IsManagerRunning())
        return HDW_ERR_WRONG_STATE;
    if (IsOpen())
        return HDW_ERR_SERVICE_CHANGE_ON_OPEN_PORT;
    if (service && m_Services.FindToStart(service)) {
        m_Services.DeleteItem();
        delete service;
    }
    return 0;
}

unsigned CKVX_HdwPort::DisableAllServices()
{
    if (IsOpen())
        return 0;
    for (CKVX_HdwService* s : m_Services)
        delete s;
    m_Services.DeleteAll();
    return 0;
}

unsigned CKVX_HdwPort::AbortAllServices()
{
    for (CKVX_HdwService* s : m_Services)
        s->Abort();
    return 0;
}

unsigned CKVX_HdwPort::GetParameters(CParameters* params)
{
    if (!params)
        return HDW_ERR_ARGUMENT;
    params->PortNum = m_PortNum;
    return 0;
}

unsigned CKVX_HdwPort::HdwTimerHandler(uint64_t ticks)
{
    for (CKVX_HdwService* s : m_Services)
        if (const unsigned rc = s->HdwTimerHandler(ticks))
            return rc;
    return 0;
}

unsigned CKVX_HdwPort::ProcessEvent(CKVX_HdwEvent* event)
{
    for (CKVX_HdwService* s : m_Services)
        if (const unsigned rc = s->ProcessEvent(event))
            return rc;
    return 0;
}

CKVX_HdwService* CKVX_HdwPort::FindService(unsigned serviceType)
{
    for (CKVX_HdwService* s : m_Services)
        if (s->GetServiceType() == serviceType)
            return s;
    return nullptr;
}

void CKVX_HdwPort::DeviceLock()
{
    if (CKVX_HdwDevice* device = GetHdwDevice())
        device->DeviceLock(m_DeviceInstance);
}

void CKVX_HdwPort::DeviceUnlock()
{
    if (CKVX_HdwDevice* device = GetHdwDevice())
        device->DeviceUnlock(m_DeviceInstance);
}

unsigned CKVX_HdwPort::AttachHdwTimerToPort()
{
    CKVX_HdwDevice* device = GetHdwDevice();
    return device ? device->AttachPortToHdwTimer(m_DeviceInstance, this) : 0;
}

unsigned CKVX_HdwPort::DetachHdwTimerFromPort()
{
    CKVX_HdwDevice* device = GetHdwDevice();
    return device ? device->DetachPortFromHdwTimer(m_DeviceInstance, this) : 0;
}
