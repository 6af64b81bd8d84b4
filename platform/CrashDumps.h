#pragma once

#include "platform/CrashNotes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

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

/// Where a crash leaves its dump and its record. Paths are in the system's form; empty where there is no such place.
struct CrashPlace
{
    std::string dumpPath;
    std::string recordPath;
    std::string record; ///< the contents of the file at `recordPath`; the notes of the crash are appended
};

/// What a crash of this process leaves on the disk, and where.
struct CrashTraces
{
    static constexpr std::size_t kPlaces = 2;

    CrashPlace places[kPlaces]; ///< the first that can be written is used
    std::string libraryPath;    ///< of this library, for the helper
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

/// Replaces a file by one with these bytes that only this user may read and write; a link is replaced, not followed.
[[nodiscard]] bool WritePrivateFile(const char* path, std::string_view bytes) noexcept;

/// Notes that the calling thread has crashed with these registers, for dumps that are made while it waits in its signal
/// handler. Safe in signal handlers.
void NoteThreadFault(const void* context) noexcept;
/// Writes the record and, `withDump`, the dump to the first place of the traces where that can be done, and returns its
/// index; -1 when there is none. The record's file stays locked as long as this process or the helper lives. Lifts limits
/// of the process that stand in the way. Safe in signal handlers, one thread at a time.
[[nodiscard]] int WriteCrashTraces(const Fault& fault, bool withDump, const CrashNotes& notes) noexcept;

/// Has the helper make the report that this process could not finish, and returns the report's path; null without helper,
/// on failure and on timeout. The path stays valid until the next call. Safe in signal handlers, one thread at a time.
[[nodiscard]] const char* LetHelperFinish(int place, unsigned timeoutMs) noexcept;

/// Locks a record that an ended process of this user has left. One thread at a time.
class LeftRecord
{
public:
    explicit LeftRecord(const std::string& path) noexcept;
    ~LeftRecord();
    LeftRecord(const LeftRecord&) = delete;
    LeftRecord& operator=(const LeftRecord&) = delete;

    /// False while that process, its helper, or another process that finishes the record holds the lock, and for a file that
    /// another user may have made.
    bool IsHeld() const noexcept { return m_file >= 0; }

private:
    int m_file;
};

/// The function of this library that the helper calls:
/// bool (const char* recordPath, char* reportPath, std::size_t capacity) noexcept.
constexpr const char* kFinishFunction = "XFinishCrashReport";

/// How long the process has been running, in seconds; 0 when unknown. Safe in signal handlers.
std::uint64_t ProcessUptime() noexcept;
/// The path of this library, or of the program that it is linked into; empty when unknown.
std::string LibraryPath();
/// The path of the helper: TEVTOOLS_CRASH_HELPER, else relative to the library; empty when there is none.
std::string FindDumpHelper();
/// As above, for any program that stands beside the helper, and the variable that names another.
std::string FindCrashProgram(const char* name, const char* variable);
} // namespace tev::platform
