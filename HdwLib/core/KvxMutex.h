#pragma once
// A recursive mutex: the thread that holds it may lock it again (a service
// call made from within the tick, under its unit's lock, locks once more).
// Lock and Unlock return 0 on success. The implementation is per OS
// (posix/KvxMutex.cpp, win32/KvxMutex.cpp).

#include <HdwLib/core/KvxObject.h>

class HDWLIB_EXPORT CKVX_Mutex : public CKVX_Object {
public:
    CKVX_Mutex();
    ~CKVX_Mutex() override;
    CKVX_Mutex(const CKVX_Mutex&) = delete;
    CKVX_Mutex& operator=(const CKVX_Mutex&) = delete;

    // False when the operating system could not create the mutex.
    bool IsValid() const { return m_Handle != nullptr; }
    unsigned Lock();
    // 0 when the mutex was taken, non-zero when another thread holds it.
    unsigned TryLock();
    unsigned Unlock();

private:
    void* m_Handle = nullptr;
};

// Scope guard for CKVX_Mutex.
class CKVX_MutexLocker {
public:
    explicit CKVX_MutexLocker(CKVX_Mutex& mutex) : m_Mutex(mutex) { m_Mutex.Lock(); }
    ~CKVX_MutexLocker() { m_Mutex.Unlock(); }
    CKVX_MutexLocker(const CKVX_MutexLocker&) = delete;
    CKVX_MutexLocker& operator=(const CKVX_MutexLocker&) = delete;

private:
    CKVX_Mutex& m_Mutex;
};
