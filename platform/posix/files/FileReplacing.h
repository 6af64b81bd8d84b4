#pragma once

#include <string>

// What FileSystem promises for replacing files. Failures leave the error in errno.

namespace tev::platform
{
[[nodiscard]] bool FollowLinks(const wchar_t* path, std::wstring& target);
/// The descriptor that holds the lock, -1 on failure.
[[nodiscard]] int LockFolderOf(const wchar_t* path, unsigned timeoutMs);
/// The new file's descriptor, -1 on failure.
[[nodiscard]] int CreateFileLike(const wchar_t* path, const wchar_t* model);
[[nodiscard]] bool RenameInFolder(const wchar_t* path, const wchar_t* newPath);
} // namespace tev::platform
