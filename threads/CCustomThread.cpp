#include "threads/CCustomThread.h"

#include "base/NeverDestroyed.h"
#include "maps/CHashTable.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "objects/ResultOr.h"
#include "objects/ThreadStatus.h"
#include "platform/ComponentRuntime.h"
#include "platform/ForkHandlers.h"
#include "platform/SystemErrors.h"
#include "platform/Threads.h"
#include "threads/ThreadRelations.h"

#include <algorithm>
#include <chrono>

X_IMPLEMENT_LIBRARY_CLASS(CCustomThread, CXThread, xSchemaNotSerializable)
X_IMPLEMENT_LIBRARY_CLASS(CWinCustomThread, CCustomThread, xSchemaNotSerializable)

namespace
{
namespace platform = tev::platform;
using Clock = std::chrono::steady_clock;

constexpr unsigned kPollMs = 10;
constexpr std::chrono::seconds kFirstReportAfter(1);
constexpr std::chrono::seconds kReportEvery(10);
constexpr unsigned kPauseBetweenKillsMs = 100;
constexpr unsigned kKilledExitCode = 1;

std::atomic<bool> g_stopThreads{false};
std::atomic<CCustomThread::DelayReport> g_delayReport{nullptr};

/// Every CCustomThread object that exists. Its lock is taken before that of the thread relations, never after it.
struct Workers
{
    static Workers& Get()
    {
        static tev::NeverDestroyed<Workers> workers;
        return workers.Get();
    }

    void Remove(CCustomThread* worker)
    {
        const tev::LockGuard guard(lock);
        set.Remove(worker);
    }
    /// The one at the position or behind it, null at the end. Others may be removed between two calls, none be added.
    CCustomThread* Next(unsigned& position)
    {
        const tev::LockGuard guard(lock);
        CCustomThread* worker = nullptr;
        while (position != set.kNoPosition && !set.GetNext(position, worker))
        {
        }
        return worker;
    }
    unsigned First()
    {
        const tev::LockGuard guard(lock);
        return set.GetFirst();
    }
    /// Those that lie on the stack of a thread that is being killed are never destroyed.
    static void RemoveKilled(const void* low, const void* high) noexcept
    {
        Workers& workers = Get();
        const tev::LockGuard guard(workers.lock);
        unsigned position = workers.First();
        while (CCustomThread* const worker = workers.Next(position))
        {
            if (platform::IsWithin(worker, low, high))
                workers.Remove(worker);
        }
    }

    static void BeforeFork() X_NO_THREAD_SAFETY_ANALYSIS { Get().lock.Lock(); }
    static void InParent() X_NO_THREAD_SAFETY_ANALYSIS { Get().lock.Unlock(); }
    // A forked child has no workers, and those that it makes are not asked to end.
    static void InChild() X_NO_THREAD_SAFETY_ANALYSIS
    {
        Workers& workers = Get();
        workers.set.Free();
        g_stopThreads.store(false);
        workers.lock.Unlock();
    }

