#include "objects/CXCriticalSection.h"

#include "platform/AddressWait.h"
#include "platform/ForkHandlers.h"
#include "platform/ProcessorPause.h"
#include "platform/ThreadLocks.h"
#include "platform/Threads.h"

#include <chrono>
#include <utility>

namespace
{
using tev::platform::AddLockWeight;
using tev::platform::t_threadLocks;
using tev::platform::TakeLockWeight;
using tev::platform::ThreadLocks;

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kAwaited = 2;
constexpr std::uint32_t kForkStep = 4;

// The address sanitizer may keep local objects elsewhere, where those of killed threads are not found.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAreLocalsOnStacks = false;
#elif defined(__has_feature)
constexpr bool kAreLocalsOnStacks = !__has_feature(address_sanitizer);
#else
constexpr bool kAreLocalsOnStacks = true;
#endif

// Both change only in a forked child, which has one thread then.
std::uint32_t g_fork = 0;                     ///< in the bits of a lock's state above those of the constants
std::uint64_t g_survivor = ~std::uint64_t{0}; ///< the number of the thread that made the fork

// Threads that hold no lock take none while this is not 0, so that a fork gets all that it waits for.
std::atomic<std::uint32_t> g_forksThatWait{0};
thread_local bool t_isForking TEV_NEAR_THREAD_LOCAL = false;

constexpr std::chrono::milliseconds kForkWait{100}; ///< for all object locks together

void LetForkPass(const ThreadLocks& mine) noexcept
{
    const std::uint32_t forks = g_forksThatWait.load(std::memory_order_relaxed);
    if (forks != 0 && !t_isForking && mine.held.load(std::memory_order_relaxed) == 0)
        tev::platform::WaitWhile(g_forksThatWait, forks, kForkWait);
}

constexpr std::uint32_t ForkOf(std::uint32_t state) noexcept
{
    return state & ~(kForkStep - 1);
}

// Locks are held for a shorter time than it takes to sleep and to be woken. The first wait is long enough that threads which
// take the lock again and again do so many times before it changes hands, since each change moves what it guards from one
// processor's cache to another's. All waits together take about as long as the sleep that they may save.
constexpr unsigned kFirstPauses = 64;
constexpr unsigned kLastPauses = 256;

/// Waits a little for a lock, without sleeping; false where it is still held then.
bool TakeSoon(std::atomic<std::uint32_t>& state, std::uint32_t taken) noexcept
{
    for (unsigned pauses = kFirstPauses; pauses <= kLastPauses; pauses *= 2)
    {
        for (unsigned i = 0; i < pauses; ++i)
            tev::platform::PauseProcessor();
        std::uint32_t found = state.load(std::memory_order_relaxed);
        if (found == kFree &&
            state.compare_exchange_strong(found, taken, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    }
    return false;
}

// Only the owner writes the count, so it needs no atomic addition.
void Add(std::atomic<int>& count, int difference) noexcept
{
    count.store(count.load(std::memory_order_relaxed) + difference, std::memory_order_relaxed);
}
} // namespace

static_assert(tev::LibraryLock::kWeight == tev::platform::kLibraryLockWeight);

CXCriticalSection::~CXCriticalSection() = default;

bool CXCriticalSection::Lock()
{
    ThreadLocks& mine = t_threadLocks;
    if (m_owner.load(std::memory_order_relaxed) != mine.number)
    {
        LetForkPass(mine);
        AddLockWeight(mine, m_weight);
        if (!TryTake())
            WaitForLock();
        if (mine.number == tev::platform::kNoThreadNumber)
            tev::platform::NumberOfThisThread();
        m_owner.store(mine.number, std::memory_order_relaxed);
    }
    Add(m_lockCount, 1);
    return true;
}

bool CXCriticalSection::TryLock()
{
    ThreadLocks& mine = t_threadLocks;
    if (m_owner.load(std::memory_order_relaxed) != mine.number)
    {
        AddLockWeight(mine, m_weight);
        if (!TryTake())
        {
            TakeLockWeight(mine, m_weight);
            return false;
        }
        m_owner.store(tev::platform::NumberOfThisThread(), std::memory_order_relaxed);
    }
    Add(m_lockCount, 1);
    return true;
}

// The owner is read after the state. Where it has just released the lock, the state has changed before (see
// StampWithThisFork), so that the caller's exchange of the state that it knows fails.
bool CXCriticalSection::IsLost(std::uint32_t state) const noexcept
{
    return state != kFree && ForkOf(state) != g_fork && m_owner.load(std::memory_order_acquire) != g_survivor;
}

// In a forked child, before the owner of a lock releases it: with the stamp of an earlier fork and without an owner the lock
// would look lost until it is free. Only a thread that begins to wait changes the state meanwhile, and stamps it, too.
inline void CXCriticalSection::StampWithThisFork() noexcept
{
    std::uint32_t state = m_state.load(std::memory_order_relaxed);
    if (ForkOf(state) != g_fork && state != kFree)
        m_state.compare_exchange_strong(state, g_fork | kHeld, std::memory_order_relaxed);
}

inline bool CXCriticalSection::TryTake() noexcept
{
    std::uint32_t state = kFree;
    if (m_state.compare_exchange_strong(state, g_fork | kHeld, std::memory_order_acquire, std::memory_order_relaxed))
        return true;
    if (ForkOf(state) == g_fork || !IsLost(state) ||
        !m_state.compare_exchange_strong(state, g_fork | kHeld, std::memory_order_acquire, std::memory_order_relaxed))
        return false;
    m_lockCount.store(0, std::memory_order_relaxed);
    return true;
}

// The lock is not lost: TryTake would have taken it, and a lock becomes lost only by a fork.
// A thread that sleeps does not hold the lock: it may be suspended and killed meanwhile.
void CXCriticalSection::WaitForLock()
{
    ThreadLocks& mine = t_threadLocks;
    if (TakeSoon(m_state, g_fork | kHeld))
        return;
    const std::uint32_t awaited = g_fork | kAwaited;
    for (;;)
    {
        if (m_state.exchange(awaited, std::memory_order_acquire) == kFree)
            return;
        TakeLockWeight(mine, m_weight);
        tev::platform::WaitWhile(m_state, awaited, tev::platform::kLockRecheckTime);
        AddLockWeight(mine, m_weight);
        if (TakeSoon(m_state, awaited)) // others may sleep, too
            return;
    }
}

bool CXCriticalSection::Unlock()
{
    ThreadLocks& mine = t_threadLocks;
    if (m_owner.load(std::memory_order_relaxed) != mine.number)
        return true;
    Add(m_lockCount, -1);
    if (m_lockCount.load(std::memory_order_relaxed) != 0)
        return true;
    StampWithThisFork();
    m_owner.store(0, std::memory_order_release);
    // The next owner may destroy the lock at once: from here on only its address is used.
    const std::uint64_t weight = m_weight;
    if ((m_state.exchange(kFree, std::memory_order_release) & kAwaited) != 0)
        tev::platform::WakeOne(m_state);
    TakeLockWeight(mine, weight);
    if (mine.whenFree != nullptr && mine.held.load(std::memory_order_relaxed) < tev::platform::kLibraryLockWeight)
        std::exchange(mine.whenFree, nullptr)();
    return true;
}

void CXCriticalSection::ReleaseForEnded(std::uint64_t threadNumber)
{
    // Of several that release it one does: the lock may have another owner at once.
    if (m_owner.load(std::memory_order_relaxed) != threadNumber)
        return;
    StampWithThisFork();
    if (!m_owner.compare_exchange_strong(threadNumber, 0, std::memory_order_release, std::memory_order_relaxed))
        return;
    m_lockCount.store(0, std::memory_order_relaxed);
    if ((m_state.exchange(kFree, std::memory_order_release) & kAwaited) != 0)
        tev::platform::WakeOne(m_state);
}

namespace tev
{
/// All of them that this process made: after a fork the list of the child starts empty, because objects on the stacks of
/// other threads are no more.
struct ObjectLocks
{
    static LibraryLock s_lock;
    static ObjectLock* s_first;
    static std::uint32_t s_process;
    static const std::atomic<std::uint32_t> s_nobodyWakes;

    static void BeforeFork() X_NO_THREAD_SAFETY_ANALYSIS
    {
        t_isForking = true;
        g_forksThatWait.fetch_add(1);
        s_lock.Lock();
        const auto end = std::chrono::steady_clock::now() + kForkWait;
        for (ObjectLock* lock = s_first; lock != nullptr; lock = lock->m_next)
        {
            while (!(lock->m_isHeldByFork = lock->TryLock()) && std::chrono::steady_clock::now() < end)
                platform::WaitWhile(s_nobodyWakes, 0, std::chrono::microseconds(50));
        }
        t_isForking = false;
        g_forksThatWait.fetch_sub(1);
        platform::WakeAll(g_forksThatWait);
    }
    static void InParent() X_NO_THREAD_SAFETY_ANALYSIS
    {
        for (ObjectLock* lock = s_first; lock != nullptr; lock = lock->m_next)
        {
            if (lock->m_isHeldByFork)
                lock->Unlock();
        }
        s_lock.Unlock();
    }
    static void InChild() X_NO_THREAD_SAFETY_ANALYSIS
    {
        g_survivor = platform::NumberOfThisThread();
        g_fork += kForkStep;
        g_forksThatWait.store(0); // another thread may have been waiting, too
        ++s_process;
        InParent();
        s_first = nullptr;
    }

    static void Enlist(ObjectLock& lock) noexcept
    {
        if (!kAreLocalsOnStacks)
            return;
        const LockGuard guard(s_lock);
        lock.m_process = s_process;
        lock.m_next = s_first;
        if (s_first != nullptr)
            s_first->m_previous = &lock;
        s_first = &lock;
    }
    static void Delist(const ObjectLock& lock) noexcept
    {
        const LockGuard guard(s_lock);
        if (lock.m_process == s_process)
            TakeOut(lock);
    }
    /// Those on the stack of a thread that was killed are not destroyed, and their memory is used for something else.
    static void DelistKilled(const void* low, const void* high) noexcept
    {
        const LockGuard guard(s_lock);
        for (const ObjectLock* lock = s_first; lock != nullptr; lock = lock->m_next)
        {
            if (platform::IsWithin(lock, low, high))
                TakeOut(*lock);
        }
    }

private:
    static void TakeOut(const ObjectLock& lock) noexcept
    {
        (lock.m_previous == nullptr ? s_first : lock.m_previous->m_next) = lock.m_next;
        if (lock.m_next != nullptr)
            lock.m_next->m_previous = lock.m_previous;
    }
};

LibraryLock ObjectLocks::s_lock;
ObjectLock* ObjectLocks::s_first = nullptr;
std::uint32_t ObjectLocks::s_process = 0;
const std::atomic<std::uint32_t> ObjectLocks::s_nobodyWakes{0};

namespace
{
const platform::ForkHandler g_forkOfObjectLocks(platform::ForkRank::ObjectLocks, &ObjectLocks::BeforeFork,
                                                &ObjectLocks::InParent, &ObjectLocks::InChild);
const platform::KilledStackHook g_killedObjectLocks(&ObjectLocks::DelistKilled);
} // namespace

ObjectLock::ObjectLock(std::uint64_t weight) noexcept : CXCriticalSection(weight)
{
    ObjectLocks::Enlist(*this);
}

ObjectLock::~ObjectLock()
{
    ObjectLocks::Delist(*this);
}
} // namespace tev
