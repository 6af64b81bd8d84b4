#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tev
{
/// Where an archive's entry goes beneath its destination.
struct EntryName
{
    std::string m_path; ///< UTF-8, components separated by single '/', fit for platform/ContainedFolder.h
    bool m_isFolder = false;
};

/// The place of the entry that an archive calls so, in UTF-8; nothing when the entry must be skipped. "." components and
/// doubled separators are left out. Skipped on every system, so that an archive gives the same files everywhere: names
/// that are absolute, begin with a drive, lead upwards, hold a backslash or a NUL, are no UTF-8, name a device in any
/// component, have a component above 255 bytes or are longer than 4,095 bytes. Safe from several threads at once.
[[nodiscard]] std::optional<EntryName> SafeEntryName(std::string_view name);
} // namespace tev
