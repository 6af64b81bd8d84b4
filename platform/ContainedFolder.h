#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tev::platform
{
/// Identifies a file or folder, independent of its names.
struct FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t number = 0;

    friend bool operator==(const FileIdentity& a, const FileIdentity& b)
    {
        return a.device == b.device && a.number == b.number;
    }
    friend bool operator!=(const FileIdentity& a, const FileIdentity& b) { return !(a == b); }
};

/// A new file of a ContainedFolder. Unless it is kept, the destructor removes it, and a file of that name that existed
/// before is unchanged. Operations that fail return false with the error in errno. One thread at a time.
class ContainedFile
{
public:
    virtual ~ContainedFile() = default;
    ContainedFile(const ContainedFile&) = delete;
    ContainedFile& operator=(const ContainedFile&) = delete;

    [[nodiscard]] virtual bool Write(const void* bytes, std::size_t count) = 0;
    /// Closes the file and keeps it under its name, with that time of its last change if one is given (seconds since
    /// 1970-01-01 UTC).
    [[nodiscard]] virtual bool Keep(std::optional<std::int64_t> lastWrite, FileIdentity& identity) = 0;

protected:
    ContainedFile() = default;
};

/// A folder that is held open while files are created and removed in it, by names relative to it. Nothing outside is
/// ever reached: a name that leads through a symbolic link fails, also when the link is created meanwhile.
///
/// Names are UTF-8, their components separated by single '/', none of them "." or ".."; others fail with EINVAL. Which
/// names from outside are acceptable is decided by zip/EntryName.h. Operations that fail return false, or null,
/// with the error in errno, where LastSystemError() reads it. Safe from several threads at once.
class ContainedFolder
{
public:
    enum class Missing
    {
        Fail,
        Create ///< with the folders above it
    };
    /// How names are resolved: in one system call where the kernel supports it, else component by component.
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

    /// A file that CreateFile must not replace, because it is being read.
    virtual void Protect(const FileIdentity& identity) = 0;

    /// Creates a folder, and those above it that are missing. True when it exists already.
    [[nodiscard]] virtual bool CreateFolders(std::string_view name) = 0;
    /// Creates a file, and the folders above it that are missing, with the permissions of every new file. A regular
    /// file of that name that may be written to is replaced in one step when the new one is kept; anything else of that
    /// name is a failure, and so is a full path that is too long to be opened. The file must be destroyed before the
    /// folder.
    [[nodiscard]] virtual std::unique_ptr<ContainedFile> CreateFile(std::string_view name) = 0;
    /// Removes a file if it has that identity; another file of that name stays, and the call fails with EEXIST. True
    /// when there is none.
    [[nodiscard]] virtual bool Remove(std::string_view name, const FileIdentity& identity) = 0;
    /// Removes the contents of the folder recursively; links are removed, their targets stay. Continues after a
    /// failure, to leave as little as possible.
    [[nodiscard]] virtual bool RemoveContents() = 0;

protected:
    ContainedFolder() = default;
};

/// Removes an empty folder; a link to one stays. True when there is none.
[[nodiscard]] bool RemoveEmptyFolder(const wchar_t* path);
} // namespace tev::platform
