#include "platform/posix/files/FolderRemoval.h"
#include "platform/Cancellation.h"

#include "platform/posix/files/OwnedDescriptor.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr int kListingFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr std::size_t kListingSize = 4096;

/// Calls `visit(name)` for each entry of a folder that is open for reading, from its start. readdir would need memory.
/// Answers the errno of a failure, else 0.
template <class Visit>
int ForEachEntry(int folder, Visit&& visit)
{
    if (lseek(folder, 0, SEEK_SET) != 0)
        return errno;
    alignas(dirent64) char listing[kListingSize];
    for (;;)
    {
        const long size = syscall(SYS_getdents64, folder, listing, sizeof listing);
        if (size < 0)
            return errno;
        if (size == 0)
            return 0;
        for (long at = 0; at < size;)
        {
            const auto* const entry = reinterpret_cast<const dirent64*>(listing + at);
            at += entry->d_reclen;
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..")
                visit(entry->d_name);
        }
    }
}

/// Folders may lie deeper than there are descriptors or than paths may be long. So an inner folder is moved up into the
/// first one before its turn comes.
class Removal
{
public:
    explicit Removal(int folder) : m_folder(folder) {}

    int Run()
    {
        const WithoutCancellation whole;
        const OwnedDescriptor listing(openat(m_folder, ".", kListingFlags));
        if (listing.Get() < 0)
            return errno;
        for (;;)
        {
            m_error = 0;
            m_hasProgressed = false;
            bool isEmpty = true;
            const int listed = ForEachEntry(listing.Get(), [&](const char* name) {
                isEmpty = false;
                if (!RemoveLeaf(m_folder, name))
                    RemoveFolder(name);
            });
            if (listed != 0 || isEmpty)
                return listed;
            if (!m_hasProgressed)
                return m_error;
        }
    }

private:
    /// False for a folder.
    bool RemoveLeaf(int folder, const char* name)
    {
        if (unlinkat(folder, name, 0) == 0)
            m_hasProgressed = true;
        else if (errno == EISDIR || errno == EPERM) // which of them depends on the system
            return false;
        else if (errno != ENOENT)
            m_error = errno;
        return true;
    }

    void RemoveFolder(const char* name)
    {
        const WithoutCancellation whole;
        int listed = 0;
        {
            const OwnedDescriptor inner(openat(m_folder, name, kListingFlags));
            listed = inner.Get() < 0 ? errno : ForEachEntry(inner.Get(), [&](const char* leaf) {
                if (!RemoveLeaf(inner.Get(), leaf))
                    MoveUp(inner.Get(), leaf);
            });
        }
        Count(unlinkat(m_folder, name, AT_REMOVEDIR) == 0);
        m_error = listed != 0 ? listed : m_error; // and not that the folder is not empty
    }

    void MoveUp(int from, const char* name)
    {
        constexpr unsigned kMostTries = 1000;
        char unused[40];
        for (unsigned i = 0; i < kMostTries; ++i)
        {
            std::snprintf(unused, sizeof unused, ".tevtools-folder-%u", m_nextName++);
            if (renameat(from, name, m_folder, unused) == 0)
                return Count(true);
            if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR)
                break;
        }
        Count(unlinkat(from, name, AT_REMOVEDIR) == 0); // perhaps an empty one that may not be moved
    }

    void Count(bool isDone)
    {
        if (isDone)
            m_hasProgressed = true;
        else
            m_error = errno;
    }

    const int m_folder;
    unsigned m_nextName = 0;
    int m_error = 0;
    bool m_hasProgressed = false;
};
} // namespace

int RemoveFolderContents(int folder) noexcept
{
    return Removal(folder).Run();
}
} // namespace tev::platform
