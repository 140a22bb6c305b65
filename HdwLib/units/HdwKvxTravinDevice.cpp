#include <HdwLib/units/HdwKvxTravinDevice.h>

CKVX_HdwKvxTravinDevice::CKVX_HdwKvxTravinDevice() : CKVX_HdwKvxUsbCommandDevice(*CKVX_HdwKvxUnitProfile::Of(5)) {}

CKVX_HdwKvxTravinDevice::~CKVX_HdwKvxTravinDevice() = default;
