#include "objects/CXSingleLock.h"

CXSingleLock::CXSingleLock(CXCriticalSection* lock, bool lockNow) : m_lock(lock)
{
    if (m_lock != nullptr && lockNow)
        Lock();
}

CXSingleLock::~CXSingleLock()
{
    Unlock();
}

void CXSingleLock::Attach(CXCriticalSection* lock)
{
    if (lock == nullptr || (lock == m_lock && !m_locked))
        return;
    Unlock();
    m_lock = lock;
    Lock();
}

// Which lock is held is known at run time only, so the compiler cannot follow.
bool CXSingleLock::Lock() X_NO_THREAD_SAFETY_ANALYSIS
{
    if (!m_locked)
        m_locked = m_lock->Lock();
    return true;
}

bool CXSingleLock::Unlock() X_NO_THREAD_SAFETY_ANALYSIS
{
    if (m_lock == nullptr)
        return !m_locked;
    if (m_locked)
    {
        m_lock->Unlock();
        m_locked = false;
    }
    return true;
}
