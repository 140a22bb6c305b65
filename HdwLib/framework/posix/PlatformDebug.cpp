// Linux has no debugger channel: the application's sink is the only output.
#include <HdwLib/framework/internal/PlatformDebug.h>

void hdw::platform::WriteDebugString(const char*) {}
