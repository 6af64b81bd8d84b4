#pragma once

#include "platform/FileNameRules.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tev
{
/// The path of an archive's entry beneath the destination.
struct EntryName
{
    std::string m_path; ///< UTF-8, components separated by single '/', fit for platform/ContainedFolder.h
    bool m_isFolder = false;
};

/// The path of an entry with that name, in UTF-8; empty when the entry must be skipped. Separators and drives at the
/// start, "." components and doubled separators are left out. Skipped are names that lead upwards, hold a backslash or a
/// NUL, are no UTF-8, have a component above 255 bytes or more than 256 of them, are longer than 4,095 bytes, or name a
/// device on this system. Safe from several threads at once.
[[nodiscard]] std::optional<EntryName> SafeEntryName(
    std::string_view name, const platform::FileNameRules& rules = platform::SystemFileNameRules());

/// The names that an archive's entries have taken, so that no two entries get the same file. One thread at a time.
class EntryNames
{
public:
    enum class Compared
    {
        Exactly,
        Loosely ///< without regard to case, and to dots and spaces at the end of a component
    };
    /// By hashes of the names: those of a hostile archive's folders would take far more memory than it does. Sorted, since
    /// names that all have one place in a hash table can be found.
    using Table = std::map<std::uint64_t, bool>;

    explicit EntryNames(Compared compared = Compared::Loosely) : m_compared(compared) {}

    /// Takes a safe name. False when an earlier one is the same, or it would be both a file and a folder. A folder may
    /// come several times.
    [[nodiscard]] bool Claim(std::string_view path, bool isFolder);

private:
    [[nodiscard]] bool ClaimFolder(std::uint64_t hash);

    Compared m_compared;
    Table m_isFolder;
};
} // namespace tev
