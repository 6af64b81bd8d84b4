#include "files/CXArchive.h"

#include "tests/support/ArchiveStream.h"
#include "tests/support/PrintText.h"
#include "tests/support/TextTools.h"

namespace
{
using namespace tev::test;

template <class T, class = void>
constexpr bool kIsStored = false;
template <class T>
constexpr bool kIsStored<T, std::void_t<decltype(std::declval<CXArchive&>() << std::declval<T>())>> = true;
static_assert(kIsStored<char> && !kIsStored<signed char> && !kIsStored<char16_t> && !kIsStored<long> &&
              !kIsStored<const Bytes*>);

TEST(CXArchiveTest, ScalarsStandLittleEndian)
{
    const Bytes expected = {1,    'x',  0xFE, 0xFE, 0xFF, 0x34, 0x12, 0xAC, 0x20, 0xFE, 0xFF, 0xFF, 0xFF, 0x78, 0x56,
                            0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xCD, 0xAB, 0x89, 0x67,
                            0x45, 0x23, 0x01, 0x00, 0x00, 0xC0, 0x3F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xC0};
    const std::tuple<bool, char, unsigned char, short, unsigned short, wchar_t, int, unsigned, __int64,
                     unsigned __int64, float, double>
        values = {true, 'x', 0xFE, -2, 0x1234, L'\u20AC', -2, 0x12345678, -2, 0x0123456789ABCDEF, 1.5f, -2.5};
    const auto store = [&](CXArchive& archive) { std::apply([&](auto... each) { (archive << ... << each); }, values); };
    for (const Way& way : kWays)
    {
        ASSERT_EQ(StoredBy(store, way), expected);
        Stream stream(way, xArchiveLoad, expected);
        std::decay_t<decltype(values)> loaded;
        std::apply([&](auto&... each) { (*stream >> ... >> each); }, loaded);
        EXPECT_FALSE(std::get<bool>(loaded)) << "a bool that is read must leave the variable alone";
        std::get<bool>(loaded) = true;
        EXPECT_EQ(loaded, values);
        EXPECT_EQ(CauseOf([&] { *stream >> std::get<char>(loaded); }), archiveEndOfFile);
    }
    EXPECT_EQ(CauseOf([] { StoredBy([](CXArchive& archive) { archive << L'\U0001F600'; }); }),
              sizeof(wchar_t) > 2 ? -2 : -1);
}

TEST(CXArchiveTest, CountsAndLengthsTakeTheShortestForm)
{
    const Bytes ff2 = {0xFF, 0xFF};
    const Bytes ff4 = {0xFF, 0xFF, 0xFF, 0xFF};
    const struct
    {
        unsigned __int64 m_value;
        Bytes m_count;
        Bytes m_length;
    } rows[] = {
        {0, {0, 0}, {0}},
        {254, {254, 0}, {254}},
        {255, {255, 0}, {0xFF, 255, 0}},
        {0xFFFB, {0xFB, 0xFF}, {0xFF, 0xFB, 0xFF}},
        {0xFFFC, {0xFC, 0xFF}, Bytes{0xFF} + ff2 + Bytes{0xFC, 0xFF, 0, 0}},
        {0xFFFE, {0xFE, 0xFF}, Bytes{0xFF} + ff2 + Bytes{0xFE, 0xFF, 0, 0}},
        {0xFFFF, ff2 + Bytes{0xFF, 0xFF, 0, 0}, Bytes{0xFF} + ff2 + Bytes{0xFF, 0xFF, 0, 0}},
        {0xFFFFFFFE, ff2 + Bytes{0xFE, 0xFF, 0xFF, 0xFF}, Bytes{0xFF} + ff2 + Bytes{0xFE, 0xFF, 0xFF, 0xFF}},
        {0xFFFFFFFF, ff2 + ff4 + ff4 + Bytes{0, 0, 0, 0}, Bytes{0xFF} + ff2 + ff4 + ff4 + Bytes{0, 0, 0, 0}},
        {0x100000000, ff2 + ff4 + Bytes{0, 0, 0, 0} + Bytes{1, 0, 0, 0},
         Bytes{0xFF} + ff2 + ff4 + Bytes{0, 0, 0, 0} + Bytes{1, 0, 0, 0}},
    };
    const std::pair<xStringEncoding, Bytes> tags[] = {{xEncodingAnsi, {}},
                                                      {xEncodingUtf8, {0xFF, 0xFD, 0xFF}},
                                                      {xEncodingUtf16, {0xFF, 0xFE, 0xFF}},
                                                      {xEncodingUtf16BE, {0xFF, 0xFC, 0xFF}}};
    for (const auto& row : rows)
    {
        EXPECT_EQ(StoredBy([&](CXArchive& archive) { archive.WriteCount(row.m_value); }), row.m_count);
        EXPECT_EQ(Stream(kWays[0], xArchiveLoad, row.m_count)->ReadCount(), row.m_value);
        for (const auto& [encoding, tag] : tags)
        {
            const xStringEncoding written = encoding;
            EXPECT_EQ(StoredBy([&](CXArchive& archive) { archive.WriteStringLength(row.m_value, written); }),
                      tag + row.m_length);
            auto read = xEncodingUnknown;
            EXPECT_EQ(Stream(kWays[3], xArchiveLoad, tag + row.m_length)->ReadStringLength(read), row.m_value);
            EXPECT_EQ(read, encoding);
        }
    }
    EXPECT_EQ(StoredBy([](CXArchive& archive) { archive.WriteStringLength(1, xStringEncoding(1252)); }), Bytes{1});
    // Behind a tag the reserved values are lengths.
    auto encoding = xEncodingUnknown;
    EXPECT_EQ(Stream(kWays[0], xArchiveLoad, {0xFF, 0xFE, 0xFF, 0xFF, 0xFD, 0xFF})->ReadStringLength(encoding),
              0xFFFDu);
    EXPECT_EQ(encoding, xEncodingUtf16);
}

TEST(CXArchiveTest, TextIsStoredUntaggedOrAsUnits)
{
    const auto narrow = [](const CXTString<char>& text) { return StoredBy([&](CXArchive& a) { a << text; }); };
    const auto wide = [](const CXTString<wchar_t>& text) { return StoredBy([&](CXArchive& a) { a << text; }); };
    EXPECT_EQ(narrow("ab"), (Bytes{2, 'a', 'b'}));
    EXPECT_EQ(narrow(CXTString<char>("a\0b", 3)), (Bytes{1, 'a'}));
    EXPECT_EQ(narrow(""), Bytes{0});
    EXPECT_EQ(wide(L""), (Bytes{0xFF, 0xFE, 0xFF, 0}));
    EXPECT_EQ(wide(L"a\u20AC"), (Bytes{0xFF, 0xFE, 0xFF, 2, 'a', 0, 0xAC, 0x20}));
    EXPECT_EQ(wide(CXTString<wchar_t>(L"a\0b", 3)), (Bytes{0xFF, 0xFE, 0xFF, 1, 'a', 0}));
    EXPECT_EQ(wide(L"\U0001F600"), (Bytes{0xFF, 0xFE, 0xFF, 2, 0x3D, 0xD8, 0x00, 0xDE}));
    const wchar_t lone[] = {0xD83D, L'x', 0};
    EXPECT_EQ(wide(lone), (Bytes{0xFF, 0xFE, 0xFF, 2, 0x3D, 0xD8, 'x', 0}));

    // A class that knows its text better names the encoding; nothing is converted.
    struct Exposed : CXArchive
    {
        using CXArchive::CXArchive;
        using CXArchive::WriteString;
    };
    CXMemFile file;
    Exposed archive(&file, xArchiveStore);
    archive.WriteString("\xC3\xA9", xEncodingUtf8);
    archive.WriteString("", xEncodingUtf8);
    archive.WriteString(L"h\u20AC", xEncodingUtf16BE);
    archive.WriteString("a", xEncodingUnknown);
    archive.Close();
    const Bytes expected = {0xFF, 0xFD, 0xFF, 2, 0xC3, 0xA9, 0xFF, 0xFD, 0xFF, 0,
                            0xFF, 0xFC, 0xFF, 2, 'h',  0,    0xAC, 0x20, 1,    'a'};
    EXPECT_EQ(Bytes(file.GetBuffer(), file.GetBuffer() + file.GetLength()), expected);
}

TEST(CXArchiveTest, UntaggedTextIsInTheAnsiCodePage)
{
    const AnsiCodePage western(1252);
    CXTString<wchar_t> wide;
    *Stream(kWays[0], xArchiveLoad, {1, 0x80}) >> wide;
    CXTString<char> narrow;
    *Stream(kWays[0], xArchiveLoad, {0xFF, 0xFE, 0xFF, 2, 0xAC, 0x20, 0x05, 0x04}) >> narrow;
    EXPECT_EQ(wide, L"\u20AC");
    EXPECT_EQ(narrow, "\x80?");
}

TEST(CXArchiveTest, TextIsReadByItsTag)
{
    const struct
    {
        Bytes m_bytes;
        const char* m_narrow;
        const wchar_t* m_wide;
    } rows[] = {
        {{2, 'a', 'b'}, "ab", L"ab"},
        {{3, 0xE2, 0x82, 0xAC}, "\xE2\x82\xAC", L"\u20AC"},
        {{3, 'a', 0, 'b'}, "a", L"a"},
        {{0}, "", L""},
        {{0xFF, 0xFD, 0xFF, 3, 0xE2, 0x82, 0xAC}, "\xE2\x82\xAC", L"\u20AC"},
        {{0xFF, 0xFE, 0xFF, 2, 0xAC, 0x20, 'b', 0},
         "\xE2\x82\xAC"
         "b",
         L"\u20AC"
         L"b"},
        {{0xFF, 0xFE, 0xFF, 3, 'a', 0, 0, 0, 'b', 0}, "a", L"a"},
        {{0xFF, 0xFE, 0xFF, 2, 0x3D, 0xD8, 0x00, 0xDE}, "\xF0\x9F\x98\x80", L"\U0001F600"},
        {{0xFF, 0xFE, 0xFF, 0}, "", L""},
        {{0xFF, 0xFC, 0xFF, 0}, "", L""},
        {{0xFF, 0xFC, 0xFF, 2, 'h', 'i'}, "hi", nullptr},
    };
    for (const auto& row : rows)
    {
        for (const Way& way : kWays)
        {
            CXTString<char> narrow("before");
            Stream first(way, xArchiveLoad, row.m_bytes);
            *first >> narrow;
            EXPECT_EQ(narrow, row.m_narrow);
            EXPECT_EQ(CauseOf([&] { *first >> narrow; }), archiveEndOfFile) << "everything must have been read";

            CXTString<wchar_t> wide(L"before");
            Stream second(way, xArchiveLoad, row.m_bytes);
            *second >> wide;
            EXPECT_EQ(wide, row.m_wide == nullptr ? L"before" : row.m_wide);
            char next = 0;
            if (row.m_wide == nullptr)
            {
                *second >> next;
                EXPECT_EQ(next, 'h') << "what cannot be read stays in the stream";
            }
        }
    }
    // A length that is negative as a signed 32-bit number, and one whose text is not there.
    CXTString<char> narrow;
    CXTString<wchar_t> wide;
    for (const Bytes& bytes : {Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0},
                               Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a'}, Bytes{9, 'a'},
                               Bytes{0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a'}})
    {
        EXPECT_EQ(CauseOfReading(bytes, [&](CXArchive& archive) { archive >> narrow; }), archiveEndOfFile);
        EXPECT_EQ(CauseOfReading(bytes, [&](CXArchive& archive) { archive >> wide; }), archiveEndOfFile);
    }
}

TEST(CXArchiveTest, ExceptionsArePendingAndNameTheFile)
{
    const auto nameIn = [](const Bytes& bytes, unsigned mode, const std::function<void(CXArchive&)>& call) {
        CXMemFile file(bytes.data(), bytes.size(), false);
        file.SetFilePath(L"stored.bin");
        CXArchive archive(&file, mode);
        return Caught<CXArchiveException>([&] { call(archive); })->GetFileName();
    };
    const auto readObject = [](CXArchive& archive) { archive.ReadObject(nullptr); };
    char byte;
    EXPECT_EQ(nameIn({}, xArchiveLoad, [](CXArchive& archive) { archive << 1; }), L"stored.bin");
    EXPECT_EQ(nameIn({}, xArchiveStore, [&](CXArchive& archive) { archive >> byte; }), L"stored.bin");
    EXPECT_EQ(nameIn({5, 0}, xArchiveLoad, readObject), L"stored.bin");
    EXPECT_EQ(nameIn(Bytes{0xFF, 0xFF, 1, 0, 1, 0} + "?", xArchiveLoad, readObject), L"stored.bin");
    EXPECT_EQ(nameIn({}, xArchiveLoad, [&](CXArchive& archive) { archive >> byte; }), L"");
    EXPECT_EQ(nameIn({}, xArchiveLoad, [&](CXArchive& archive) { archive.EnsureRead(&byte, 1); }), L"");
}

TEST(CXArchiveTest, DirectionAndEndAreChecked)
{
    EXPECT_EQ(CauseOf([] { CXArchive archive(nullptr, xArchiveStore); }), -2);
    char byte = 0;
    CXTString<wchar_t> text;
    CXObject* object = nullptr;
    for (const Way& way : kWays)
    {
        Stream loading(way, xArchiveLoad, Bytes(100, 1));
        Stream storing(way, xArchiveStore);
        EXPECT_EQ(CauseOf([&] { *loading << 'x'; }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { *loading << L'\U0001F600'; }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { loading->Write(nullptr, 0); }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { loading->WriteObject(nullptr); }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { loading->WriteClass(nullptr); }), archiveBadClass);
        EXPECT_EQ(CauseOf([&] { loading->WriteClass(CXObject::GetThisRuntimeClassDescriptor()); }), archiveGeneric);
        EXPECT_EQ(CauseOf([&] { *storing >> byte; }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { storing->Read(nullptr, 0); }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { *storing >> text; }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { *storing >> object; }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { storing->ReadClass(nullptr, nullptr, nullptr); }), archiveGeneric);
        EXPECT_EQ(CauseOf([&] { storing->WriteClass(nullptr); }), archiveBadClass);
        EXPECT_EQ(CauseOf([&] { storing->WriteClass(CXFile::GetThisRuntimeClassDescriptor()); }), archiveGeneric);
        *storing << 'x';
        for (Stream* stream : {&loading, &storing})
        {
            (*stream)->Close();
            (*stream)->Close();
            EXPECT_EQ((*stream)->GetFile(), nullptr);
            EXPECT_EQ(CauseOf([&] { **stream << 'x'; }), archiveGeneric);
            EXPECT_EQ(CauseOf([&] { **stream >> byte; }), archiveGeneric);
            EXPECT_EQ(CauseOf([&] { (*stream)->Write("x", 1); }), archiveGeneric);
            EXPECT_EQ(CauseOf([&] { (*stream)->Read(&byte, 1); }), archiveGeneric);
        }
        EXPECT_EQ(storing.File().GetLength(), 1u);
    }
}
} // namespace
