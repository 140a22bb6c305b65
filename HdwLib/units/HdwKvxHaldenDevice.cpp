#include <HdwLib/units/HdwKvxHaldenDevice.h>

CKVX_HdwKvxHaldenDevice::CKVX_HdwKvxHaldenDevice() : CKVX_HdwKvxDualCommandDevice(*CKVX_HdwKvxUnitProfile::Of(3)) {}

CKVX_HdwKvxHaldenDevice::~CKVX_HdwKvxHaldenDevice() = default;

CKVX_HdwKvxHaldenDevice::CDeviceInstance::CDeviceInstance() = default;
CKVX_HdwKvxHaldenDevice::CDeviceInstance::~CDeviceInstance() = default;

void CKVX_HdwKvxHaldenDevice::CDeviceInstance::Reset()
{
    CKVX_HdwKvxDualCommandDevice::CDeviceInstance::Reset();
}

void CKVX_HdwKvxHaldenDevice::CDeviceInstance::ResetRxState()
{
    CKVX_HdwKvxDualCommandDevice::CDeviceInstance::ResetRxState();
}

CKVX_HdwKvxHaldenDevice::CDeviceInstance* CKVX_HdwKvxHaldenDevice::CreateDeviceInstance()
{
    auto* inst = new CDeviceInstance;
    inst->SizeChannels(m_Profile);
    return inst;
}
