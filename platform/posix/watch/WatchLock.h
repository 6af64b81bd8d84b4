#pragma once

#include "platform/AddressWait.h"
#include "platform/ThreadLocks.h"

#include <atomic>
#include <cstdint>
#include <new>

namespace tev::platform
{
/// The lock of the queue of events and all trees, in two parts: a thread holds the first one for a whole operation, and gives
/// the second one to forks of the process that wait for it while a tree is read, which may take long.
class WatchLock
{
public:
    constexpr WatchLock() noexcept = default;

    // The names that std::lock_guard calls.
    void lock() noexcept
    {
        m_use.lock();
        m_state.lock();
    }
    void unlock() noexcept
    {
        m_state.unlock();
        m_use.unlock();
    }

    /// On the thread that holds the lock, where a child can go on with what it guards.
    void LetForksPass() noexcept
    {
        if (m_waitingForks.load(std::memory_order_relaxed) == 0)
            return;
        m_state.unlock();
        while (const std::uint32_t forks = m_waitingForks.load())
            WaitWhile(m_waitingForks, forks);
        m_state.lock();
    }

    void LockForFork() noexcept
    {
        ++m_waitingForks;
        m_state.lock();
        --m_waitingForks;
        WakeAll(m_waitingForks);
    }
    void UnlockInParent() noexcept { m_state.unlock(); }
    /// The thread that is in the middle of an operation does not exist in the child, nor do others that wanted to fork.
    void UnlockInChild() noexcept
    {
        m_state.unlock();
        m_waitingForks.store(0);
        new (&m_use) SystemLock;
    }

private:
    SystemLock m_use;
    SystemLock m_state;
    std::atomic<std::uint32_t> m_waitingForks{0};
};

inline WatchLock g_watchLock;
} // namespace tev::platform
