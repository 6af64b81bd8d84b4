#pragma once

#include "objects/CXCriticalSection.h"

/// Holds at most one lock, and releases it at the end. The lock must outlive its attachment. One thread at a time: the
/// one that locks is the one that releases.
class TEVTOOLS_API CXSingleLock
{
public:
    /// Nothing is attached.
    CXSingleLock() noexcept = default;
    /// Attaches the lock, which may be null, and takes it at once when `lockNow` is true.
    CXSingleLock(CXCriticalSection* lock, bool lockNow);
    CXSingleLock(const CXSingleLock&) = delete;
    CXSingleLock& operator=(const CXSingleLock&) = delete;
    virtual ~CXSingleLock();

    /// Releases what is held, attaches the lock and takes it. Does nothing for null, and nothing for the lock that is
    /// attached but not held: it stays unlocked.
    void Attach(CXCriticalSection* lock);
    /// Takes the attached lock; there must be one. Does nothing when it is already held through here. Always true.
    bool Lock();
    /// Releases the attached lock where it is held through here. Always true.
    bool Unlock();

private:
    CXCriticalSection* m_lock = nullptr;
    bool m_locked = false;
};
