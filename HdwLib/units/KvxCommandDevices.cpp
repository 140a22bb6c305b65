// The link base's overrides of the command-protocol units, once per link base.
#include <HdwLib/units/KvxCommandDevices.h>

#include <algorithm>
#include <memory>

namespace {
// The probe on a temporary instance: the adapter's link is opened and
// closed around the unit's exchange.
template <class D, class I>
unsigned ProbeOn(D& device, I* tmp)
{
    tmp->Reset();
    if (device.Com_Open(tmp) != 0)
        return HDW_ERR_LINK;
    const unsigned rc = device.ProbeUnit(tmp);
    device.Com_Close(tmp);
    tmp->Reset();
    return rc;
}
} // namespace

// ---- USB only ----------------------------------------------------------------

CKVX_HdwKvxUsbCommandDevice::CDeviceInstance::CDeviceInstance()
    : CKVX_HdwKvxUnitInstance(static_cast<CKVX_HdwDevice::CDeviceInstance&>(*this))
{}
CKVX_HdwKvxUsbCommandDevice::CDeviceInstance::~CDeviceInstance() = default;

CKVX_HdwKvxUsbCommandDevice::CKVX_HdwKvxUsbCommandDevice(const CKVX_HdwKvxUnitProfile& profile)
    : CKVX_HdwKvxCommandUnit(profile)
{
    SetUnitIdentity(profile.DeviceCode, profile.Manufacturer, profile.ModelName, profile.UsbDescription,
        profile.UsbVendorId, profile.UsbProductId, profile.LinkBaudRate, profile.LinkTimeoutMs);
}

