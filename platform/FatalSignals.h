#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// What ends a process, caught: the system's signals and the C++ run-time's last words.
// Safe from several threads at once, unless it is said otherwise.

namespace tev::platform
{
enum class FatalSignal
{
    Abort,
    Interrupt,
    Terminate, ///< the system's request to end
    FloatingPoint,
    IllegalInstruction,
    SegmentViolation,
    Other ///< the remaining ones that say that the program went wrong
};

struct SignalEvent
{
    FatalSignal kind{};
    int number = 0;
    int code = 0;                  ///< the system's reason
    const void* info = nullptr;    ///< the system's record
    const void* context = nullptr; ///< the registers at the signal
};

/// Runs as a signal handler, on the thread's alternate stack where it has one.
using SignalHook = void (*)(const SignalEvent& event) noexcept;

/// What stood where a hook was set.
struct PreviousSignals;
using PreviousSignalsPtr = std::shared_ptr<const PreviousSignals>;

/// Hooks the signals of that kind. Null when a sanitizer watches the process and the signal is its own to report.
PreviousSignalsPtr HookSignals(FatalSignal kind, SignalHook hook);
/// Puts back what stood there, unless somebody else has put his own in the place since.
void UnhookSignals(const PreviousSignalsPtr& previous) noexcept;
/// Calls what stood there for the signal; false when that was no function. Safe in signal handlers.
bool CallPrevious(const PreviousSignals& previous, const SignalEvent& event) noexcept;

/// Makes the two records that a signal handler would get, of the registers of this moment, in memory of that size.
std::size_t SignalRecordsSize() noexcept;
void MakeSignalRecords(void* memory, unsigned code, const void*& info, const void*& context) noexcept;

/// Ends the process as the signal does by default. Safe in signal handlers.
[[noreturn]] void EndBySignal(int number) noexcept;
/// Ends the process at once: nothing is flushed or destroyed, and no handler runs. Safe in signal handlers.
[[noreturn]] void EndAtOnce(int exitCode) noexcept;

/// Of this process, which a copy made by fork does not share. Safe in signal handlers.
std::uint32_t ProcessId() noexcept;

/// Makes the calling thread one that waits for crashes: it leaves to others all signals but those by which threads are
/// stopped and those that say that itself went wrong. Its name is "crash reporter".
void BecomeCrashReporter() noexcept;

/// Gives the calling thread a stack for signal handlers where it has none, until the thread ends or gives it back.
void TakeAlternateStack();
void GiveAlternateStackBack() noexcept;

using RunTimeHook = void (*)();

/// What the C++ run-time calls when a pure virtual function is called; null for its own default. Answers the one before.
RunTimeHook SetPureCallHook(RunTimeHook hook) noexcept;
/// What the run-time calls when a function throws what its specification does not allow, where it still has that;
/// answers the one before.
RunTimeHook SetUnexpectedHook(RunTimeHook hook) noexcept;
} // namespace tev::platform
