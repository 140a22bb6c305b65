#include <HdwLib/units/HdwKvxQuillanDevice.h>

CKVX_HdwKvxQuillanDevice::CKVX_HdwKvxQuillanDevice()
{
    m_DeviceCode = 11;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Quillan";
    m_Description = "USB Serial Port";
    m_UsbDescription = "USB Serial Port";
    m_UsbVendorId = "0403";
    m_UsbProductId = "6014";
    m_LinkParameters.BaudRate = 6000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.CanChannels = 2;
    m_Profile.Commands = CanCommands;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventCanRx) | (1u << EventCanTx) | (1u << EventStatus);
    m_Profile.ProbeByStatus = true;
    m_Profile.CanByteServices = true;
}

CKVX_HdwKvxQuillanDevice::~CKVX_HdwKvxQuillanDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwKvxQuillanDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxQuillanDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxQuillanDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxQuillanDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
