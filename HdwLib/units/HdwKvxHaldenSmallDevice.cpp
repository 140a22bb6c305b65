#include <HdwLib/units/HdwKvxHaldenSmallDevice.h>

CKVX_HdwKvxHaldenSmallDevice::CKVX_HdwKvxHaldenSmallDevice()
    : CKVX_HdwKvxUsbCommandDevice(*CKVX_HdwKvxUnitProfile::Of(8))
{}

CKVX_HdwKvxHaldenSmallDevice::~CKVX_HdwKvxHaldenSmallDevice() = default;
