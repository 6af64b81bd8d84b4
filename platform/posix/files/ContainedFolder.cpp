#include "platform/ContainedFolder.h"

#include "platform/IoLoops.h"
#include "platform/PathNames.h"
#include "platform/posix/files/OwnedDescriptor.h"
#include "platform/posix/files/TemporaryFile.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
// The process's umask takes its bits away.
constexpr mode_t kNewFile = 0666;
constexpr mode_t kNewFolder = 0777;
constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kNewFileFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
constexpr int kMostRetries = 100;

bool Fail(int error)
{
    errno = error;
    return false;
}

FileIdentity IdentityOf(const struct stat& status)
{
    return {status.st_dev, status.st_ino};
}

bool IsContained(std::string_view name)
{
    for (std::size_t start = 0;;)
    {
        const std::size_t end = name.find('/', start);
        const std::string_view component = name.substr(start, end - start);
        if (component.empty() || component == "." || component == "..")
            return false;
        if (end == name.npos)
            return name.find('\0') == name.npos;
        start = end + 1;
    }
}

struct SplitName
{
    std::string folder; ///< empty for the folder itself
    std::string leaf;
};

SplitName Split(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    if (slash == name.npos)
        return {{}, name};
    return {name.substr(0, slash), name.substr(slash + 1)};
}

std::string Joined(std::string folder, const std::string& leaf)
{
    if (!folder.empty())
        folder += '/';
    return folder += leaf;
}

/// Whether the kernel, or a sandbox around the process, does not support the call.
bool IsUnknownCall(int error)
{
    return error == ENOSYS || error == EPERM || error == E2BIG;
}

int OpenInOneStep(int folder, const char* name, int flags, mode_t mode)
{
    open_how how = {};
    how.flags = static_cast<unsigned>(flags);
    how.mode = (flags & O_CREAT) != 0 ? mode : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    for (int retry = 0;; ++retry)
    {
        const long descriptor = syscall(SYS_openat2, folder, name, &how, sizeof how);
        // A rename anywhere in the system while the call runs makes it start again.
        if (descriptor >= 0 || (errno != EAGAIN && errno != EINTR) || retry == kMostRetries)
            return static_cast<int>(descriptor);
    }
}

bool KnowsOneStep()
{
    static const bool isKnown = [] {
        const OwnedDescriptor root(OpenInOneStep(AT_FDCWD, ".", kFolderFlags, 0));
        return root.Get() >= 0 || !IsUnknownCall(errno);
    }();
    return isKnown;
}

int OpenComponent(int folder, const char* name, int flags, mode_t mode)
{
    for (;;)
    {
        const int descriptor = openat(folder, name, flags | O_NOFOLLOW, mode);
        if (descriptor >= 0 || errno != EINTR)
            return descriptor;
    }
}

int Duplicate(int descriptor)
{
    return fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
}

/// Calls `enter(folder, component)`, which returns the next folder's descriptor, for each component of the name.
template <class Enter>
int WalkFolders(int root, const std::string& name, Enter&& enter)
{
    int current = Duplicate(root);
    for (std::size_t start = 0; current >= 0 && start < name.size();)
    {
        const std::size_t end = std::min(name.find('/', start), name.size());
        const OwnedDescriptor folder(current);
        current = enter(folder.Get(), name.substr(start, end - start).c_str());
        start = end + 1;
    }
    return current;
}

