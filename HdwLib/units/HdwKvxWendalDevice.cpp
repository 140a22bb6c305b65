#include <HdwLib/units/HdwKvxWendalDevice.h>

CKVX_HdwKvxWendalDevice::CKVX_HdwKvxWendalDevice() : CKVX_HdwKvxUsbCommandDevice(*CKVX_HdwKvxUnitProfile::Of(7)) {}

CKVX_HdwKvxWendalDevice::~CKVX_HdwKvxWendalDevice() = default;
