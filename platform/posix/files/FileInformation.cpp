#include "platform/FileInformation.h"
#include "platform/Cancellation.h"

#include "platform/PathNames.h"
#include "platform/posix/text/SystemTextLock.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr mode_t kFolderOfOwner = 0700;

bool ToSystem(const wchar_t* path, std::string& result)
{
    if (WidePathToSystem(path, result))
        return true;
    errno = ENOENT;
    return false;
}

FileKind KindOf(mode_t mode)
{
    return S_ISREG(mode) ? FileKind::File : S_ISDIR(mode) ? FileKind::Folder : FileKind::Other;
}

bool IsFolder(const char* path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// A folder that exists, or that another process creates meanwhile, is as good as a new one.
bool CreateFolder(const char* path)
{
    if (mkdir(path, kFolderOfOwner) == 0)
        return true;
    const int error = errno;
    const bool isThere = IsFolder(path);
    errno = error;
    return isThere;
}
} // namespace

bool GetFileInformation(const wchar_t* path, FileInformation& information)
{
    std::string name;
    struct statx status;
    if (!ToSystem(path, name) || statx(AT_FDCWD, name.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) != 0)
        return false;
    information.kind = KindOf(status.stx_mode);
    information.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    information.number = status.stx_ino;
    information.size = status.stx_size;
    information.permissions = status.stx_mode & 0777u;
    information.lastWrite = status.stx_mtime.tv_sec;
    information.lastWriteNanoseconds = status.stx_mtime.tv_nsec;
    information.creation.reset();
    if ((status.stx_mask & STATX_BTIME) != 0)
        information.creation = status.stx_btime.tv_sec;
    return true;
}

bool SetLastWriteTime(const wchar_t* path, std::int64_t seconds)
{
    std::string name;
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, 0}};
    return ToSystem(path, name) && utimensat(AT_FDCWD, name.c_str(), times, 0) == 0;
}

bool SetCreationTime(const wchar_t*, std::int64_t)
{
    errno = ENOTSUP;
    return false;
}

bool CreateFolders(const wchar_t* path)
{
    std::string name;
    if (!ToSystem(path, name))
        return false;
    for (std::size_t end = name.find('/', 1); end != name.npos; end = name.find('/', end + 1))
    {
        if (!CreateFolder(name.substr(0, end).c_str()))
            return false;
    }
    return CreateFolder(name.c_str());
}

bool IsWritableFolder(const wchar_t* path)
{
    std::string name;
    return ToSystem(path, name) && IsFolder(name.c_str()) && access(name.c_str(), W_OK | X_OK) == 0;
}

bool CreateTemporaryFolder(const wchar_t* prefix, std::wstring& path)
{
    const WithoutCancellation whole;
    std::string name;
    if (!ToSystem(prefix, name))
        return false;
    if (name.find('/') != name.npos)
    {
        errno = EINVAL;
        return false;
    }
    const char* const chosen = std::getenv("TMPDIR");
    std::string pattern = std::string(chosen != nullptr && *chosen != 0 ? chosen : "/tmp") + "/" + name + "XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        return false;
    try
    {
        path = SystemPathToWide(pattern.c_str());
    }
    catch (...)
    {
        rmdir(pattern.c_str());
        throw;
    }
    return true;
}

std::wstring HomeFolder()
{
    std::wstring home = PathFromEnvironment("HOME");
    if (!home.empty())
        return home;
    const long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    const SystemTextGuard guard;
    passwd entry;
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return {};
    return SystemPathToWide(found->pw_dir);
}

std::wstring ExecutablePath()
{
    std::string target(256, '\0');
    for (;;)
    {
        const ssize_t length = readlink("/proc/self/exe", target.data(), target.size());
        if (length < 0)
            return {};
        if (static_cast<std::size_t>(length) < target.size())
        {
            target.resize(static_cast<std::size_t>(length));
            return SystemPathToWide(target.c_str());
        }
        target.resize(target.size() * 2);
    }
}

std::wstring PathFromEnvironment(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value == nullptr ? std::wstring() : SystemPathToWide(value);
}
} // namespace tev::platform
