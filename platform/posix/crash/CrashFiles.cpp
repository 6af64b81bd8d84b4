#include "platform/posix/crash/CrashFiles.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tev::platform
{
int CreatePrivateFile(const char* path) noexcept
{
    // A file that another process has open, or a link's target, must not change.
    unlink(path);
    return open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
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

int WriteLockedRecord(const char* path, std::string_view record, const char* logPath) noexcept
{
    constexpr char kLogKey[] = "log";
    const int file = CreatePrivateFile(path);
    if (file < 0)
        return -1;
    flock(file, LOCK_EX | LOCK_NB);
    WriteAllBytes(file, record.data(), record.size());
    if (logPath != nullptr && *logPath != '\0')
    {
        WriteAllBytes(file, kLogKey, sizeof kLogKey);
        WriteAllBytes(file, logPath, std::strlen(logPath) + 1);
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
} // namespace tev::platform