    /// Held by what adds, deletes and visits workers, and taken before the other one. A termination holds it for seconds: a fork
    /// does not wait for that, because the threads that are to end may have to wait for the fork.
    tev::LibraryLock presence;
    tev::LibraryLock lock;
    CHashTable<CCustomThread*> set X_GUARDED_BY(lock);
};

const platform::ForkHandler g_forkOfWorkers(platform::ForkRank::LiveThreads, &Workers::BeforeFork, &Workers::InParent,
                                            &Workers::InChild);
const platform::KilledStackHook g_killedWorkers(&Workers::RemoveKilled);

void StopWorkers(bool stop) noexcept
{
    g_stopThreads.store(stop);
    if (stop)
        tev::NoteEndingChange();
}

void Register(CCustomThread* thread)
{
    Workers& workers = Workers::Get();
    const tev::LockGuard presence(workers.presence);
    const tev::LockGuard guard(workers.lock);
    if (workers.set.Insert(thread) == 0)
        CXMemoryException::Throw();
}

void ReportDelay()
{
    const CCustomThread::DelayReport report = g_delayReport.load();
    CXArray<CXWorkerState> workers;
    if (report != nullptr && CCustomThread::GetWorkers(workers) != 0)
        report(workers);
}

/// False on time-out. No time-out with null.
bool WaitUntilNoneIsLeft(const Clock::time_point* end, CXThread::WaitStep (*stepOfNow)() noexcept)
{
    Clock::time_point nextReport = Clock::now() + kFirstReportAfter;
    while (CCustomThread::GetRunningThreadCount() != 0)
    {
        if (end == nullptr && Clock::now() >= nextReport)
        {
            ReportDelay();
            nextReport = Clock::now() + kReportEvery;
        }
        unsigned pauseMs = kPollMs;
        if (end != nullptr)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end - Clock::now()).count();
            if (left <= 0)
                return false;
            pauseMs = static_cast<unsigned>(std::min<long long>(left, kPollMs));
        }
        platform::SleepThisThread(pauseMs);
        if (const CXThread::WaitStep step = stepOfNow())
            step();
    }
    return true;
}

bool KillChildren(unsigned __int64 parent)
{
    bool killed = false;
    CXArray<unsigned __int64> children;
    GetChildThreads(parent, children);
    for (int i = 0; i < children.GetSize(); ++i)
    {
        const unsigned __int64 child = children[i];
        if (platform::StartedThread* const thread = platform::OpenThread(child))
        {
            killed = platform::KillThread(thread, kKilledExitCode) || killed;
            platform::ReleaseThread(thread);
        }
        DetachThread(child);
    }
    return killed;
}
} // namespace

CCustomThread::CCustomThread() : CXThread(true)
{
    ObeyToo(g_stopThreads);
    Register(this);
}

CCustomThread::CCustomThread(bool (*function)(void*), void* data) : CXThread(function, data)
{
    ObeyToo(g_stopThreads);
    Register(this);
}

CCustomThread::~CCustomThread()
{
    Workers& workers = Workers::Get();
    const tev::LockGuard presence(workers.presence);
    workers.Remove(this);
}

bool CCustomThread::MustTerminate() const noexcept
{
    return ThreadsMustTerminate() || HasEndReason(kStopped);
}

void CCustomThread::StopThread() noexcept
{
    SetEndReason(kStopped, true);
}

bool CCustomThread::ThreadsMustTerminate() noexcept
{
    return g_stopThreads.load();
}

unsigned int CCustomThread::GetRunningThreadCount()
{
    Workers& workers = Workers::Get();
    const tev::LockGuard guard(workers.lock);
    return workers.set.GetCount();
}

unsigned int CCustomThread::GetWorkers(CXArray<CXWorkerState>& workers)
{
    workers.RemoveAll();
    Workers& all = Workers::Get();
    const tev::LockGuard presence(all.presence);
    unsigned position = all.First();
    while (const CCustomThread* const worker = all.Next(position))
    {
        const bool isRunning = worker->IsValidThread() && !worker->HasEnded();
        workers.Add({worker->GetThreadID(), isRunning, isRunning ? worker->LongOperation() : nullptr});
    }
    return static_cast<unsigned>(workers.GetSize());
}

CCustomThread::DelayReport CCustomThread::SetDelayReport(DelayReport report) noexcept
{
    return g_delayReport.exchange(report);
}

void CCustomThread::AskForThreadsEnd(bool resume)
{
    StopWorkers(true);
    Workers& workers = Workers::Get();
    const tev::LockGuard presence(workers.presence);
    unsigned position = workers.First();
    while (CCustomThread* const thread = workers.Next(position))
    {
        if (const unsigned __int64 id = thread->GetThreadID())
            tev::ResultOr(false, [id] { return SetCancelThread(true, id), true; }); // else its own flags say so
        thread->StopThread();
        if (resume)
            thread->ResumeThread();
    }
}

