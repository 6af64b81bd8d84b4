#pragma once

#include <cstdint>
#include <optional>
#include <string>

// What lies at a path, and folders. Paths are in the library's wide form (see platform/PathNames.h). Links are followed.
// Operations that fail return false with the error in errno, where LastSystemError() reads it.
// Safe from several threads at once.

namespace tev::platform
{
enum class FileKind
{
    File,
    Folder,
    Other
};

struct FileInformation
{
    FileKind kind = FileKind::Other;
    std::uint64_t device = 0; ///< with `number` the identity: one file has it under all of its names
    std::uint64_t number = 0;
    std::uint64_t size = 0;
    std::int64_t lastWrite = 0;           ///< seconds since 1970-01-01 UTC, the part of a second left out
    std::optional<std::int64_t> creation; ///< nothing where the file system does not keep it
};

[[nodiscard]] bool GetFileInformation(const wchar_t* path, FileInformation& information);

/// Keeps the time of the last access.
[[nodiscard]] bool SetLastWriteTime(const wchar_t* path, std::int64_t seconds);

/// Fails on a system that lets nobody set it.
[[nodiscard]] bool SetCreationTime(const wchar_t* path, std::int64_t seconds);

/// Creates a folder, and those above it that are missing, for this user alone. True when it is there already.
[[nodiscard]] bool CreateFolders(const wchar_t* path);

/// Whether this user may create files in the folder.
bool IsWritableFolder(const wchar_t* path);

/// Creates a folder of a new name that begins with `prefix` among the temporary files, for this user alone.
[[nodiscard]] bool CreateTemporaryFolder(const wchar_t* prefix, std::wstring& path);

/// The user's home folder; empty when there is none.
std::wstring HomeFolder();

/// The full path of the running program; empty when the system does not tell.
std::wstring ExecutablePath();

/// A variable of the environment as a path; empty where it is not set. Nobody may change the environment meanwhile.
std::wstring PathFromEnvironment(const char* variable);
} // namespace tev::platform