CKVX_HdwKvxUsbCommandDevice::~CKVX_HdwKvxUsbCommandDevice()
{
    // No reconnect attempt may run into a device being taken apart.
    CancelReconnectAttempts();
    // Ports go while the unit part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

CKVX_HdwKvxUsbCommandDevice::CDeviceInstance* CKVX_HdwKvxUsbCommandDevice::CreateDeviceInstance()
{
    auto* inst = new CDeviceInstance;
    inst->SizeChannels(m_Profile);
    return inst;
}

CKVX_HdwKvxUsbCommandDevice::CDeviceInstance* CKVX_HdwKvxUsbCommandDevice::GetProtocolInstance(unsigned instance)
{
    return static_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}

CKVX_HdwKvxUnitInstance* CKVX_HdwKvxUsbCommandDevice::GetUnitInstance(unsigned instance)
{
    return GetProtocolInstance(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::UnitLinkWrite(CKVX_HdwKvxUnitInstance* instance, uint8_t* data, unsigned count)
{
    return Com_Write(static_cast<CDeviceInstance*>(instance), data, count);
}

unsigned CKVX_HdwKvxUsbCommandDevice::UnitLinkRead(
    CKVX_HdwKvxUnitInstance* instance, uint8_t* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    return Com_Read(static_cast<CDeviceInstance*>(instance), buffer, maxBytes, bytesRead);
}

bool CKVX_HdwKvxUsbCommandDevice::IsEthernetInstance(CKVX_HdwKvxUnitInstance*)
{
    return false;
}

void CKVX_HdwKvxUsbCommandDevice::UnitLinkAbandon(CKVX_HdwKvxUnitInstance* instance)
{
    Com_Close(static_cast<CDeviceInstance*>(instance));
}

void CKVX_HdwKvxUsbCommandDevice::UnitAddPort(
    unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description)
{
    AddPortDescriptor(instance, port, channel, description);
}

unsigned CKVX_HdwKvxUsbCommandDevice::Open(unsigned instance)
{
    return OpenUnit(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::UnitLinkOpen(unsigned instance)
{
    return CKVX_HdwFtdiUartBridgedDevice::Open(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::Close(unsigned instance)
{
    return CloseUnit(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::UnitLinkClose(unsigned instance)
{
    return CKVX_HdwFtdiUartBridgedDevice::Close(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::HdwTimerHandler(uint64_t ticks)
{
    ReconnectLostUnits();
    return CKVX_HdwFtdiUartBridgedDevice::HdwTimerHandler(ticks);
}

unsigned CKVX_HdwKvxUsbCommandDevice::HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t)
{
    return UnitTickStart(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t)
{
    return UnitTickEnd(instance);
}

unsigned CKVX_HdwKvxUsbCommandDevice::ProbeUartLink(
    CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* tmp, const CKVX_String& portName)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(tmp);
    if (!inst)
        return HDW_ERR_LINK;
    inst->PortName = portName;
    return ProbeOn(*this, inst);
}

unsigned CKVX_HdwKvxUsbCommandDevice::CheckUartLink(const CKVX_String& portName)
{
    std::unique_ptr<CDeviceInstance> tmp(CreateDeviceInstance());
    tmp->PortName = portName;
    return ProbeOn(*this, tmp.get());
}

unsigned CKVX_HdwKvxUsbCommandDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance);
}

// ---- USB and Ethernet ------------------------------------------------------------

CKVX_HdwKvxDualCommandDevice::CDeviceInstance::CDeviceInstance()
    : CKVX_HdwKvxUnitInstance(static_cast<CKVX_HdwDevice::CDeviceInstance&>(*this))
{}
CKVX_HdwKvxDualCommandDevice::CDeviceInstance::~CDeviceInstance() = default;

CKVX_HdwKvxDualCommandDevice::CKVX_HdwKvxDualCommandDevice(const CKVX_HdwKvxUnitProfile& profile)
    : CKVX_HdwKvxCommandUnit(profile)
{
    SetUnitIdentity(profile.DeviceCode, profile.Manufacturer, profile.ModelName, profile.UsbDescription,
        profile.UsbVendorId, profile.UsbProductId, profile.LinkBaudRate, profile.LinkTimeoutMs);
    m_HoeUdpPort = profile.UdpPort;
}

CKVX_HdwKvxDualCommandDevice::~CKVX_HdwKvxDualCommandDevice()
{
    CancelReconnectAttempts();
    DestroyPorts();
    DestroyDeviceList();
}

CKVX_HdwKvxDualCommandDevice::CDeviceInstance* CKVX_HdwKvxDualCommandDevice::CreateDeviceInstance()
{
    auto* inst = new CDeviceInstance;
    inst->SizeChannels(m_Profile);
    return inst;
}

CKVX_HdwKvxDualCommandDevice::CDeviceInstance* CKVX_HdwKvxDualCommandDevice::GetProtocolInstance(unsigned instance)
{
    return static_cast<CDeviceInstance*>(GetDeviceInstance(instance));
}

CKVX_HdwKvxUnitInstance* CKVX_HdwKvxDualCommandDevice::GetUnitInstance(unsigned instance)
{
    return GetProtocolInstance(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::UnitLinkWrite(CKVX_HdwKvxUnitInstance* instance, uint8_t* data, unsigned count)
{
    auto* inst = static_cast<CDeviceInstance*>(instance);
    // A frame larger than one HOE packet (a unit that takes 4000-byte frames
    // over Ethernet) goes out in consecutive packets: the unit reads its link
    // as a byte stream. Should a packet be lost, the frame fails its CRC and
    // the echo time-out reports it.
    if (inst->EthernetMode && count > CKVX_HdwHoe::MaxPayload) {
        for (unsigned done = 0; done < count;) {
            const unsigned n = std::min(count - done, unsigned(CKVX_HdwHoe::MaxPayload));
            if (const unsigned rc = LinkWrite(inst, data + done, n))
                return rc;
            done += n;
        }
        return 0;
    }
    return LinkWrite(inst, data, count);
}

unsigned CKVX_HdwKvxDualCommandDevice::UnitLinkRead(
    CKVX_HdwKvxUnitInstance* instance, uint8_t* buffer, unsigned maxBytes, unsigned& bytesRead)
{
    return LinkRead(static_cast<CDeviceInstance*>(instance), buffer, maxBytes, bytesRead);
}

bool CKVX_HdwKvxDualCommandDevice::IsEthernetInstance(CKVX_HdwKvxUnitInstance* instance)
{
    return instance && static_cast<CDeviceInstance*>(instance)->EthernetMode != 0;
}

void CKVX_HdwKvxDualCommandDevice::UnitLinkAbandon(CKVX_HdwKvxUnitInstance* instance)
{
    LinkClose(static_cast<CDeviceInstance*>(instance));
}

void CKVX_HdwKvxDualCommandDevice::UnitAddPort(
    unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description)
{
    AddPortDescriptor(instance, port, channel, description);
}

unsigned CKVX_HdwKvxDualCommandDevice::Open(unsigned instance)
{
    return OpenUnit(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::UnitLinkOpen(unsigned instance)
{
    return CKVX_HdwHoeFtdiUartBridgedDevice::Open(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::Close(unsigned instance)
{
    return CloseUnit(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::UnitLinkClose(unsigned instance)
{
    return CKVX_HdwHoeFtdiUartBridgedDevice::Close(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::HdwTimerHandler(uint64_t ticks)
{
    ReconnectLostUnits();
    return CKVX_HdwHoeFtdiUartBridgedDevice::HdwTimerHandler(ticks);
}

unsigned CKVX_HdwKvxDualCommandDevice::HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t)
{
    return UnitTickStart(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t)
{
    return UnitTickEnd(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::ProbeUartLink(
    CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* tmp, const CKVX_String& portName)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(tmp);
    if (!inst)
        return HDW_ERR_LINK;
    inst->PortName = portName;
    return ProbeOn(*this, inst);
}

unsigned CKVX_HdwKvxDualCommandDevice::CheckUartLink(const CKVX_String& portName)
{
    std::unique_ptr<CDeviceInstance> tmp(CreateDeviceInstance());
    tmp->PortName = portName;
    return ProbeOn(*this, tmp.get());
}

unsigned CKVX_HdwKvxDualCommandDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance);
}

unsigned CKVX_HdwKvxDualCommandDevice::UnitLinkVerify(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst || !inst->EthernetMode)
        return 0;
    CKVX_HdwHoeLink::CDetectInfo info;
    if (inst->EthDetect(info) != 0)
        return HDW_ERR_LINK;
    const bool same =
        info.DeviceKind == GetDeviceCode() && (info.SerialNumber.IsEmpty() || info.SerialNumber == inst->SerialNumber);
    return same ? 0u : unsigned(HDW_ERR_LINK);
}
