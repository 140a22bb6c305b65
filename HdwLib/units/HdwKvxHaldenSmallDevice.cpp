#include <HdwLib/units/HdwKvxHaldenSmallDevice.h>

CKVX_HdwKvxHaldenSmallDevice::CKVX_HdwKvxHaldenSmallDevice()
{
    m_DeviceCode = 8;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Halden Small";
    m_Description = "HDS Port";
    m_UsbDescription = "HDS Port";
    m_UsbVendorId = "5A3C";
    m_UsbProductId = "0019";
    m_LinkParameters.BaudRate = 6000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.AtxChannels = 2;
    m_Profile.ArxChannels = 2;
    m_Profile.CanChannels = 1;
    m_Profile.Commands = Arinc429Commands | CmdCanConfig | CmdCanPush;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventA429Rx) | (1u << EventA429Tx) | (1u << EventStatus) |
                       (1u << EventCanRx) | (1u << EventCanTx);
    m_Profile.ProbeByStatus = true;
}

CKVX_HdwKvxHaldenSmallDevice::~CKVX_HdwKvxHaldenSmallDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwKvxHaldenSmallDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxHaldenSmallDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxHaldenSmallDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxHaldenSmallDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
