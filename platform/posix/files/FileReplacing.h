#pragma once

#include <string>

// What FileSystem promises for replacing files. Failures leave the error in errno; descriptors are -1 then.

namespace tev::platform
{
[[nodiscard]] bool FollowLinks(const wchar_t* path, std::wstring& target);
/// The descriptor of the folder holds the lock.
[[nodiscard]] int LockFolderOf(const wchar_t* path, unsigned timeoutMs);
[[nodiscard]] int OpenFolderOf(const wchar_t* path);
void Unlock(int descriptor) noexcept;
[[nodiscard]] int CreateFileLike(const wchar_t* path, const wchar_t* model);
[[nodiscard]] int CreateTemporaryLike(const wchar_t* model, std::wstring& path, bool& isNamed);
[[nodiscard]] bool NameFile(int descriptor, const wchar_t* path);
[[nodiscard]] bool RenameFile(const wchar_t* path, const wchar_t* newPath);
[[nodiscard]] bool SyncFolder(int folder);
} // namespace tev::platform
