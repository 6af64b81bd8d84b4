#include "platform/ContainedFolder.h"
#include "platform/Cancellation.h"

#include "platform/PathNames.h"
#include "platform/posix/files/ContainedSteps.h"
#include "platform/posix/files/FolderRemoval.h"
#include "platform/posix/files/PosixContainedFile.h"
#include "platform/posix/files/SystemPath.h"
#include "platform/posix/files/TemporaryFile.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <mutex>
#include <set>

#include <limits.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr mode_t kNewFolder = 0777; // less the process's umask

/// Calls `enter(folder, component)`, which answers the next folder's descriptor, for each component of the name.
template <class Enter>
int WalkFolders(int root, const std::string& name, Enter&& enter)
{
    int current = DuplicateDescriptor(root);
    for (std::size_t start = 0; current >= 0 && start < name.size();)
    {
        const std::size_t end = std::min(name.find('/', start), name.size());
        const OwnedDescriptor folder(current);
        current = enter(folder.Get(), name.substr(start, end - start).c_str());
        start = end + 1;
    }
    return current;
}

/// How many bytes fit behind the folder's path and a separator, with a NUL.
std::size_t LongestNameIn(const std::string& path)
{
    return PATH_MAX - std::min<std::size_t>(PATH_MAX, path.size() + 2);
}

class PosixContainedFolder final : public ContainedFolder
{
public:
    PosixContainedFolder(OwnedDescriptor descriptor, std::wstring path, std::string systemPath, Following following)
        : m_root(std::move(descriptor)),
          m_path(std::move(path)),
          m_systemPath(std::move(systemPath)),
          m_longestName(LongestNameIn(m_systemPath)),
          m_inOneStep(following == Following::Best && KnowsOneStep())
    {
    }

    FileIdentity Identity() const override
    {
        struct stat status = {};
        static_cast<void>(fstat(m_root.Get(), &status)); // an open descriptor has one
        return IdentityOf(status);
    }

    const std::wstring& Path() const override { return m_path; }

    bool IsInPlace() const noexcept override
    {
        struct stat status;
        return stat(m_systemPath.c_str(), &status) == 0 && IdentityOf(status) == Identity();
    }

    bool HasSpaceFor(std::uint64_t bytes) const noexcept override
    {
        constexpr std::uint64_t kMostReserve = 64 << 20;
        struct statvfs status;
        if (bytes == 0 || fstatvfs(m_root.Get(), &status) != 0)
            return true;
        constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
        if (status.f_blocks == 0 || status.f_frsize == 0) // a file system that does not tell
            return true;
        const std::uint64_t space =
            status.f_bavail <= kMost / status.f_frsize ? std::uint64_t{status.f_bavail} * status.f_frsize : kMost;
        return bytes <= space - std::min(space / 64, kMostReserve) || FailWith(ENOSPC);
    }

