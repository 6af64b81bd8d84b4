#include "crash/CrashRegistry.h"

#include "base/NeverDestroyed.h"
#include "crash/CrashFault.h"
#include "platform/Cancellation.h"
#include "platform/FatalSignals.h"
#include "platform/ForkHandlers.h"
#include "platform/Threads.h"
#include "services/Paths.h"

#include <atomic>
#include <new>

namespace
{
using tev::CrashRegistry;

std::atomic<const void*> g_holder{nullptr};
std::atomic<int> g_reports{0}; ///< that are being made
thread_local bool t_isReporting = false;

// A report may hold the lock for as long as the user is asked: a fork does not wait for that, and the lock of a thread that the
// child does not have is free there.
thread_local bool t_isHeldOverFork = false;

void BeforeFork() X_NO_THREAD_SAFETY_ANALYSIS
{
    const tev::platform::WithoutCancellation whole;
    while (!(t_isHeldOverFork = CrashRegistry::Get().m_lock.TryLock()) && g_reports.load() == 0)
        tev::platform::SleepThisThread(1);
}

void AfterForkInParent() X_NO_THREAD_SAFETY_ANALYSIS
{
    if (t_isHeldOverFork)
        CrashRegistry::Get().m_lock.Unlock();
}

void AfterForkInChild() X_NO_THREAD_SAFETY_ANALYSIS
{
    if (t_isHeldOverFork)
        CrashRegistry::Get().m_lock.Unlock();
    if (!t_isReporting)
    {
        g_holder.store(nullptr);
        g_reports.store(0);
    }
}

const tev::platform::ForkHandler g_forkHandler(tev::platform::ForkRank::CrashRegistry, BeforeFork, AfterForkInParent,
                                               AfterForkInChild);
} // namespace

bool CrashHandlerAccess::Report(_CR_EXCEPTION_INFO& info)
{
    const tev::ReportInProgress inProgress;
    const tev::CrashRegistryHold hold;
    CCrashHandler* const handler = CrashRegistry::Get().Find();
    if (handler == nullptr)
        return false;
    // A thread that crashed while it made a report may have crashed in the callback.
    if (hold.IsOnBehalf())
        handler->m_flags |= xCrashNoCallback;
    handler->MakeReport(info, true);
    const int place = tev::CrashPlaceUsed();
    return place < 0 || !fileExists(CrashRegistry::Get().m_published[static_cast<std::size_t>(place)].m_path);
}

namespace tev
{
CrashRegistry& CrashRegistry::Get()
{
    static NeverDestroyed<CrashRegistry> registry;
    return registry.Get();
}

CCrashHandler* CrashRegistry::Find() const
{
    const auto found = m_handlers.find(static_cast<int>(platform::ProcessId()));
    return found == m_handlers.end() ? nullptr : found->second;
}

// A thread that crashed with the lock never releases it: it waits, and the reporting thread uses what it guards.
CrashRegistryHold::CrashRegistryHold() X_NO_THREAD_SAFETY_ANALYSIS
    : m_isOnBehalf(IsReporter() && IsCrashedThread(g_holder.load()))
{
    if (m_isOnBehalf)
        return;
    CrashRegistry::Get().m_lock.Lock();
    m_former = g_holder.exchange(ThreadMark());
}

CrashRegistryHold::~CrashRegistryHold() X_NO_THREAD_SAFETY_ANALYSIS
{
    if (m_isOnBehalf)
        return;
    g_holder.store(m_former);
    CrashRegistry::Get().m_lock.Unlock();
}

ReportInProgress::ReportInProgress() noexcept : m_former(t_isReporting)
{
    ++g_reports;
    t_isReporting = true;
}

ReportInProgress::~ReportInProgress()
{
    t_isReporting = m_former;
    --g_reports;
}

bool ReportInProgress::OnThisThread() noexcept
{
    return t_isReporting;
}
} // namespace tev
