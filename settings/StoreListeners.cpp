#include "settings/StoreListeners.h"

#include "objects/CXException.h"
#include "objects/ThreadException.h"
#include "objects/ThreadUse.h"
#include "platform/Cancellation.h"
#include "platform/ThreadLocks.h"
#include "services/LogFile.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace
{
using tev::LockGuard;
using tev::PendingChange;
namespace platform = tev::platform;

/// What the calling thread has still to report, the oldest first.
struct Reports
{
    PendingChange* m_first = nullptr;
    PendingChange** m_end = nullptr; ///< null where there is none
    bool m_areMade = false;
};
thread_local Reports t_reports;

void Append(PendingChange& change) noexcept
{
    change.m_next = nullptr;
    *(t_reports.m_first == nullptr ? &t_reports.m_first : t_reports.m_end) = &change;
    t_reports.m_end = &change.m_next;
}

void Release(PendingChange& change) noexcept
{
    // The reserve belongs to the listeners, which may be released here.
    const std::shared_ptr<tev::StoreListeners> listeners = std::move(change.m_listeners);
    if (&change == &listeners->m_reserve)
        listeners->m_isReserveUsed.store(false, std::memory_order_release);
    else
        delete &change;
}

void ReportTo(tev::StoreListeners& listeners, const CXDataChange& change) noexcept
{
    std::shared_ptr<const tev::StoreListeners::List> list;
    {
        const LockGuard lock(listeners.m_lock);
        if (listeners.m_store != nullptr)
            list = listeners.m_list;
    }
    if (list == nullptr)
        return;
    for (const auto& listener : *list)
        listener->Call(change);
}

/// A change that a listener makes is appended, and reported by the call that is under way.
void ReportChanges() noexcept
{
    if (t_reports.m_areMade)
        return;
    const platform::WithoutCancellation whole;
    t_reports.m_areMade = true;
    while (t_reports.m_first != nullptr)
    {
        PendingChange& change = *t_reports.m_first;
        t_reports.m_first = change.m_next;
        const CXDataChange reported = change.m_change;
        const std::shared_ptr<tev::StoreListeners> listeners = change.m_listeners;
        Release(change);
        ReportTo(*listeners, reported);
    }
    t_reports.m_areMade = false;
}
} // namespace

namespace tev
{
void StoreListener::Call(const CXDataChange& change) noexcept
{
    const LockGuard lock(m_lock);
    if (m_isStopped)
        return;
    m_caller = NumberOfThisThreadsUse();
    try
    {
        m_function(change);
    }
    catch (CXException* exception)
    {
        WriteToLogFile("a function that listens to a store has thrown %s\n",
                       exception->GetRuntimeClassDescriptor()->m_name);
        exception->Delete();
    }
    catch (const std::exception& exception)
    {
        WriteToLogFile("a function that listens to a store has thrown: %s\n", exception.what());
    }
    catch (...)
    {
        WriteToLogFile("a function that listens to a store has thrown\n");
    }
    m_caller = 0;
    if (m_isStopped)
        m_function = nullptr;
}

void StoreListener::Stop() noexcept
{
    {
        const LockGuard lock(m_lock);
        m_isStopped = true;
        if (m_caller != NumberOfThisThreadsUse())
            m_function = nullptr;
    }
    if (const std::shared_ptr<StoreListeners> owner = m_owner.lock())
        owner->Remove(this);
}

void StoreListeners::Add(const std::shared_ptr<StoreListener>& listener)
{
    const LockGuard lock(m_lock);
    auto list = m_list == nullptr ? std::make_shared<List>() : std::make_shared<List>(*m_list);
    list->push_back(listener);
    m_list = std::move(list);
}

// Without memory the listener stays in the list, stopped.
void StoreListeners::Remove(const StoreListener* listener) noexcept
{
    std::shared_ptr<const List> former;
    try
    {
        const LockGuard lock(m_lock);
        auto list = std::make_shared<List>(*m_list);
        list->erase(std::remove_if(list->begin(), list->end(),
                                   [listener](const auto& entry) { return entry.get() == listener; }),
                    list->end());
        former = std::exchange(m_list, std::move(list));
    }
    catch (const std::bad_alloc&)
    {
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
}

void StoreListeners::Forget() noexcept
{
    const LockGuard lock(m_lock);
    m_store = nullptr;
}

void StoreListeners::Record(const CXDataChange& change) noexcept
{
    PendingChange* pending = new (std::nothrow) PendingChange;
    if (pending == nullptr && !m_isReserveUsed.exchange(true, std::memory_order_acquire))
        pending = &m_reserve;
    if (pending == nullptr)
        return; // the reserve is pending, and says that everything has changed
    pending->m_change = change;
    if (pending == &m_reserve)
        pending->m_change = {change.m_store, 0, CXDataChange::kReplaced};
    pending->m_listeners = shared_from_this();
    Append(*pending);
    platform::t_threadLocks.whenFree = &ReportChanges;
}
} // namespace tev

CXDataListener::CXDataListener() noexcept = default;

CXDataListener::CXDataListener(const CCustomData& store, Function function)
    : m_listener(std::make_shared<tev::StoreListener>(std::move(function)))
{
    const std::shared_ptr<tev::StoreListeners> listeners = store.GetListeners();
    m_listener->m_owner = listeners;
    listeners->Add(m_listener);
}

CXDataListener::CXDataListener(CXDataListener&& other) noexcept = default;

CXDataListener& CXDataListener::operator=(CXDataListener&& other) noexcept
{
    if (this != &other)
    {
        Stop();
        m_listener = std::move(other.m_listener);
    }
    return *this;
}

CXDataListener::~CXDataListener()
{
    Stop();
}

void CXDataListener::Stop() noexcept
{
    if (const auto listener = std::exchange(m_listener, nullptr))
        listener->Stop();
}
