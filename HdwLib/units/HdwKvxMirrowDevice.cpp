#include <HdwLib/units/HdwKvxMirrowDevice.h>

CKVX_HdwKvxMirrowDevice::CKVX_HdwKvxMirrowDevice() : CKVX_HdwKvxUsbCommandDevice(*KvxUnitProfileOf(12)) {}

CKVX_HdwKvxMirrowDevice::~CKVX_HdwKvxMirrowDevice() = default;
