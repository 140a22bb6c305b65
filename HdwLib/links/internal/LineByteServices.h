#pragma once
// EnableService of the ports that implement CKVX_HdwByteLine.

#include <HdwLib/framework/HdwPort.h>
#include <HdwLib/framework/HdwService.h>

namespace hdw::links {

// The two line byte services, one of each (26 for a second), 10 for any
// other type; 2 for parameters of another class.
unsigned EnableLineByteService(
    CKVX_HdwPort& port, unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params);

} // namespace hdw::links
