#include "threads/CXThread.h"

#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/ThreadException.h"
#include "platform/Threads.h"
#include "threads/MainThread.h"
#include "threads/ThreadRelations.h"

#include <new>

namespace platform = tev::platform;
using platform::StartedThread;

X_IMPLEMENT_ABSTRACT_CLASS(CXThread, CXObject, xSchemaNotSerializable)

struct CXThread::Shared
{
    explicit Shared(CXThread* owner) : object(owner) {}

    CXCriticalSection lock;
    CXThread* object X_GUARDED_BY(lock); ///< null once it is destroyed
};

/// What the new thread needs; the thread owns it.
struct CXThread::Body
{
    static unsigned RunIt(void* body) noexcept { return StaticThreadCallback(body) ? 0 : kFailed; }
    static void DiscardIt(void* body) noexcept { delete static_cast<Body*>(body); }

    static constexpr unsigned kFailed = 0xFFFFFFFFu;

    CXThread* object;
    bool (*function)(void*);
    void* data;
    std::shared_ptr<Shared> shared;
};

namespace
{
StartedThread* ThreadOf(void* handle) noexcept
{
    return static_cast<StartedThread*>(handle);
}

int LevelOf(xThreadPriority priority) noexcept
{
    switch (priority)
    {
    case xThreadPriorityLowest:
        return -2;
    case xThreadPriorityBelowNormal:
        return -1;
    case xThreadPriorityAboveNormal:
        return 1;
    case xThreadPriorityHighest:
        return 2;
    default:
        return 0;
    }
}

} // namespace

CXThread::CXThread(bool withoutAutoDelete)
    : m_function(nullptr),
      m_userData(nullptr),
      m_shared(std::make_shared<Shared>(this)),
      m_flags(withoutAutoDelete ? 0u : unsigned{ThreadAutoDelete})
{
}

CXThread::CXThread(bool (*function)(void*), void* data)
    : m_function(function), m_userData(data), m_shared(std::make_shared<Shared>(this)), m_flags(0)
{
}

// An object that never started has the identifier 0, so its destructor removes the marks of the calling thread. Programs
// rely on it.
CXThread::~CXThread()
{
    const unsigned __int64 id = m_threadId.exchange(0);
    SetSilentThread(false, id);
    SetCancelThread(false, id);
    DetachThread(id);
    StartedThread* const thread = ThreadOf(m_handle.exchange(nullptr));
    ReleaseLockOfEnded(thread);
    {
        const tev::LockGuard guard(m_shared->lock);
        m_shared->object = nullptr;
    }
    if (thread != nullptr)
    {
        platform::LeaveStart(thread);
        platform::ReleaseThread(thread);
    }
}

CXThread* CXThread::BeginThread(CXThread* thread, xThreadPriority priority, unsigned int flags,
                                unsigned __int64 stackSize)
{
    if (thread == nullptr || thread->IsValidThread())
        return nullptr;
    thread->SetAutoDelete((flags & kBeginWithoutAutoDelete) == 0);
    const bool begun = thread->Begin(priority, flags, stackSize);
    XDeleteThreadException();
    if (begun)
        return thread;
    delete thread;
    return nullptr;
}

