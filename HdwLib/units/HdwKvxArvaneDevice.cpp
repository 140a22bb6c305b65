#include <HdwLib/units/HdwKvxArvaneDevice.h>

CKVX_HdwKvxArvaneDevice::CKVX_HdwKvxArvaneDevice() : CKVX_HdwKvxDualCommandDevice(*KvxUnitProfileOf(6)) {}

CKVX_HdwKvxArvaneDevice::~CKVX_HdwKvxArvaneDevice() = default;
