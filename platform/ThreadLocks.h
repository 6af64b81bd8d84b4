#pragma once

#include "platform/AddressWait.h"

#include <atomic>
#include <chrono>
#include <cstdint>

// Found at a fixed distance from the thread's own pointer, without a call, also in a library that is opened at run time.
#if defined(__GNUC__) && !defined(_WIN32)
#define TEV_NEAR_THREAD_LOCAL __attribute__((tls_model("initial-exec")))
#else
#define TEV_NEAR_THREAD_LOCAL
#endif

namespace tev::platform
{
/// The thread has no number yet.
constexpr std::uint64_t kNoThreadNumber = ~std::uint64_t{0};

/// What a thread records about the locks that it holds. Used by its thread only, and by signal handlers on it.
struct ThreadLocks
{
    std::uint64_t number = kNoThreadNumber; ///< no other thread of the process ever has the same
    std::atomic<std::uint64_t> held{0};     ///< the sum of the weights of the locks that it holds
    /// Called when the thread has released the last lock of the library itself, and not again before it is set anew.
    void (*whenFree)() noexcept = nullptr;
    /// It was to be suspended while it held locks, and stops when it may. Set by a signal handler on the thread.
    std::atomic<bool> mustStop{false};
};

inline thread_local ThreadLocks t_threadLocks TEV_NEAR_THREAD_LOCAL;

/// The weight of a lock of the library itself; a lock of the program has the weight 1.
constexpr std::uint64_t kLibraryLockWeight = std::uint64_t{1} << 32;

/// Stops the calling thread if it is still to be suspended and holds no lock that forbids it.
void StopAfterRelease() noexcept;

// A signal handler on this thread must see the weight before the lock is taken and until it is released. It runs on the
// same thread, so only the compiler's order matters.
inline void AddLockWeight(ThreadLocks& mine, std::uint64_t weight) noexcept
{
    mine.held.store(mine.held.load(std::memory_order_relaxed) + weight, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

inline void TakeLockWeight(ThreadLocks& mine, std::uint64_t weight) noexcept
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    mine.held.store(mine.held.load(std::memory_order_relaxed) - weight, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (mine.mustStop.load(std::memory_order_relaxed))
        StopAfterRelease();
}

/// A thread that was woken to take a lock may be suspended or killed before it does: the others look again by themselves.
constexpr std::chrono::milliseconds kLockRecheckTime{50};

/// The lock of rooms that know no LibraryLock: a thread is not stopped nor ended either while it holds it, but may be while
/// it waits. Not recursive.
class SystemLock
{
public:
    constexpr SystemLock() noexcept = default;
    SystemLock(const SystemLock&) = delete;
    SystemLock& operator=(const SystemLock&) = delete;

    // The names that std::lock_guard calls.
    void lock() noexcept
    {
        ThreadLocks& mine = t_threadLocks;
        AddLockWeight(mine, kLibraryLockWeight);
        std::uint32_t state = kFree;
        if (m_state.compare_exchange_strong(state, kHeld, std::memory_order_acquire))
            return;
        while (m_state.exchange(kAwaited, std::memory_order_acquire) != kFree)
        {
            TakeLockWeight(mine, kLibraryLockWeight);
            WaitWhile(m_state, kAwaited, kLockRecheckTime);
            AddLockWeight(mine, kLibraryLockWeight);
        }
    }
    void unlock() noexcept
    {
        if (m_state.exchange(kFree, std::memory_order_release) == kAwaited)
            WakeOne(m_state);
        TakeLockWeight(t_threadLocks, kLibraryLockWeight);
    }

private:
    static constexpr std::uint32_t kFree = 0;
    static constexpr std::uint32_t kHeld = 1;
    static constexpr std::uint32_t kAwaited = 2;

    std::atomic<std::uint32_t> m_state{kFree};
};

/// The calling thread's number, assigned on first use.
std::uint64_t NumberOfThisThread() noexcept;
} // namespace tev::platform