void CCustomThread::WaitEndOfThreads(bool keepStopFlag)
{
    if (g_stopThreads.exchange(true))
        return;
    AskForThreadsEnd(true);
    WaitUntilNoneIsLeft(nullptr, GetWaitStep);
    if (!keepStopFlag)
        StopWorkers(false);
}

bool CCustomThread::EndThreads(unsigned int timeoutMs)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    AskForThreadsEnd(true);
    if (!WaitUntilNoneIsLeft(&end, GetWaitStep))
    {
        if (timeoutMs != 0)
            ReportDelay();
        return tev::NoteSystemError("CCustomThread::EndThreads", tev::platform::kTimedOut);
    }
    StopWorkers(false);
    return true;
}

/// No worker is added or deleted meanwhile. The objects' flags are read without their locks, which a victim may hold.
class CCustomThread::Termination
{
public:
    Termination(Workers& workers, bool onlyKillable) : m_workers(workers), m_onlyKillable(onlyKillable) {}

    bool KillAll()
    {
        unsigned position = m_workers.First();
        while (CCustomThread* const worker = m_workers.Next(position))
        {
            if (IsOfThisThread(*worker))
                continue;
            if (!m_onlyKillable || (worker->m_flags.load() & ThreadHardKillable) != 0)
                Kill(*worker);
            else
                Spare(*worker);
        }
        return m_hasKilled;
    }

private:
    static bool IsOfThisThread(const CCustomThread& worker)
    {
        const unsigned __int64 id = worker.GetThreadID();
        return id != 0 && id == CXThread::GetCurrentThreadID();
    }

    void Pause()
    {
        if (m_hasBegun)
            platform::SleepThisThread(kPauseBetweenKillsMs);
        m_hasBegun = true;
    }

    void Spare(CCustomThread& worker)
    {
        Pause();
        unsigned exitCode;
        if (worker.IsValidThread() && !worker.GetExitCode(exitCode))
            worker.m_state.fetch_and(~kSuspended);
    }

    /// After the workers whose objects lie on its stack, which would go on without them.
    void Kill(CCustomThread& worker)
    {
        m_workers.Remove(&worker);
        unsigned position = m_workers.First();
        while (CCustomThread* const other = m_workers.Next(position))
        {
            if (worker.HasOnStack(other) && !IsOfThisThread(*other))
                Kill(*other);
        }
        Pause();
        const unsigned __int64 id = worker.GetThreadID();
        m_hasKilled = worker.CXThread::Kill() || m_hasKilled;
        if (id != 0)
            m_hasKilled = KillChildren(id) || m_hasKilled;
    }

    Workers& m_workers;
    const bool m_onlyKillable;
    bool m_hasBegun = false;
    bool m_hasKilled = false;
};

bool CCustomThread::HardThreadsTermination(bool onlyKillable)
{
    Workers& workers = Workers::Get();
    const tev::LockGuard presence(workers.presence);
    return Termination(workers, onlyKillable).KillAll();
}

void CCustomThread::SetThreadName(unsigned __int64, const char*) {}

void CCustomThread::SetCurrentThreadName(const char*) {}

void CCustomThread::SetThreadName(const char*) {}

unsigned __int64 CCustomThread::GetCurrentThreadID()
{
    return CXThread::GetCurrentThreadID();
}

CWinCustomThread::~CWinCustomThread() = default;

bool CWinCustomThread::InitOle(bool enable) const
{
    if (enable == m_oleInitialized)
        return true;
    if (enable)
        m_oleInitialized = tev::platform::BeginComponents();
    else
    {
        tev::platform::EndComponents();
        m_oleInitialized = false;
    }
    return m_oleInitialized == enable;
}

void CWinCustomThread::ExitInstance() {}
