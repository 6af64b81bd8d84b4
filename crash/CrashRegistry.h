#pragma once

#include "base/ThreadSafety.h"
#include "crash/CCrashHandler.h"
#include "crash/CrashRecord.h"
#include "objects/CXCriticalSection.h"
#include "platform/CrashDumps.h"

#include <array>
#include <map>

/// Access of the free functions to a handler beyond its interface. The registry's lock is held.
struct CrashHandlerAccess
{
    /// Runs on the thread that waits for a crash; takes the lock itself. False when the report still has to be made.
    static bool Report(_CR_EXCEPTION_INFO& info);
    static void PublishTraces(const CCrashHandler& handler) { handler.PublishTraces(); }
    /// Asks about a report as its mode wants it, and deletes the archive when it was mailed.
    static void OfferReport(CCrashHandler& handler, const tev::CrashRecord& record, const CPathString& archive);
    /// Finishes the reports that earlier processes of this application left, and asks the user of a host about them.
    static void FinishLeft(CCrashHandler& handler);
};

namespace tev
{
/// The handlers by process: a forked child finds its parent's here, too, and leaves it alone.
struct CrashRegistry
{
    static CrashRegistry& Get();

    CCrashHandler* Find() const X_REQUIRES(m_lock);

    mutable CXCriticalSection m_lock;
    std::map<int, CCrashHandler*> m_handlers X_GUARDED_BY(m_lock);
    /// What was last published for a crash, for each of the places where it may be left.
    struct Published
    {
        CrashRecord m_record;
        CPathString m_path;
    };
    using AllPublished = std::array<Published, platform::CrashTraces::kPlaces>;
    AllPublished m_published X_GUARDED_BY(m_lock);
    /// In the names of files among the temporary ones.
    CXTString<wchar_t> m_random X_GUARDED_BY(m_lock);
};

/// Holds the registry's lock; a report holds it from beginning to end.
class X_SCOPED_CAPABILITY CrashRegistryHold
{
public:
    CrashRegistryHold() X_ACQUIRE(CrashRegistry::Get().m_lock);
    ~CrashRegistryHold() X_RELEASE();
    CrashRegistryHold(const CrashRegistryHold&) = delete;
    CrashRegistryHold& operator=(const CrashRegistryHold&) = delete;

    /// Whether the lock is in fact the crashed thread's.
    bool IsOnBehalf() const noexcept { return m_isOnBehalf; }

private:
    const bool m_isOnBehalf;
    const void* m_former = nullptr; ///< the holder before: none, or this thread
};

/// Marks that the thread makes a report: failures on it are not reported meanwhile.
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
