#include <HdwLib/units/HdwKvxBexleyDevice.h>

CKVX_HdwKvxBexleyDevice::CKVX_HdwKvxBexleyDevice() : CKVX_HdwKvxUsbCommandDevice(*KvxUnitProfileOf(4)) {}

CKVX_HdwKvxBexleyDevice::~CKVX_HdwKvxBexleyDevice() = default;
