#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What the raw fields of an entry of a ZIP archive mean, for every reader of them. `extra` is the extra field of the
// central directory's header; of a damaged one the valid part counts. Safe from several threads at once.

namespace tev::platform
{
constexpr std::uint16_t kZipTimestampField = 0x5455;

/// The entry's name in UTF-8: as it stands when the header's flag says UTF-8 (which is not checked), else the Unicode path
/// field that belongs to the name, else the name itself where it is valid UTF-8 (`zip` on Unix sets no flag), else the name as text of code page 437.
std::string ZipEntryName(std::string_view name, bool isFlaggedUtf8, std::string_view extra);

/// Seconds since 1970-01-01 UTC.
struct ZipTimes
{
    std::optional<std::int64_t> lastWrite;
    std::optional<std::int64_t> lastAccess;
    std::optional<std::int64_t> creation;
};

/// The contents of the first field of that number in an extra field; empty when there is none.
std::string_view FindZipField(std::string_view extra, std::uint16_t number);

/// The times of the extended-timestamp field and its older form, of the NTFS field for those that are missing then, and
/// the last change by the DOS time where no field has it. The first two hold 32 bits, which count from 1901 to 2038: where the
/// last change differs from the DOS time by whole turns of them, the later turn is meant.
ZipTimes ZipEntryTimes(std::string_view extra, std::uint16_t dosDate, std::uint16_t dosTime);

/// The header's own time, which is local; empty when it is not a valid time.
std::optional<std::int64_t> ZipDosTime(std::uint16_t date, std::uint16_t time);

enum class ZipEntryKind
{
    File,
    Folder,
    Special ///< a link, a device or another special file
};

/// A name that ends with '/' is a folder's. Else the Unix mode decides where there is one, and the folder attribute where
/// there is none.
ZipEntryKind ZipKindOf(std::string_view name, std::uint32_t externalAttributes);
} // namespace tev::platform
