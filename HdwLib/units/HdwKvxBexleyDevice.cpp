#include <HdwLib/units/HdwKvxBexleyDevice.h>

CKVX_HdwKvxBexleyDevice::CKVX_HdwKvxBexleyDevice() : CKVX_HdwKvxUsbCommandDevice(*CKVX_HdwKvxUnitProfile::Of(4)) {}

CKVX_HdwKvxBexleyDevice::~CKVX_HdwKvxBexleyDevice() = default;
