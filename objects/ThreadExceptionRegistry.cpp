#include "base/NeverDestroyed.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/HeldOverFork.h"
#include "objects/ThreadException.h"
#include "platform/ForcedUnwind.h"

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <unordered_map>
#include <vector>

namespace
{
constexpr std::size_t kBucketsOfThreads = 23;

// Destructors of exceptions are user code, which may throw and record: none is ever deleted under the lock.
using OwnedException = std::unique_ptr<CXException>;

struct Record
{
    CXException* exception = nullptr;
    bool ownerHasEnded = false;
};

class Registry
{
public:
    void Set(CXException* exception, bool ownerHasEnded)
    {
        const tev::LockGuard guard(m_lock);
        if (m_records == nullptr)
            m_records = std::make_unique<Map>(kBucketsOfThreads);
        if (!m_exitWillFree)
            m_exitWillFree = std::atexit([] { Get().FreeAtExit(); }) == 0;
        Record& record = (*m_records)[std::this_thread::get_id()];
        const CXException* const former = std::exchange(record, {exception, ownerHasEnded}).exception;
        if (former != nullptr && former != exception)
            EraseAll(former);
    }

    /// Removes the exception from the records of all threads, of which another one would delete it again.
    CXException* Take() noexcept
    {
        const tev::LockGuard guard(m_lock);
        CXException* const exception = TakeOwn();
        if (exception != nullptr)
            EraseAll(exception);
        return exception;
    }

    /// What is to be deleted at the end of the thread: not an exception that another thread has recorded and may handle.
    CXException* TakeAtThreadEnd() noexcept
    {
        const tev::LockGuard guard(m_lock);
        CXException* const exception = TakeOwn();
        return exception == nullptr || IsRecorded(exception) ? nullptr : exception;
    }

    void Forget(const CXException* exception) noexcept
    {
        const tev::LockGuard guard(m_lock);
        if (m_records != nullptr)
            EraseAll(exception);
    }

    static CXCriticalSection& Lock() noexcept { return Get().m_lock; }

    // Destructors of static objects throw and delete exceptions too.
    static Registry& Get() noexcept
    {
        static tev::NeverDestroyed<Registry> registry;
        return registry.Get();
    }

private:
    using Map = std::unordered_map<std::thread::id, Record>;

    CXException* TakeOwn() noexcept X_REQUIRES(m_lock)
    {
        if (m_records == nullptr)
            return nullptr;
        const auto found = m_records->find(std::this_thread::get_id());
        if (found == m_records->end())
            return nullptr;
        CXException* const exception = found->second.exception;
        m_records->erase(found);
        return exception;
    }

    bool IsRecorded(const CXException* exception) const noexcept X_REQUIRES(m_lock)
    {
        return std::any_of(m_records->begin(), m_records->end(),
                           [exception](const auto& entry) { return entry.second.exception == exception; });
    }

    void EraseAll(const CXException* exception) noexcept X_REQUIRES(m_lock)
    {
        for (auto it = m_records->begin(); it != m_records->end();)
            it = it->second.exception == exception ? m_records->erase(it) : std::next(it);
    }

    // A thread that still runs may be handling its exception just now, so that one is left to it, and the map with it.
    void FreeAtExit()
    {
        std::vector<OwnedException> left;
        const tev::LockGuard guard(m_lock);
        m_exitWillFree = false; // a static destructor may record once more
        for (auto it = m_records->begin(); it != m_records->end();)
        {
            if (!it->second.ownerHasEnded)
            {
                ++it;
                continue;
            }
            CXException* const exception = it->second.exception;
            it = m_records->erase(it);
            if (!IsRecorded(exception))
                left.emplace_back(exception);
        }
        if (m_records->empty())
            m_records.reset();
    }

    tev::LibraryLock m_lock;
    std::unique_ptr<Map> m_records X_GUARDED_BY(m_lock);
    bool m_exitWillFree X_GUARDED_BY(m_lock) = false;
};

const tev::HeldOverFork<&Registry::Lock> g_registryHeldOverFork(tev::platform::ForkRank::ThreadExceptions);

enum class ThreadState
{
    HasNeverRecorded,
    Running,
    Ended
};

// Trivial, so that it can still be read in thread-local destructors that run after the sentinel's.
thread_local ThreadState t_state = ThreadState::HasNeverRecorded;

/// Deletes the thread's pending exception when the thread ends.
struct Sentinel
{
    // A thread's identifier may have belonged to an earlier thread, which recorded after its own sentinel was
    // destroyed.
    Sentinel()
    {
        const OwnedException leftBehind(Registry::Get().TakeAtThreadEnd());
        t_state = ThreadState::Running;
    }
    ~Sentinel()
    {
        t_state = ThreadState::Ended;
        const OwnedException pending(Registry::Get().TakeAtThreadEnd());
    }
    Sentinel(const Sentinel&) = delete;
    Sentinel& operator=(const Sentinel&) = delete;
};
} // namespace

void XSetThreadException(CXException* exception)
{
    if (exception == nullptr)
        return;
    if (t_state != ThreadState::Ended)
    {
        static thread_local const Sentinel sentinel;
    }
    Registry::Get().Set(exception, t_state == ThreadState::Ended);
}

void XDeleteThreadException()
{
    const OwnedException pending(XTakeThreadException());
}

CXException* XTakeThreadException()
{
    return t_state == ThreadState::HasNeverRecorded ? nullptr : Registry::Get().Take();
}

CXException* XKeepException(CXException* exception) noexcept
{
    if (exception != nullptr)
        tev::ForgetException(exception);
    return exception;
}

CXException* XKeepException(const std::exception_ptr& exception)
{
    if (exception == nullptr)
        return nullptr;
    try
    {
        std::rethrow_exception(exception);
    }
    catch (const tev::platform::ForcedUnwind&)
    {
        throw;
    }
    catch (CXException* thrown)
    {
        return XKeepException(thrown);
    }
    catch (...) // NOLINT(bugprone-empty-catch): what is not of the library stays in the exception_ptr
    {
    }
    return nullptr;
}

void tev::ForgetException(const CXException* exception) noexcept
{
    Registry::Get().Forget(exception);
}