    bool TellsNamesApart() const override
    {
        std::string name;
        bool isNamed = false;
        OwnedDescriptor file(CreateTemporary(m_root.Get(), 0600, name, isNamed));
        if (file.Get() < 0 || (!isNamed && !LinkTemporary(file.Get(), m_root.Get(), name.c_str())))
            return true;
        std::string other = name;
        std::transform(other.begin(), other.end(), other.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
        const bool isFound = faccessat(m_root.Get(), other.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
        unlinkat(m_root.Get(), name.c_str(), 0);
        return !isFound;
    }

    void Protect(const FileIdentity& identity) override { m_protected = identity; }
    void ClearLeftovers() override { m_clearsLeftovers = true; }

    bool ReserveDescriptors() noexcept override
    {
        bool isDone = true;
        for (OwnedDescriptor& reserved : m_reserve)
        {
            if (reserved.Get() < 0)
                reserved = OwnedDescriptor(DuplicateDescriptor(m_root.Get()));
            isDone = isDone && reserved.Get() >= 0;
        }
        m_hasReserve = true;
        return isDone;
    }

    bool CreateFolders(std::string_view name) override
    {
        if (!IsContainedName(name))
            return FailWith(EINVAL);
        const OwnedDescriptor folder(OpenOrCreateFolder(std::string(name)));
        return folder.Get() >= 0;
    }

    std::unique_ptr<ContainedFile> CreateFile(std::string_view name, std::optional<unsigned> permissions) override
    {
        if (!IsContainedName(name) || name.size() > m_longestName)
        {
            errno = IsContainedName(name) ? ENAMETOOLONG : EINVAL;
            return nullptr;
        }
        const std::size_t leafAt = name.rfind('/') + 1;
        const std::string folderName(name.substr(0, leafAt == 0 ? 0 : leafAt - 1));
        std::string leaf(name.substr(leafAt));
        OwnedDescriptor folder(OpenOrCreateFolder(folderName));
        if (folder.Get() < 0)
            return nullptr;
        ClearLeftoversIn(folder.Get(), folderName);
        return CreateContainedFile(std::move(folder), std::move(leaf), permissions, m_protected);
    }

    bool Remove(std::string_view name, const FileIdentity& identity) noexcept override
    {
        char folderName[PATH_MAX];
        if (!IsContainedName(name))
            return FailWith(EINVAL);
        if (name.size() >= sizeof folderName)
            return FailWith(ENAMETOOLONG);
        std::memcpy(folderName, name.data(), name.size());
        folderName[name.size()] = '\0';
        char* const slash = std::strrchr(folderName, '/');
        const char* const leaf = slash == nullptr ? folderName : slash + 1;
        if (slash != nullptr)
            *slash = '\0';

        if (slash == nullptr)
            return RemoveLeaf(m_root.Get(), leaf, identity);
        const ReserveRefilled refilled(*this);
        OwnedDescriptor folder(-1);
        const bool isOpen = WithReserve([&] {
            folder = OwnedDescriptor(OpenFolder(folderName));
            return folder.Get() >= 0;
        });
        return isOpen ? RemoveLeaf(folder.Get(), leaf, identity) : errno == ENOENT;
    }

    bool RemoveContents() noexcept override
    {
        const ReserveRefilled refilled(*this);
        return WithReserve([this] {
            const int error = RemoveFolderContents(m_root.Get());
            return error == 0 || FailWith(error);
        });
    }

    bool RemoveItself() noexcept override
    {
        struct stat status;
        if (lstat(m_systemPath.c_str(), &status) != 0 || IdentityOf(status) != Identity())
            return FailWith(ENOENT);
        return rmdir(m_systemPath.c_str()) == 0;
    }

private:
    static bool RemoveLeaf(int folder, const char* leaf, const FileIdentity& identity)
    {
        struct stat status;
        if (fstatat(folder, leaf, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT;
        if (IdentityOf(status) != identity)
            return FailWith(EEXIST);
        return unlinkat(folder, leaf, 0) == 0 || errno == ENOENT;
    }

    /// Does what needs descriptors. Where none is left, the reserved ones are released, one at a time: another thread may
    /// take what is free.
    template <class Work>
    bool WithReserve(Work&& work)
    {
        bool isDone = work();
        for (OwnedDescriptor& reserved : m_reserve)
        {
            if (isDone || (errno != EMFILE && errno != ENFILE))
                return isDone;
            reserved = OwnedDescriptor(-1);
            isDone = work();
        }
        return isDone;
    }

    /// Sets descriptors aside again at the end of its scope.
    class ReserveRefilled
    {
    public:
        explicit ReserveRefilled(PosixContainedFolder& folder) : m_folder(folder) {}
        ~ReserveRefilled()
        {
            const int error = errno;
            if (m_folder.m_hasReserve)
                static_cast<void>(m_folder.ReserveDescriptors());
            errno = error;
        }
        ReserveRefilled(const ReserveRefilled&) = delete;
        ReserveRefilled& operator=(const ReserveRefilled&) = delete;

    private:
        PosixContainedFolder& m_folder;
    };

    /// Without memory: the name is cut into its components in place, and put together again.
    int OpenFolder(char* name) const
    {
        if (m_inOneStep)
            return OpenInOneStep(m_root.Get(), name, kFolderFlags, 0);
        int current = DuplicateDescriptor(m_root.Get());
        for (char* component = name; current >= 0 && component != nullptr;)
        {
            char* const slash = std::strchr(component, '/');
            if (slash != nullptr)
                *slash = '\0';
            const OwnedDescriptor folder(current);
            current = OpenComponent(folder.Get(), component, kFolderFlags, 0);
            if (slash != nullptr)
                *slash = '/';
            component = slash != nullptr ? slash + 1 : nullptr;
        }
        return current;
    }

    int OpenOrCreateFolder(const std::string& name) const
    {
        if (name.empty())
            return DuplicateDescriptor(m_root.Get());
        std::string components = name;
        const int folder = OpenFolder(components.data());
        if (folder >= 0 || errno != ENOENT)
            return folder;
        return WalkFolders(m_root.Get(), name, [](int above, const char* component) {
            if (mkdirat(above, component, kNewFolder) != 0 && errno != EEXIST)
                return -1;
            return OpenComponent(above, component, kFolderFlags, 0);
        });
    }

    void ClearLeftoversIn(int folder, const std::string& name)
    {
        if (!m_clearsLeftovers)
            return;
        {
            const std::lock_guard lock(m_clearing);
            if (!m_cleared.insert(name).second)
                return;
        }
        RemoveLeftTemporaries(folder);
    }

    OwnedDescriptor m_root;
    std::wstring m_path;
    std::string m_systemPath; ///< from the root of the file system
    std::size_t m_longestName;
    std::optional<FileIdentity> m_protected;
    bool m_inOneStep;
    bool m_clearsLeftovers = false;
    std::mutex m_clearing;
    std::set<std::string> m_cleared; ///< folders
    bool m_hasReserve = false;
    std::array<OwnedDescriptor, 2> m_reserve{OwnedDescriptor(-1), OwnedDescriptor(-1)};
};

bool CreateFoldersAt(const std::string& path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1))
    {
        const std::string folder = path.substr(0, end);
        if (mkdir(folder.c_str(), kNewFolder) != 0 && errno != EEXIST && errno != EISDIR)
        {
            struct stat status;
            const int error = errno; // a read-only file system says that before it says that the folder is there
            if (stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
                return FailWith(error);
        }
        if (end == path.npos)
            return true;
    }
}

std::unique_ptr<ContainedFolder> OpenAt(const wchar_t* path, int flags, ContainedFolder::Missing missing,
                                        ContainedFolder::Following following)
{
    const WithoutCancellation whole;
    std::string name;
    if (!WidePathToSystem(path, name))
    {
        errno = EILSEQ;
        return nullptr;
    }
    int descriptor = open(name.c_str(), flags);
    if (descriptor < 0 && errno == ENOENT && missing == ContainedFolder::Missing::Create && CreateFoldersAt(name))
        descriptor = open(name.c_str(), flags);
    if (descriptor < 0)
        return nullptr;
    OwnedDescriptor folder(descriptor);
    std::wstring fullPath = FullPath(path);
    std::string systemPath;
    if (!WidePathToSystem(fullPath.c_str(), systemPath))
        return nullptr;
    return std::make_unique<PosixContainedFolder>(std::move(folder), std::move(fullPath), std::move(systemPath),
                                                  following);
}
} // namespace

std::unique_ptr<ContainedFolder> ContainedFolder::Open(const wchar_t* path, Missing missing, Following following)
{
    return OpenAt(path, kFolderFlags & ~O_NOFOLLOW, missing, following);
}

std::unique_ptr<ContainedFolder> ContainedFolder::OpenItself(const wchar_t* path)
{
    return OpenAt(path, kFolderFlags, Missing::Fail, Following::Best);
}

bool RemoveEmptyFolder(const wchar_t* path) noexcept
{
    const SystemPath name(path);
    return name.IsValid() && (rmdir(name.Get()) == 0 || errno == ENOENT);
}
} // namespace tev::platform
