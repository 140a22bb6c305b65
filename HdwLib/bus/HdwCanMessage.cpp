#include <HdwLib/bus/HdwCanMessage.h>

CKVX_HdwCanMessage::~CKVX_HdwCanMessage() = default;
CKVX_HdwCanMessageList::~CKVX_HdwCanMessageList() = default;
