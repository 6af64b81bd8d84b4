#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Information about the file or folder at a path, and operations on folders. Paths are in the library's wide form (see
// platform/PathNames.h). Links are followed. Operations that fail return false with the error in errno, where
// LastSystemError() reads it. Safe from several threads at once.

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
    std::uint64_t device = 0; ///< with `number` the identity, the same under all names of a file
    std::uint64_t number = 0;
    std::uint64_t size = 0;
    unsigned permissions = 0;             ///< of owner, group and others, three bits each
    std::int64_t lastWrite = 0;           ///< seconds since 1970-01-01 UTC, rounded down
    unsigned lastWriteNanoseconds = 0;    ///< since that second
    std::optional<std::int64_t> creation; ///< nothing where the file system does not keep it
};

[[nodiscard]] bool GetFileInformation(const wchar_t* path, FileInformation& information);

/// Keeps the time of the last access.
[[nodiscard]] bool SetLastWriteTime(const wchar_t* path, std::int64_t seconds);

/// Fails on a system on which it cannot be set.
[[nodiscard]] bool SetCreationTime(const wchar_t* path, std::int64_t seconds);

/// Creates a folder, and those above it that are missing, accessible to this user only. True when it exists already.
[[nodiscard]] bool CreateFolders(const wchar_t* path);

/// Whether this user may create files in the folder.
bool IsWritableFolder(const wchar_t* path);

/// Creates a folder with a new name that begins with `prefix` in the folder for temporary files, accessible to this
/// user only.
[[nodiscard]] bool CreateTemporaryFolder(const wchar_t* prefix, std::wstring& path);

/// The user's home folder; empty when there is none.
std::wstring HomeFolder();

/// The full path of the running program; empty when the system does not provide it.
std::wstring ExecutablePath();

/// A variable of the environment as a path; empty where it is not set. The environment must not be changed meanwhile.
std::wstring PathFromEnvironment(const char* variable);
} // namespace tev::platform
