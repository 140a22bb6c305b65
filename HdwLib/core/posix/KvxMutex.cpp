// CKVX_Mutex on POSIX threads: a recursive pthread mutex.
#include <HdwLib/core/KvxMutex.h>

#include <new>
#include <pthread.h>

CKVX_Mutex::CKVX_Mutex()
{
    auto* m = new (std::nothrow) pthread_mutex_t;
    if (!m)
        return;
    pthread_mutexattr_t attr;
    bool ok = pthread_mutexattr_init(&attr) == 0;
    ok = ok && pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0;
    ok = ok && pthread_mutex_init(m, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    if (!ok) {
        delete m;
        return;
    }
    m_Handle = m;
}

CKVX_Mutex::~CKVX_Mutex()
{
    if (auto* m = static_cast<pthread_mutex_t*>(m_Handle)) {
        pthread_mutex_destroy(m);
        delete m;
    }
}

unsigned CKVX_Mutex::Lock()
{
    auto* m = static_cast<pthread_mutex_t*>(m_Handle);
    return m ? static_cast<unsigned>(pthread_mutex_lock(m)) : 1u;
}

unsigned CKVX_Mutex::TryLock()
{
    auto* m = static_cast<pthread_mutex_t*>(m_Handle);
    return m ? static_cast<unsigned>(pthread_mutex_trylock(m)) : 1u;
}

unsigned CKVX_Mutex::Unlock()
{
    auto* m = static_cast<pthread_mutex_t*>(m_Handle);
    return m ? static_cast<unsigned>(pthread_mutex_unlock(m)) : 1u;
}
