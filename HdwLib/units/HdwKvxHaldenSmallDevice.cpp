#include <HdwLib/units/HdwKvxHaldenSmallDevice.h>

CKVX_HdwKvxHaldenSmallDevice::CKVX_HdwKvxHaldenSmallDevice() : CKVX_HdwKvxUsbCommandDevice(*KvxUnitProfileOf(8)) {}

CKVX_HdwKvxHaldenSmallDevice::~CKVX_HdwKvxHaldenSmallDevice() = default;
