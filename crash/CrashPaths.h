#pragma once

#include "platform/CrashDumps.h"
#include "services/CPathString.h"

#include <filesystem>
#include <optional>
#include <string>

// Paths and texts between the library's form and the system's.
namespace tev
{
/// Empty for a name that the system cannot have.
std::filesystem::path SystemFilePath(const CXTString<wchar_t>& path);
CPathString WideFilePath(const std::filesystem::path& path);
std::string Utf8(const CXTString<wchar_t>& text);
CXTString<wchar_t> FromUtf8(const std::string& text);

/// Deletes a file or an empty folder, where it is there.
void RemoveReportFile(const CXTString<wchar_t>& path) noexcept;

/// A folder of this process alone beside a file that is going to be written there: no other process holds its lock. It is
/// named like the file with the process's identifier appended. Locked while it is in use, and deleted with its contents.
class PrivateFolder
{
public:
    /// Throws when the folder cannot be created.
    explicit PrivateFolder(const std::filesystem::path& beside);
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }

private:
    std::filesystem::path m_path;
    std::optional<platform::LeftRecord> m_lock; ///< of a file in it: saving takes that of the folder
};
/// Deletes those of reports that ended processes have left in a folder, where their names begin so.
void RemoveLeftFolders(const CXTString<wchar_t>& folder, const CXTString<wchar_t>& start) noexcept;
/// Deletes the folder that a process which has ended left beside the file.
void RemovePrivateFolder(const std::filesystem::path& beside, unsigned process) noexcept;
} // namespace tev
