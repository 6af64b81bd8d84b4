#include "zip/engine/ZipFields.h"

#include "platform/CalendarTime.h"
#include "platform/PathNames.h"

#include <algorithm>
#include <ctime>

#include <zlib.h>

namespace tev::platform
{
namespace
{
constexpr std::uint16_t kNtfsField = 0x000A;
constexpr std::uint16_t kOldTimestampField = 0x5855;
constexpr std::uint16_t kUnicodePathField = 0x7075;

constexpr std::uint32_t kFolderBit = 0x10;
constexpr std::uint32_t kUnixKindMask = 0xF000;
constexpr std::uint32_t kUnixFile = 0x8000;
constexpr std::uint32_t kUnixFolder = 0x4000;
constexpr std::uint32_t kUnixPipe = 0x1000; // a file whose contents were given to the program through one

/// Code page 437 from 0x80 on; below, it is ASCII.
constexpr char16_t kCodePage437[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE,
    0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, 0x00FF, 0x00D6,
    0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA,
    0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, 0x2591, 0x2592, 0x2593, 0x2502,
    0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, 0x2514,
    0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, 0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550,
    0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C,
    0x2588, 0x2584, 0x258C, 0x2590, 0x2580, 0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320,
    0x2321, 0x00F7, 0x2248, 0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

std::uint64_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

std::optional<std::int64_t> UnixTime(std::string_view field, std::size_t at)
{
    if (field.size() < at + 4)
        return std::nullopt;
    return static_cast<std::int32_t>(LittleEndian(field, at, 4));
}

/// 100-nanosecond steps since 1601; 0 stands for none.
std::optional<std::int64_t> NtfsTime(std::string_view field, std::size_t at)
{
    constexpr std::int64_t kStepsPerSecond = 10'000'000;
    constexpr std::int64_t kSecondsTo1970 = 11'644'473'600;
    const auto steps = static_cast<std::int64_t>(LittleEndian(field, at, 8));
    if (steps <= 0)
        return std::nullopt;
    return steps / kStepsPerSecond - kSecondsTo1970;
}

void ReadTimestamps(std::string_view field, ZipTimes& times)
{
    if (field.empty())
        return;
    // The flags describe the field of the local header; here only the first of the times may be present.
    std::size_t at = 1;
    std::optional<std::int64_t>* const wanted[] = {&times.lastWrite, &times.lastAccess, &times.creation};
    for (unsigned i = 0; i < 3; ++i)
    {
        if ((static_cast<unsigned char>(field[0]) & 1u << i) == 0)
            continue;
        *wanted[i] = UnixTime(field, at);
        at += 4;
    }
}

/// Moves the times into the turn of the 32-bit counter in which the DOS date lies.
void AddTurns(std::uint16_t dosDate, ZipTimes& times)
{
    constexpr std::int64_t kTurn = std::int64_t{1} << 32;
    constexpr std::int64_t kDay = 24 * 3600;
    constexpr std::int64_t kTolerance = 40 * kDay; // more than what is left out below
    constexpr std::int64_t kDaysTo1980 = 3652;
    const std::int64_t years = dosDate >> 9;
    const std::int64_t months = dosDate >> 5 & 0x0F;
    const std::int64_t dosTime = (kDaysTo1980 + years * 1461 / 4 + (months - 1) * 61 / 2 + (dosDate & 0x1F)) * kDay;
    if (!times.lastWrite)
        return;
    const std::int64_t turns = (dosTime - *times.lastWrite + kTurn / 2) / kTurn;
    const std::int64_t turned = *times.lastWrite + turns * kTurn;
    if (turns <= 0 || turned - dosTime > kTolerance || dosTime - turned > kTolerance)
        return;
    for (std::optional<std::int64_t>* const time : {&times.lastWrite, &times.lastAccess, &times.creation})
    {
        if (*time)
            **time += turns * kTurn;
    }
}

void ReadNtfs(std::string_view field, ZipTimes& times)
{
    constexpr std::size_t kReserved = 4;
    constexpr std::uint16_t kTimes = 1;
    constexpr std::size_t kTimesSize = 24;
    if (field.size() < kReserved)
        return;
    const std::string_view found = FindZipField(field.substr(kReserved), kTimes);
    if (found.size() < kTimesSize)
        return;
    if (!times.lastWrite)
        times.lastWrite = NtfsTime(found, 0);
    if (!times.lastAccess)
        times.lastAccess = NtfsTime(found, 8);
    if (!times.creation)
        times.creation = NtfsTime(found, 16);
}

std::string FromCodePage437(std::string_view name)
{
    std::string text;
    for (const char c : name)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
        {
            text += c;
            continue;
        }
        const unsigned wide = kCodePage437[byte - 0x80];
        if (wide >= 0x800)
            text += static_cast<char>(0xE0 | wide >> 12);
        text += static_cast<char>(wide >= 0x800 ? 0x80 | (wide >> 6 & 0x3F) : 0xC0 | wide >> 6);
        text += static_cast<char>(0x80 | (wide & 0x3F));
    }
    return text;
}

/// The name in the field, if its checksum is that of `name`: programs that rename entries may leave an old field.
std::string_view UnicodePath(std::string_view name, std::string_view extra)
{
    constexpr std::size_t kNameAt = 5; // behind the version and the checksum
    const std::string_view field = FindZipField(extra, kUnicodePathField);
    if (field.size() <= kNameAt || field[0] != 1)
        return {};
    const auto bytes = reinterpret_cast<const Bytef*>(name.data());
    const bool isMadeForIt = LittleEndian(field, 1, 4) == crc32_z(0, bytes, name.size());
    return isMadeForIt ? field.substr(kNameAt) : std::string_view();
}
} // namespace

std::string_view FindZipField(std::string_view extra, std::uint16_t number)
{
    while (extra.size() >= 4)
    {
        const std::uint64_t found = LittleEndian(extra, 0, 2);
        const std::uint64_t size = LittleEndian(extra, 2, 2);
        extra.remove_prefix(4);
        if (size > extra.size())
            break;
        if (found == number)
            return extra.substr(0, size);
        extra.remove_prefix(size);
    }
    return {};
}

std::string ZipEntryName(std::string_view name, bool isFlaggedUtf8, std::string_view extra)
{
    if (isFlaggedUtf8)
        return std::string(name);
    const std::string_view unicode = UnicodePath(name, extra);
    if (!unicode.empty())
        return std::string(unicode);
    std::string text(name);
    return IsUtf8(text.c_str()) ? text : FromCodePage437(name);
}

ZipTimes ZipEntryTimes(std::string_view extra, std::uint16_t dosDate, std::uint16_t dosTime)
{
    ZipTimes times;
    ReadTimestamps(FindZipField(extra, kZipTimestampField), times);
    const std::string_view old = FindZipField(extra, kOldTimestampField);
    if (!times.lastAccess)
        times.lastAccess = UnixTime(old, 0);
    if (!times.lastWrite)
        times.lastWrite = UnixTime(old, 4);
    AddTurns(dosDate, times);
    ReadNtfs(FindZipField(extra, kNtfsField), times);
    if (!times.lastWrite)
        times.lastWrite = ZipDosTime(dosDate, dosTime);
    return times;
}

std::optional<std::int64_t> ZipDosTime(std::uint16_t date, std::uint16_t time)
{
    std::tm fields = {};
    fields.tm_year = (date >> 9) + 80;
    fields.tm_mon = (date >> 5 & 0x0F) - 1;
    fields.tm_mday = date & 0x1F;
    fields.tm_hour = time >> 11;
    fields.tm_min = time >> 5 & 0x3F;
    fields.tm_sec = (time & 0x1F) * 2;
    fields.tm_isdst = -1;
    std::int64_t seconds = 0;
    const bool isTime = fields.tm_mon >= 0 && fields.tm_mon < 12 && fields.tm_mday > 0;
    if (!isTime || !FromLocalTime(fields, seconds))
        return std::nullopt;
    return seconds;
}

ZipEntryKind ZipKindOf(std::string_view name, std::uint32_t externalAttributes)
{
    const bool isNamedAsFolder = !name.empty() && name.back() == '/';
    switch (externalAttributes >> 16 & kUnixKindMask)
    {
    case 0:
        return isNamedAsFolder || (externalAttributes & kFolderBit) != 0 ? ZipEntryKind::Folder : ZipEntryKind::File;
    case kUnixFile:
    case kUnixPipe:
        return isNamedAsFolder ? ZipEntryKind::Folder : ZipEntryKind::File;
    case kUnixFolder:
        return ZipEntryKind::Folder;
    default:
        return ZipEntryKind::Special;
    }
}
} // namespace tev::platform
