#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tev
{
/// The path of an archive's entry beneath the destination.
struct EntryName
{
    std::string m_path; ///< UTF-8, components separated by single '/', fit for platform/ContainedFolder.h
    bool m_isFolder = false;
};

/// The path of an entry with that name, in UTF-8; empty when the entry must be skipped. "." components and
/// doubled separators are left out. Skipped on every system, so that an archive gives the same files everywhere: names
/// that are absolute, begin with a drive, lead upwards, hold a backslash or a NUL, are no UTF-8, name a device in any
/// component, have a component above 255 bytes or more than 256 of them, or are longer than 4,095 bytes. Safe from several threads at once.
[[nodiscard]] std::optional<EntryName> SafeEntryName(std::string_view name);

/// The names that an archive's entries have taken, so that no two entries get the same file, also on systems that ignore
/// case. One thread at a time.
class EntryNames
{
public:
    /// Takes a safe name. False when it differs from an earlier one at most in case, or would be both a file and a folder.
    /// A folder may come several times.
    [[nodiscard]] bool Claim(std::string_view path, bool isFolder);

private:
    [[nodiscard]] bool ClaimFolder(std::uint64_t hash);

    /// By hashes of the folded names: the names of a hostile archive's folders would take far more memory than it does.
    std::unordered_map<std::uint64_t, bool> m_isFolder;
};
} // namespace tev
