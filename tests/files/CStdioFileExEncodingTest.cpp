#include "files/CStdioFileEx.h"

#include "objects/LastFailure.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TextFiles.h"

#include <sys/stat.h>

namespace
{
using namespace tev::test;

// Characters of 2 or 4 bytes, in either byte order.
std::string Encoded(const std::wstring& text, unsigned unit, bool bigEndian)
{
    std::string bytes;
    for (const wchar_t character : text)
    {
        for (unsigned i = 0; i < unit; ++i)
            bytes += static_cast<char>(static_cast<unsigned>(character) >> 8 * (bigEndian ? unit - 1 - i : i));
    }
    return bytes;
}

TEST(CStdioFileExEncoding, WritesTheEncodingThatWasAskedFor)
{
    // codePage (0: none is set), bytes (of the text written twice)
    const std::tuple<unsigned, unsigned, std::wstring, std::string, bool> cases[] = {
        {kNew | kUtf16, 0, L"a\r\n", "\xFF\xFE"s + "a\0\r\0\n\0a\0\r\0\n\0"s, true},
        {kNew | kUtf16, 0, L"\u4E0A\U0001D11E\xD834!",
         "\xFF\xFE\x0A\x4E\x34\xD8\x1E\xDD\x34\xD8!\0\x0A\x4E\x34\xD8\x1E\xDD\x34\xD8!\0"s, true},
        {kNew | kUtf16, 1252, L"\u00E9", "\xFF\xFE\xE9\0\xE9\0"s, true},
        {kNew | kUtf16, 0, L"", "\xFF\xFE", true},
        {CXFile::modeWrite | CXFile::modeCreate | kUtf16 | kUtf8, 0, L"a", "\xFF\xFE"s + "a\0a\0"s, true},
        {kNew, 0, L"\u00E9\n", "\xE9\n\xE9\n", false},
        {kNew | kUtf8, 0, L"\u00E9\U0001D11E\n", "\xC3\xA9\xF0\x9D\x84\x9E\n\xC3\xA9\xF0\x9D\x84\x9E\n", false},
        {kNew, 65001, L"\u00E9", "\xC3\xA9\xC3\xA9", false},
        {kNew, 932, L"\u8868\u00E9", "\x95\x5C?\x95\x5C?", false},
        {kNew, 4, L"\u00E9", "\0\xE9\0\xE9"s, false},
        {kNew, 54321, L"a", "", false},
    };
    const AnsiCodePage ansi(1252);
    const TempFolder folder;
    for (const auto& [mode, codePage, text, bytes, hasBom] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(bytes));
        CStdioFileEx file(folder.WidePath("text").c_str(), mode);
        if (codePage != 0)
            file.SetCodePage(CodePage(codePage));
        file.WriteString(static_cast<const wchar_t*>(nullptr));
        EXPECT_EQ(file.GetLength(), 0u);
        file.WriteString(text.c_str());
        file.WriteString(text.c_str());
        EXPECT_EQ(file.HasBom(), hasBom);
        EXPECT_EQ((file.GetOpenMode() & CStdioFileEx::kUtf16Written) != 0, (mode & kUtf16) != 0);
        EXPECT_EQ(file.GetLength(), bytes.size());
        file.Close();
        EXPECT_EQ(folder.ReadFile("text"), bytes);
    }
}

