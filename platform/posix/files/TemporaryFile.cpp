#include "platform/posix/files/TemporaryFile.h"
#include "platform/Cancellation.h"

#include "platform/posix/files/OwnedDescriptor.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr std::string_view kPrefix = ".tevtools-";
constexpr std::string_view kSuffix = ".tmp";
constexpr int kMostAttempts = 100;
constexpr std::size_t kLinkPathSize = 32; // "/proc/self/fd/" and a number

void DescriptorPath(int descriptor, char (&path)[kLinkPathSize]) noexcept
{
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
}

int CreateUnnamed(int folder, mode_t mode)
{
    const WithoutCancellation whole;
#if defined(O_TMPFILE)
    OwnedDescriptor file(openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
    char path[kLinkPathSize];
    struct stat status;
    DescriptorPath(file.Get(), path);
    // Without the folder of descriptors, the file could never get a name.
    return file.Get() >= 0 && stat(path, &status) == 0 ? file.Release() : -1;
#else
    return -1;
#endif
}

/// A file that another process takes, or took, for a left one before it was locked is a failure with EEXIST.
bool Lock(int descriptor)
{
    struct stat status;
    const bool isHeld = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK; // else there are no locks
    if (!isHeld && fstat(descriptor, &status) == 0 && status.st_nlink != 0)
        return true;
    errno = EEXIST;
    return false;
}

/// That name is no other file's.
void RemoveUnlocked(int folder, const char* name) noexcept
{
    const int error = errno;
    unlinkat(folder, name, 0);
    errno = error;
}

/// Of a file that is given away: in a namespace there may be no such user.
bool IsNotPermitted(int error) noexcept
{
    return error == EPERM || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

bool IsTemporaryName(std::string_view name) noexcept
{
    if (name.size() <= kPrefix.size() + kSuffix.size() || name.substr(0, kPrefix.size()) != kPrefix ||
        name.substr(name.size() - kSuffix.size()) != kSuffix)
        return false;
    name = name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size());
    return name.find_first_not_of("0123456789-") == name.npos;
}

void RemoveIfLeft(int folder, const char* name) noexcept
{
    const WithoutCancellation whole;
    const int flags = O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
    int descriptor = openat(folder, name, flags | O_WRONLY);
    if (descriptor < 0)
        descriptor = openat(folder, name, flags | O_RDONLY);
    const OwnedDescriptor file(descriptor);
    struct stat status;
    if (file.Get() >= 0 && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
        flock(file.Get(), LOCK_EX | LOCK_NB) == 0)
        unlinkat(folder, name, 0);
}
} // namespace

std::string NewTemporaryName()
{
    // Starts anywhere, as the number of an ended process is given to a later one.
    static std::atomic<std::uint64_t> counter{
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count())};
    return std::string(kPrefix)
        .append(std::to_string(getpid()))
        .append("-")
        .append(std::to_string(counter.fetch_add(1)))
        .append(kSuffix);
}

int CreateTemporary(int folder, mode_t mode, std::string& name, bool& isNamed)
{
    const WithoutCancellation whole;
    name = NewTemporaryName();
    OwnedDescriptor unnamed(CreateUnnamed(folder, mode));
    isNamed = unnamed.Get() < 0;
    if (!isNamed)
    {
        static_cast<void>(flock(unnamed.Get(), LOCK_EX | LOCK_NB));
        return unnamed.Release();
    }
    for (int attempt = 1;; ++attempt)
    {
        const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
        OwnedDescriptor file(openat(folder, name.c_str(), flags, mode));
        if (file.Get() >= 0 && Lock(file.Get()))
            return file.Release();
        if (file.Get() >= 0)
            RemoveUnlocked(folder, name.c_str());
        if (errno != EINTR && (errno != EEXIST || attempt == kMostAttempts))
            return -1;
        name = NewTemporaryName();
    }
}

bool LinkTemporary(int descriptor, int folder, const char* name) noexcept
{
    char path[kLinkPathSize];
    DescriptorPath(descriptor, path);
    return linkat(AT_FDCWD, path, folder, name, AT_SYMLINK_FOLLOW) == 0;
}

bool GiveOwner(int descriptor, const struct stat& replaced, GivenOwner& given) noexcept
{
    constexpr uid_t kSameOwner = static_cast<uid_t>(-1);
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return false;
    given = GivenOwner::Both;
    const bool hasGroup = status.st_gid == replaced.st_gid;
    if ((hasGroup && status.st_uid == replaced.st_uid) || fchown(descriptor, replaced.st_uid, replaced.st_gid) == 0)
        return true;
    given = GivenOwner::Group;
    if (!IsNotPermitted(errno))
        return false;
    if (hasGroup || fchown(descriptor, kSameOwner, replaced.st_gid) == 0)
        return true;
    given = GivenOwner::Neither;
    return IsNotPermitted(errno);
}

void RemoveLeftTemporaries(int folder) noexcept
{
    const WithoutCancellation whole;
    const int error = errno;
    OwnedDescriptor listed(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    DIR* const entries = listed.Get() < 0 ? nullptr : fdopendir(listed.Get());
    if (entries != nullptr)
    {
        static_cast<void>(listed.Release()); // the stream's now
        while (const dirent* const entry = readdir(entries))
        {
            if (IsTemporaryName(entry->d_name))
                RemoveIfLeft(folder, entry->d_name);
        }
        closedir(entries);
    }
    errno = error;
}
} // namespace tev::platform
