#pragma once

#include "settings/CCustomData.h"

#include <functional>
#include <memory>

namespace tev
{
class StoreListener;
}

/// A change of a store: of one value, or of the store as a whole.
struct CXDataChange
{
    enum What : int
    {
        kSet,     ///< the value is new, or another one
        kRemoved, ///< the value is gone
        kReplaced ///< the store was assigned to, loaded, attached or emptied: any value may have changed
    };

    const CCustomData* m_store;
    unsigned int m_id; ///< 0 where the whole store has changed
    What m_what;
};

/// Has a function called when a store changes, from its construction until Stop or its destruction.
///
/// The function is called on the thread that made the change, before the call that made it returns, and when that thread
/// holds no lock of a store or any other of the library: one that holds the lock of a store (GetThreadLock) over several
/// changes gets them reported when it releases it. Setting a value to what it is reports nothing; nor does writing through a
/// pointer into the store. ChangeID reports two changes. Where there is no memory, kReplaced takes the place of what cannot
/// be recorded.
///
/// The function may use the store, change it, listen to it and stop listening. Changes that it makes are reported when
/// it has returned, so one that changes what it listens to at each call never ends. An exception that leaves it is deleted
/// and written to the log; the change stands and other listeners are called. It must not end its thread. One function is
/// called by one thread at a time.
///
/// A copy of a store, and one that it is assigned to, does not take over its listeners. The listener may live on when the
/// store is destroyed. A store without listeners pays nothing.
/// One thread at a time; the store may be used by others meanwhile.
class TEVTOOLS_API CXDataListener
{
public:
    using Function = std::function<void(const CXDataChange& change)>;

    /// Listens to nothing.
    CXDataListener() noexcept;
    /// Throws std::bad_alloc.
    CXDataListener(const CCustomData& store, Function function);
    CXDataListener(CXDataListener&& other) noexcept;
    /// Stops, and goes on as the other one.
    CXDataListener& operator=(CXDataListener&& other) noexcept;
    ~CXDataListener();

    /// When it returns, the function is not running and is not called again; so it waits where another thread is in the
    /// function, and its caller must not hold what that thread waits for. Called by the function itself it does not wait.
    void Stop() noexcept;

private:
    std::shared_ptr<tev::StoreListener> m_listener;
};
