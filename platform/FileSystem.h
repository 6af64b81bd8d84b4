#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tev::platform
{

/// An open file; null stands for none.
using FileHandle = void*;

/// The position or length that stands for a failure.
constexpr std::uint64_t kNoPosition = ~std::uint64_t{0};

enum class FileAccess
{
    Read,
    Write,
    ReadWrite
};

enum class SeekOrigin
{
    Begin,
    Current,
    End
};

/// How a file is opened.
struct FileOpenMode
{
    FileAccess access = FileAccess::Read;
    bool shareRead = true;  ///< other openers may have it open for reading
    bool shareWrite = true; ///< other openers may have it open for writing
    bool create = false;    ///< a missing file is created
    bool truncate = false;  ///< an existing file loses its contents, once the open is sure to succeed
    bool inherit = false;   ///< programs that this process starts inherit the handle
    /// Anything but a regular file is refused (EINVAL, a folder EISDIR), and a pipe does not block the open. For files
    /// that the user does not name as a pipe, and another program may have replaced by one.
    bool regularOnly = false;
};

/// The library opens, reads, writes and closes every file through the process's FileSystem, so that tests can replace
/// it by a failing one and another system needs only one more implementation. The operations fail by returning false
/// (Open: null) with the error in errno, where LastSystemError() reads it. Safe from several threads at once; one
/// handle is used by one thread at a time.
class FileSystem
{
public:
    /// Opens a file. The path is in the library's wide form (see platform/PathNames.h), of any length.
    /// Among openers that use this function, it fails with ETXTBSY unless the access of each is permitted by the
    /// sharing of all others; truncating counts as write access. The rule holds until the last copy of the handle is
    /// closed, also by the end of its process. Before it fails so, it retries for a few milliseconds. Files that are
    /// not regular, and file systems without locks, are not guarded. A folder is refused (EISDIR).
    virtual FileHandle Open(const wchar_t* path, const FileOpenMode& mode) = 0;

    /// Reads bytes at the position, which advances by as many. Returns less than `count` only at the end of the file,
    /// or when the source failed after it delivered a part. 0 bytes and true: the end.
    [[nodiscard]] virtual bool Read(FileHandle file, void* buffer, std::size_t count, std::size_t& delivered) = 0;

    /// As Read, but waits only until there is something: of a pipe or a terminal less than `count` is no end either.
    [[nodiscard]] virtual bool ReadAvailable(FileHandle file, void* buffer, std::size_t count,
                                             std::size_t& delivered) = 0;

    /// Writes bytes at the position, which advances by as many. Less than `count` and true: the target took no more.
    /// A part may have been written when it returns false.
    [[nodiscard]] virtual bool Write(FileHandle file, const void* buffer, std::size_t count, std::size_t& written) = 0;

    /// Copies bytes to the same place in another file, without a way through memory, and where the file system can without
    /// taking room for them: both files then share the blocks. Positions stay. Less than `count` and true: the source ended,
    /// or the system stopped there. False where it cannot do so for these files, too.
    [[nodiscard]] virtual bool CopyRange(FileHandle from, FileHandle to, std::uint64_t offset, std::size_t count,
                                         std::size_t& copied) = 0;

    /// Moves the position, which may lie past the end but not before the start. Fails on pipes and terminals.
    [[nodiscard]] virtual bool Seek(FileHandle file, std::int64_t offset, SeekOrigin origin,
                                    std::uint64_t& position) = 0;

    /// Fails where there is no length (pipes and terminals).
    [[nodiscard]] virtual bool GetLength(FileHandle file, std::uint64_t& length) = 0;

    /// Truncates the file, or extends it with zeros. The position stays.
    [[nodiscard]] virtual bool SetLength(FileHandle file, std::uint64_t length) = 0;

    /// Returns when the file's contents are on the disk. True at once where there is nothing to flush.
    [[nodiscard]] virtual bool Sync(FileHandle file) = 0;

    /// Closes the handle, also when it fails; a failure means that earlier writes were lost.
    [[nodiscard]] virtual bool Close(FileHandle file) = 0;

    // The steps of replacing a file, which files/FileReplacement.h combines.

    /// Resolves symbolic links in the last component: the path itself, or the final target, which need not exist.
    [[nodiscard]] virtual bool ResolveLinks(const wchar_t* path, std::wstring& target) = 0;

    /// Waits until no other process or thread holds the lock of the folder that contains the path, and takes it. Fails with
    /// ETXTBSY after `timeoutMs`. Locks nothing where the file system has no locks.
    virtual FileHandle LockFolder(const wchar_t* path, unsigned timeoutMs) = 0;

    /// As LockFolder, but without the lock, for a thread that may not wait: the one that holds it may be itself.
    virtual FileHandle OpenFolder(const wchar_t* path) = 0;

    /// Releases the lock of a folder or of a temporary file and closes the handle. A child made by fork meanwhile has a
    /// copy of it, but not the lock.
    virtual void Unlock(FileHandle locked) noexcept = 0;

    /// Creates a file for writing, in place of one that may have been left over there. It gets the permissions, the group
    /// and, where the system permits it, the owner of the file at `model`, when there is one; that must be a regular file
    /// to which this user may write.
    virtual FileHandle CreateLike(const wchar_t* path, const wchar_t* model) = 0;

    /// As CreateLike, but in the folder of `model` under a name that no other file has, which `path` becomes. Where the
    /// system can, `isNamed` is false: then the file has no name until Name gives it that one, and nothing is left of it
    /// when it is closed before.
    virtual FileHandle CreateTemporary(const wchar_t* model, std::wstring& path, bool& isNamed) = 0;

    /// Another handle of a file that CreateTemporary made. The file stays locked, and is not taken for one that an ended
    /// process left, until this one is unlocked.
    virtual FileHandle KeepLock(FileHandle file) = 0;

    /// Gives a file without a name that one; fails when another file has it.
    [[nodiscard]] virtual bool Name(FileHandle file, const wchar_t* path) = 0;

    /// Gives a file the name of another one in the same folder, which it replaces in one step.
    [[nodiscard]] virtual bool Rename(const wchar_t* path, const wchar_t* newPath) = 0;

    /// Returns when the names in a locked folder are on the disk; true where the file system does not support that.
    [[nodiscard]] virtual bool SyncFolder(FileHandle folder) = 0;

    /// Removes temporary files that ended processes left in a folder, as far as that is possible.
    virtual void RemoveLeftTemporaries(FileHandle folder) noexcept = 0;

    /// Allocates nothing, so that clean-up succeeds without memory.
    [[nodiscard]] virtual bool Remove(const wchar_t* path) = 0;

protected:
    ~FileSystem() = default;
};

/// The process's file system: the system's own unless a test replaced it.
FileSystem& CurrentFileSystem() noexcept;

/// The one that goes to the operating system.
FileSystem& SystemFileSystem() noexcept;

/// Replaces the process's file system, null for the system's own, and returns the previous one. Files that are open
/// must be closed through the one that opened them, or through one that forwards to it.
FileSystem* ReplaceFileSystem(FileSystem* replacement) noexcept;

/// The handle of an open descriptor, which stays the caller's to close; null for a negative one.
FileHandle FileHandleFromDescriptor(int descriptor) noexcept;

} // namespace tev::platform
