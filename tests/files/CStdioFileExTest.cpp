#include "files/CStdioFileEx.h"

#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TextFileModel.h"
#include "tests/support/TextFiles.h"

namespace
{
using namespace tev::test;

constexpr int kLongLine = kIsSanitized ? 3'000'000 : 100'000'000;

std::string Units(const std::u16string& text, bool bigEndian = false)
{
    std::string bytes;
    for (const char16_t unit : text)
    {
        const char low = static_cast<char>(unit & 0xFF);
        const char high = static_cast<char>(unit >> 8);
        bytes.append({bigEndian ? high : low, bigEndian ? low : high});
    }
    return bytes;
}

/// The lines of a file that was just opened, read with and without the instructions that only some processors have.
Lines ReadLinesBothWays(CStdioFileEx& file)
{
    const Lines lines = ReadLines(file);
    const WithoutAvx2 plain;
    EXPECT_EQ(file.Seek(0, CXFile::begin), 0u);
    EXPECT_EQ(ReadLines(file), lines);
    return lines;
}

TEST(CStdioFileEx, ReadsTheLinesOfEveryEncodingAndLineEnd)
{
    const auto utf16 = [](const std::u16string& text) { return "\xFF\xFE" + Units(text); };
    const auto big = [](const std::u16string& text) { return Units(text, true); };
    const struct
    {
        std::string bytes;
        unsigned flags;
        unsigned codePage; // 0: none is set
        unsigned encoding; // after Open
        bool hasBom;
        Lines lines;
    } cases[] = {
        {"", 0, 0, xEncodingUnknown, false, {}},
        {"one\ntwo", 0, 0, xEncodingUnknown, false, {L"one", L"two"}},
        {"\n\na\n", 0, 0, xEncodingUnknown, false, {L"", L"", L"a"}},
        {"a\r\nb\nc\r\n\r\n", 0, 0, xEncodingUnknown, false, {L"a", L"b", L"c", L""}},
        // CR alone ends lines where the first line holds one before its end, and nowhere else.
        {"\r", 0, 0, xEncodingUnknown, false, {L""}},
        {"a\r", 0, 0, xEncodingUnknown, false, {L"a"}},
        {"a\nb\rc\rd\r", 0, 0, xEncodingUnknown, false, {L"a", L"b\rc\rd"}},
        {"a\nb\r\r\n", 0, 0, xEncodingUnknown, false, {L"a", L"b\r"}},
        {"a\rb", 0, 0, xEncodingUnknown, false, {L"a", L"b"}},
        {"\ra\r\rb\r", 0, 0, xEncodingUnknown, false, {L"", L"a", L"", L"b"}},
        {"a\rb\nc\r\nd\n\re", 0, 0, xEncodingUnknown, false, {L"a", L"b", L"c", L"d", L"", L"e"}},
        {"a\r\r\nb", 0, 0, xEncodingUnknown, false, {L"a", L"", L"b"}},
        // A line ends at its first NUL.
        {"a\0b\n\0\nc"s, 0, 0, xEncodingUnknown, false, {L"a", L"", L"c"}},
        {"a\0b\rc\0"s, 0, 0, xEncodingUnknown, false, {L"a", L"c"}},
        // Marks, and what only resembles them.
        {"\xEF\xBB\xBF", 0, 0, xEncodingUtf8, true, {}},
        {"\xEF\xBB\xBF\xC3\xA9\r\nz", 0, 0, xEncodingUtf8, true, {L"\u00E9", L"z"}},
        {"\xEF\xBB\xBF\xE6\x97\xA5\ry\r", 0, 0, xEncodingUtf8, true, {L"\u65E5", L"y"}},
        {"\xEF\xBB\xBF\xEF\xBB\xBF", 0, 0, xEncodingUtf8, true, {L"\uFEFF"}},
        {"\xEF\xBB", 0, 0, xEncodingUnknown, false, {L"\u00EF\u00BB"}},
        {"\xEF\xBB\xBE", kUtf8, 0, xEncodingUtf8, false, {L"\uFEFE"}},
        {"\xFF\xFE", 0, 0, xEncodingUtf16, true, {}},
        {"\xFF", 0, 0, xEncodingUnknown, false, {L"\u00FF"}},
        {"\xFE\xFF", kUtf8, 0, xEncodingUtf8, false, {L"\uFFFD\uFFFD"}},
        {"\xFE\xFF" + big(u"a"), 0, 4, xEncodingUnknown, false, {L"\uFEFFa"}},
        // 8-bit encodings; the ANSI code page is 1252 here.
        {"\xE9\x80\n", 0, 0, xEncodingUnknown, false, {L"\u00E9\u20AC"}},
        {"\xC3\xA9\n", kUtf8, 0, xEncodingUtf8, false, {L"\u00E9"}},
        {"\xC3\xA9\n", 0, 65001, xEncodingUnknown, false, {L"\u00E9"}},
        {"\xC3\n\xF0\x9D\x84\r\n", kUtf8, 0, xEncodingUtf8, false, {L"\uFFFD", L"\uFFFD"}},
        {"\xCF\xEE\r\n\xCF", 0, 1251, xEncodingUnknown, false, {L"\u041F\u043E", L"\u041F"}},
        {"\x93\xFA\x96\x7B\r\x95\x5C", 0, 932, xEncodingUnknown, false, {L"\u65E5\u672C", L"\u8868"}},
        {"\xEF\xBB\xBF\xE9", 0, 1252, xEncodingUtf8, true, {L"\u00E9"}},
        {"a\nb\n", 0, 54321, xEncodingUnknown, false, {L"", L""}},
        // In this code page 25 is LF, so that a line can end with LF and CR; both go.
        {"\xC1\x25\x0D", 0, 37, xEncodingUnknown, false, {L"A"}},
        // UTF-16: characters with the bytes of line ends in them, surrogates, NULs, a byte left over.
        {utf16(u"a\r\nb\n\nc"), 0, 0, xEncodingUtf16, true, {L"a", L"b", L"", L"c"}},
        {utf16(u"a\rb\r\nc\r"), 0, 0, xEncodingUtf16, true, {L"a", L"b", L"c"}},
        {utf16(u"\u0A0A\u0D0A\u4E0A\u0A00\u0D00\n\u0D0D"),
         0,
         0,
         xEncodingUtf16,
         true,
         {L"\u0A0A\u0D0A\u4E0A\u0A00\u0D00", L"\u0D0D"}},
        {utf16(u"\U0001D11E\n") + Units({0xDD1E, 0xD834}),
         0,
         0,
         xEncodingUtf16,
         true,
         {L"\U0001D11E", L"\xDD1E\xD834"}},
        {utf16(u"a\0b\nc"s), 0, 0, xEncodingUtf16, true, {L"a", L"c"}},
        {utf16(u"a\n") + "b", 0, 0, xEncodingUtf16, true, {L"a", L"\uFFFD"}},
        {utf16(u"a\r") + "b", 0, 0, xEncodingUtf16, true, {L"a", L"\uFFFD"}},
        {utf16(u"a\n"), 0, 1252, xEncodingUtf16, true, {L"a"}},
        {Units(u"a\r\nb"), 0, 3, xEncodingUnknown, false, {L"a", L"b"}},
        {big(u"a\r\n\u0D0A\u0A00\n\U0001D11E"), 0, 4, xEncodingUnknown, false, {L"a", L"\u0D0A\u0A00", L"\U0001D11E"}},
        {big(u"a\rb\r"), 0, 4, xEncodingUnknown, false, {L"a", L"b"}},
    };
    const AnsiCodePage ansi(1252);
    const TempFolder folder;
    CStdioFileEx file;
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        ASSERT_TRUE(file.Open(folder.WriteFile("text", c.bytes).c_str(), kText | c.flags));
        EXPECT_EQ(file.GetEncoding(), c.encoding);
        EXPECT_EQ(file.HasBom(), c.hasBom);
        EXPECT_EQ(file.IsFileUnicodeText(), c.encoding == xEncodingUtf16);
        EXPECT_EQ(file.IsFileUTF8(), c.encoding == xEncodingUtf8);
        EXPECT_EQ(file.GetPosition(), 0u);
        if (c.codePage != 0)
            file.SetCodePage(CodePage(c.codePage));
        EXPECT_EQ(ReadLinesBothWays(file), c.lines);
        EXPECT_EQ(file.GetPosition(), c.bytes.size());
        EXPECT_EQ(file.SkipLines(100, CXFile::begin), c.lines.size());
    }
}

