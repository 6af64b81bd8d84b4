#pragma once

#include "base/ThreadSafety.h"
#include "crash/CCrashHandler.h"
#include "crash/CrashPackage.h"
#include "objects/CXCriticalSection.h"

#include <map>

/// What the functions of the family do with a handler beyond its interface. The registry's lock is held.
struct CrashHandlerAccess
{
    /// On the thread that waits for a crash; takes the lock itself. False when the report is still to be made.
    static bool Report(_CR_EXCEPTION_INFO& info);
    static void RemoveFiles(CCrashHandler& handler, std::size_t first, std::size_t count);
    static std::size_t FileCount(const CCrashHandler& handler) { return handler.m_files.size(); }
};

namespace tev
{
/// The handlers by process: a copy of a process that was made by fork finds its original's here, too, and leaves it alone.
struct CrashRegistry
{
    static CrashRegistry& Get();

    CCrashHandler* Find() const X_REQUIRES(m_lock);

    mutable CXCriticalSection m_lock;
    std::map<int, CCrashHandler*> m_handlers X_GUARDED_BY(m_lock);
    CrashRecord m_record X_GUARDED_BY(m_lock);     ///< what was last written down for a crash
    CPathString m_recordPath X_GUARDED_BY(m_lock); ///< and where it will be
};

/// Holds the registry's lock, as whoever makes a report does from its beginning to its end.
class X_SCOPED_CAPABILITY CrashRegistryHold
{
public:
    CrashRegistryHold() X_ACQUIRE(CrashRegistry::Get().m_lock);
    ~CrashRegistryHold() X_RELEASE();
    CrashRegistryHold(const CrashRegistryHold&) = delete;
    CrashRegistryHold& operator=(const CrashRegistryHold&) = delete;

    /// Whether it is in truth the crashed thread that has the lock.
    bool IsOnBehalf() const noexcept { return m_isOnBehalf; }

private:
    const bool m_isOnBehalf;
    const void* m_former = nullptr; ///< who held it before: nobody, or this thread
};

/// While a thread makes a report, what goes wrong on it is not reported as well.
class ReportInProgress
{
public:
    ReportInProgress() noexcept;
    ~ReportInProgress();
    ReportInProgress(const ReportInProgress&) = delete;
    ReportInProgress& operator=(const ReportInProgress&) = delete;

    static bool OnThisThread() noexcept;

private:
    const bool m_former;
};
} // namespace tev
