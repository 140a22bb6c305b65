#include <HdwLib/units/HdwKvxArvaneDevice.h>

CKVX_HdwKvxArvaneDevice::CKVX_HdwKvxArvaneDevice() : CKVX_HdwKvxDualCommandDevice(*CKVX_HdwKvxUnitProfile::Of(6)) {}

CKVX_HdwKvxArvaneDevice::~CKVX_HdwKvxArvaneDevice() = default;