TEST(CStdioFileEx, DecodesACharacterWhereverItStandsInALine)
{
    const struct
    {
        std::string utf8;
        std::u16string utf16;
        std::wstring text;
    } cases[] = {
        {"\xC3\xA9", u"\u00E9", L"\u00E9"},
        {"\xE6\x97\xA5", u"\u65E5", L"\u65E5"},
        {"\xF0\x9D\x84\x9E", u"\U0001D11E", L"\U0001D11E"},
        {"\xED\xA0\x80", {}, L"\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9D\x84", {}, L"\uFFFD"},
        {"\xC3", {}, L"\uFFFD"},
        {"\xA9", {}, L"\uFFFD"},
        {"\0z"s, u"\0z"s, L""},
    };
    const TempFolder folder;
    for (const auto& c : cases)
    {
        std::string utf8;
        std::u16string utf16;
        Lines expected;
        for (const std::size_t length : {7, 31, 32, 33, 64, 129, 200})
            for (std::size_t position = 0; position <= length; position += length < 40 ? 1 : 7)
            {
                const std::string before(position, 'a');
                const std::string after(length - position, 'b');
                utf8 += before + c.utf8 + after + "\r\n";
                utf16 += std::u16string(position, u'a') + c.utf16 + std::u16string(length - position, u'b') + u"\n";
                const bool cut = c.text.empty();
                expected.push_back(std::wstring(position, L'a') + c.text + std::wstring(cut ? 0 : after.size(), L'b'));
            }
        CStdioFileEx file(folder.WriteFile("text", utf8).c_str(), kText | kUtf8);
        EXPECT_EQ(ReadLinesBothWays(file), expected) << testing::PrintToString(c.utf8);
        if (c.utf16.empty())
            continue;
        for (const bool bigEndian : {false, true})
        {
            ASSERT_TRUE(file.Open(folder.WriteFile("text", Units(utf16, bigEndian)).c_str(), kText));
            file.SetCodePage(bigEndian ? xEncodingUtf16BE : xEncodingUtf16);
            EXPECT_EQ(ReadLinesBothWays(file), expected) << testing::PrintToString(c.utf8);
        }
    }
}

