#pragma once

#include "crash/CCrashHandler.h"
#include "crash/CrashRecord.h"
#include "platform/FatalSignals.h"

// What happens between a fault and the end of the process. The crashed thread uses nothing that it may have locked itself;
// it has the dump written, wakes a thread that waits for crashes, and ends the process when the report is done, has failed,
// or takes too long.
namespace tev
{
/// Makes the report of a crash, on the waiting thread. False when the helper process should make it.
using CrashReporter = bool (*)(_CR_EXCEPTION_INFO& info);

/// Starts the waiting thread, once.
void StartReporter(CrashReporter reporter) noexcept;
void StopReporter() noexcept;

/// Sets how a crash is handled from now on; only crashes of that process are reported. Safe in signal handlers.
void ExpectCrashes(unsigned processId, bool withDump) noexcept;
bool ExpectsCrashes() noexcept;

/// Reports a fault of the calling thread, and ends the process as documented for the type.
[[noreturn]] void ReportAndEnd(unsigned type, const platform::SignalEvent* event) noexcept;
/// The place of the traces that the crash has left; -1 for none.
int CrashPlaceUsed() noexcept;
/// Adds what is known of the crash, on the reporting thread.
void AddCrashNotes(CrashRecord& record);
/// Appends what the exception that ended the process says to the record that the crash has left, for the case that another
/// process finishes the report. On the reporting thread.
void AddMessageTo(const CPathString& recordPath);
/// Remembers the path of the report that was made, and writes it to the error output where a host wants that. Too long a
/// path counts as none.
void SetReportPath(const CPathString& path) noexcept;
void WriteReportPath() noexcept;

/// Whether ReportAndEnd has been called.
bool IsCrashing() noexcept;
/// Whether the mark is that of the crashed thread; whether the calling thread is the one that makes its report.
bool IsCrashedThread(const void* threadMark) noexcept;
bool IsReporter() noexcept;
/// Identifies the calling thread among all that run.
const void* ThreadMark() noexcept;

/// Marks that the program's callback runs. When the callback crashes, the report is started again without it.
class CallbackRuns
{
public:
    CallbackRuns() noexcept;
    ~CallbackRuns();
    CallbackRuns(const CallbackRuns&) = delete;
    CallbackRuns& operator=(const CallbackRuns&) = delete;
};
/// Whether the callback has crashed itself after a crash.
bool IsCallbackBroken() noexcept;

/// Suspends the deadline of a crash while the user is asked.
class WithoutDeadline
{
public:
    WithoutDeadline() noexcept;
    ~WithoutDeadline();
    WithoutDeadline(const WithoutDeadline&) = delete;
    WithoutDeadline& operator=(const WithoutDeadline&) = delete;
};
} // namespace tev
