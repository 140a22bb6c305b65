#include <HdwLib/units/HdwKvxQuillanDevice.h>

CKVX_HdwKvxQuillanDevice::CKVX_HdwKvxQuillanDevice() : CKVX_HdwKvxUsbCommandDevice(*KvxUnitProfileOf(11)) {}

CKVX_HdwKvxQuillanDevice::~CKVX_HdwKvxQuillanDevice() = default;
