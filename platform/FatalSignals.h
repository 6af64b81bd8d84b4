#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// Hooks for what ends a process: the system's fatal signals and the last calls of the C++ run-time.
// Safe from several threads at once unless a comment says otherwise.

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
    Other ///< the remaining ones that report an error of the program
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

/// The handlers that hooks have replaced.
struct PreviousSignals;
using PreviousSignalsPtr = std::shared_ptr<const PreviousSignals>;

/// Hooks the signals of that kind. Null when a sanitizer reports these signals itself.
PreviousSignalsPtr HookSignals(FatalSignal kind, SignalHook hook);
/// Restores the previous handlers, except where another handler has been installed since.
void UnhookSignals(const PreviousSignalsPtr& previous) noexcept;
/// Calls the previous handler of the signal; false when that was no function. Safe in signal handlers.
bool CallPrevious(const PreviousSignals& previous, const SignalEvent& event) noexcept;

/// Fills memory of that size with the two records that a signal handler would get, from the current registers.
std::size_t SignalRecordsSize() noexcept;
void MakeSignalRecords(void* memory, unsigned code, const void*& info, const void*& context) noexcept;

/// Ends the process as the signal does by default. Safe in signal handlers.
[[noreturn]] void EndBySignal(int number) noexcept;
/// Ends the process at once: nothing is flushed or destroyed, and no handler runs. Safe in signal handlers.
[[noreturn]] void EndAtOnce(int exitCode) noexcept;

/// The process's identifier, which a forked child does not share. Safe in signal handlers.
std::uint32_t ProcessId() noexcept;

/// Prepares the calling thread to wait for crashes: it blocks all signals but those by which threads are stopped and those
/// of its own faults, and is named "crash reporter".
void BecomeCrashReporter() noexcept;

/// Installs an alternate stack for signal handlers on the calling thread where it has none, until the thread ends or calls
/// GiveAlternateStackBack.
void TakeAlternateStack();
void GiveAlternateStackBack() noexcept;

/// Whether anything is written to the error output; not by default.
void LetWriteErrors(bool isOn) noexcept;
/// Writes one line of two parts to the error output, where that is allowed, and waits a second at most. Safe in signal
/// handlers.
void WriteErrorLine(const char* start, const char* rest) noexcept;

using RunTimeHook = void (*)();

/// What the C++ run-time calls when a pure virtual function is called; null for its own default. Returns the previous one.
RunTimeHook SetPureCallHook(RunTimeHook hook) noexcept;
/// What the run-time calls when a function throws what its specification does not allow, where it still has that;
/// returns the previous one.
RunTimeHook SetUnexpectedHook(RunTimeHook hook) noexcept;
} // namespace tev::platform
