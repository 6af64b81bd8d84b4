#pragma once

#include "objects/CXCriticalSection.h"
#include "platform/ForkHandlers.h"

namespace tev
{
/// Keeps a process-wide lock usable in a child made by fork: the thread that forks holds it over the fork, so no thread
/// that the child lacks can be inside. `LOCK` returns the lock, which it creates where needed.
/// Define it as an object at namespace scope.
template <CXCriticalSection& (*LOCK)()>
class HeldOverFork
{
public:
    explicit HeldOverFork(platform::ForkRank rank) noexcept : m_handler(rank, &Take, &Release, &Release) {}

private:
    // The analysis does not follow a lock from one function to another.
    static void Take() X_NO_THREAD_SAFETY_ANALYSIS { LOCK().Lock(); }
    static void Release() X_NO_THREAD_SAFETY_ANALYSIS { LOCK().Unlock(); }

    const platform::ForkHandler m_handler;
};
} // namespace tev
