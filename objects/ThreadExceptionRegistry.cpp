#include "base/NeverDestroyed.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/ThreadException.h"

#include <cstdlib>
#include <thread>
#include <unordered_map>
#include <vector>

namespace
{
constexpr std::size_t kInitialBuckets = 23;

// Destructors of exceptions are user code, which may throw and record: none is ever deleted under the lock.
using OwnedException = std::unique_ptr<CXException>;

struct Record
{
    CXException* exception;
    bool ownerHasEnded;
};

class Registry
{
public:
    void Set(CXException* exception, bool ownerHasEnded)
    {
        const tev::LockGuard guard(m_lock);
        if (m_records == nullptr)
            m_records = std::make_unique<Map>(kInitialBuckets);
        if (!m_exitWillFree)
            m_exitWillFree = std::atexit([] { Get().FreeAtExit(); }) == 0;
        (*m_records)[std::this_thread::get_id()] = {exception, ownerHasEnded};
    }

    CXException* Take() noexcept
    {
        const tev::LockGuard guard(m_lock);
        if (m_records == nullptr)
            return nullptr;
        const auto found = m_records->find(std::this_thread::get_id());
        if (found == m_records->end())
            return nullptr;
        CXException* const exception = found->second.exception;
        m_records->erase(found);
        return exception;
    }

    void Forget(const CXException* exception) noexcept
    {
        const tev::LockGuard guard(m_lock);
        if (m_records == nullptr)
            return;
        for (auto it = m_records->begin(); it != m_records->end(); ++it)
        {
            if (it->second.exception == exception)
            {
                m_records->erase(it);
                return;
            }
        }
    }

    // Destructors of static objects throw and delete exceptions too.
    static Registry& Get() noexcept
    {
        static tev::NeverDestroyed<Registry> registry;
        return registry.Get();
    }

private:
    using Map = std::unordered_map<std::thread::id, Record>;

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
            left.emplace_back(it->second.exception);
            it = m_records->erase(it);
        }
        if (m_records->empty())
            m_records.reset();
    }

    tev::LibraryLock m_lock;
    std::unique_ptr<Map> m_records X_GUARDED_BY(m_lock);
    bool m_exitWillFree X_GUARDED_BY(m_lock) = false;
};

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
        const OwnedException leftBehind(Registry::Get().Take());
        t_state = ThreadState::Running;
    }
    ~Sentinel()
    {
        t_state = ThreadState::Ended;
        const OwnedException pending(Registry::Get().Take());
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

void tev::ForgetException(const CXException* exception) noexcept
{
    Registry::Get().Forget(exception);
}
