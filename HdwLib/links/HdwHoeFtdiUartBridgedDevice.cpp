#include <HdwLib/links/HdwHoeFtdiUartBridgedDevice.h>
#include <HdwLib/links/internal/HoeEnumeration.h>
#include <HdwLib/links/internal/HoeInstanceLink.h>

CKVX_HdwHoeFtdiUartBridgedDevice::CDeviceInstance::CDeviceInstance() = default;

CKVX_HdwHoeFtdiUartBridgedDevice::CDeviceInstance::~CDeviceInstance()
{
    EthDisconnect();
}

CKVX_HdwHoeFtdiUartBridgedDevice::CKVX_HdwHoeFtdiUartBridgedDevice() : CKVX_HdwHoe(NewClientId()) {}

CKVX_HdwHoeFtdiUartBridgedDevice::~CKVX_HdwHoeFtdiUartBridgedDevice()
{
    for (unsigned i = 0; i < m_DeviceList.GetLength(); ++i)
        if (CDeviceInstance* inst = GetHoeInstance(i))
            inst->EthDisconnect();
}

CKVX_HdwHoeFtdiUartBridgedDevice::CDeviceInstance* CKVX_HdwHoeFtdiUartBridgedDevice::GetHoeInstance(unsigned instance)
{
    return dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}

CKVX_HdwHoeFtdiUartBridgedDevice::CDeviceInstance* CKVX_HdwHoeFtdiUartBridgedDevice::CreateDeviceInstance()
{
    return new CDeviceInstance;
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::Init(unsigned)
{
    std::vector<CUartCandidate> candidates;
    CollectUartCandidates(candidates);
    std::vector<CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance*> found;
    ProbeUartCandidates(candidates, found);

    std::vector<CDeviceInstance*> ethernet;
    hdw::links::ProbeHoeUnits(
        *this, GetClientId(), IsScanRequested() && m_EthernetMode, m_HoeUdpPort, false,
        [this]() -> CDeviceInstance* {
            // A driver's instance class derives from this one.
            return CreateDeviceInstance();
        },
        [this](const CKVX_HdwHoeLink::CDetectInfo& info) { return AcceptHoeUnit(info) == 0; }, ethernet);
    found.insert(found.end(), ethernet.begin(), ethernet.end());
    return InstallInstances(found);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::Open(unsigned instance)
{
    CDeviceInstance* inst = GetHoeInstance(instance);
    if (inst && inst->EthernetMode)
        return hdw::links::OpenHoeInstance(*this, *inst, *inst);
    return CKVX_HdwFtdiUartBridgedDevice::Open(instance);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::Close(unsigned instance)
{
    CDeviceInstance* inst = GetHoeInstance(instance);
    if (inst && inst->EthernetMode)
        return hdw::links::CloseHoeInstance(*this, instance, *inst, *inst);
    return CKVX_HdwFtdiUartBridgedDevice::Close(instance);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::EnableEthernetMode(bool on)
{
    if (hdw::links::MayChangeEthernetMode(*this))
        m_EthernetMode = on;
    return 0;
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::AcceptHoeUnit(const CKVX_HdwHoeLink::CDetectInfo& info)
{
    return info.DeviceKind == GetDeviceCode() ? 0u : static_cast<unsigned>(HDW_ERR_LINK);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkWrite(CDeviceInstance* instance, unsigned char* data, unsigned count)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    if (instance->EthernetMode)
        return instance->EthSendCmd(data, static_cast<unsigned short>(count));
    return Com_Write(instance, data, count);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkRead(
    CDeviceInstance* instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    bytesRead = 0;
    if (!instance)
        return HDW_ERR_ARGUMENT;
    if (instance->EthernetMode)
        return instance->EthRead(buffer, maxBytes, bytesRead);
    return Com_Read(instance, buffer, maxBytes, bytesRead);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkGetReadBufferBytes(CDeviceInstance* instance, unsigned& count)
{
    count = 0;
    if (!instance)
        return HDW_ERR_ARGUMENT;
    if (instance->EthernetMode)
        return instance->EthGetReadBufferBytes(count);
    return Com_GetReadBufferBytes(instance, count);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkClose(CDeviceInstance* instance)
{
    if (!instance)
        return HDW_ERR_ARGUMENT;
    if (instance->EthernetMode) {
        instance->EthDisconnect();
        return HDW_ERR_NOT_SUPPORTED;
    }
    return Com_Close(instance);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkWrite(unsigned instance, unsigned char* data, unsigned count)
{
    return LinkWrite(GetHoeInstance(instance), data, count);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkRead(
    unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    return LinkRead(GetHoeInstance(instance), buffer, maxBytes, bytesRead);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkGetReadBufferBytes(unsigned instance, unsigned& count)
{
    return LinkGetReadBufferBytes(GetHoeInstance(instance), count);
}

unsigned CKVX_HdwHoeFtdiUartBridgedDevice::LinkClose(unsigned instance)
{
    return LinkClose(GetHoeInstance(instance));
}
