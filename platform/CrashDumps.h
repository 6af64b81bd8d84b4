#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Dumps of this process, written after a crash. A helper process that was started before writes them from outside; without
// one this process writes its own dump, without allocating, with memory and descriptors reserved in advance.
// A function that is safe in signal handlers takes no lock, allocates nothing, and needs little stack.

namespace tev::platform
{
/// What happened to the calling thread.
struct Fault
{
    const void* context = nullptr;    ///< the system's record of the registers; null: those of the call
    const void* signalInfo = nullptr; ///< the system's record of the signal; null: none, the dump was asked for
};

/// What a crash of this process leaves on the disk, and where. Paths are in the system's form.
struct CrashTraces
{
    std::string dumpPath;
    std::string recordPath;
    std::string record;      ///< the contents of the file at `recordPath`; the path of the log is appended
    std::string libraryPath; ///< of this library, for the helper
};

/// Reserves memory and descriptors, and starts the helper unless its path is empty. May be called again.
void PrepareDumps(const std::string& helperPath) noexcept;
/// Ends the helper.
void EndDumps() noexcept;
/// Whether a helper is connected. Safe in signal handlers.
bool HasDumpHelper() noexcept;

/// Replaces the traces; the helper gets a copy. One thread at a time.
void SetCrashTraces(const CrashTraces& traces);

/// Writes a dump of the running process, replacing an existing file. One thread at a time.
[[nodiscard]] bool WriteDumpNow(const char* path, const Fault& fault) noexcept;

/// Writes the record and, `withDump`, the dump to the paths of the traces. The record's file stays locked as long as this
/// process or the helper lives. `logPath` may be null. Safe in signal handlers, one thread at a time.
[[nodiscard]] bool WriteCrashTraces(const Fault& fault, bool withDump, const char* logPath) noexcept;

/// Has the helper make the report that this process could not finish. False without helper, on failure and on timeout.
/// Safe in signal handlers, one thread at a time.
[[nodiscard]] bool LetHelperFinish(unsigned timeoutMs) noexcept;

/// Locks a record that an ended process has left. One thread at a time.
class LeftRecord
{
public:
    explicit LeftRecord(const std::string& path) noexcept;
    ~LeftRecord();
    LeftRecord(const LeftRecord&) = delete;
    LeftRecord& operator=(const LeftRecord&) = delete;

    /// False while that process, its helper, or another process that finishes the record holds the lock.
    bool IsHeld() const noexcept { return m_file >= 0; }

private:
    int m_file;
};

/// The function of this library that the helper calls: bool (const char* recordPath) noexcept.
constexpr const char* kFinishFunction = "XFinishCrashReport";

/// The path of this library, or of the program that it is linked into; empty when unknown.
std::string LibraryPath();
/// The path of the helper: TEVTOOLS_CRASH_HELPER, else relative to the library; empty when there is none.
std::string FindDumpHelper();
} // namespace tev::platform