TEST(CStdioFileExEncoding, WritesTheMarkOnlyAtTheStart)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("text");
    CStdioFileEx file(path.c_str(), kNew | kUtf16);
    file.WriteString(L"a\n");
    file.Seek(0, CXFile::begin);
    EXPECT_EQ(ReadLines(file), (Lines{L"a"}));
    ASSERT_TRUE(file.Open(path.c_str(), kKeep | kUtf16));
    EXPECT_FALSE(file.HasBom());
    file.SeekToEnd();
    file.WriteString(L"b");
    EXPECT_FALSE(file.HasBom());
    file.Close();
    EXPECT_EQ(folder.ReadFile("text"), "\xFF\xFE"s + "a\0\n\0b\0"s);
    ASSERT_TRUE(file.Open(path.c_str(), kKeep | kUtf16));
    file.WriteString(L"c");
    file.WriteString(L"d");
    file.SeekToBegin();
    file.WriteString(L"e");
    file.Flush();
    EXPECT_EQ(folder.ReadFile("text"), "\xFF\xFE"s + "e\0d\0b\0"s);
    file.SetLength(0);
    file.SeekToBegin();
    file.WriteString(L"a\nb");
    file.Close();
    // Text that is there already is written on in its encoding.
    ASSERT_TRUE(file.Open(path.c_str(), kTextBoth));
    EXPECT_EQ(ReadLines(file), (Lines{L"a", L"b"}));
    file.WriteString(L"c");
    file.SeekToBegin();
    EXPECT_EQ(ReadLines(file), (Lines{L"a", L"bc"}));
}

TEST(CStdioFileExEncoding, CodePageNumbersOfUtf16AndUtf32AreEncodingsOfLines)
{
    const struct
    {
        unsigned m_codePage;
        unsigned m_unit;
        bool m_bigEndian;
    } rows[] = {{1200, 2, false}, {1201, 2, true}, {12000, 4, false}, {12001, 4, true}};
    const std::pair<std::wstring, Lines> texts[] = {
        {L"a\r\n\u0A0D\u0D0A\u4E00\n\n\u00E9", {L"a", L"\u0A0D\u0D0A\u4E00", L"", L"\u00E9"}},
        {L"a\r\u0A0D\rlast", {L"a", L"\u0A0D", L"last"}}, // CR alone
        {L"no end that is longer than a buffer", {L"no end that is longer than a buffer"}},
        {L"", {}},
    };
    const TempFolder folder;
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.m_codePage);
        const auto codePage = static_cast<xStringEncoding>(row.m_codePage);
        for (const auto& [text, lines] : texts)
        {
            folder.WriteFile("t.txt", Encoded(text, row.m_unit, row.m_bigEndian));
            for (const unsigned bufferSize : {8u, 9u, 100u})
            {
                CStdioFileEx file;
                file.SetBufferSize(bufferSize);
                ASSERT_TRUE(file.Open(folder.WidePath("t.txt").c_str(), kText));
                file.SetCodePage(codePage);
                EXPECT_EQ(file.GetEncoding(), codePage);
                EXPECT_EQ(file.GetCharCount(), text.size());
                EXPECT_EQ(ReadLines(file), lines);
                EXPECT_EQ(file.Seek(0, CXFile::begin), 0u);
                EXPECT_EQ(ReadLines(file), lines);
            }
        }
        CStdioFileEx file;
        ASSERT_TRUE(file.Open(folder.WidePath("t.txt").c_str(), kNew));
        file.SetCodePage(codePage);
        file.WriteString(L"w\u4E00\n");
        file.WriteString("n\xC3\xA9"); // narrow text is converted, too
        file.WriteString(static_cast<const char*>(nullptr));
        file.Close();
        EXPECT_EQ(folder.ReadFile("t.txt"), Encoded(L"w\u4E00\nn\u00E9", row.m_unit, row.m_bigEndian));
    }
    // A UTF-8 mark keeps its size, whatever encoding is chosen behind it.
    folder.WriteFile("t.txt", "\xEF\xBB\xBF" + Encoded(L"a\nb", 2, false));
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(folder.WidePath("t.txt").c_str(), kText));
    file.SetCodePage(static_cast<xStringEncoding>(1200));
    EXPECT_EQ(ReadLines(file), (Lines{L"a", L"b"}));
    EXPECT_EQ(file.GetCharCount(), 3u);
    // Line ends are looked at anew for each kind of units.
    ASSERT_TRUE(file.Open(folder.WriteFile("t.txt", "a\rb\rc\r").c_str(), kText));
    file.SetCodePage(static_cast<xStringEncoding>(1200));
    file.SetCodePage(static_cast<xStringEncoding>(1252));
    EXPECT_EQ(ReadLines(file), (Lines{L"a", L"b", L"c"}));
}

