#include "threads/SharedThread.h"

#include "objects/HeldOverFork.h"
#include "platform/Threads.h"

#include <utility>

namespace tev
{
namespace
{
LibraryLock g_objectsLock;
SharedThread* g_firstWithObject X_GUARDED_BY(g_objectsLock) = nullptr;

CXCriticalSection& ObjectsLock() noexcept
{
    return g_objectsLock;
}

const HeldOverFork<&ObjectsLock> g_objectsHeldOverFork(platform::ForkRank::ThreadObjects);

void TakeOut(SharedThread& shared) noexcept X_REQUIRES(g_objectsLock);
void TakeOut(SharedThread& shared) noexcept
{
    if (!std::exchange(shared.isListed, false))
        return;
    (shared.previous == nullptr ? g_firstWithObject : shared.previous->next) = shared.next;
    if (shared.next != nullptr)
        shared.next->previous = shared.previous;
}
} // namespace

void ThreadObjects::Enlist(SharedThread& shared) noexcept
{
    const LockGuard guard(g_objectsLock);
    shared.next = g_firstWithObject;
    if (g_firstWithObject != nullptr)
        g_firstWithObject->previous = &shared;
    g_firstWithObject = &shared;
    shared.isListed = true;
}

void ThreadObjects::Delist(SharedThread& shared) noexcept
{
    const LockGuard guard(g_objectsLock);
    TakeOut(shared);
}

SharedThread* ThreadObjects::TakeOutWithin(const void* low, const void* high) noexcept
{
    const LockGuard guard(g_objectsLock);
    SharedThread* found = nullptr;
    SharedThread* next = g_firstWithObject;
    while (SharedThread* const current = next)
    {
        next = current->next;
        if (!platform::IsWithin(current->object.load(), low, high))
            continue;
        TakeOut(*current);
        current->next = std::exchange(found, current);
    }
    return found;
}
} // namespace tev
