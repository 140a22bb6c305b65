#include <HdwLib/units/HdwKvxMirrowDevice.h>

CKVX_HdwKvxMirrowDevice::CKVX_HdwKvxMirrowDevice() : CKVX_HdwKvxUsbCommandDevice(*CKVX_HdwKvxUnitProfile::Of(12)) {}

CKVX_HdwKvxMirrowDevice::~CKVX_HdwKvxMirrowDevice() = default;
