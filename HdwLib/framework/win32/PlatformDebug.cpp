#include <HdwLib/framework/internal/PlatformDebug.h>

#include <windows.h>

void hdw::platform::WriteDebugString(const char* text)
{
    OutputDebugStringA(text);
}
