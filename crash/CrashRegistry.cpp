#include "crash/CrashRegistry.h"

#include "base/NeverDestroyed.h"
#include "crash/CrashFault.h"
#include "platform/FatalSignals.h"
#include "services/Paths.h"

#include <atomic>

namespace
{
using tev::CrashRegistry;

std::atomic<const void*> g_holder{nullptr};
thread_local bool t_isReporting = false;
} // namespace

bool CrashHandlerAccess::Report(_CR_EXCEPTION_INFO& info)
{
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
    t_isReporting = true;
}

ReportInProgress::~ReportInProgress()
{
    t_isReporting = m_former;
}

bool ReportInProgress::OnThisThread() noexcept
{
    return t_isReporting;
}
} // namespace tev
