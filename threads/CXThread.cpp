#include "threads/CXThread.h"

#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "objects/ThreadStatus.h"
#include "platform/AddressWait.h"
#include "platform/ForcedUnwind.h"
#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"
#include "platform/Threads.h"
#include "threads/MainThread.h"
#include "threads/SharedThread.h"
#include "threads/ThreadRelations.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <new>
#include <utility>

namespace platform = tev::platform;
using platform::StartedThread;
using tev::SharedThread;
using tev::ThreadObjects;

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXThread, CXObject, xSchemaNotSerializable)

namespace
{
constexpr unsigned kBetweenStepsMs = 10;

constexpr std::chrono::milliseconds kLockOfLostTime{100};
constexpr std::chrono::microseconds kBetweenTries{50};

std::atomic<CXThread::WaitStep> g_waitStep{nullptr};

bool WaitInSteps(const StartedThread& thread, unsigned timeoutMs) noexcept
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    unsigned leftMs = timeoutMs;
    while (const CXThread::WaitStep step = g_waitStep.load())
    {
        const unsigned waitMs = std::min(leftMs, kBetweenStepsMs);
        if (platform::WaitForThread(&thread, waitMs))
            return true;
        if (waitMs == leftMs)
            return false;
        step();
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        leftMs = left <= 0 ? 0 : static_cast<unsigned>(left);
    }
    return platform::WaitForThread(&thread, leftMs);
}
} // namespace

/// What the new thread needs; the thread owns it.
struct CXThread::Body
{
    class End;

    static unsigned RunIt(void* body) { return StaticThreadCallback(body) ? 0 : kFailed; }
    // On the thread itself, or on the one that killed it.
    static void DiscardIt(void* body) noexcept
    {
        auto* const mine = static_cast<Body*>(body);
        if (tev::StatusOfThisThread() == mine->shared.get())
            tev::SetStatusOfThisThread(nullptr);
        delete mine;
    }
    bool Run() const;

    // The objects on the stack of a thread that is being killed are not destroyed, and their own threads must not find them.
    static void PartFromKilled(const void* low, const void* high) noexcept;
    static void LoseObject(SharedThread& shared) noexcept;
    static const platform::KilledStackHook s_hook;

    static constexpr unsigned kFailed = 0xFFFFFFFFu;

    CXThread* object;
    bool (*function)(void*);
    void* data;
    std::shared_ptr<SharedThread> shared;
};

