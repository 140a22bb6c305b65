#include <HdwLib/units/HdwKvxPellorDevice.h>

CKVX_HdwKvxPellorDevice::CKVX_HdwKvxPellorDevice() : CKVX_HdwKvxDualCommandDevice(*CKVX_HdwKvxUnitProfile::Of(10)) {}

CKVX_HdwKvxPellorDevice::~CKVX_HdwKvxPellorDevice() = default;