TEST(CStdioFileEx, ALineGrowsByTheRuleToWhatWasReadForIt)
{
    const TempFolder folder;
    CStdioFileEx file;
    for (const unsigned length : {0, 5, 14, 15, 31, 62, 64, 100, 126, 127, 200, 1000, 5000})
        for (const std::string character : {"x", "\xC3\xA9"})
            for (const std::string lineEnd : {"\n", "\r\n"})
                for (const bool without : {false, true})
                {
                    const WithoutAvx2 plain(without);
                    std::string bytes;
                    for (unsigned i = 0; i < length; ++i)
                        bytes += character;
                    bytes += lineEnd + std::string(200, 'y') + "\n";
                    ASSERT_TRUE(file.Open(folder.WriteFile("rule", bytes).c_str(), kText | kUtf8));
                    CXTString<wchar_t> line;
                    ASSERT_TRUE(file.ReadString(line));
                    EXPECT_EQ(line.GetLength64(), length);
                    const unsigned __int64 grown = length + lineEnd.size();
                    const unsigned __int64 capacity = grown < 16 ? 16 : std::max<unsigned __int64>(2 * grown + 1, 64);
                    EXPECT_EQ(static_cast<CXTCharArray<wchar_t>&>(line).m_capacity, capacity) << length << without;
                }
}

