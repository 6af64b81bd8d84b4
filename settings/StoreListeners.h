#pragma once

#include "settings/CXDataListener.h"

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

// Who listens to a store, and what is still to be reported to them.

namespace tev
{
struct StoreListeners;

class StoreListener
{
public:
    explicit StoreListener(CXDataListener::Function function) : m_function(std::move(function)) {}

    void Call(const CXDataChange& change) noexcept;
    void Stop() noexcept;

    std::weak_ptr<StoreListeners> m_owner;

private:
    CXCriticalSection m_lock; ///< held while the function is called
    CXDataListener::Function m_function X_GUARDED_BY(m_lock);
    bool m_isStopped X_GUARDED_BY(m_lock) = false;
    /// The thread that is in the function; in a forked child it may be one that the child lacks.
    unsigned m_caller X_GUARDED_BY(m_lock) = 0;
};

/// A change that a thread has made and not reported yet.
struct PendingChange
{
    std::shared_ptr<StoreListeners> m_listeners;
    CXDataChange m_change;
    PendingChange* m_next;
};

/// Of one store; exists from its first listener on.
struct StoreListeners : std::enable_shared_from_this<StoreListeners>
{
    using List = std::vector<std::shared_ptr<StoreListener>>;

    explicit StoreListeners(const CCustomData& store) : m_store(&store) {}

    void Add(const std::shared_ptr<StoreListener>& listener);
    void Remove(const StoreListener* listener) noexcept;
    /// The store is destroyed: nothing is reported any more.
    void Forget() noexcept;
    /// To be reported when the calling thread holds no lock of the library.
    void Record(const CXDataChange& change) noexcept;

    ObjectLock m_lock;
    std::shared_ptr<const List> m_list X_GUARDED_BY(m_lock); ///< never changed, only replaced
    const CCustomData* m_store X_GUARDED_BY(m_lock);         ///< null when it is destroyed
    /// For a thread that has no memory for another.
    PendingChange m_reserve{};
    std::atomic<bool> m_isReserveUsed{false};
};
} // namespace tev
