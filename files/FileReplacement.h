#pragma once

#include "files/CXFile.h"

#include <optional>
#include <string>

namespace tev
{
/// Whether the path is that of a pipe or a device, on which an open may block for ever.
[[nodiscard]] bool IsPipeOrDevice(const wchar_t* path);

/// Replaces a file by another one, or leaves it as it is: the new contents are written to a temporary file in the same
/// folder, flushed to the disk, and then renamed over it. A reader gets the old file or the new one. A symbolic link
/// stays one, and leads to the new file, which takes over permissions and ownership.
///
/// While the object exists, no other FileReplacement, in any process, replaces files in the same folder, so that what
/// is read meanwhile is what is replaced. Everything throws CXFileException. One thread at a time.
class FileReplacement
{
public:
    /// Waits for another replacement in the folder to end, up to a time limit: then the cause is fileSharingViolation.
    explicit FileReplacement(const wchar_t* path);
    /// Removes what was written and not committed.
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// Begins new contents, which the caller writes to the returned file.
    CXFile& Begin();
    /// Makes them the file's contents. With a suffix they become those of the file whose name has that suffix appended,
    /// and new contents may be begun.
    void Commit(const wchar_t* suffix = L"");

private:
    void Require(bool done);

    std::wstring m_path;      ///< with symbolic links resolved
    std::wstring m_temporary; ///< where the new contents are written
    void* m_lock = nullptr;
    std::optional<CXFile> m_file;
    bool m_isWritten = false; ///< the temporary file exists
};
} // namespace tev
