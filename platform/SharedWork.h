#pragma once

#include "platform/AddressWait.h"
#include "platform/ThreadLocks.h"

namespace tev::platform
{
/// Counts the events after which a thread may be asked to end that was not before: a long operation checks again only when
/// it has changed.
inline std::atomic<std::uint32_t> g_endingChanges{0};

/// Work of one thread, its owner, in which other threads help. They may use what lies on the owner's stack: the owner waits
/// until they have left, and is not ended by force before, unless its stack is left in memory for ever.
/// Safe from several threads at once. Helpers keep the object alive until they have left.
class SharedWork
{
public:
    /// A helper begins. False when the work is closed.
    bool Enter() noexcept
    {
        std::uint32_t state = m_state.load(std::memory_order_relaxed);
        while ((state & kClosed) == 0)
        {
            if (m_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    /// A helper that began has finished.
    void Leave() noexcept
    {
        m_state.fetch_sub(1, std::memory_order_release);
        WakeAll(m_state);
    }

    /// True, and no helper begins any more, where none is at work.
    bool CloseIfUnused() noexcept
    {
        std::uint32_t state = m_state.load(std::memory_order_acquire);
        while (Helpers(state) == 0)
        {
            if (m_state.compare_exchange_weak(state, state | kClosed, std::memory_order_acquire))
                return true;
        }
        return false;
    }
    void CloseAndWait() noexcept
    {
        std::uint32_t state = m_state.fetch_or(kClosed, std::memory_order_acquire);
        while (Helpers(state) != 0)
        {
            WaitWhile(m_state, state);
            state = m_state.load(std::memory_order_acquire);
        }
    }

    /// Whether helpers are to return soon: the owner is to be ended by force, or other helpers were lost.
    bool IsEnding() const noexcept { return (m_state.load(std::memory_order_acquire) & kEnding) != 0; }
    /// Whether the owner was ended by force and the last helper has left.
    bool IsAbandoned() const noexcept
    {
        const std::uint32_t state = m_state.load(std::memory_order_acquire);
        return (state & kOwnerEnded) != 0 && Helpers(state) == 0;
    }

    /// On the owner's thread, around the work. Works of one thread are nested.
    void Begin() noexcept
    {
        m_outer = t_current;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        t_current = this;
    }
    void End() noexcept
    {
        t_current = m_outer;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    /// In a forked child: the owner, or the helpers, do not exist there, so the rest is to end.
    void Lose() noexcept { m_state.fetch_or(kClosed | kEnding); }
    bool IsOfThisThread() const noexcept
    {
        const SharedWork* work = t_current;
        while (work != nullptr && work != this)
            work = work->m_outer;
        return work != nullptr;
    }

    // The next three concern all works of the calling thread.

    /// The owner is to be ended by force: asks the helpers to return. True when none is left. For signal handlers.
    static bool EndAll() noexcept
    {
        std::uint32_t helpers = 0;
        for (SharedWork* work = t_current; work != nullptr; work = work->m_outer)
            helpers += Helpers(work->m_state.fetch_or(kClosed | kEnding | kOwnerEnding));
        g_endingChanges.fetch_add(1);
        return helpers == 0;
    }
    /// Whether the calling thread is to be ended by force, and helpers hold that up.
    static bool IsOwnerEnding() noexcept
    {
        for (const SharedWork* work = t_current; work != nullptr; work = work->m_outer)
        {
            if ((work->m_state.load(std::memory_order_relaxed) & kOwnerEnding) != 0)
                return true;
        }
        return false;
    }
    /// The owner ends now, and does not come back to the work. For signal handlers.
    static void AbandonAll() noexcept
    {
        for (SharedWork* work = t_current; work != nullptr; work = work->m_outer)
            work->m_state.fetch_or(kOwnerEnded);
    }
    /// In a forked child, where the helpers do not exist: what they had begun is not done.
    static void LoseHelpersOfAll() noexcept
    {
        for (SharedWork* work = t_current; work != nullptr; work = work->m_outer)
        {
            if (Helpers(work->m_state.load()) != 0)
                work->m_state.store(kClosed | kEnding);
        }
        g_endingChanges.fetch_add(1);
    }

private:
    static constexpr std::uint32_t kClosed = 0x80000000u;
    static constexpr std::uint32_t kEnding = 0x40000000u;
    static constexpr std::uint32_t kOwnerEnded = 0x20000000u;
    static constexpr std::uint32_t kOwnerEnding = 0x10000000u;

    static constexpr std::uint32_t Helpers(std::uint32_t state) noexcept
    {
        return state & ~(kClosed | kEnding | kOwnerEnded | kOwnerEnding);
    }

    static inline thread_local SharedWork* t_current TEV_NEAR_THREAD_LOCAL = nullptr;

    std::atomic<std::uint32_t> m_state{0};
    SharedWork* m_outer = nullptr;
};
} // namespace tev::platform