TEST(CStdioFileEx, ReadsAsASlowModelDoesAtEveryPosition)
{
    const unsigned seed = 20261122;
    RecordProperty("seed", static_cast<int>(seed));
    std::mt19937 random(seed);
    const auto below = [&](std::size_t bound) { return static_cast<std::size_t>(random() % bound); };
    const TempFolder folder;
    for (int round = 0; round < 120; ++round)
    {
        const xStringEncoding encodings[] = {xEncodingUtf8, CodePage(1252), xEncodingUtf16, xEncodingUtf16BE};
        const xStringEncoding encoding = encodings[round % 4];
        const WithoutAvx2 plain(round / 4 % 2 == 1);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
        // Files of several cache blocks now and then; short lines and long ones; often no LF at all.
        const std::string pieces[] = {"a\0"s,
                                      "\r"s,
                                      "\n\0"s,
                                      "\r\0\n\0"s,
                                      "\xC3\xA9",
                                      "\x0A\x4E",
                                      "\0\r\0\n"s,
                                      "\0"s,
                                      std::string(below(200), 'x'),
                                      std::string(below(200) * 2, 'y')};
        const std::size_t size = below(round % 10 == 0 ? 200000 : 300);
        const bool returnsOnly = below(2) == 0;
        std::string bytes = encoding == xEncodingUtf8 && below(2) == 0 ? "\xEF\xBB\xBF" : "";
        bytes = encoding == xEncodingUtf16 ? "\xFF\xFE" : bytes;
        const std::size_t mark = bytes.size();
        while (bytes.size() < size)
        {
            const std::string& piece = pieces[below(std::size(pieces))];
            if (!returnsOnly || piece.find('\n') == std::string::npos)
                bytes += piece;
        }
        const TextFileModel model = ModelTextFile(bytes, mark, encoding);

        CStdioFileEx file;
        if (below(2) == 0)
            file.SetBufferSize(static_cast<unsigned>(8 + below(60)));
        ASSERT_TRUE(file.Open(folder.WriteFile("text", bytes).c_str(), kTextBoth | (mark == 0 ? 0 : kUtf8)));
        file.SetCodePage(encoding);
        CXTString<wchar_t> line;
        for (std::size_t i = 0; i < model.lines.size(); ++i)
        {
            ASSERT_TRUE(file.ReadString(line)) << i;
            ASSERT_EQ(ToStd(line), model.lines[i].text) << i;
            ASSERT_EQ(file.GetPosition(), model.lines[i].next) << i;
            if (below(50) == 0)
            {
                char following;
                const bool more = file.Read(&following, 1) == 1;
                ASSERT_EQ(more, model.lines[i].next < bytes.size());
                if (more)
                {
                    ASSERT_EQ(following, bytes[model.lines[i].next]);
                    file.Seek(-1, CXFile::current);
                }
            }
        }
        ASSERT_FALSE(file.ReadString(line));
        for (std::size_t i = 1; i < model.lines.size(); i += 1 + below(model.lines.size()))
        {
            file.Seek(static_cast<__int64>(model.lines[i - 1].next), CXFile::begin);
            ASSERT_TRUE(file.ReadString(line));
            ASSERT_EQ(ToStd(line), model.lines[i].text);
            ASSERT_EQ(file.SkipLines(2, CXFile::current), std::min<std::size_t>(2, model.lines.size() - 1 - i));
            ASSERT_EQ(file.SkipLines(static_cast<unsigned>(i), CXFile::begin), i);
            ASSERT_EQ(file.GetPosition(), model.lines[i - 1].next);
        }
    }
}

TEST(CStdioFileEx, ReadsLinesOfAnyLength)
{
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"", "x", "\r\n"}, {"", "x", "\r"}, {"\xFF\xFE", "x\0"s, "\n\0"s}};
    const TempFolder folder;
    for (const auto& [mark, character, lineEnd] : cases)
    {
        std::string thousand;
        while (thousand.size() < 1000 * character.size())
            thousand += character;
        std::string bytes = mark;
        for (int length = 0; length < kLongLine; length += 1000)
            bytes += thousand;
        bytes += lineEnd + character;
        CStdioFileEx file(folder.WriteFile("long", bytes).c_str(), kText);
        CXTString<wchar_t> line;
        ASSERT_TRUE(file.ReadString(line));
        EXPECT_EQ(line.GetLength(), kLongLine);
        const wchar_t* characters = line;
        EXPECT_EQ(std::count(characters, characters + kLongLine, L'x'), kLongLine);
        EXPECT_TRUE(file.ReadString(line));
        EXPECT_EQ(ToStd(line), L"x");
        EXPECT_FALSE(file.ReadString(line));
    }
}

