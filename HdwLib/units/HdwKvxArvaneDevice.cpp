#include <HdwLib/units/HdwKvxArvaneDevice.h>

CKVX_HdwKvxArvaneDevice::CKVX_HdwKvxArvaneDevice()
{
    m_DeviceCode = 6;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Arvane";
    m_Description = "Kalvionix Arvane Link";
    m_UsbDescription = "Kalvionix Arvane Link";
    m_UsbVendorId = "5A3C";
    m_UsbProductId = "0014";
    m_HoeUdpPort = 55006;
    m_LinkParameters.BaudRate = 8000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.AtxChannels = 8;
    m_Profile.ArxChannels = 8;
    m_Profile.AtxConfigBase = 64;
    m_Profile.ArxConfigBase = 72;
    m_Profile.Commands = Arinc429Commands;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventA429Rx) | (1u << EventA429Tx) | (1u << EventStatus);
    m_Profile.EthernetPayloadLimit = PayloadLimitUart;
    m_Profile.ProbeByStatus = true;
}

CKVX_HdwKvxArvaneDevice::~CKVX_HdwKvxArvaneDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwKvxArvaneDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxArvaneDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxArvaneDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxArvaneDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
