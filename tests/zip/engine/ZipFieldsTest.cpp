#include "zip/engine/ZipFields.h"

#include "tests/support/TimeZone.h"

namespace
{
using namespace tev::test;
using namespace tev::platform;

TEST(ZipFields, NamesAreWhatTheFlagOrTheUnicodeFieldSays)
{
    const std::string cp437 = "caf\x82\xE1\xFB\xFF";
    const std::string utf8 = "caf\xC3\xA9\xC3\x9F\xE2\x88\x9A\xC2\xA0";
    // The checksum is that of "caf" and the raw byte 0x82 (crc32 of Python's zlib).
    const std::string field = "\x75\x70\x0A\x00\x01"s + "\xCB\x08\xD3\x71"s + "\xE2\x98\x83.x"s;
    EXPECT_EQ(ZipEntryName(cp437, false, {}), utf8);
    EXPECT_EQ(ZipEntryName(utf8, true, {}), utf8);
    EXPECT_EQ(ZipEntryName(utf8, false, {}), utf8);
    EXPECT_EQ(ZipEntryName("caf\x82", false, field), "\xE2\x98\x83.x");
    EXPECT_EQ(ZipEntryName("caf\x83", false, field), "caf\xC3\xA2") << "the field is of another name";
    EXPECT_EQ(ZipEntryName("caf\x82", false, "\x01\x00\x00\x00"s + field), "\xE2\x98\x83.x");
    EXPECT_EQ(ZipEntryName("caf\x82", false, field.substr(0, 10)), "caf\xC3\xA9") << "cut off";
    EXPECT_EQ(ZipEntryName("a\\b", false, {}), "a\\b");
}

TEST(ZipFields, TimesComeFromTheFinestFieldThatHasThem)
{
    const std::string unix1 = "\x55\x54\x05\x00\x07\x00\xCA\x9A\x3B"s; // 1,000,000,000, and more in the other header
    const std::string ntfs = "\x0A\x00\x20\x00\0\0\0\0\x01\x00\x18\x00"s + "\x01\x3C\xA4\x29\x93\x5D\xC2\x01"s +
                             "\x00\x80\x3E\xD5\xDE\xB1\x9D\x01"s + "\0\0\0\0\0\0\0\0"s;
    ZipTimes times = ZipEntryTimes(ntfs + unix1, 0, 0);
    EXPECT_EQ(times.lastWrite, 1000000000);
    EXPECT_EQ(times.lastAccess, 0);
    EXPECT_EQ(times.creation, std::nullopt);
    EXPECT_EQ(ZipEntryTimes(ntfs, 0, 0).lastWrite, 1032189016);
    EXPECT_EQ(ZipEntryTimes("\x55\x58\x08\x00\x01\0\0\0\xFF\xFF\xFF\xFF"s, 0, 0).lastWrite, -1);
    for (std::size_t size = 0; size < ntfs.size(); ++size) // a sanitizer sees what is read behind the end
        EXPECT_EQ(ZipEntryTimes(std::string(ntfs, 0, size), 0, 0).lastWrite, std::nullopt);

    const TimeZone zone("UTC-2");
    EXPECT_EQ(ZipDosTime(0x21 | 40 << 9, 12 << 11 | 30 << 5 | 5), 1577874610); // 2020-01-01 12:30:10 there
    EXPECT_EQ(ZipDosTime(0, 0), std::nullopt);
}

TEST(ZipFields, DosDateDecidesTheTurnOf32Bits)
{
    const auto lastWrite = [](std::uint32_t stored, unsigned year, unsigned month) {
        std::string field = "\x55\x54\x05\x00\x01"s;
        for (unsigned i = 0; i < 4; ++i)
            field += static_cast<char>(stored >> 8 * i);
        return ZipEntryTimes(field, static_cast<std::uint16_t>((year - 1980) << 9 | month << 5 | 1), 0).lastWrite;
    };
    EXPECT_EQ(lastWrite(2145916799, 2037, 12), 2145916799);
    EXPECT_EQ(lastWrite(2177452800, 2039, 1), 2177452800);                  // has the sign bit
    EXPECT_EQ(lastWrite(4260211200u - 2000, 2104, 12), 4260211200u - 2000); // the last of the first turn is in 2106
    EXPECT_EQ(lastWrite(4323110400u & 0xFFFFFFFF, 2106, 12), 4323110400);
    EXPECT_EQ(lastWrite(2177452800, 2020, 1), 2177452800 - (std::int64_t{1} << 32)) << "the date is another one";
    EXPECT_EQ(lastWrite(1000000000, 2001, 9), 1000000000);
    EXPECT_EQ(lastWrite(0xFFFFFFFF, 1980, 1), -1);
}

TEST(ZipFields, DistinguishesKinds)
{
    EXPECT_EQ(ZipKindOf("a", 0), ZipEntryKind::File);
    EXPECT_EQ(ZipKindOf("a", 0x81A40000), ZipEntryKind::File);
    EXPECT_EQ(ZipKindOf("a", 0x11A40000), ZipEntryKind::File);
    EXPECT_EQ(ZipKindOf("a", 0x81A40010), ZipEntryKind::File);
    EXPECT_EQ(ZipKindOf("a/", 0), ZipEntryKind::Folder);
    EXPECT_EQ(ZipKindOf("a", 0x10), ZipEntryKind::Folder);
    EXPECT_EQ(ZipKindOf("a", 0x41ED0000), ZipEntryKind::Folder);
    EXPECT_EQ(ZipKindOf("a", 0xA1FF0000), ZipEntryKind::Special);
    EXPECT_EQ(ZipKindOf("a/", 0xA1FF0000), ZipEntryKind::Special);
    EXPECT_EQ(ZipKindOf("-", 0x11800000), ZipEntryKind::File) << "zipped from a pipe";
    EXPECT_EQ(ZipKindOf("a", 0x81FDFFFF), ZipEntryKind::File);
}
} // namespace