namespace
{
constexpr const char* kBegin = "CXThread::BeginThread";

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

/// The end of the body, also of one that the system unwinds (pthread_exit, cancellation).
class CXThread::Body::End
{
public:
    explicit End(SharedThread& shared) noexcept : m_shared(shared) {}
    ~End()
    {
        XDeleteThreadException();
        CXThread* toDelete = nullptr;
        {
            const tev::LockGuard guard(m_shared.lock);
            if (CXThread* const ended = m_shared.object.load())
            {
                ended->m_state.fetch_and(~kRunning);
                const unsigned flags = ended->m_flags.fetch_or(ThreadTerminated);
                toDelete = (flags & ThreadAutoDelete) != 0 ? ended : nullptr;
            }
        }
        delete toDelete;
    }
    End(const End&) = delete;
    End& operator=(const End&) = delete;

private:
    SharedThread& m_shared;
};

CXThread::CXThread(bool withoutAutoDelete)
    : m_function(nullptr),
      m_userData(nullptr),
      m_shared(std::make_shared<SharedThread>(this)),
      m_flags(withoutAutoDelete ? 0u : unsigned{ThreadAutoDelete})
{
    ThreadObjects::Enlist(*m_shared);
}

CXThread::CXThread(bool (*function)(void*), void* data)
    : m_function(function), m_userData(data), m_shared(std::make_shared<SharedThread>(this)), m_flags(0)
{
    ThreadObjects::Enlist(*m_shared);
}

// An object that never started has the identifier 0, so its destructor removes the marks of the calling thread. Programs
// rely on it.
CXThread::~CXThread()
{
    const unsigned __int64 id = GetThreadID();
    SetSilentThread(false, id);
    SetCancelThread(false, id);
    DetachThread(id);
    ThreadObjects::Delist(*m_shared);
    ReleaseLockOfEnded();
    PartFromThread(); // which may hold the lock
    {
        const tev::LockGuard guard(m_shared->lock);
        m_shared->object.store(nullptr);
    }
    CXException::Delete(TakeException());
    if (StartedThread* const thread = ThreadOf(m_handle.exchange(nullptr)))
        platform::ReleaseThread(thread);
}

void CXThread::PartFromThread() noexcept
{
    m_flags.fetch_and(~unsigned{ThreadAutoDelete});
    if (m_function == nullptr || (m_state.load() & kSuspended) != 0)
        m_shared->isNeverToRun.store(true);
    StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return;
    if (m_function != nullptr)
        platform::ContinueThread(thread);
    else
        platform::LeaveStart(thread);
}

const platform::KilledStackHook CXThread::Body::s_hook(&PartFromKilled);

void CXThread::Body::PartFromKilled(const void* low, const void* high) noexcept
{
    SharedThread* shared = ThreadObjects::TakeOutWithin(low, high);
    while (shared != nullptr)
    {
        SharedThread& current = *std::exchange(shared, shared->next);
        current.object.load()->PartFromThread();
        LoseObject(current);
    }
}

// Under the lock, because the object's thread may be at its end and use the object. That is a short stretch: another thread that
// has the lock for longer keeps the end from coming.
void CXThread::Body::LoseObject(SharedThread& shared) noexcept X_NO_THREAD_SAFETY_ANALYSIS
{
    static const std::atomic<std::uint32_t> never{0};
    CXCriticalSection& lock = shared.lock;
    lock.ReleaseForEnded(platform::NumberOfThisThread());
    const auto end = std::chrono::steady_clock::now() + kLockOfLostTime;
    bool isLocked = lock.TryLock();
    while (!isLocked && std::chrono::steady_clock::now() < end)
    {
        platform::WaitWhile(never, 0, kBetweenTries);
        isLocked = lock.TryLock();
    }
    shared.object.store(nullptr);
    if (isLocked)
        lock.Unlock();
}

CXThread* CXThread::BeginThread(CXThread* thread, xThreadPriority priority, unsigned int flags,
                                unsigned __int64 stackSize)
{
    if (thread == nullptr)
    {
        tev::NoteBadArgument(kBegin);
        return nullptr;
    }
    // Looked at first: what ends only now ends under another call's eyes.
    const bool hasEnded = thread->HasEnded() &&
                          (thread->m_isEndKnown.load() || thread->m_starter.load() == platform::NumberOfThisThread());
    if (thread->m_isClaimed.exchange(true))
    {
        XDeleteThreadException();
        if (hasEnded)
            delete thread;
        tev::NoteBadArgument(kBegin);
        return nullptr;
    }
    thread->m_starter.store(platform::NumberOfThisThread());
    thread->SetAutoDelete((flags & kBeginWithoutAutoDelete) == 0);
    const bool begun = thread->Begin(priority, flags, stackSize);
    XDeleteThreadException();
    if (begun)
        return thread;
    tev::NoteSystemError(kBegin, tev::platform::kNoMoreThreads);
    delete thread;
    return nullptr;
}

CXThread* CXThread::BeginThread(bool (*function)(void*), void* data, xThreadPriority priority, unsigned int flags,
                                unsigned __int64 stackSize)
{
    CXThread* const none = nullptr;
    CXThread* const thread = tev::ResultOrNote(kBegin, nullptr, none, [&] { return new CXThread(function, data); });
    return thread == nullptr ? nullptr : BeginThread(thread, priority, flags, stackSize);
}

CXThread* CXThread::BeginThread(const CXRuntimeClass* type, void* data, xThreadPriority priority, unsigned int flags,
                                unsigned __int64 stackSize)
{
    std::unique_ptr<CXObject> object(type == nullptr ? nullptr : type->CreateObject());
    if (!IsKindOf(object.get(), GetThisRuntimeClassDescriptor()))
    {
        if (type == nullptr || object != nullptr) // else the class has said why
            tev::NoteBadArgument(kBegin);
        return nullptr;
    }
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
    StartedThread* const thread =
        body == nullptr
            ? nullptr
            : platform::StartThread({&Body::RunIt, &Body::DiscardIt}, body,
                                    static_cast<std::size_t>(stackSize & 0xFFFFFFFFu), platform::ThreadOwner::Program);
    if (thread == nullptr)
    {
        delete body;
        m_state.store(0);
        return false;
    }
    m_shared->SetThreadId(platform::ThreadId(thread));
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
    // The lock may be held by another thread, which holds up the end only.
    if (mine.shared->isNeverToRun.load())
        return false;
    tev::SetStatusOfThisThread(mine.shared.get());
    const Body::End end(*mine.shared);
    return mine.Run();
}

bool CXThread::Body::Run() const
{
    try
    {
        return function != nullptr ? function(data) : object->RunMethods();
    }
    catch (const platform::ForcedUnwind&)
    {
        throw;
    }
    catch (CXException* exception)
    {
        shared->exception.store(XKeepException(exception));
    }
    catch (...)
    {
    }
    return false;
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
    SetEndReason(kToBeKilled, true);
    if (StartedThread* const thread = ThreadOf(m_handle.load()))
    {
        m_state.fetch_or(kSuspended);
        killed = platform::KillThread(thread, 1);
        if (HasSystemThreadEnded())
            m_state.fetch_and(~kRunning);
        ReleaseLockOfEnded();
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

void CXThread::ReleaseLockOfEnded() const
{
    if (HasSystemThreadEnded())
        m_shared->lock.ReleaseForEnded(platform::ThreadNumber(ThreadOf(m_handle.load())));
}

bool CXThread::HasSystemThreadEnded() const noexcept
{
    unsigned exitCode;
    const StartedThread* const thread = ThreadOf(m_handle.load());
    return thread != nullptr && platform::HasEnded(thread, exitCode);
}

bool CXThread::HasOnStack(const void* object) const noexcept
{
    const StartedThread* const thread = ThreadOf(m_handle.load());
    return thread != nullptr && platform::IsOnStackOf(thread, object);
}

bool CXThread::HasEnded() const noexcept
{
    return HasSystemThreadEnded() || ((m_flags.load() & ThreadTerminated) != 0 && (m_state.load() & kRunning) == 0);
}

bool CXThread::IsTerminated() const
{
    if (!HasSystemThreadEnded() && !IsFlagSet(ThreadTerminated))
        return false;
    m_isEndKnown.store(true);
    return true;
}

unsigned __int64 CXThread::GetThreadID() const noexcept
{
    const StartedThread* const thread = ThreadOf(m_handle.load());
    return thread == nullptr ? 0 : platform::ThreadId(thread);
}

bool CXThread::GetExitCode(unsigned int& exitCode) const
{
    const StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr || !platform::HasEnded(thread, exitCode))
        return false;
    m_isEndKnown.store(true);
    return true;
}

CXThread::WaitStep CXThread::SetWaitStep(WaitStep step) noexcept
{
    return g_waitStep.exchange(step);
}

CXThread::WaitStep CXThread::GetWaitStep() noexcept
{
    return g_waitStep.load();
}

bool CXThread::WaitForEnd(unsigned int timeoutMs) const
{
    const StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return tev::NoteBadArgument("CXThread::WaitForEnd");
    if (!WaitInSteps(*thread, timeoutMs))
        return tev::NoteSystemError("CXThread::WaitForEnd", platform::kTimedOut);
    m_isEndKnown.store(true);
    return true;
}

CXException* CXThread::TakeException()
{
    return m_shared->exception.exchange(nullptr);
}

void CXThread::SetEndReason(EndReason reason, bool set)
{
    if (set)
    {
        m_shared->endReasons.fetch_or(reason);
        tev::NoteEndingChange();
    }
    else
    {
        m_shared->endReasons.fetch_and(~static_cast<unsigned>(reason));
    }
}

bool CXThread::HasEndReason(EndReason reason) const noexcept
{
    return (m_shared->endReasons.load() & reason) != 0;
}

void CXThread::ObeyToo(const std::atomic<bool>& stopOfAll) noexcept
{
    m_shared->stopOfAll.store(&stopOfAll);
}

const char* CXThread::LongOperation() const noexcept
{
    return m_shared->Operation();
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
        return tev::NoteBadArgument("CXThread::SetThreadPriority");
    const bool applied = platform::SetThreadPriority(thread, LevelOf(priority));
    if (!applied)
        tev::NoteLastError("CXThread::SetThreadPriority");
    m_priority.store(applied ? priority : xThreadPriority{});
    return applied;
}

bool CXThread::ResumeThread()
{
    StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return tev::NoteBadArgument("CXThread::ResumeThread");
    // The resumed thread may end and delete the object before this function returns.
    const unsigned before = m_state.fetch_and(~kSuspended);
    if (platform::ResumeThread(thread))
        return true;
    m_state.fetch_or(before & kSuspended);
    return tev::NoteBadArgument("CXThread::ResumeThread"); // of a thread that has ended
}

bool CXThread::SuspendThread()
{
    StartedThread* const thread = ThreadOf(m_handle.load());
    if (thread == nullptr)
        return tev::NoteBadArgument("CXThread::SuspendThread");
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
    ReleaseLockOfEnded();
    const tev::LockGuard guard(m_shared->lock);
    if (set)
        m_flags.fetch_or(flag);
    else
        m_flags.fetch_and(~static_cast<unsigned>(flag));
    if (flag == ThreadCancel)
        SetEndReason(kCancelled, set);
}

bool CXThread::IsFlagSet(ThreadFlags flag) const
{
    ReleaseLockOfEnded();
    const tev::LockGuard guard(m_shared->lock);
    return (m_flags.load() & flag) != 0;
}
