#pragma once

#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/ThreadStatus.h"

#include <atomic>

class CXThread;

namespace tev
{
/// What a thread object and its thread share; either may exist longer.
struct SharedThread final : ThreadStatus
{
    explicit SharedThread(CXThread* owner) : object(owner) {}
    ~SharedThread() override { CXException::Delete(exception.load()); }

    bool IsAskedToEnd() const noexcept override
    {
        const std::atomic<bool>* const all = stopOfAll.load();
        return endReasons.load() != 0 || (all != nullptr && all->load()) || IsThreadCancelled(ThreadId());
    }

    CXCriticalSection lock;
    std::atomic<CXThread*> object; ///< null once it is destroyed; changed under the lock
    std::atomic<unsigned> endReasons{0};
    std::atomic<const std::atomic<bool>*> stopOfAll{nullptr};
    std::atomic<CXException*> exception{nullptr}; ///< what ended the body
    std::atomic<bool> isNeverToRun{false};        ///< the object was deleted while the thread waited at its start

    // In the list of all that have an object.
    SharedThread* previous = nullptr;
    SharedThread* next = nullptr;
    bool isListed = false;
};

/// The threads that have an object, for those objects that lie on the stack of a thread that is killed.
/// Safe from several threads at once.
struct ThreadObjects
{
    static void Enlist(SharedThread& shared) noexcept;
    static void Delist(SharedThread& shared) noexcept;
    /// Takes those out whose objects lie within the bounds, and returns them linked by `next`.
    static SharedThread* TakeOutWithin(const void* low, const void* high) noexcept;
};
} // namespace tev
