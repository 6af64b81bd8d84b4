#pragma once

#include "objects/CXCriticalSection.h"

#include <functional>

namespace tev
{
/// Holds the locks of two stores, which may be the same store. Two locks are always taken in the order of their
/// addresses, so that no two threads wait for each other.
class X_SCOPED_CAPABILITY StoreLocks
{
public:
    StoreLocks(CXCriticalSection& first, CXCriticalSection& second)
        X_ACQUIRE(first, second) X_NO_THREAD_SAFETY_ANALYSIS // which lock is taken first is known only at run time
        : m_low(std::less<>()(&second, &first) ? second : first),
          m_high(&m_low == &first ? second : first)
    {
        m_low.Lock();
        m_high.Lock();
    }
    ~StoreLocks() X_RELEASE() X_NO_THREAD_SAFETY_ANALYSIS
    {
        m_high.Unlock();
        m_low.Unlock();
    }
    StoreLocks(const StoreLocks&) = delete;
    StoreLocks& operator=(const StoreLocks&) = delete;

private:
    CXCriticalSection& m_low;
    CXCriticalSection& m_high;
};
} // namespace tev
