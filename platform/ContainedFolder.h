#pragma once

#include "platform/ContainedFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tev::platform
{
/// A folder that is held open while files are created and removed in it, by names relative to it. Nothing outside is ever
/// reached: a name that leads through a symbolic link fails, also when the link comes up meanwhile.
///
/// Names are UTF-8, their components separated by single '/', none of them "." or ".."; others fail with EINVAL. What may
/// stand in a name that comes from outside is decided by zip/EntryName.h. Operations that fail return false, or null,
/// with the error in errno, where LastSystemError() reads it. Safe from several threads at once.
class ContainedFolder
{
public:
    enum class Missing
    {
        Fail,
        Create ///< with the folders above it
    };
    /// How names are followed; what the system can do in one step is also done component by component where it cannot.
    enum class Following
    {
        Best,
        ByComponent
    };

    /// Opens the folder at a path in the library's wide form. The path itself may lead through links.
    static std::unique_ptr<ContainedFolder> Open(const wchar_t* path, Missing missing = Missing::Fail,
                                                 Following following = Following::Best);
    /// As Open, but fails where the last component of the path is a link.
    static std::unique_ptr<ContainedFolder> OpenItself(const wchar_t* path);

    virtual ~ContainedFolder() = default;
    ContainedFolder(const ContainedFolder&) = delete;
    ContainedFolder& operator=(const ContainedFolder&) = delete;

    virtual FileIdentity Identity() const = 0;
    /// The full path under which it was opened.
    virtual const std::wstring& Path() const = 0;
    /// Whether the path still leads to this very folder.
    virtual bool IsInPlace() const noexcept = 0;
    /// Whether so much fits on the folder's disk, of which a little is left to other programs. True where the system does
    /// not tell.
    [[nodiscard]] virtual bool HasSpaceFor(std::uint64_t bytes) const noexcept = 0;

    /// Whether names that differ only in case are those of different files.
    virtual bool TellsNamesApart() const = 0;

    /// A file that CreateFile must not replace, because it is being read.
    virtual void Protect(const FileIdentity& identity) = 0;
    /// From now on temporary files that killed processes have left are deleted from each folder in which a file is
    /// created. Those of running processes stay, also of processes in other containers.
    virtual void ClearLeftovers() = 0;
    /// Sets descriptors aside, so that the operations that remove find some when the process has none left. One
    /// thread at a time with those.
    [[nodiscard]] virtual bool ReserveDescriptors() noexcept = 0;

    /// Creates a folder, and those above it that are missing. True when it is there already.
    [[nodiscard]] virtual bool CreateFolders(std::string_view name) = 0;
    /// Creates a file, and the folders above it that are missing, with these of the nine permission bits less those that
    /// the process's umask takes away. An ordinary file of that name that may be written to is replaced in one step when
    /// the new one is kept: that takes over the owner and the group, as far as the system permits it, and, where no
    /// permissions are given, its nine bits. Anything else of that name is a failure, and so is a name that is too long
    /// behind the folder's path for other programs to open it. The file must be destroyed before the folder.
    [[nodiscard]] virtual std::unique_ptr<ContainedFile> CreateFile(std::string_view name,
                                                                    std::optional<unsigned> permissions = {}) = 0;

    // Removing needs no memory.

    /// Removes a file, if it has that identity: another one of that name stays, with EEXIST. True when there is none.
    [[nodiscard]] virtual bool Remove(std::string_view name, const FileIdentity& identity) noexcept = 0;
    /// Removes everything in the folder, to any depth; links are removed, not followed. Goes on after a failure, to leave
    /// as little as possible.
    [[nodiscard]] virtual bool RemoveContents() noexcept = 0;
    /// Removes the folder itself, which must be empty and in place.
    [[nodiscard]] virtual bool RemoveItself() noexcept = 0;

protected:
    ContainedFolder() = default;
};

/// Removes an empty folder, without memory; a link to one stays. True when there is nothing.
[[nodiscard]] bool RemoveEmptyFolder(const wchar_t* path) noexcept;
} // namespace tev::platform
