#include "platform/posix/files/PosixContainedFile.h"
#include "platform/Cancellation.h"

#include "platform/IoLoops.h"
#include "platform/posix/files/ContainedSteps.h"
#include "platform/posix/files/TemporaryFile.h"

#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kUsualMode = 0666; // the process's umask takes its bits away
constexpr mode_t kOwnersMode = 0600;
constexpr mode_t kGroupBits = 0070;
constexpr mode_t kOthersBits = 0007;

/// Whether a file may get the name: there is none, or an ordinary one that may be written to, whose status this is.
bool MayTakeName(int folder, const char* leaf, const std::optional<FileIdentity>& kept, struct stat& status,
                 bool& isThere)
{
    isThere = fstatat(folder, leaf, &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (!isThere)
        return errno == ENOENT;
    if (!S_ISREG(status.st_mode) || kept == IdentityOf(status))
        return FailWith(S_ISDIR(status.st_mode) ? EISDIR : EEXIST);
    return faccessat(folder, leaf, W_OK, 0) == 0;
}

class PosixContainedFile final : public ContainedFile
{
public:
    PosixContainedFile(OwnedDescriptor folder, std::string leaf, const std::optional<FileIdentity>& kept)
        : m_folder(std::move(folder)), m_leaf(std::move(leaf)), m_kept(kept)
    {
    }

    ~PosixContainedFile() override
    {
        const int error = errno;
        if (m_hasTemporaryName)
            unlinkat(m_folder.Get(), m_temporary.c_str(), 0);
        errno = error;
    }

    bool Create(std::optional<unsigned> permissions)
    {
        struct stat old;
        bool replaces = false;
        if (!MayTakeName(m_folder.Get(), m_leaf.c_str(), m_kept, old, replaces))
            return false;
        const bool takesMode = replaces && !permissions;
        const mode_t mode = takesMode ? kOwnersMode : permissions.value_or(kUsualMode) & kPermissionBits;
        bool isNamed = false;
        m_file = OwnedDescriptor(CreateTemporary(m_folder.Get(), mode, m_temporary, isNamed));
        m_hasTemporaryName = m_file.Get() >= 0 && isNamed;
        return m_file.Get() >= 0 && (!replaces || TakeOver(old, takesMode));
    }

    bool Write(const void* bytes, std::size_t count) override
    {
        const WithoutCancellation whole;
        const int descriptor = m_file.Get();
        const auto writeOnce = [descriptor](const void* part, std::size_t size) {
            return write(descriptor, part, size);
        };
        std::size_t written = 0;
        if (!WriteFully(writeOnce, bytes, count, written))
            return false;
        return written == count || FailWith(ENOSPC);
    }

    bool Keep(std::optional<std::int64_t> lastWrite, FileIdentity& identity) override
    {
        const WithoutCancellation whole;
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
        const bool hasName = !m_hasTemporaryName && LinkTemporary(m_file.Get(), m_folder.Get(), m_leaf.c_str());
        if (!hasName && !m_hasTemporaryName && !LinkBeside())
            return false;
        // The lock lasts until the file has its place, as another extraction removes what is not locked.
        const OwnedDescriptor locked(hasName ? -1 : DuplicateDescriptor(m_file.Get()));
        if (!hasName && locked.Get() < 0)
            return false;
        // Some file systems report only here that the bytes could not be written.
        if (close(m_file.Release()) != 0 && errno != EINTR)
        {
            const int error = errno;
            if (hasName)
                unlinkat(m_folder.Get(), m_leaf.c_str(), 0);
            return FailWith(error);
        }
        return hasName || Replace();
    }

private:
    /// As far as the system permits it; what it does not is no reason to refuse the contents.
    bool TakeOver(const struct stat& old, bool withMode)
    {
        GivenOwner given = GivenOwner::Neither;
        if (!GiveOwner(m_file.Get(), old, given))
            return false;
        mode_t mode = old.st_mode & kPermissionBits;
        if (given == GivenOwner::Neither) // another group may do no more than all others
            mode &= ~kGroupBits | (mode & kOthersBits) << 3;
        return !withMode || fchmod(m_file.Get(), mode) == 0;
    }

    /// A file of that name has come up, or was there from the start.
    bool LinkBeside()
    {
        struct stat old;
        bool isThere = false;
        if (errno != EEXIST || !MayTakeName(m_folder.Get(), m_leaf.c_str(), m_kept, old, isThere))
            return false;
        m_hasTemporaryName = LinkTemporary(m_file.Get(), m_folder.Get(), m_temporary.c_str());
        return m_hasTemporaryName;
    }

    bool Replace()
    {
        m_hasTemporaryName = renameat(m_folder.Get(), m_temporary.c_str(), m_folder.Get(), m_leaf.c_str()) != 0;
        return !m_hasTemporaryName;
    }

    OwnedDescriptor m_folder; ///< held, so that neither keeping nor removing the file needs another one
    OwnedDescriptor m_file{-1};
    std::string m_leaf;
    std::optional<FileIdentity> m_kept;
    std::string m_temporary;
    bool m_hasTemporaryName = false;
};
} // namespace

std::unique_ptr<ContainedFile> CreateContainedFile(OwnedDescriptor folder, std::string leaf,
                                                   std::optional<unsigned> permissions,
                                                   const std::optional<FileIdentity>& kept)
{
    auto file = std::make_unique<PosixContainedFile>(std::move(folder), std::move(leaf), kept);
    return file->Create(permissions) ? std::move(file) : nullptr;
}
} // namespace tev::platform
