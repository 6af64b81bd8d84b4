#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace tev::platform
{
/// Tells one file or folder from every other one, whatever its names are.
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

/// A new file of a ContainedFolder. It gets its name when it is kept, where the system can create files without one, so
/// that a process that is killed leaves nothing behind; else it has a temporary name until then. A file that is not kept
/// is deleted with the object, and a file that it was to replace stays unchanged; that needs neither memory nor a
/// descriptor. Operations that fail return false with the error in errno. One thread at a time.
class ContainedFile
{
public:
    virtual ~ContainedFile() = default;
    ContainedFile(const ContainedFile&) = delete;
    ContainedFile& operator=(const ContainedFile&) = delete;

    [[nodiscard]] virtual bool Write(const void* bytes, std::size_t count) = 0;
    /// Closes the file and gives it its name, with that time of its last change if one is given (seconds since 1970-01-01
    /// UTC).
    [[nodiscard]] virtual bool Keep(std::optional<std::int64_t> lastWrite, FileIdentity& identity) = 0;

protected:
    ContainedFile() = default;
};
} // namespace tev::platform
