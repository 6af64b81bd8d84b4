#pragma once

#include "base/TevTypes.h"

#include <atomic>
#include <cassert>

// For objects that are for one thread at a time: finds a second thread within them, in code that is compiled without NDEBUG.
// An object has the same size either way, and code of both kinds may use the same object.

namespace tev
{
/// A number of the calling thread, the same in every module of the process; never 0.
TEVTOOLS_API unsigned NumberOfThisThreadsUse() noexcept;

/// The thread that is changing an object. It stays with the object when that is copied or moved.
class ThreadUse
{
public:
    ThreadUse() noexcept = default;
    ThreadUse(const ThreadUse&) noexcept {}
    ThreadUse& operator=(const ThreadUse&) noexcept { return *this; }

private:
    friend class CheckedExclusiveUse;
    friend class CheckedSharedUse;

    mutable std::atomic<unsigned> m_user{0};
};

/// While it exists the thread changes the object, and no other thread may use it.
class CheckedExclusiveUse
{
public:
    explicit CheckedExclusiveUse(const ThreadUse& use) noexcept
        : m_user(use.m_user), m_outer(m_user.exchange(NumberOfThisThreadsUse(), std::memory_order_relaxed))
    {
        assert((m_outer == 0 || m_outer == NumberOfThisThreadsUse()) &&
               "a second thread uses an object that is for one thread at a time");
    }
    ~CheckedExclusiveUse() { m_user.store(m_outer, std::memory_order_relaxed); }
    CheckedExclusiveUse(const CheckedExclusiveUse&) = delete;
    CheckedExclusiveUse& operator=(const CheckedExclusiveUse&) = delete;

private:
    std::atomic<unsigned>& m_user;
    const unsigned m_outer;
};

/// The thread reads the object, which several may do as long as none changes it.
class CheckedSharedUse
{
public:
    explicit CheckedSharedUse(const ThreadUse& use) noexcept
    {
        const unsigned user = use.m_user.load(std::memory_order_relaxed);
        assert((user == 0 || user == NumberOfThisThreadsUse()) &&
               "an object that is for one thread at a time is used while another thread changes it");
        static_cast<void>(user);
    }
};

class UncheckedUse
{
public:
    explicit UncheckedUse(const ThreadUse&) noexcept {}
};

// The kinds have names of their own, so that a program of both kinds of code never mixes them.
#if defined(NDEBUG)
using ExclusiveUse = UncheckedUse;
using SharedUse = UncheckedUse;
#else
using ExclusiveUse = CheckedExclusiveUse;
using SharedUse = CheckedSharedUse;
#endif
} // namespace tev
