#include <HdwLib/framework/HdwEvent.h>

CKVX_HdwEvent::~CKVX_HdwEvent() = default;
