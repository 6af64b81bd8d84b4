#include "platform/posix/crash/CrashFiles.h"

#include <cerrno>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr mode_t kPrivate = 0600;
}

int CreatePrivateFile(const char* path) noexcept
{
    // A file that another process has open, or a link's target, must not change.
    unlink(path);
    const int file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kPrivate);
    if (file >= 0)
        fchmod(file, kPrivate); // whatever the process's mask of permissions takes away
    return file;
}

bool WriteAllBytes(int file, const void* bytes, std::size_t size) noexcept
{
    const auto* at = static_cast<const char*>(bytes);
    while (size != 0)
    {
        const ssize_t count = write(file, at, size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        at += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

int WriteLockedRecord(const char* path, std::string_view record, std::string_view notes) noexcept
{
    const int file = *path == '\0' ? -1 : CreatePrivateFile(path);
    if (file < 0)
        return -1;
    flock(file, LOCK_EX | LOCK_NB);
    if (!WriteAllBytes(file, record.data(), record.size()) || !WriteAllBytes(file, notes.data(), notes.size()))
    {
        unlink(path);
        close(file);
        return -1;
    }
    fdatasync(file); // the machine may go down before the report is finished
    return file;
}

std::size_t ReadWhole(const char* path, char* buffer, std::size_t capacity) noexcept
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return 0;
    std::size_t size = 0;
    while (size < capacity)
    {
        const ssize_t count = read(file, buffer + size, capacity - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        size += static_cast<std::size_t>(count);
    }
    close(file);
    return size;
}

void LiftLimits() noexcept
{
    sigset_t tooLarge;
    sigemptyset(&tooLarge);
    sigaddset(&tooLarge, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &tooLarge, nullptr);
    for (const auto resource : {RLIMIT_FSIZE, RLIMIT_NOFILE, RLIMIT_AS, RLIMIT_DATA})
    {
        rlimit limit = {};
        if (getrlimit(resource, &limit) != 0)
            continue;
        limit.rlim_cur = limit.rlim_max;
        setrlimit(resource, &limit);
    }
}

PrivateDumpFile::PrivateDumpFile(const char* path) noexcept
    : m_path(path), m_file(*path == '\0' ? -1 : CreatePrivateFile(path))
{
}

PrivateDumpFile::~PrivateDumpFile()
{
    if (m_file < 0)
        return;
    if (m_isKept)
        fdatasync(m_file); // where the file system can
    else
        unlink(m_path);
    close(m_file);
}

bool PrivateDumpFile::Append(const void* bytes, std::size_t size) noexcept
{
    return WriteAllBytes(m_file, bytes, size);
}

bool PrivateDumpFile::Overwrite(const void* bytes, std::size_t size) noexcept
{
    return lseek(m_file, 0, SEEK_SET) == 0 && WriteAllBytes(m_file, bytes, size);
}
} // namespace tev::platform
