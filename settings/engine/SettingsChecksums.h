#pragma once

#include <cstdint>
#include <string_view>

// Checksums by which damage of a database is noticed: FNV-1a with 32 bits, which no change of a single byte leaves as it
// was. They do not protect from intent. docs/formats.md describes them.

namespace tev
{
/// Of a key: its number, that of the key above it (0 for a root) and its names.
std::int64_t SettingsKeyChecksum(std::int64_t id, std::int64_t parent, std::string_view fold,
                                 std::string_view name) noexcept;

/// What a value is without its data: the high half of its checksum.
struct SettingsValueHead
{
    std::int64_t key;
    std::string_view fold;
    std::string_view name;
    std::int64_t type;
    std::int64_t size;
};

std::int64_t SettingsValueChecksum(const SettingsValueHead& head, std::string_view data) noexcept;

/// Whether the high half of a checksum is that of the value, whose data need not be read for this.
bool IsChecksumOfHead(std::int64_t checksum, const SettingsValueHead& head) noexcept;
} // namespace tev