TEST(CStdioFileExEncoding, AMarkIsCutOffAndWrittenWithTheText)
{
    const TempFolder folder;
    const std::tuple<std::string, unsigned, unsigned> cases[] = {
        {"\xEF\xBB\xBF", 1, kTextBoth}, {"\xFF\xFE", 2, kTextBoth}, {"\xFF\xFE", 2, kKeep | kUtf16}};
    for (const auto& [mark, unit, mode] : cases)
    {
        for (const bool throws : {false, true})
        {
            CStdioFileEx file(throws);
            const std::wstring path = folder.WriteFile("t.txt", mark + Encoded(L"old\n", unit, false));
            ASSERT_TRUE(file.Open(path.c_str(), mode));
            EXPECT_EQ(ReadLines(file), Lines{L"old"});
            EXPECT_EQ(file.GetCharCount(), 4u);
            EXPECT_TRUE(file.SetLength(0));
            EXPECT_FALSE(file.HasBom());
            EXPECT_EQ(file.GetCharCount(), 0u);
            file.WriteString(L"abcdef\n");
            file.WriteString(L"g");
            EXPECT_TRUE(file.HasBom());
            EXPECT_EQ(file.GetCharCount(), 8u);
            file.SeekToBegin();
            EXPECT_EQ(ReadLines(file), (Lines{L"abcdef", L"g"}));
            file.SeekToBegin();
            file.WriteString("x");
            file.SeekToBegin();
            file.WriteString(L"yz");
            file.Flush();
            EXPECT_EQ(folder.ReadFile("t.txt"), mark + Encoded(L"yzcdef\ng", unit, false));
            // Bytes that are no mark take its place.
            for (const bool cut : {false, true})
            {
                const std::string bytes = Encoded(L"raw\n", unit, false);
                EXPECT_TRUE(!cut || file.SetLength(1));
                file.SeekToBegin();
                file.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
                EXPECT_FALSE(file.HasBom());
                file.SetLength(bytes.size());
                EXPECT_EQ(file.GetCharCount(), 4u);
                file.SeekToBegin();
                EXPECT_EQ(ReadLines(file), Lines{L"raw"});
                file.SeekToBegin();
                file.Write(mark.data(), static_cast<unsigned>(mark.size()));
                EXPECT_TRUE(file.HasBom());
            }
        }
    }
}

TEST(CStdioFileExEncoding, NarrowTextIsConvertedForAUtf16File)
{
    const TempFolder folder;
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(folder.WidePath("t.txt").c_str(), kNew | kUtf16));
    file.WriteString(static_cast<const char*>(nullptr));
    EXPECT_EQ(file.GetPosition(), 0u);
    file.WriteString("n\xC3\xA9\n");
    file.WriteString(L"w");
    file.WriteString("");
    file.Close();
    EXPECT_EQ(folder.ReadFile("t.txt"), "\xFF\xFE" + Encoded(L"n\u00E9\nw", 2, false));
    // ASCII has a way of its own, which other code pages must not take.
    for (std::size_t length = 1; length < 70; length += 3)
    {
        const std::string ascii = "\x01\x7F" + std::string(length, 'a') + '\n';
        ASSERT_TRUE(file.Open(folder.WidePath("ascii.txt").c_str(), kNew | kUtf16));
        file.WriteString(ascii.c_str());
        file.WriteString(ascii.c_str());
        file.Close();
        const std::wstring wide(ascii.begin(), ascii.end());
        ASSERT_EQ(folder.ReadFile("ascii.txt"), "\xFF\xFE" + Encoded(wide + wide, 2, false));
    }
    {
        const AnsiCodePage ebcdic(37);
        ASSERT_TRUE(file.Open(folder.WidePath("ascii.txt").c_str(), kNew | kUtf16));
        file.WriteString("\x4B\x5A");
        file.Close();
        EXPECT_EQ(folder.ReadFile("ascii.txt"), "\xFF\xFE" + Encoded(L".!", 2, false));
    }
    // And for one that was found to be UTF-16.
    ASSERT_TRUE(file.Open(folder.WidePath("t.txt").c_str(), kTextBoth));
    file.Seek(0, CXFile::end);
    file.WriteString("!");
    file.Close();
    EXPECT_EQ(folder.ReadFile("t.txt"), "\xFF\xFE" + Encoded(L"n\u00E9\nw!", 2, false));
}