TEST(CStdioFileEx, ReadingAndWritingTakeTurnsAtTheLineThatWasRead)
{
    const TempFolder folder;
    for (const std::string end : {"\r", "\n", "\r\n"})
    {
        CStdioFileEx file(folder.WriteFile("text", "one" + end + "two" + end + "six").c_str(), kTextBoth);
        CXTString<wchar_t> line;
        ASSERT_TRUE(file.ReadString(line));
        file.WriteString(L"TWO");
        EXPECT_EQ(file.SkipLines(1, CXFile::current), 1u);
        CXTString<char> narrow;
        ASSERT_TRUE(file.ReadString(narrow));
        EXPECT_EQ(narrow, "six");
        file.SeekToBegin();
        EXPECT_EQ(ReadLines(file), (Lines{L"one", L"TWO", L"six"}));
        file.SeekToBegin();
        ASSERT_TRUE(file.ReadString(line));
        EXPECT_TRUE(file.SetLength(3));
        EXPECT_FALSE(file.ReadString(line));
        file.SeekToBegin();
        ASSERT_TRUE(file.ReadString(line));
        file.Close();
        EXPECT_FALSE(file.ReadString(line));
    }
}

TEST(CStdioFileEx, TheMarkIsPassedOverAtTheStartOnly)
{
    const TempFolder folder;
    CStdioFileEx file(folder.WriteFile("text", "\xEF\xBB\xBF"s + "abcd\nxyz").c_str(), kText);
    CXTString<wchar_t> line;
    file.Seek(4, CXFile::begin);
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, L"bcd");
    EXPECT_EQ(file.GetCharCount(), 8u);
    EXPECT_EQ(file.GetPosition(), 8u);
    file.Seek(-8, CXFile::current);
    CXTString<char> narrow;
    ASSERT_TRUE(file.ReadString(narrow));
    EXPECT_EQ(narrow, "abcd\n");
    file.SeekToBegin();
    char bytes[4] = {};
    EXPECT_EQ(file.Read(bytes, 4), 4u);
    EXPECT_EQ(std::string(bytes, 4), "\xEF\xBB\xBF"s + "a");
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, L"bcd");
    ASSERT_TRUE(file.Open(folder.WriteFile("wide", "\xFF\xFE"s + "a\0\n\0b\0c"s).c_str(), kText));
    EXPECT_EQ(file.GetCharCount(), 3u);
}

TEST(CStdioFileEx, ScansTheNextLine)
{
    const TempFolder folder;
    CStdioFileEx file(folder.WriteFile("text", "v 1 -2 name\r\n\r\nv 3").c_str(), kText);
    int x = 0;
    int y = 0;
    wchar_t name[5] = {};
    EXPECT_EQ(file.FScanfS(L"v %d %d %s", &x, &y, name, 5u), 3);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, -2);
    EXPECT_STREQ(name, L"name");
    EXPECT_EQ(file.FScanfS(L"v %d", &x), -1);
    EXPECT_EQ(file.FScanfS(L"v %d %d", &x, &y), 1);
    EXPECT_EQ(x, 3);
    EXPECT_EQ(file.FScanfS(L"v %d", &x), -1);
}

