#include "objects/CXCriticalSection.h"

#include "platform/AddressWait.h"
#include "platform/ThreadLocks.h"

namespace
{
constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kAwaited = 2;

using tev::platform::AddLockWeight;
using tev::platform::t_threadLocks;
using tev::platform::TakeLockWeight;
using tev::platform::ThreadLocks;

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
        AddLockWeight(mine, m_weight);
        std::uint32_t expected = kFree;
        if (!m_state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
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
        std::uint32_t expected = kFree;
        if (!m_state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
        {
            TakeLockWeight(mine, m_weight);
            return false;
        }
        m_owner.store(tev::platform::NumberOfThisThread(), std::memory_order_relaxed);
    }
    Add(m_lockCount, 1);
    return true;
}

// A waiting thread does not hold the lock: it may be suspended and killed while it waits.
void CXCriticalSection::WaitForLock()
{
    ThreadLocks& mine = t_threadLocks;
    while (m_state.exchange(kAwaited, std::memory_order_acquire) != kFree)
    {
        TakeLockWeight(mine, m_weight);
        tev::platform::WaitWhile(m_state, kAwaited);
        AddLockWeight(mine, m_weight);
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
    m_owner.store(0, std::memory_order_relaxed);
    // The next owner may destroy the lock at once: from here on only its address is used.
    const std::uint64_t weight = m_weight;
    if (m_state.exchange(kFree, std::memory_order_release) == kAwaited)
        tev::platform::WakeOne(m_state);
    TakeLockWeight(mine, weight);
    return true;
}

void CXCriticalSection::ReleaseForEnded(std::uint64_t threadNumber)
{
    // Of several that release it one does: the lock may have another owner at once.
    if (!m_owner.compare_exchange_strong(threadNumber, 0, std::memory_order_relaxed))
        return;
    m_lockCount.store(0, std::memory_order_relaxed);
    if (m_state.exchange(kFree, std::memory_order_release) == kAwaited)
        tev::platform::WakeOne(m_state);
}
