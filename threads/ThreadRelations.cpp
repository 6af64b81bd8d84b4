#include "threads/ThreadRelations.h"

#include "base/NeverDestroyed.h"
#include "maps/CHashMap.h"
#include "maps/CHashTable.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/ThreadStatus.h"
#include "platform/ForkHandlers.h"
#include "platform/Threads.h"
#include "threads/MainThread.h"

namespace
{
using Id = unsigned __int64;

/// The threads with one kind of mark.
class MarkedThreads
{
public:
    /// False where there is no memory.
    [[nodiscard]] bool Mark(bool marked, Id id)
    {
        if (!marked)
        {
            m_ids.Remove(id);
            return true;
        }
        m_everUsed.store(true, std::memory_order_release);
        return m_ids.Insert(id) != 0 || Has(id);
    }

    /// Keeps none of the marks but this one.
    void Reset(bool marked, Id id)
    {
        m_ids.Clear(); // which leaves room, so that this does not fail
        static_cast<void>(Mark(marked, id));
    }

    bool Has(Id id) const { return m_ids.Find(id) != nullptr; }
    /// May be called without the lock.
    bool WasEverUsed() const noexcept { return m_everUsed.load(std::memory_order_acquire); }

private:
    std::atomic<bool> m_everUsed{false};
    CHashTable<Id> m_ids;
};

class Relations
{
public:
    /// False where there is no memory.
    [[nodiscard]] bool Attach(Id child, Id parent)
    {
        const tev::LockGuard guard(m_lock);
        return m_parents.Insert(child, parent) != 0 || m_parents.Find(child) != nullptr;
    }

    void Detach(Id child)
    {
        const tev::LockGuard guard(m_lock);
        m_parents.Remove(child);
    }

    void AddChildren(Id parent, CXArray<Id>& children) const
    {
        const tev::LockGuard guard(m_lock);
        unsigned position = m_parents.GetFirst();
        Id child = 0;
        Id itsParent = 0;
        while (m_parents.GetNext(position, child, itsParent))
        {
            if (itsParent == parent)
                children.Add(child);
        }
    }

    void Mark(MarkedThreads Relations::*marks, bool marked, Id id)
    {
        if (!TryMark(this->*marks, marked, id))
            CXMemoryException::Throw();
    }

    bool IsMarked(const MarkedThreads Relations::*marks, Id id) const
    {
        const MarkedThreads& threads = this->*marks;
        if (!threads.WasEverUsed())
            return false;
        const tev::LockGuard guard(m_lock);
        Id current = Named(id);
        // Threads may be attached in a circle; no chain of ancestors is longer than the map of parents.
        for (unsigned generations = m_parents.GetCount() + 1; generations > 0; --generations)
        {
            if (threads.Has(current))
                return true;
            const Id* const parent = m_parents.Find(current);
            if (parent == nullptr)
                return false;
            current = *parent;
        }
        return false;
    }

    static void BeforeFork() X_NO_THREAD_SAFETY_ANALYSIS
    {
        Relations& relations = Get();
        relations.m_lock.Lock();
        relations.m_forking = tev::platform::CurrentThreadId();
    }
    static void InParent() X_NO_THREAD_SAFETY_ANALYSIS { Get().m_lock.Unlock(); }
    // The child's only thread has another identifier than the one that forked, and keeps its marks. Other identifiers mean
    // nothing there.
    static void InChild() X_NO_THREAD_SAFETY_ANALYSIS
    {
        Relations& relations = Get();
        const Id old = relations.m_forking;
        const Id own = tev::platform::CurrentThreadId();
        if (tev::ThreadStatus* const status = tev::StatusOfThisThread())
            status->SetThreadId(own);
        const bool isCancelled = relations.IsMarked(&Relations::m_cancelled, old);
        const bool isSilent = relations.IsMarked(&Relations::m_silent, old);
        relations.m_parents.Free();
        relations.m_cancelled.Reset(isCancelled, own);
        relations.m_silent.Reset(isSilent, own);
        if (tev::MainThreadId() != 0)
            tev::SetMainThreadId(own);
        relations.m_lock.Unlock();
    }

    static Relations& Get()
    {
        static tev::NeverDestroyed<Relations> relations;
        return relations.Get();
    }

    MarkedThreads m_cancelled;
    MarkedThreads m_silent;

private:
    bool TryMark(MarkedThreads& threads, bool marked, Id id)
    {
        if (!marked && !threads.WasEverUsed())
            return true;
        const tev::LockGuard guard(m_lock);
        return threads.Mark(marked, Named(id));
    }

    static Id Named(Id id) noexcept { return id == 0 ? tev::IdOfThisThreadsWork() : id; }

    mutable tev::LibraryLock m_lock;
    CHashMap<Id, Id, Id> m_parents X_GUARDED_BY(m_lock);
    Id m_forking X_GUARDED_BY(m_lock) = 0; ///< the thread that forks
};

const tev::platform::ForkHandler g_forkOfRelations(tev::platform::ForkRank::ThreadRelations, &Relations::BeforeFork,
                                                   &Relations::InParent, &Relations::InChild);
} // namespace

void AttachThread(unsigned __int64 child, unsigned __int64 parent)
{
    if (child == parent)
        return;
    if (!Relations::Get().Attach(child, parent))
        CXMemoryException::Throw();
    tev::NoteEndingChange();
}

void DetachThread(unsigned __int64 child)
{
    Relations::Get().Detach(child);
}

unsigned int GetChildThreads(unsigned __int64 parent, CXArray<unsigned __int64>& children)
{
    children.RemoveAll();
    Relations::Get().AddChildren(parent, children);
    return static_cast<unsigned>(children.GetSize());
}

void SetCancelThread(bool cancel, unsigned __int64 id)
{
    Relations::Get().Mark(&Relations::m_cancelled, cancel, id);
    if (!cancel)
        return;
    tev::SetCancelQuery([](std::uint64_t thread) { return ShouldCancelThread(thread); });
    tev::NoteEndingChange();
}

bool ShouldCancelThread(unsigned __int64 id)
{
    return Relations::Get().IsMarked(&Relations::m_cancelled, id);
}

void SetSilentThread(bool silent, unsigned __int64 id)
{
    Relations::Get().Mark(&Relations::m_silent, silent, id);
}

bool IsSilentThread(unsigned __int64 id)
{
    return Relations::Get().IsMarked(&Relations::m_silent, id);
}
