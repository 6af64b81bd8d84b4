#include "platform/FileSystem.h"
#include "platform/Cancellation.h"

#include "platform/IoLoops.h"
#include "platform/posix/files/ContainedSteps.h"
#include "platform/posix/files/FileReplacing.h"
#include "platform/posix/files/FileSharing.h"
#include "platform/posix/files/OwnedDescriptor.h"
#include "platform/posix/files/SystemPath.h"
#include "platform/posix/files/TemporaryFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
static_assert(sizeof(off_t) == 8, "files of more than 2 GiB");
constexpr mode_t kNewFileMode = 0666; // the process's umask takes its bits away

int DescriptorOf(FileHandle file)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(file)) - 1; // null becomes -1, which every call refuses
}

int OpenFlags(const FileOpenMode& mode)
{
    int flags = O_NOCTTY;
    flags |= mode.access == FileAccess::Read ? O_RDONLY : mode.access == FileAccess::Write ? O_WRONLY : O_RDWR;
    // Not O_TRUNC: the contents must survive an open that the sharing rule refuses.
    flags |= mode.create ? O_CREAT : 0;
    flags |= mode.inherit ? 0 : O_CLOEXEC;
    flags |= mode.regularOnly ? O_NONBLOCK : 0;
    return flags;
}

FileShare ShareOf(const FileOpenMode& mode)
{
    return {mode.access != FileAccess::Write, mode.access != FileAccess::Read, !mode.shareRead, !mode.shareWrite,
            mode.truncate};
}

int OpenDescriptor(const char* path, int flags)
{
    const WithoutCancellation whole;
    for (;;)
    {
        const int descriptor = open(path, flags, kNewFileMode);
        if (descriptor >= 0 || errno != EINTR)
            return descriptor;
    }
}

bool Truncate(int descriptor, const char* path, FileAccess access)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return false;
    if (status.st_size == 0)
        return true;
    // A file opened for reading alone may be truncated too, but not through its descriptor.
    return (access == FileAccess::Read ? truncate(path, 0) : ftruncate(descriptor, 0)) == 0;
}

/// What an open that must not block says in other words: of a socket, and of a file that another program holds a lease on.
int RegularFileError(int error)
{
    return error == ENXIO ? EINVAL : error == EWOULDBLOCK ? ETXTBSY : error;
}

