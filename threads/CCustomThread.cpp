#include "threads/CCustomThread.h"

#include "base/NeverDestroyed.h"
#include "maps/CHashTable.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
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

    tev::LibraryLock lock;
    CHashTable<CCustomThread*> set X_GUARDED_BY(lock);
};

const platform::ForkHandler g_forkOfWorkers(platform::ForkRank::LiveThreads, &Workers::BeforeFork, &Workers::InParent,
                                            &Workers::InChild);

void StopWorkers(bool stop) noexcept
{
    g_stopThreads.store(stop);
    if (stop)
        tev::NoteEndingChange();
}

void Register(CCustomThread* thread)
{
    Workers& workers = Workers::Get();
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
    const tev::LockGuard guard(workers.lock);
    workers.set.Remove(this);
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
    const tev::LockGuard guard(all.lock);
    unsigned position = all.set.GetFirst();
    CCustomThread* worker = nullptr;
    while (all.set.GetNext(position, worker))
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
    const tev::LockGuard guard(workers.lock);
    unsigned position = workers.set.GetFirst();
    CCustomThread* thread = nullptr;
    while (workers.set.GetNext(position, thread))
    {
        if (const unsigned __int64 id = thread->GetThreadID())
            SetCancelThread(true, id);
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

// The lock is held throughout, pauses included, so that no worker is registered or removed meanwhile. The objects' flags
// are read without their locks, which a victim may hold.
bool CCustomThread::HardThreadsTermination(bool onlyKillable)
{
    Workers& workers = Workers::Get();
    const tev::LockGuard guard(workers.lock);
    bool killed = false;
    bool first = true;
    unsigned position = workers.set.GetFirst();
    CCustomThread* thread = nullptr;
    while (workers.set.GetNext(position, thread))
    {
        const unsigned __int64 id = thread->GetThreadID();
        if (id != 0 && id == CXThread::GetCurrentThreadID())
            continue;
        if (!first)
            platform::SleepThisThread(kPauseBetweenKillsMs);
        first = false;
        if (onlyKillable && (thread->m_flags.load() & ThreadHardKillable) == 0)
        {
            unsigned exitCode;
            if (thread->IsValidThread() && !thread->GetExitCode(exitCode))
                thread->m_state.fetch_and(~kSuspended);
            continue;
        }
        workers.set.Remove(thread);
        killed = thread->Kill() || killed;
        if (id != 0)
            killed = KillChildren(id) || killed;
    }
    return killed;
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