/// The names in a folder, whose descriptor is closed.
bool ListFolder(int descriptor, std::vector<std::string>& names)
{
    DIR* const folder = descriptor < 0 ? nullptr : fdopendir(descriptor);
    if (folder == nullptr)
    {
        const OwnedDescriptor closed(descriptor);
        return false;
    }
    errno = 0;
    while (const dirent* entry = readdir(folder))
    {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    const int error = errno;
    closedir(folder);
    errno = error;
    return error == 0;
}

/// The longest name whose full path, with a separator and a NUL, can still be opened.
std::size_t LongestNameIn(const std::wstring& folder)
{
    std::string path;
    if (!WidePathToSystem(folder.c_str(), path))
        return 0;
    return PATH_MAX - std::min<std::size_t>(PATH_MAX, path.size() + 2);
}

class PosixContainedFolder final : public ContainedFolder
{
public:
    PosixContainedFolder(int descriptor, std::wstring path, Following following)
        : m_root(descriptor),
          m_path(std::move(path)),
          m_longestName(LongestNameIn(m_path)),
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

    void Protect(const FileIdentity& identity) override { m_protected = identity; }

    bool CreateFolders(std::string_view name) override
    {
        if (!IsContained(name))
            return Fail(EINVAL);
        const OwnedDescriptor folder(OpenOrCreateFolder(std::string(name)));
        return folder.Get() >= 0;
    }

    std::unique_ptr<ContainedFile> CreateFile(std::string_view name) override;

    bool Remove(std::string_view name, const FileIdentity& identity) override
    {
        if (!IsContained(name))
            return Fail(EINVAL);
        const SplitName split = Split(std::string(name));
        const OwnedDescriptor folder(OpenFolder(split.folder));
        struct stat status;
        if (folder.Get() < 0 || fstatat(folder.Get(), split.leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT;
        if (IdentityOf(status) != identity)
            return Fail(EEXIST);
        return unlinkat(folder.Get(), split.leaf.c_str(), 0) == 0 || errno == ENOENT;
    }

    bool RemoveContents() override { return RemoveContentsOf({}); }

    int OpenFolder(const std::string& name) const
    {
        if (name.empty())
            return Duplicate(m_root.Get());
        if (m_inOneStep)
            return OpenInOneStep(m_root.Get(), name.c_str(), kFolderFlags, 0);
        return WalkFolders(m_root.Get(), name, [](int folder, const char* component) {
            return OpenComponent(folder, component, kFolderFlags, 0);
        });
    }

    int OpenOrCreateFolder(const std::string& name) const
    {
        const int folder = OpenFolder(name);
        if (folder >= 0 || errno != ENOENT)
            return folder;
        return WalkFolders(m_root.Get(), name, [](int above, const char* component) {
            if (mkdirat(above, component, kNewFolder) != 0 && errno != EEXIST)
                return -1;
            return OpenComponent(above, component, kFolderFlags, 0);
        });
    }

private:
    /// Holds no descriptor while it is in an inner folder: folders may be nested deeper than there are descriptors.
    bool RemoveContentsOf(const std::string& name)
    {
        std::vector<std::string> folders;
        int error = RemoveLeaves(name, folders);
        for (const std::string& inner : folders)
        {
            const bool isEmpty = RemoveContentsOf(inner);
            const SplitName split = Split(inner);
            const OwnedDescriptor above(isEmpty ? OpenFolder(split.folder) : -1);
            if (!isEmpty || above.Get() < 0 || unlinkat(above.Get(), split.leaf.c_str(), AT_REMOVEDIR) != 0)
                error = errno;
        }
        return error == 0 || Fail(error);
    }

    /// Returns the last error; appends the folders, which it leaves.
    int RemoveLeaves(const std::string& name, std::vector<std::string>& folders)
    {
        const OwnedDescriptor folder(OpenFolder(name));
        std::vector<std::string> leaves;
        const int listed = folder.Get() < 0 ? -1 : openat(folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (!ListFolder(listed, leaves))
            return errno;
        int error = 0;
        for (const std::string& leaf : leaves)
        {
            // For a folder, systems report either EISDIR or EPERM.
            if (unlinkat(folder.Get(), leaf.c_str(), 0) == 0 || errno == ENOENT)
                continue;
            if (errno == EISDIR || errno == EPERM)
                folders.push_back(Joined(name, leaf));
            else
                error = errno;
        }
        return error;
    }

    OwnedDescriptor m_root;
    std::wstring m_path;
    std::size_t m_longestName;
    std::optional<FileIdentity> m_protected;
    bool m_inOneStep;
};

class PosixContainedFile final : public ContainedFile
{
public:
    /// Keeps the folder open, so that neither keeping nor removing the file needs another descriptor or memory.
    PosixContainedFile(OwnedDescriptor folder, std::string leaf) : m_folder(std::move(folder)), m_leaf(std::move(leaf))
    {
    }

    ~PosixContainedFile() override
    {
        const int error = errno;
        if (m_file.Get() >= 0 || m_isLeft)
            unlinkat(m_folder.Get(), WrittenName(), 0);
        errno = error;
    }

    /// Creates the file under its own name, which no other has.
    bool Create() { return Open(); }

    /// Creates the file under a temporary name.
    bool CreateBeside()
    {
        m_temporary = NewTemporaryName();
        return Open();
    }

    bool Write(const void* bytes, std::size_t count) override
    {
        const int descriptor = m_file.Get();
        const auto writeOnce = [descriptor](const void* part, std::size_t size) {
            return write(descriptor, part, size);
        };
        std::size_t written = 0;
        if (!WriteFully(writeOnce, bytes, count, written))
            return false;
        return written == count || Fail(ENOSPC);
    }

    bool Keep(std::optional<std::int64_t> lastWrite, FileIdentity& identity) override
    {
        struct stat status;
        if (fstat(m_file.Get(), &status) != 0)
            return false;
        if (lastWrite)
        {
            // A file system that cannot keep the time keeps the file all the same.
            const timespec times[2] = {{0, UTIME_OMIT}, {*lastWrite, 0}};
            static_cast<void>(futimens(m_file.Get(), times));
        }
        identity = IdentityOf(status);
        m_isLeft = true;
        if (close(m_file.Release()) != 0 && errno != EINTR)
            return false;
        m_isLeft =
            !m_temporary.empty() && renameat(m_folder.Get(), m_temporary.c_str(), m_folder.Get(), m_leaf.c_str()) != 0;
        return !m_isLeft;
    }

private:
    const char* WrittenName() const { return m_temporary.empty() ? m_leaf.c_str() : m_temporary.c_str(); }

    bool Open()
    {
        m_file = OwnedDescriptor(OpenComponent(m_folder.Get(), WrittenName(), kNewFileFlags, kNewFile));
        return m_file.Get() >= 0;
    }

    OwnedDescriptor m_folder;
    OwnedDescriptor m_file{-1};
    std::string m_leaf;
    std::string m_temporary; ///< empty for a file that is written under its own name
    bool m_isLeft = false;   ///< closed, and not kept
};

std::unique_ptr<ContainedFile> PosixContainedFolder::CreateFile(std::string_view wanted)
{
    if (!IsContained(wanted) || wanted.size() > m_longestName)
    {
        errno = IsContained(wanted) ? ENAMETOOLONG : EINVAL;
        return nullptr;
    }
    const SplitName split = Split(std::string(wanted));
    OwnedDescriptor folder(OpenOrCreateFolder(split.folder));
    if (folder.Get() < 0)
        return nullptr;
    const int above = folder.Get();
    auto file = std::make_unique<PosixContainedFile>(std::move(folder), split.leaf);
    if (file->Create())
        return file;
    if (errno != EEXIST)
        return nullptr;

    struct stat status;
    if (fstatat(above, split.leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return nullptr;
    if (!S_ISREG(status.st_mode) || m_protected == IdentityOf(status))
    {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EEXIST;
        return nullptr;
    }
    if (faccessat(above, split.leaf.c_str(), W_OK, 0) != 0 || !file->CreateBeside())
        return nullptr;
    return file;
}

bool CreateFoldersAt(const std::string& path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1))
    {
        const std::string folder = path.substr(0, end);
        if (mkdir(folder.c_str(), kNewFolder) != 0 && errno != EEXIST && errno != EISDIR)
        {
            struct stat status;
            const int error = errno; // EROFS comes before EEXIST
            if (stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
                return Fail(error);
        }
        if (end == path.npos)
            return true;
    }
}

std::unique_ptr<ContainedFolder> OpenAt(const wchar_t* path, int flags, ContainedFolder::Missing missing,
                                        ContainedFolder::Following following)
{
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
    return std::make_unique<PosixContainedFolder>(folder.Release(), FullPath(path), following);
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

bool RemoveEmptyFolder(const wchar_t* path)
{
    std::string name;
    if (!WidePathToSystem(path, name))
        return Fail(EILSEQ);
    return rmdir(name.c_str()) == 0 || errno == ENOENT;
}
} // namespace tev::platform