CXThread* CXThread::BeginThread(bool (*function)(void*), void* data, xThreadPriority priority, unsigned int flags,
                                unsigned __int64 stackSize)
{
    CXThread* thread;
    try
    {
        thread = new CXThread(function, data);
    }
    catch (CXMemoryException* exception) // where crashes are reported
    {
        exception->Delete();
        return nullptr;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
    return BeginThread(thread, priority, flags, stackSize);
}

CXThread* CXThread::BeginThread(const CXRuntimeClass* type, void* data, xThreadPriority priority, unsigned int flags,
                                unsigned __int64 stackSize)
{
    std::unique_ptr<CXObject> object(type == nullptr ? nullptr : type->CreateObject());
    if (!IsKindOf(object.get(), GetThisRuntimeClassDescriptor()))
        return nullptr;
    auto* const thread = static_cast<CXThread*>(object.release());
    thread->m_userData = data;
    return BeginThread(thread, priority, flags, stackSize);
}

// Once another thread can see the handle it may resume the thread, and the thread may delete the object.
bool CXThread::Begin(xThreadPriority priority, unsigned int flags, unsigned __int64 stackSize)
{
    const bool suspended = (flags & kBeginSuspended) != 0;
    m_state.store(suspended ? kRunning | kSuspended : kRunning);
    auto* const body = new (std::nothrow) Body{this, m_function, m_userData, m_shared};
    StartedThread* const thread = body == nullptr
                                      ? nullptr
                                      : platform::StartThread({&Body::RunIt, &Body::DiscardIt}, body,
                                                              static_cast<std::size_t>(stackSize & 0xFFFFFFFFu));
    if (thread == nullptr)
    {
        delete body;
        m_state.store(0);
        return false;
    }
    m_threadId.store(platform::ThreadId(thread));
    m_priority.store(platform::SetThreadPriority(thread, LevelOf(priority)) ? priority : xThreadPriority{});
    platform::RetainThread(thread);
    m_handle.store(thread);
    if (!suspended)
        platform::ResumeThread(thread);
    platform::ReleaseThread(thread);
    return true;
}

bool CXThread::StaticThreadCallback(void* body)
{
    const Body& mine = *static_cast<Body*>(body);
    Shared& shared = *mine.shared;
    {
        const tev::LockGuard guard(shared.lock);
        if (shared.object == nullptr)
            return false;
    }
    bool succeeded = false;
    try
    {
        succeeded = mine.function != nullptr ? mine.function(mine.data) : mine.object->RunMethods();
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (...)
    {
    }
    XDeleteThreadException();

    CXThread* toDelete = nullptr;
    {
        const tev::LockGuard guard(shared.lock);
        if (CXThread* const object = shared.object)
        {
            object->m_state.fetch_and(~kRunning);
            const unsigned flags = object->m_flags.fetch_or(ThreadTerminated);
            toDelete = (flags & ThreadAutoDelete) != 0 ? object : nullptr;
        }
    }
    delete toDelete;
    return succeeded;
}

bool CXThread::RunMethods()
{
    const bool succeeded = Start() && Run();
    Finish();
    return succeeded;
}

bool CXThread::Kill()
{
    bool killed = false;
    if (StartedThread* const thread = ThreadOf(m_handle.load()))
    {
        m_state.fetch_or(kSuspended);
        killed = platform::KillThread(thread, 1);
        ReleaseLockOfEnded(thread);
    }
    // A thread that could not be killed may never release the lock.
    CXCriticalSection& lock = m_shared->lock;
    if (lock.TryLock())
    {
        m_flags.fetch_or(ThreadTerminated);
        lock.Unlock();
    }
    else
    {
        m_flags.fetch_or(ThreadTerminated);
    }
    return killed;
}

void CXThread::ReleaseLockOfEnded(const StartedThread* thread)
{
    unsigned exitCode;
    if (thread != nullptr && platform::HasEnded(thread, exitCode))
        m_shared->lock.ReleaseForEnded(platform::ThreadNumber(thread));
}

bool CXThread::GetExitCode(unsigned int& exitCode) const
{
    const StartedThread* const thread = ThreadOf(m_handle.load());
    return thread != nullptr && platform::HasEnded(thread, exitCode);
}

bool CXThread::WaitForEnd(unsigned int timeoutMs) const
{
    const StartedThread* const thread = ThreadOf(m_handle.load());
    return thread != nullptr && platform::WaitForThread(thread, timeoutMs);
}

void CXThread::SetAutoDelete(bool autoDelete)
{
    SetFlag(ThreadAutoDelete, autoDelete);
}

void CXThread::SetCancel()
{
    SetFlag(ThreadCancel, true);
}

bool CXThread::SetThreadPriority(xThreadPriority priority)
{
    StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return false;
    const bool applied = platform::SetThreadPriority(thread, LevelOf(priority));
    m_priority.store(applied ? priority : xThreadPriority{});
    return applied;
}

bool CXThread::ResumeThread()
{
    StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return false;
    // The resumed thread may end and delete the object before this function returns.
    const unsigned before = m_state.fetch_and(~kSuspended);
    if (platform::ResumeThread(thread))
        return true;
    m_state.fetch_or(before & kSuspended);
    return false;
}

bool CXThread::SuspendThread()
{
    StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return false;
    m_state.fetch_or(kSuspended);
    platform::SuspendThread(thread);
    return true;
}

// The lock is taken by one call and released by another.
bool CXThread::Lock(bool lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    return lock ? m_shared->lock.Lock() : m_shared->lock.Unlock();
}

void CXThread::SleepCurrentThread(unsigned int milliseconds)
{
    platform::SleepThisThread(milliseconds);
}

unsigned __int64 CXThread::GetMainThreadID()
{
    return tev::MainThreadId();
}

unsigned __int64 CXThread::GetCurrentThreadID()
{
    return platform::CurrentThreadId();
}

bool CXThread::Start()
{
    return true;
}

void CXThread::Finish() {}

bool CXThread::Run()
{
    return false;
}

bool CXThread::AutoDelete()
{
    if (!IsFlagSet(ThreadAutoDelete))
        return false;
    delete this;
    return true;
}

void CXThread::SetFlag(ThreadFlags flag, bool set)
{
    const tev::LockGuard guard(m_shared->lock);
    if (set)
        m_flags.fetch_or(flag);
    else
        m_flags.fetch_and(~static_cast<unsigned>(flag));
}

bool CXThread::IsFlagSet(ThreadFlags flag) const
{
    const tev::LockGuard guard(m_shared->lock);
    return (m_flags.load() & flag) != 0;
}
