#pragma once

#include "files/CXFile.h"

#include <optional>
#include <string>

namespace tev
{
/// Whether a pipe or a device lies there, which may let whoever opens it wait for ever.
[[nodiscard]] bool IsPipeOrDevice(const wchar_t* path);

/// Replaces a file by another one, or leaves it as it is: the new contents are written beside it, flushed to the disk, and
/// then take its name in one step. Whoever reads it meanwhile gets the old file or the new one. A link stays one, and
/// leads to the new file; permissions and ownership go over to it.
///
/// From its making to its end nobody else replaces files in the same folder in this way, in any process, so that what is
/// read meanwhile is what is replaced. Everything throws CXFileException. One thread at a time.
class FileReplacement
{
public:
    /// Waits for others, but not for ever: then the cause is fileSharingViolation.
    explicit FileReplacement(const wchar_t* path);
    /// Removes what was written and not committed.
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// Begins new contents, which are written to the file that is returned.
    CXFile& Begin();
    /// Makes them the file's contents. With a suffix they become those of a file beside it, of the same name and this
    /// behind it; new contents may be begun then.
    void Commit(const wchar_t* suffix = L"");

private:
    void Require(bool done);

    std::wstring m_path;      ///< the file itself, where the given path leads by links
    std::wstring m_temporary; ///< where the new contents are written
    void* m_lock = nullptr;
    std::optional<CXFile> m_file;
    bool m_isWritten = false; ///< there is a temporary file of ours
};
} // namespace tev
