#include <HdwLib/units/HdwKvxQuillanDevice.h>

CKVX_HdwKvxQuillanDevice::CKVX_HdwKvxQuillanDevice() : CKVX_HdwKvxUsbCommandDevice(*CKVX_HdwKvxUnitProfile::Of(11)) {}

CKVX_HdwKvxQuillanDevice::~CKVX_HdwKvxQuillanDevice() = default;
