#include <HdwLib/units/HdwKvxPellorDevice.h>

CKVX_HdwKvxPellorDevice::CKVX_HdwKvxPellorDevice() : CKVX_HdwKvxDualCommandDevice(*KvxUnitProfileOf(10)) {}

CKVX_HdwKvxPellorDevice::~CKVX_HdwKvxPellorDevice() = default;
