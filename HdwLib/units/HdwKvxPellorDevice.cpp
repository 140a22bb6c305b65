#include <HdwLib/units/HdwKvxPellorDevice.h>

CKVX_HdwKvxPellorDevice::CKVX_HdwKvxPellorDevice()
{
    m_DeviceCode = 10;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Pellor";
    m_Description = "USB Serial Port";
    m_UsbDescription = "USB Serial Port";
    m_UsbVendorId = "0403";
    m_UsbProductId = "6010";
    m_HoeUdpPort = 55010;
    m_LinkParameters.BaudRate = 8000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.AtxChannels = 16;
    m_Profile.ArxChannels = 16;
    m_Profile.AtxConfigBase = 80;
    m_Profile.ArxConfigBase = 96;
    m_Profile.Commands = Arinc429Commands | CmdKeepAlive;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventCriticalFailure) | (1u << EventA429Rx) |
                       (1u << EventA429Tx) | (1u << EventStatus);
    m_Profile.EthernetPayloadLimit = PayloadLimitEthernet;
    m_Profile.KeepAliveIdleMs = KeepAliveIdleMs;
    m_Profile.ProbeByStatus = true;
    m_Profile.Arinc429LabelInput = true;
}

CKVX_HdwKvxPellorDevice::~CKVX_HdwKvxPellorDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwKvxPellorDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxPellorDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxPellorDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxPellorDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
