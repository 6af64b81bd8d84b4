#include "platform/posix/files/FileReplacing.h"

#include "platform/PathNames.h"
#include "platform/posix/files/OwnedDescriptor.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
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
constexpr mode_t kOwnFile = 0600;
constexpr mode_t kNewFile = 0666; // the process's umask takes its bits away
constexpr mode_t kPermissions = 07777;
constexpr std::chrono::milliseconds kRetryAfter(1);

bool Fail(int error)
{
    errno = error;
    return false;
}

bool ToSystem(const wchar_t* path, std::string& name)
{
    return WidePathToSystem(path, name) || Fail(EILSEQ);
}

std::string FolderOf(const std::string& name)
{
    const size_t slash = name.rfind('/');
    return slash == std::string::npos ? "." : name.substr(0, slash + 1);
}

int OpenFolder(const std::string& name)
{
    return open(FolderOf(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

/// Whether the file system does not support the operation, on a folder or at all.
bool IsUnsupported(int error)
{
    return error == EINVAL || error == EBADF || error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP ||
           error == EROFS;
}

bool GiveTo(int descriptor, const struct stat& model)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return false;
    const bool isGiven = (status.st_uid == model.st_uid && status.st_gid == model.st_gid) ||
                         fchown(descriptor, model.st_uid, model.st_gid) == 0 || status.st_gid == model.st_gid ||
                         fchown(descriptor, static_cast<uid_t>(-1), model.st_gid) == 0;
    return isGiven && fchmod(descriptor, model.st_mode & kPermissions) == 0;
}

/// Whether there is a file to replace, and it may be replaced; false with errno 0 when there is none.
bool FindModel(const char* name, struct stat& status)
{
    if (stat(name, &status) != 0)
        return Fail(errno == ENOENT ? 0 : errno);
    if (!S_ISREG(status.st_mode))
        return Fail(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    return access(name, W_OK) == 0;
}
} // namespace

bool FollowLinks(const wchar_t* path, std::wstring& target)
{
    std::string name;
    if (!ToSystem(path, name))
        return false;
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
        name = link[0] == '/' ? link : FolderOf(name).append("/").append(link);
    }
}

int LockFolderOf(const wchar_t* path, unsigned timeoutMs)
{
    std::string name;
    if (!ToSystem(path, name))
        return -1;
    OwnedDescriptor folder(OpenFolder(name));
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

int CreateFileLike(const wchar_t* path, const wchar_t* model)
{
    std::string name;
    std::string modelName;
    if (!ToSystem(path, name) || !ToSystem(model, modelName))
        return -1;
    struct stat status;
    const bool hasModel = FindModel(modelName.c_str(), status);
    if (!hasModel && errno != 0)
        return -1;
    if (unlink(name.c_str()) != 0 && errno != ENOENT)
        return -1;
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
    OwnedDescriptor file(open(name.c_str(), flags, hasModel ? kOwnFile : kNewFile));
    if (file.Get() < 0)
        return -1;
    if (hasModel && !GiveTo(file.Get(), status))
    {
        const int error = errno;
        unlink(name.c_str());
        errno = error;
        return -1;
    }
    return file.Release();
}

bool RenameInFolder(const wchar_t* path, const wchar_t* newPath)
{
    std::string name;
    std::string newName;
    if (!ToSystem(path, name) || !ToSystem(newPath, newName))
        return false;
    const OwnedDescriptor folder(OpenFolder(newName));
    if (folder.Get() < 0 || std::rename(name.c_str(), newName.c_str()) != 0)
        return false;
    return fsync(folder.Get()) == 0 || IsUnsupported(errno);
}
} // namespace tev::platform