/// After an open that could not block: later transfers are as usual.
bool MakeBlocking(int descriptor)
{
    const WithoutCancellation whole;
    const int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

/// The system reports EBADF both for a descriptor that was opened for the other access and for one that is not open.
/// After a failure: makes errno tell them apart.
bool FailFor(int descriptor, int uselessAccess)
{
    const WithoutCancellation whole;
    const int error = errno;
    const int flags = fcntl(descriptor, F_GETFL);
    errno = flags >= 0 && (flags & O_ACCMODE) == uselessAccess ? EACCES : error;
    return false;
}

FileHandle Refuse(int error)
{
    errno = error;
    return nullptr;
}

class PosixFileSystem final : public FileSystem
{
public:
    FileHandle Open(const wchar_t* path, const FileOpenMode& mode) override
    {
        const SystemPath name(path);
        if (!name.IsValid())
            return nullptr;
        OwnedDescriptor descriptor(OpenDescriptor(name.Get(), OpenFlags(mode)));
        if (descriptor.Get() < 0)
            return mode.regularOnly ? Refuse(RegularFileError(errno)) : nullptr;
        struct stat status;
        if (fstat(descriptor.Get(), &status) != 0)
            return nullptr;
        if (S_ISDIR(status.st_mode))
            return Refuse(EISDIR);
        if (mode.regularOnly && !S_ISREG(status.st_mode))
            return Refuse(EINVAL);
        if (mode.regularOnly && !MakeBlocking(descriptor.Get()))
            return nullptr;
        if (S_ISREG(status.st_mode))
        {
            if (!EnterSharing(descriptor.Get(), ShareOf(mode)))
                return Refuse(ETXTBSY);
            if (mode.truncate && !Truncate(descriptor.Get(), name.Get(), mode.access))
                return nullptr;
        }
        return FileHandleFromDescriptor(descriptor.Release());
    }

    bool Read(FileHandle file, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        const WithoutCancellation whole;
        const int descriptor = DescriptorOf(file);
        const auto readOnce = [descriptor](void* bytes, std::size_t size) { return read(descriptor, bytes, size); };
        return ReadFully(readOnce, buffer, count, delivered) || FailFor(descriptor, O_WRONLY);
    }

    bool ReadAvailable(FileHandle file, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        const WithoutCancellation whole;
        const int descriptor = DescriptorOf(file);
        const auto readOnce = [descriptor](void* bytes, std::size_t size) { return read(descriptor, bytes, size); };
        return platform::ReadAvailable(readOnce, buffer, count, delivered) || FailFor(descriptor, O_WRONLY);
    }

    bool Write(FileHandle file, const void* buffer, std::size_t count, std::size_t& written) override
    {
        const WithoutCancellation whole;
        const int descriptor = DescriptorOf(file);
        const auto writeOnce = [descriptor](const void* bytes, std::size_t size) {
            return write(descriptor, bytes, size);
        };
        return WriteFully(writeOnce, buffer, count, written) || FailFor(descriptor, O_RDONLY);
    }

    bool CopyRange(FileHandle from, FileHandle to, std::uint64_t offset, std::size_t count,
                   std::size_t& copied) override
    {
        const WithoutCancellation whole;
        auto readAt = static_cast<off_t>(offset);
        auto writeAt = static_cast<off_t>(offset);
        for (;;)
        {
            const ssize_t moved = copy_file_range(DescriptorOf(from), &readAt, DescriptorOf(to), &writeAt, count, 0);
            copied = static_cast<std::size_t>(std::max<ssize_t>(moved, 0));
            if (moved >= 0 || errno != EINTR)
                return moved >= 0;
        }
    }

    bool Seek(FileHandle file, std::int64_t offset, SeekOrigin origin, std::uint64_t& position) override
    {
        constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
        const off_t reached = lseek(DescriptorOf(file), offset, kWhence[static_cast<int>(origin)]);
        if (reached < 0)
            return false;
        position = static_cast<std::uint64_t>(reached);
        return true;
    }

    bool GetLength(FileHandle file, std::uint64_t& length) override
    {
        struct stat status;
        if (fstat(DescriptorOf(file), &status) != 0)
            return false;
        if (!S_ISREG(status.st_mode))
            return SeekForLength(file, length);
        length = static_cast<std::uint64_t>(status.st_size);
        return true;
    }

    bool SetLength(FileHandle file, std::uint64_t length) override
    {
        if (length > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
        {
            errno = EFBIG;
            return false;
        }
        const int descriptor = DescriptorOf(file);
        while (ftruncate(descriptor, static_cast<off_t>(length)) != 0)
        {
            if (errno != EINTR)
                return FailFor(descriptor, O_RDONLY);
        }
        return true;
    }

    bool Sync(FileHandle file) override
    {
        const WithoutCancellation whole;
        while (fsync(DescriptorOf(file)) != 0)
        {
            if (errno == EINVAL || errno == EROFS) // pipes, terminals and what cannot be written to
                return true;
            if (errno != EINTR)
                return false;
        }
        return true;
    }

    bool Close(FileHandle file) override
    {
        const WithoutCancellation whole;
        // An interrupted close has closed; calling it again could hit another thread's new file.
        return close(DescriptorOf(file)) == 0 || errno == EINTR;
    }

    bool ResolveLinks(const wchar_t* path, std::wstring& target) override { return FollowLinks(path, target); }

    FileHandle LockFolder(const wchar_t* path, unsigned timeoutMs) override
    {
        return FileHandleFromDescriptor(LockFolderOf(path, timeoutMs));
    }

    FileHandle OpenFolder(const wchar_t* path) override { return FileHandleFromDescriptor(OpenFolderOf(path)); }

    void Unlock(FileHandle locked) noexcept override { platform::Unlock(DescriptorOf(locked)); }

    FileHandle CreateLike(const wchar_t* path, const wchar_t* model) override
    {
        return FileHandleFromDescriptor(CreateFileLike(path, model));
    }

    FileHandle CreateTemporary(const wchar_t* model, std::wstring& path, bool& isNamed) override
    {
        return FileHandleFromDescriptor(CreateTemporaryLike(model, path, isNamed));
    }

    FileHandle KeepLock(FileHandle file) override
    {
        return FileHandleFromDescriptor(DuplicateDescriptor(DescriptorOf(file)));
    }

    bool Name(FileHandle file, const wchar_t* path) override { return NameFile(DescriptorOf(file), path); }

    bool Rename(const wchar_t* path, const wchar_t* newPath) override { return RenameFile(path, newPath); }

    bool SyncFolder(FileHandle folder) override { return platform::SyncFolder(DescriptorOf(folder)); }

    void RemoveLeftTemporaries(FileHandle folder) noexcept override
    {
        platform::RemoveLeftTemporaries(DescriptorOf(folder));
    }

    bool Remove(const wchar_t* path) override
    {
        const SystemPath name(path);
        return name.IsValid() && unlink(name.Get()) == 0;
    }

private:
    /// Block devices have a length, which only seeking finds.
    bool SeekForLength(FileHandle file, std::uint64_t& length)
    {
        std::uint64_t position = 0;
        std::uint64_t ignored = 0;
        return Seek(file, 0, SeekOrigin::Current, position) && Seek(file, 0, SeekOrigin::End, length) &&
               Seek(file, static_cast<std::int64_t>(position), SeekOrigin::Begin, ignored);
    }
};

PosixFileSystem g_system; // trivially destroyed: files that are closed while the program ends still use it
std::atomic<FileSystem*> g_current{&g_system};
} // namespace

FileSystem& CurrentFileSystem() noexcept
{
    return *g_current.load();
}

FileSystem& SystemFileSystem() noexcept
{
    return g_system;
}

FileSystem* ReplaceFileSystem(FileSystem* replacement) noexcept
{
    return g_current.exchange(replacement != nullptr ? replacement : &g_system);
}

FileHandle FileHandleFromDescriptor(int descriptor) noexcept
{
    return descriptor < 0 ? nullptr : reinterpret_cast<FileHandle>(static_cast<std::intptr_t>(descriptor) + 1);
}
} // namespace tev::platform
