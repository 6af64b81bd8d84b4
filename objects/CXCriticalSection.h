#pragma once

#include "base/TevTypes.h"
#include "base/ThreadSafety.h"

#include <atomic>
#include <cstdint>

/// A recursive lock: the thread that holds it may lock it again, and releases it as many times. Uncontended it costs
/// one atomic operation each way and no system call, and it never allocates; waiting threads sleep. It is ready before
/// the first line of a program runs when it is a static object. Not for use between processes: in a child made by fork,
/// a lock that another thread of the parent had is free, and what it guards may be half changed.
/// Safe from several threads at once. Destroyed only when no thread holds it.
class X_CAPABILITY("critical section") TEVTOOLS_API CXCriticalSection
{
public:
    constexpr CXCriticalSection() noexcept = default;
    CXCriticalSection(const CXCriticalSection&) = delete;
    CXCriticalSection& operator=(const CXCriticalSection&) = delete;
    virtual ~CXCriticalSection();

    /// A hint: another thread may take or release the lock at the same time.
    bool IsLocked() const noexcept { return m_lockCount.load(std::memory_order_relaxed) >= 1; }

    /// Waits until the lock can be had. Always true.
    bool Lock() X_ACQUIRE();
    /// As Lock, but returns false where it would have to wait.
    [[nodiscard]] bool TryLock() X_TRY_ACQUIRE(true);
    /// Takes back one Lock; does nothing on a thread that does not hold the lock. Always true.
    bool Unlock() X_RELEASE();

protected:
    explicit constexpr CXCriticalSection(std::uint64_t weight) noexcept : m_weight(weight) {}

private:
    friend class CXThread;

    /// In a forked child: whether it was held by a thread that exists in the parent only.
    bool IsLost(std::uint32_t state) const noexcept;
    void StampWithThisFork() noexcept;
    bool TryTake() noexcept;
    void WaitForLock();
    /// Releases the lock on behalf of a thread that was terminated while it held it; does nothing when another thread
    /// does.
    void ReleaseForEnded(std::uint64_t threadNumber);

    // Free, held, or held while other threads may be waiting; the upper bits tell since which fork it is held.
    std::atomic<std::uint32_t> m_state{0};
    std::atomic<int> m_lockCount{0};
    std::atomic<std::uint64_t> m_owner{0}; ///< the number of the thread that holds it, 0 for none
    const std::uint64_t m_weight = 1;      ///< what holding it adds to the weight of the thread's locks
};

namespace tev
{
/// A lock of the library's own data. A thread is never suspended nor killed by the library while it holds one, so it is
/// held for short stretches only, and never across a call to user code.
class LibraryLock final : public CXCriticalSection
{
public:
    static constexpr std::uint64_t kWeight = std::uint64_t{1} << 32;

    constexpr LibraryLock() noexcept : CXCriticalSection(kWeight) {}
};

/// The lock of an object that several threads use. A fork waits a little for the threads that hold one, so that the child
/// finds the object whole. It does not wait for a long operation, such as saving, which changes nothing then.
class ObjectLock final : public CXCriticalSection
{
public:
    static constexpr std::uint64_t kProgramWeight = 1; ///< a thread may be suspended or killed while it holds it

    explicit ObjectLock(std::uint64_t weight = LibraryLock::kWeight) noexcept;
    ~ObjectLock() override;

private:
    friend struct ObjectLocks;

    // In the list of all.
    ObjectLock* m_previous = nullptr;
    ObjectLock* m_next = nullptr;
    std::uint32_t m_process = ~0u; ///< the fork since which it is in the list
    bool m_isHeldByFork = false;
};

/// Holds a lock from its construction to its destruction, as the compiler can check (CXSingleLock decides at run time).
class X_SCOPED_CAPABILITY LockGuard
{
public:
    explicit LockGuard(CXCriticalSection& lock) X_ACQUIRE(lock) : m_lock(lock) { m_lock.Lock(); }
    ~LockGuard() X_RELEASE() { m_lock.Unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    CXCriticalSection& m_lock;
};
} // namespace tev
