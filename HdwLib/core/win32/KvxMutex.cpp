// CKVX_Mutex on Win32: a critical section (recursive by nature).
#include <HdwLib/core/KvxMutex.h>

#include <new>
#include <windows.h>

CKVX_Mutex::CKVX_Mutex()
{
    auto* cs = new (std::nothrow) CRITICAL_SECTION;
    if (!cs)
        return;
    InitializeCriticalSection(cs);
    m_Handle = cs;
}

CKVX_Mutex::~CKVX_Mutex()
{
    if (auto* cs = static_cast<CRITICAL_SECTION*>(m_Handle)) {
        DeleteCriticalSection(cs);
        delete cs;
    }
}

unsigned CKVX_Mutex::Lock()
{
    auto* cs = static_cast<CRITICAL_SECTION*>(m_Handle);
    if (!cs)
        return 1;
    EnterCriticalSection(cs);
    return 0;
}

unsigned CKVX_Mutex::TryLock()
{
    auto* cs = static_cast<CRITICAL_SECTION*>(m_Handle);
    return (cs && TryEnterCriticalSection(cs)) ? 0u : 1u;
}

unsigned CKVX_Mutex::Unlock()
{
    auto* cs = static_cast<CRITICAL_SECTION*>(m_Handle);
    if (!cs)
        return 1;
    LeaveCriticalSection(cs);
    return 0;
}
