#include <HdwLib/units/HdwKvxMirrowDevice.h>

CKVX_HdwKvxMirrowDevice::CKVX_HdwKvxMirrowDevice()
{
    m_DeviceCode = 12;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Mirrow";
    m_Description = "USB Serial Port";
    m_UsbDescription = "USB Serial Port";
    m_UsbVendorId = "0403";
    m_UsbProductId = "6014";
    m_LinkParameters.BaudRate = 8000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.AtxChannels = 2;
    m_Profile.ArxChannels = 2;
    m_Profile.Commands = Arinc429Commands;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventA429Rx) | (1u << EventA429Tx) | (1u << EventStatus);
    m_Profile.ProbeByStatus = true;
}

CKVX_HdwKvxMirrowDevice::~CKVX_HdwKvxMirrowDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwKvxMirrowDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxMirrowDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxMirrowDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxMirrowDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
