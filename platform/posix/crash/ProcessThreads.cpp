#include "platform/posix/crash/ProcessThreads.h"

#include <charconv>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
/// As the system call returns it; opendir would allocate.
struct FolderEntry
{
    std::uint64_t inode;
    std::int64_t offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};
} // namespace

std::size_t ListThreads(pid_t process, pid_t first, pid_t* threads, std::size_t most) noexcept
{
    char path[32] = "/proc/";
    constexpr char kTasks[] = "/task";
    std::memcpy(std::to_chars(path + 6, path + 20, process).ptr, kTasks, sizeof kTasks);
    const int folder = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return 0;
    std::size_t count = 0;
    if (first != 0)
        threads[count++] = first;
    alignas(FolderEntry) char entries[2048];
    for (;;)
    {
        const long size = syscall(SYS_getdents64, folder, entries, sizeof entries);
        if (size <= 0)
            break;
        for (long at = 0; at < size;)
        {
            const auto* const entry = reinterpret_cast<const FolderEntry*>(entries + at);
            pid_t id = 0;
            std::from_chars(entry->name, entry->name + std::strlen(entry->name), id);
            if (id != 0 && id != first && count < most)
                threads[count++] = id;
            at += entry->length;
        }
    }
    close(folder);
    return count;
}
} // namespace tev::platform