TEST(CStdioFileExEncoding, APipeIsReadLikeAFileFromItsFirstByte)
{
    const std::string contents[] = {
        "line1\nline2\n",
        "",
        "a",
        "\xEF\xBB\xBF",
        "\xEF\xBB\xBFmarked\nline",
        "\xFF\xFE" + Encoded(L"wide\r\nline", 2, false),
        "\xFF\xFE" + Encoded(L"no line end", 2, false),
        "\xEF\xBB\xBF" + Encoded(L"wide\rbehind a mark", 2, false),
        "\xEF\xBB\xBF" + std::string(100'000, 'x') + "\nafter a long first line",
        "\xEF\xBB\xBFmarked\r",
        "one\rtwo\rthree",
        std::string(100'000, 'x') + "\rafter a long first line\r" + std::string(100'000, 'y'),
        std::string(70'000, 'x') + "\r\nafter a long first line\n",
    };
    const TempFolder folder;
    const std::string pipe = folder.Path("pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& bytes : contents)
    {
        for (const unsigned codePage : {0u, 1200u})
        {
            SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 20)));
            folder.WriteFile("file", bytes);
            CStdioFileEx file(folder.WidePath("file").c_str(), kText);
            std::thread writer([&] { std::ofstream(pipe, std::ios::binary) << bytes; });
            CStdioFileEx source;
            source.SetBufferSize(bytes.size() < 1000 ? 16 : 65536);
            XClearLastFailure();
            const bool opened = source.Open(folder.WidePath("pipe").c_str(), kText);
            EXPECT_TRUE(opened);
            if (opened)
            {
                for (CStdioFileEx* const each : {&file, &source})
                    if (codePage != 0)
                        each->SetCodePage(static_cast<xStringEncoding>(codePage));
                EXPECT_EQ(source.GetEncoding(), file.GetEncoding());
                EXPECT_EQ(source.HasBom(), file.HasBom());
                EXPECT_EQ(ReadLines(source), ReadLines(file));
                EXPECT_FALSE(XLastFailure()) << XLastFailure().GetOperation();
            }
            writer.join();
        }
    }
}

TEST(CStdioFileExEncoding, ALineOfAPipeIsReadBeforeTheNextOneIsSent)
{
    const std::pair<std::string, Lines> cases[] = {
        {"\n", {L""}},
        {"a\n", {L"a"}},
        {"one\r\ntwo\nthr", {L"one", L"two"}},
        {"\xEF\xBB\xBFone\n", {L"one"}},
        {"\xFF\xFE" + Encoded(L"one\ntwo\n", 2, false), {L"one", L"two"}},
        {"one\rtwo\rt", {L"one", L"two"}}, // CR alone
        {"one\rtwo\r", {L"one"}},
    };
    const TempFolder folder;
    const std::string pipe = folder.Path("pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::PrintToString(c.first));
        std::promise<void> answer;
        std::thread writer([&] {
            std::ofstream out(pipe, std::ios::binary);
            out << c.first << std::flush;
            EXPECT_EQ(answer.get_future().wait_for(std::chrono::minutes(2)), std::future_status::ready);
        });
        CStdioFileEx source;
        EXPECT_TRUE(source.Open(folder.WidePath("pipe").c_str(), kText));
        CXTString<wchar_t> line;
        for (const std::wstring& expected : c.second)
        {
            EXPECT_TRUE(source.ReadString(line));
            EXPECT_EQ(ToStd(line), expected);
        }
        answer.set_value();
        writer.join();
    }
}

