#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Dumps of this process, for the moment when it can do nothing else any more. A helper process that was started before
// writes them from outside; where it cannot be had, this process writes its own, without allocating, with memory and
// descriptors that were taken in advance.
// What is said to be safe in signal handlers takes no lock, allocates nothing, and needs little stack.

namespace tev::platform
{
/// What happened to the calling thread.
struct Fault
{
    const void* context = nullptr;    ///< the system's record of the registers; null: those of the call
    const void* signalInfo = nullptr; ///< the system's record of the signal; null: none, the dump was asked for
};

/// Where a crash of this process leaves its traces. Paths are in the system's form.
struct CrashTraces
{
    std::string dumpPath;
    std::string recordPath;
    std::string record;      ///< what the file at `recordPath` is to hold, and behind it the path of the log
    std::string libraryPath; ///< where this library lies, for the helper
};

/// Takes what is needed in advance, and starts the helper of that path where it is not empty. May be called again.
void PrepareDumps(const std::string& helperPath) noexcept;
/// Lets the helper end.
void EndDumps() noexcept;
/// Whether the helper is there. Safe in signal handlers.
bool HasDumpHelper() noexcept;

/// Replaces what is known; the helper gets a copy. Nobody else calls this meanwhile.
void SetCrashTraces(const CrashTraces& traces);

/// Writes a dump of the healthy process into a new file in the place of an old one. One thread at a time.
[[nodiscard]] bool WriteDumpNow(const char* path, const Fault& fault) noexcept;

/// Writes the record, and the dump unless only the record is wanted, to the places that are known. The record's file stays
/// locked as long as this process, or the helper, lives. `logPath` may be null. Safe in signal handlers, of one thread.
[[nodiscard]] bool WriteCrashTraces(const Fault& fault, bool withDump, const char* logPath) noexcept;

/// Lets the helper make the report that this process could not finish. False when there is no helper, or it failed, or the
/// time is over. Safe in signal handlers, of one thread.
[[nodiscard]] bool LetHelperFinish(unsigned timeoutMs) noexcept;

/// A record that a process which has gone has left. One thread at a time.
class LeftRecord
{
public:
    explicit LeftRecord(const std::string& path) noexcept;
    ~LeftRecord();
    LeftRecord(const LeftRecord&) = delete;
    LeftRecord& operator=(const LeftRecord&) = delete;

    /// False while that process, or its helper, or another one that finishes it, still works on it.
    bool IsHeld() const noexcept { return m_file >= 0; }

private:
    int m_file;
};

/// The name of the function of this library that the helper calls: bool (const char* recordPath) noexcept.
constexpr const char* kFinishFunction = "XFinishCrashReport";

/// Where the library lies, or the program that it is linked into; empty when that is not known.
std::string LibraryPath();
/// Where the helper lies: TEVTOOLS_CRASH_HELPER, else by the library's own place; empty when there is none.
std::string FindDumpHelper();
} // namespace tev::platform
