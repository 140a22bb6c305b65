#include <HdwLib/links/HdwHoeDevice.h>
#include <HdwLib/links/internal/HoeEnumeration.h>
#include <HdwLib/links/internal/HoeInstanceLink.h>

CKVX_HdwHoeDevice::CDeviceInstance::CDeviceInstance()
{
    EthernetMode = 1;
}

CKVX_HdwHoeDevice::CDeviceInstance::~CDeviceInstance()
{
    EthDisconnect();
}

CKVX_HdwHoeDevice::CKVX_HdwHoeDevice() : CKVX_HdwHoe(NewClientId())
{
    m_Description = "HOE device";
}

CKVX_HdwHoeDevice::~CKVX_HdwHoeDevice()
{
    // Sessions end before the instances are taken apart.
    for (unsigned i = 0; i < m_DeviceList.GetLength(); ++i)
        if (CDeviceInstance* inst = GetHoeInstance(i))
            inst->EthDisconnect();
}

CKVX_HdwHoeDevice::CDeviceInstance* CKVX_HdwHoeDevice::GetHoeInstance(unsigned instance)
{
    return dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}

unsigned CKVX_HdwHoeDevice::Init(unsigned)
{
    std::vector<CDeviceInstance*> found;
    hdw::links::ProbeHoeUnits(
        *this, GetClientId(), IsScanRequested() && m_EthernetMode, m_HoeUdpPort, true,
        [this] { return CreateDeviceInstance(); },
        [this](const CKVX_HdwHoeLink::CDetectInfo& info) { return AcceptHoeUnit(info) == 0; }, found);
    const unsigned count = AdoptInstances(found);
    for (unsigned i = 0; i < count; ++i)
        CreateInstancePorts(i);
    return 0;
}

unsigned CKVX_HdwHoeDevice::Open(unsigned instance)
{
    CDeviceInstance* inst = GetHoeInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    return hdw::links::OpenHoeInstance(*this, *inst, *inst);
}

unsigned CKVX_HdwHoeDevice::Close(unsigned instance)
{
    CDeviceInstance* inst = GetHoeInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    return hdw::links::CloseHoeInstance(*this, instance, *inst, *inst);
}

unsigned CKVX_HdwHoeDevice::EnableEthernetMode(bool on)
{
    if (hdw::links::MayChangeEthernetMode(*this))
        m_EthernetMode = on;
    return 0;
}

CKVX_HdwHoeDevice::CDeviceInstance* CKVX_HdwHoeDevice::CreateDeviceInstance()
{
    return new CDeviceInstance;
}

unsigned CKVX_HdwHoeDevice::AcceptHoeUnit(const CKVX_HdwHoeLink::CDetectInfo& info)
{
    return info.DeviceKind == GetDeviceCode() ? 0u : static_cast<unsigned>(HDW_ERR_LINK);
}

unsigned CKVX_HdwHoeDevice::CreateInstancePorts(unsigned)
{
    return 0;
}

unsigned CKVX_HdwHoeDevice::LinkWrite(CDeviceInstance* instance, unsigned char* data, unsigned count)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->EthSendCmd(data, static_cast<unsigned short>(count));
}

unsigned CKVX_HdwHoeDevice::LinkRead(
    CDeviceInstance* instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->EthRead(buffer, maxBytes, bytesRead);
}

unsigned CKVX_HdwHoeDevice::LinkGetReadBufferBytes(CDeviceInstance* instance, unsigned& count)
{
    count = 0;
    if (!instance)
        return HDW_ERR_ARGUMENT;
    return instance->EthGetReadBufferBytes(count);
}

unsigned CKVX_HdwHoeDevice::LinkClose(CDeviceInstance* instance)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    instance->EthDisconnect();
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwHoeDevice::LinkWrite(unsigned instance, unsigned char* data, unsigned count)
{
    return LinkWrite(GetHoeInstance(instance), data, count);
}

unsigned CKVX_HdwHoeDevice::LinkRead(unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    return LinkRead(GetHoeInstance(instance), buffer, maxBytes, bytesRead);
}

unsigned CKVX_HdwHoeDevice::LinkGetReadBufferBytes(unsigned instance, unsigned& count)
{
    return LinkGetReadBufferBytes(GetHoeInstance(instance), count);
}

unsigned CKVX_HdwHoeDevice::LinkClose(unsigned instance)
{
    return LinkClose(GetHoeInstance(instance));
}