TEST(CStdioFileExEncoding, TheMarkIsWrittenAndSkippedWhenTheSystemDoesNotSayWhereTheFileIs)
{
    const TempFolder folder;
    for (const unsigned throwing : {0u, 1u})
    {
        for (unsigned failing = 1; failing <= 12; ++failing)
        {
            SCOPED_TRACE(failing);
            FailingFileSystem system;
            CStdioFileEx file(throwing != 0);
            ASSERT_TRUE(file.Open(folder.WidePath("t.txt").c_str(), kNew | kUtf16));
            system.FailAt(failing, EIO);
            bool sought = true;
            const int thrown = Thrown([&] {
                file.WriteString(L"ab\n");
                sought = file.Seek(0, CXFile::begin) == 0;
                file.WriteString(L"c");
                file.Close();
            });
            system.FailAt(0, 0);
            file.Abort();
            const std::string written = folder.ReadFile("t.txt");
            if (thrown == kNothingThrown && throwing != 0)
            {
                EXPECT_EQ(written, "\xFF\xFE" + Encoded(sought ? L"cb\n" : L"ab\nc", 2, false));
            }
            EXPECT_TRUE(written.empty() || written.substr(0, 2) == "\xFF\xFE");
            // Reading skips the mark, or fails.
            folder.WriteFile("t.txt", "\xFF\xFE" + Encoded(L"ab\nanother line\n", 2, false));
            CStdioFileEx source(true);
            source.SetBufferSize(8);
            CXTString<wchar_t> line;
            EXPECT_EQ(source.Open(folder.WidePath("t.txt").c_str(), kText), true);
            source.SkipLines(2, CXFile::current); // past the buffer
            system.FailAt(failing, EIO);
            const int failure = Thrown([&] {
                while (source.Seek(0, CXFile::begin) != 0)
                    continue;
                EXPECT_TRUE(source.ReadString(line));
            });
            system.FailAt(0, 0);
            EXPECT_TRUE(failure != kNothingThrown || ToStd(line) == L"ab") << ToStd(line);
        }
    }
}

TEST(CStdioFileExEncoding, WithoutMemoryALineIsEmptyAndTheFileStaysUsable)
{
    const std::string contents[] = {
        "short\n" + std::string(5000, 'x') + "\n\xC3\xA9\xFF invalid\n",
        "\xFF\xFE" + Encoded(L"short\n" + std::wstring(5000, L'\u00E9') + L"\n", 2, false), "one\rtwo\rthree",
        std::string(40, 'x') + "\n" + std::string(100, 'y') + "\n" + std::string(200, 'z') +
            "\n", // into the room of the one before
    };
    const TempFolder folder;
    for (const std::string& bytes : contents)
    {
        folder.WriteFile("t.txt", bytes);
        const Lines expected = [&] {
            CStdioFileEx file(folder.WidePath("t.txt").c_str(), kText);
            return ReadLines(file);
        }();
        const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
            CStdioFileEx file;
            CXTString<wchar_t> line(L"before");
            unsigned read = 0;
            const std::wstring path = folder.WidePath("t.txt");
            const bool done = failing.Run([&] {
                if (!file.Open(path.c_str(), kText))
                    return;
                while (file.ReadString(line))
                    ++read;
            });
            EXPECT_TRUE(!done || read == 0 || read == expected.size()) << read;
            EXPECT_TRUE(line.IsEmpty() || line == L"before");
            if (file.Seek(0, CXFile::begin) == 0)
            {
                EXPECT_EQ(ReadLines(file), expected);
            }
        });
        EXPECT_NE(allocations, 0u);
    }
}
} // namespace
