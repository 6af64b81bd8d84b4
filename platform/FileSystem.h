#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tev::platform
{

/// An open file; null stands for none.
using FileHandle = void*;

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
    bool shareRead = true;  ///< others may have it open for reading
    bool shareWrite = true; ///< others may have it open for writing
    bool create = false;    ///< a missing file is created
    bool truncate = false;  ///< an existing file loses its contents, once the open is sure to succeed
    bool inherit = false;   ///< programs that this process starts get the handle too
};

/// Every file that the library opens is opened, moved through and closed by the process's FileSystem, so that tests can
/// put a failing one in its place and another system needs only one more implementation.
/// The operations fail by returning false (Open: null) with the error in errno, where LastSystemError() reads it.
/// Safe from several threads at once; one handle is used by one thread at a time.
class FileSystem
{
public:
    /// Opens a file. The path is in the library's wide form (see platform/PathNames.h), of any length.
    /// Between openers who all go through here, this fails with ETXTBSY unless everybody's access is permitted by
    /// everybody else's sharing; truncating counts as an access to write. The rule ends with the last copy of the handle,
    /// however its process ends. It waits a few milliseconds before it fails so. Files that are not regular, and file
    /// systems without locks, are not guarded. A folder is refused (EISDIR).
    virtual FileHandle Open(const wchar_t* path, const FileOpenMode& mode) = 0;

    /// Moves bytes at the position, which advances by as many. Comes back with less than `count` only at the end of the
    /// file, or when the source failed after it gave something. 0 bytes and true: the end.
    [[nodiscard]] virtual bool Read(FileHandle file, void* buffer, std::size_t count, std::size_t& delivered) = 0;

    /// Moves bytes at the position, which advances by as many. Less than `count` and true: the target took no more.
    /// False may come after a part was written.
    [[nodiscard]] virtual bool Write(FileHandle file, const void* buffer, std::size_t count, std::size_t& written) = 0;

    /// Moves the position, which may lie past the end but not before the start. Fails on pipes and terminals.
    [[nodiscard]] virtual bool Seek(FileHandle file, std::int64_t offset, SeekOrigin origin,
                                    std::uint64_t& position) = 0;

    /// Fails where there is no length (pipes and terminals).
    [[nodiscard]] virtual bool GetLength(FileHandle file, std::uint64_t& length) = 0;

    /// Cuts the file, or extends it with zeros. Leaves the position.
    [[nodiscard]] virtual bool SetLength(FileHandle file, std::uint64_t length) = 0;

    /// Comes back when the file's contents are on the disk. True at once where there is nothing to wait for.
    [[nodiscard]] virtual bool Sync(FileHandle file) = 0;

    /// Ends the handle, also when it fails, which says that earlier writes were lost.
    [[nodiscard]] virtual bool Close(FileHandle file) = 0;

    // What replacing a file takes; files/FileReplacement.h puts it together.

    /// Where a path leads: the path itself, or what the link there names in the end, which need not exist.
    [[nodiscard]] virtual bool ResolveLinks(const wchar_t* path, std::wstring& target) = 0;

    /// Waits until nobody else in any process has locked the folder in which the path lies, and locks it, until the handle
    /// is closed. Fails with ETXTBSY after `timeoutMs`. Locks nothing where the file system has no locks.
    virtual FileHandle LockFolder(const wchar_t* path, unsigned timeoutMs) = 0;

    /// Creates a file for writing in the place of one that may be left over there. It gets the permissions, the group and,
    /// where the system lets this user give it away, the owner of the file at `model`, when there is one; that must be
    /// one that this user may write to, and no folder or device.
    virtual FileHandle CreateLike(const wchar_t* path, const wchar_t* model) = 0;

    /// Gives a file the name of another one in the same folder, which it replaces in one step; comes back when that is on
    /// the disk.
    [[nodiscard]] virtual bool Rename(const wchar_t* path, const wchar_t* newPath) = 0;

    [[nodiscard]] virtual bool Remove(const wchar_t* path) = 0;

protected:
    ~FileSystem() = default;
};

/// The process's file system: the system's own unless a test replaced it.
FileSystem& CurrentFileSystem() noexcept;

/// The one that goes to the operating system.
FileSystem& SystemFileSystem() noexcept;

/// Puts another in its place, null for the system's own, and returns the one before. Files that are open must be closed
/// through the one that opened them, or through one that passes on to it.
FileSystem* ReplaceFileSystem(FileSystem* replacement) noexcept;

/// The handle of an open descriptor, which stays the caller's to close; null for a negative one.
FileHandle FileHandleFromDescriptor(int descriptor) noexcept;

} // namespace tev::platform
