#pragma once
// Platform half of the diagnostic output (posix/PlatformDebug.cpp,
// win32/PlatformDebug.cpp). The portable half, with the application's sink,
// is CKVX_HdwObject::DebugOutput.

namespace hdw::platform {
// Writes text to the operating system's debugger channel, where there is one.
void WriteDebugString(const char* text);
} // namespace hdw::platform