TEST(CStdioFileEx, OpenTellsWhyItFailed)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("text", "\xFF\xFE"s + "a\0"s);
    const CXFile locked(folder.WriteFile("locked", "a").c_str(), CXFile::modeRead | CXFile::shareExclusive);
    const struct
    {
        std::wstring path;
        FileExceptionType cause;
    } cases[] = {
        {folder.WidePath("missing"), fileNotFound},
        {L"", fileBadPath},
        {std::wstring(260, L'x'), fileBadPath},
        {folder.WidePath(), fileAccessDenied},
        {folder.WidePath("locked"), fileSharingViolation},
    };
    for (const auto& c : cases)
        for (const unsigned mode : {kText, kTextBoth})
        {
            CStdioFileEx file(path.c_str(), kText);
            CXFileException error;
            EXPECT_FALSE(file.Open(c.path.c_str(), mode, &error));
            EXPECT_EQ(error.GetCause(), c.cause);
            EXPECT_EQ(ToStd(error.GetFileName()), c.path);
            EXPECT_EQ(ToStd(file.GetFilePath()), c.path);
            EXPECT_FALSE(file.HasBom());
            CXTString<wchar_t> line;
            EXPECT_FALSE(file.ReadString(line));
            EXPECT_EQ(Thrown([&] { CStdioFileEx(c.path.c_str(), mode); }), c.cause);
            bool hasBom = true;
            EXPECT_EQ(Thrown([&] { CStdioFileEx::GetFileEncoding(c.path.c_str(), hasBom); }), c.cause);
            EXPECT_FALSE(hasBom);
        }
    // The lock of the file that is open is not in the way of opening it again.
    CStdioFileEx file(path.c_str(), CXFile::modeReadWrite | CXFile::shareExclusive | CXFile::typeText);
    EXPECT_TRUE(file.Open(path.c_str(), CXFile::modeReadWrite | CXFile::shareExclusive | CXFile::typeText));
    EXPECT_TRUE(file.IsFileUnicodeText());
}

TEST(CStdioFileEx, WhatCannotGoBackToItsStartIsNotReadFromElsewhere)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("text", "one, longer than the buffer\ntwo, longer than it\nsix");
    FailingFileSystem disk;
    CStdioFileEx file(false);
    file.SetBufferSize(8);
    CXTString<wchar_t> line;
    ASSERT_TRUE(file.Open(path.c_str(), kText, nullptr));
    ASSERT_TRUE(file.ReadString(line));
    disk.FailEach("seek", EIO);
    EXPECT_EQ(file.SkipLines(1, CXFile::begin), 0u);
    disk.FailEach("", 0);
    EXPECT_EQ(file.SkipLines(2, CXFile::begin), 2u);
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, L"six");

    const std::wstring widePath = folder.WriteFile("wide", std::string("a\0b\0c\0d\0e\0f\0\n\0g\0", 16));
    unsigned closed = 0;
    for (unsigned operation = 1; operation <= 12; ++operation)
    {
        CStdioFileEx wide(false);
        wide.SetBufferSize(8);
        ASSERT_TRUE(wide.Open(widePath.c_str(), kText, nullptr));
        disk.FailAt(operation, EIO);
        wide.SetCodePage(static_cast<xStringEncoding>(1200));
        disk.FailAt(0, 0);
        if (wide.ReadString(line))
            EXPECT_EQ(line, L"abcdef") << operation;
        else
            ++closed;
    }
    EXPECT_GE(closed, 1u);
}

TEST(CStdioFileEx, AFailureWhileReadingLeavesTheLineEmpty)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("text", "\xEF\xBB\xBF"s + "one\rtwo and more");
    FailingFileSystem disk;
    unsigned failures = 0;
    for (unsigned operation = 1; operation <= 20; ++operation)
    {
        disk.FailAt(0, 0);
        CStdioFileEx file;
        file.SetBufferSize(8);
        disk.FailAt(operation, EIO);
        CXFileException error;
        CXTString<wchar_t> line(L"x");
        Lines lines;
        int thrown = fileHardIO;
        if (file.Open(path.c_str(), kText, &error))
            thrown = Thrown([&] {
                while (file.ReadString(line))
                    lines.push_back(ToStd(line));
            });
        if (thrown == kNothingThrown)
        {
            EXPECT_EQ(lines, (Lines{L"one", L"two and more"}));
            continue;
        }
        EXPECT_EQ(thrown, fileHardIO);
        EXPECT_TRUE(line.IsEmpty() || error.GetCause() == fileHardIO);
        ++failures;
    }
    EXPECT_GE(failures, 5u);
}
} // namespace
