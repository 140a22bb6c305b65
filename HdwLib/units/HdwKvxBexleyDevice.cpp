#include <HdwLib/units/HdwKvxBexleyDevice.h>

CKVX_HdwKvxBexleyDevice::CKVX_HdwKvxBexleyDevice()
{
    m_DeviceCode = 4;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Bexley";
    m_Description = "Kalvionix Bexley Link";
    m_UsbDescription = "Kalvionix Bexley Link";
    m_UsbVendorId = "5A3C";
    m_UsbProductId = "0013";
    m_LinkParameters.BaudRate = 3000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.CanChannels = 4;
    m_Profile.CanConfigBase = 48;
    m_Profile.CanPushBase = 56;
    m_Profile.Commands = CanCommands;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventCanRx) | (1u << EventCanTx) | (1u << EventStatus);
    m_Profile.ProbeByStatus = true;
}

CKVX_HdwKvxBexleyDevice::~CKVX_HdwKvxBexleyDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

unsigned CKVX_HdwKvxBexleyDevice::GetChannelCount(unsigned kind) const
{
    return ProfileChannelCount(kind);
}

CKVX_HdwPort* CKVX_HdwKvxBexleyDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxBexleyDevice::CreateInstancePorts(unsigned instance)
{
    return CreateProfilePorts(instance, [this](unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                               const CKVX_String& name) { return CreatePort(kind, parent, index, name); });
}

unsigned CKVX_HdwKvxBexleyDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}
