#pragma once

#include "files/CXFile.h"
#include "objects/CXFileException.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tev
{
/// Where FileReplacement writes the new contents.
enum class TemporaryName
{
    Own,    ///< under a name of their own, or none until they are complete; no other file is touched
    Suffix, ///< under the file's name with ".tmp" appended; a file that exists there is removed
};

/// Whether a FileReplacement holds the lock of the folder.
enum class FolderLock
{
    Held,
    None ///< for what may take long, and for a thread that has crashed and may hold the lock itself
};

/// Replaces a file by another one, or leaves it as it is: the new contents are written to a temporary file in the same
/// folder, flushed to the disk, and then renamed over it. A reader gets the old file or the new one. A symbolic link stays
/// one, and leads to the new file, which takes over permissions and ownership.
///
/// While the object exists, no other FileReplacement, in any process, replaces files in the same folder, so that what is
/// read meanwhile is what is replaced. The folder must be readable, as its lock is taken on it. Without the lock of the
/// folder the last one of several replacements counts. Everything throws CXFileException. One thread at a time.
class FileReplacement
{
public:
    /// Waits for another replacement in the folder to end, for at most 10 seconds: then the cause is fileSharingViolation.
    /// A thread that is asked to end waits for at most one second. That is all that it notices of being asked: where the
    /// folder is free, or is soon, the replacement succeeds, so that the last save at shutdown does.
    explicit FileReplacement(const wchar_t* path, TemporaryName naming = TemporaryName::Own,
                             FolderLock lock = FolderLock::Held);
    /// Removes what was written and not committed. Allocates nothing.
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// Begins new contents, which the caller writes to the returned file.
    CXFile& Begin();
    /// Copies bytes of an open file to the same place of the new contents, as FileSystem::CopyRange does, whatever the file's
    /// position, which stays.
    bool CopyRange(void* source, std::uint64_t offset, std::size_t count, std::size_t& copied);
    /// Makes them the file's contents, unless a write to them has failed, also one whose exception was caught: then it throws
    /// that one's cause. With a suffix they become those of the file whose name has that suffix appended, and
    /// new contents may be begun. What it throws leaves the old file, with one exception: when only the last step fails,
    /// the flush of the folder, the file is the new one, but may be the old one again after a power failure.
    void Commit(const wchar_t* suffix = L"");

private:
    /// Remembers that a write has failed, and is open until Commit, whoever closes it.
    class File : public CXFile
    {
    public:
        explicit File(void* handle) : CXFile(handle, true) {}
        bool SetLength(unsigned __int64 length) override;
        void Write(const void* buffer, unsigned int count) override;
        void Close() override { Flush(); }
        void Abort() override { m_failure = fileInvalidFile; }

        FileExceptionType m_failure = fileNone;

    private:
        template <class CHANGE>
        void Attempt(CHANGE&& change);
    };

    void Require(bool done);
    static void Unlock(void*& locked) noexcept;

    TemporaryName m_naming;
    std::wstring m_path;      ///< with symbolic links resolved
    std::wstring m_temporary; ///< where the new contents are written
    void* m_folder = nullptr; ///< holds the lock
    void* m_handle = nullptr; ///< of the temporary file; m_file closes it
    void* m_locked = nullptr; ///< keeps the temporary file's lock from its closing to its renaming
    std::optional<File> m_file;
    bool m_isNamed = false; ///< the temporary file has its name
};
} // namespace tev
