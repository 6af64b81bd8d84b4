#pragma once

#include "crash/CCrashHandler.h"
#include "platform/FatalSignals.h"

// What happens between a fault that ends the process and its end. The crashed thread touches nothing that it may hold
// itself; it lets the dump be written, hands over to a thread that waited for this, and ends the process when that is
// done, or fails, or takes too long.
namespace tev
{
/// Makes the report of a crash, on the waiting thread. False when somebody else should.
using CrashReporter = bool (*)(_CR_EXCEPTION_INFO& info);

/// Starts the waiting thread, once.
void StartReporter(CrashReporter reporter) noexcept;
void StopReporter() noexcept;

/// What a crash from now on is like; of another process, none is reported here. Safe in signal handlers.
void ExpectCrashes(unsigned processId, bool withDump) noexcept;
bool ExpectsCrashes() noexcept;

/// Reports what happened on the calling thread, and ends the process as the type asks for.
[[noreturn]] void ReportAndEnd(unsigned type, const platform::SignalEvent* event) noexcept;
/// Whether the process is about to end so.
bool IsCrashing() noexcept;
/// Whether the mark is that of the thread that crashed, and whether the calling thread is the one that works for it.
bool IsCrashedThread(const void* threadMark) noexcept;
bool IsReporter() noexcept;
/// What tells the calling thread from all others that run.
const void* ThreadMark() noexcept;

/// While it lives the program's callback runs. When that crashes, the report of a crash is begun again without it.
class CallbackRuns
{
public:
    CallbackRuns() noexcept;
    ~CallbackRuns();
    CallbackRuns(const CallbackRuns&) = delete;
    CallbackRuns& operator=(const CallbackRuns&) = delete;
};
/// Whether the callback has crashed while it was asked about a crash.
bool IsCallbackBroken() noexcept;

/// While it lives a crash has no deadline: a person is asked.
class WithoutDeadline
{
public:
    WithoutDeadline() noexcept;
    ~WithoutDeadline();
    WithoutDeadline(const WithoutDeadline&) = delete;
    WithoutDeadline& operator=(const WithoutDeadline&) = delete;
};
} // namespace tev
