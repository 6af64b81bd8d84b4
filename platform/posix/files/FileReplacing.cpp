#include "platform/posix/files/FileReplacing.h"
#include "platform/Cancellation.h"

#include "platform/posix/files/OwnedDescriptor.h"
#include "platform/posix/files/SystemPath.h"
#include "platform/posix/files/TemporaryFile.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cwchar>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr int kMostLinks = 40; // as the system counts
constexpr mode_t kFileOfOwner = 0600;
constexpr mode_t kNewFile = 0666; // the process's umask takes its bits away
constexpr mode_t kPermissions = 07777;
constexpr std::chrono::milliseconds kRetryAfter(1);

bool Fail(int error)
{
    errno = error;
    return false;
}

/// With the separator; empty for a name in the current folder.
std::string_view FolderOf(std::string_view name)
{
    return name.substr(0, name.rfind('/') + 1);
}

int OpenFolderAbove(const SystemPath& path)
{
    const WithoutCancellation whole;
    const std::string_view folder = FolderOf(path.Get());
    if (folder.empty())
        return open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    char name[PATH_MAX];
    name[folder.copy(name, sizeof name - 1)] = '\0';
    return open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

/// Whether the file system does not support the operation, on a folder or at all.
bool IsUnsupported(int error)
{
    return error == EINVAL || error == EBADF || error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP ||
           error == EROFS;
}

bool GiveTo(int descriptor, const struct stat& model)
{
    GivenOwner given = GivenOwner::Neither;
    if (!GiveOwner(descriptor, model, given))
        return false;
    if (given == GivenOwner::Neither)
        return Fail(EPERM);
    mode_t mode = model.st_mode & kPermissions;
    if (given == GivenOwner::Group)
        mode &= ~mode_t{S_ISUID}; // which would be another user's
    return fchmod(descriptor, mode) == 0;
}

/// Finds the file to replace, if there is one. False when it may not be replaced.
bool FindModel(const char* name, struct stat& status, bool& isThere)
{
    isThere = stat(name, &status) == 0;
    if (!isThere)
        return errno == ENOENT;
    if (!S_ISREG(status.st_mode))
        return Fail(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    return access(name, W_OK) == 0;
}
} // namespace

bool FollowLinks(const wchar_t* path, std::wstring& target)
{
    const SystemPath given(path);
    if (!given.IsValid())
        return false;
    std::string name = given.Get();
    for (int links = 0;; ++links)
    {
        char text[PATH_MAX];
        const ssize_t length = readlink(name.c_str(), text, sizeof(text));
        if (length < 0)
        {
            if (errno != EINVAL && errno != ENOENT) // no link, and nothing there
                return false;
            target = SystemPathToWide(name.c_str());
            return true;
        }
        if (links == kMostLinks)
            return Fail(ELOOP);
        if (static_cast<size_t>(length) == sizeof(text))
            return Fail(ENAMETOOLONG);
        const std::string link(text, static_cast<size_t>(length));
        name = link[0] == '/' ? link : std::string(FolderOf(name)).append(link);
    }
}

int OpenFolderOf(const wchar_t* path)
{
    const SystemPath name(path);
    return name.IsValid() ? OpenFolderAbove(name) : -1;
}

int LockFolderOf(const wchar_t* path, unsigned timeoutMs)
{
    OwnedDescriptor folder(OpenFolderOf(path));
    if (folder.Get() < 0)
        return -1;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (flock(folder.Get(), LOCK_EX | LOCK_NB) != 0)
    {
        if (IsUnsupported(errno))
            break;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return -1;
        if (std::chrono::steady_clock::now() >= deadline)
        {
            errno = ETXTBSY;
            return -1;
        }
        std::this_thread::sleep_for(kRetryAfter);
    }
    return folder.Release();
}

// Closing alone would leave the lock to copies of the descriptor in children.
void Unlock(int descriptor) noexcept
{
    const WithoutCancellation whole;
    flock(descriptor, LOCK_UN);
    close(descriptor);
}

int CreateFileLike(const wchar_t* path, const wchar_t* model)
{
    const WithoutCancellation whole;
    const SystemPath name(path);
    const SystemPath modelName(model);
    struct stat status;
    bool hasModel = false;
    if (!name.IsValid() || !modelName.IsValid() || !FindModel(modelName.Get(), status, hasModel))
        return -1;
    if (unlink(name.Get()) != 0 && errno != ENOENT)
        return -1;
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
    OwnedDescriptor file(open(name.Get(), flags, hasModel ? kFileOfOwner : kNewFile));
    if (file.Get() < 0)
        return -1;
    if (hasModel && !GiveTo(file.Get(), status))
    {
        const int error = errno;
        unlink(name.Get());
        errno = error;
        return -1;
    }
    return file.Release();
}

int CreateTemporaryLike(const wchar_t* model, std::wstring& path, bool& isNamed)
{
    const SystemPath modelName(model);
    struct stat status;
    bool hasModel = false;
    if (!modelName.IsValid() || !FindModel(modelName.Get(), status, hasModel))
        return -1;
    const OwnedDescriptor folder(OpenFolderAbove(modelName));
    if (folder.Get() < 0)
        return -1;
    std::string name;
    path.reserve(std::wcslen(model) + PATH_MAX); // nothing that can fail stands behind the creation
    OwnedDescriptor file(CreateTemporary(folder.Get(), hasModel ? kFileOfOwner : kNewFile, name, isNamed));
    if (file.Get() < 0)
        return -1;
    if (hasModel && !GiveTo(file.Get(), status))
    {
        const int error = errno;
        if (isNamed)
            unlinkat(folder.Get(), name.c_str(), 0);
        errno = error;
        return -1;
    }
    path = model;
    path.resize(path.find_last_of(L"/\\") + 1); // 0 without a separator
    path.append(name.begin(), name.end());
    return file.Release();
}

bool NameFile(int descriptor, const wchar_t* path)
{
    const SystemPath name(path);
    return name.IsValid() && LinkTemporary(descriptor, AT_FDCWD, name.Get());
}

bool RenameFile(const wchar_t* path, const wchar_t* newPath)
{
    const SystemPath name(path);
    const SystemPath newName(newPath);
    return name.IsValid() && newName.IsValid() && std::rename(name.Get(), newName.Get()) == 0;
}

bool SyncFolder(int folder)
{
    const WithoutCancellation whole;
    while (fsync(folder) != 0)
    {
        if (errno != EINTR)
            return IsUnsupported(errno);
    }
    return true;
}
} // namespace tev::platform
