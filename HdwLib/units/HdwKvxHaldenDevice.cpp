#include <HdwLib/units/HdwKvxHaldenDevice.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

CKVX_HdwKvxHaldenDevice::CDeviceInstance::CDeviceInstance() = default;
CKVX_HdwKvxHaldenDevice::CDeviceInstance::~CDeviceInstance() = default;

void CKVX_HdwKvxHaldenDevice::CDeviceInstance::Reset()
{
    CUnitBase::CDeviceInstance::Reset();
}

void CKVX_HdwKvxHaldenDevice::CDeviceInstance::ResetRxState()
{
    CUnitBase::CDeviceInstance::ResetRxState();
}

CKVX_HdwKvxHaldenDevice::CKVX_HdwKvxHaldenDevice()
{
    m_DeviceCode = 3;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Halden";
    m_Description = "Kalvionix Halden Link";
    m_UsbDescription = "Kalvionix Halden Link";
    m_UsbVendorId = "5A3C";
    m_UsbProductId = "000A";
    m_HoeUdpPort = 55003;
    m_LinkParameters.BaudRate = 6000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.UartChannels = 2;
    m_Profile.AtxChannels = 4;
    m_Profile.ArxChannels = 4;
    m_Profile.CanChannels = 2;
    m_Profile.MilStd1553Channels = 2;
    m_Profile.Commands = CmdSession | CmdStatusRequest | CmdSramWrite | CmdAtxCtxCtrl | CmdAtxCtxData | CmdAtxPush |
                         CmdAtxCtxReset | CmdAtxConfig | CmdArxConfig | CmdUartTxPush | CmdUartConfig |
                         CmdCanConfig | CmdCanPush | Cmd1553Config;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventCriticalFailure) | (1u << EventA429Rx) |
                       (1u << EventA429Tx) | (1u << EventStatus) | (1u << EventCanRx) | (1u << EventCanTx) |
                       (1u << EventMilStd1553) | (1u << EventUartRx) | (1u << EventUartTx);
    m_Profile.EthernetPayloadLimit = PayloadLimitEthernet;
}

CKVX_HdwKvxHaldenDevice::~CKVX_HdwKvxHaldenDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

CKVX_HdwKvxHaldenDevice::CDeviceInstance* CKVX_HdwKvxHaldenDevice::CreateDeviceInstance()
{
    return hdw::units::WithChannelTables(new CDeviceInstance, m_Profile);
}

unsigned CKVX_HdwKvxHaldenDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxHaldenDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                                  const CKVX_String& name)
{
    // Kind 4 and kinds above 5 have no port.
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxHaldenDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxHaldenDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
