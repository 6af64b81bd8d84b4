#include "files/CXStdioFile.h"

#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TextTools.h"

#include <unistd.h>

namespace
{
using namespace tev::test;

constexpr unsigned kReadWrite = CXFile::modeReadWrite | CXFile::modeCreate | CXFile::shareDenyNone;

template <class T>
std::vector<std::basic_string<T>> ReadLines(CXStdioFile& file)
{
    std::vector<std::basic_string<T>> lines;
    CXTString<T> line("to be replaced");
    while (file.ReadString(line))
        lines.push_back(ToStd(line));
    EXPECT_TRUE(line.IsEmpty());
    return lines;
}

// The line from `position` on, with its CR LF as LF.
std::string LineAt(const std::string& bytes, std::size_t& position)
{
    const std::size_t end = std::min(bytes.find('\n', position), bytes.size() - 1) + 1;
    std::string line = bytes.substr(position, end - position);
    position = end;
    if (line.size() >= 2 && line.substr(line.size() - 2) == "\r\n")
        line.erase(line.size() - 2, 1);
    return line;
}

TEST(CXStdioFile, NarrowLinesKeepTheirLineFeedAndLoseTheReturnBeforeIt)
{
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {}},
        {"a", {"a"}},
        {"\n", {"\n"}},
        {"\r\n", {"\n"}},
        {"\r", {"\r"}},
        {"a\nb\r\n\nc", {"a\n", "b\n", "\n", "c"}},
        {"a\r\r\nb\rc\n\r", {"a\r\n", "b\rc\n", "\r"}},
        {"a\0b\r\n\0"s, {"a\0b\n"s, "\0"s}},
        {"\xFF\xFE\n\xC3", {"\xFF\xFE\n", "\xC3"}},
    };
    const TempFolder folder;
    for (const auto& [bytes, lines] : cases)
    {
        CXStdioFile file(folder.WriteFile("lines", bytes).c_str(), CXFile::modeRead);
        EXPECT_EQ(ReadLines<char>(file), lines) << testing::PrintToString(bytes);
    }
}

TEST(CXStdioFile, WideLinesAreMadeOf16BitUnits)
{
    const std::pair<std::string, std::vector<std::wstring>> cases[] = {
        {"a\0\r\0\n\0b\0"s, {L"a\n", L"b"}},
        // The bytes of LF and CR inside other characters, at even and odd places.
        {"\x0A\x0A\x0A\x4E\0\x0A\x0D\x0D\x0A\0\x0D\x0A"s, {L"\u0A0A\u4E0A\u0A00\u0D0D\n", L"\u0A0D"}},
        {"\x34\xD8\x1E\xDD\x0A\0\x34\xD8\x0A\0"s, {L"\U0001D11E\n", L"\xD834\n"}},
        {"\0\0a\0\0\0\n\0"s, {L"\0a\0\n"s}},
        {"a\0\r\0\n"s, {L"a\r\uFFFD"}},
        {"\n"s, {L"\uFFFD"}},
    };
    const TempFolder folder;
    for (const auto& [bytes, lines] : cases)
    {
        CXStdioFile file(folder.WriteFile("lines", bytes).c_str(), CXFile::modeRead);
        EXPECT_EQ(ReadLines<wchar_t>(file), lines) << testing::PrintToString(bytes);
    }
}

TEST(CXStdioFile, LinesAreWholeWhereverTheBufferEnds)
{
    const TempFolder folder;
    for (std::size_t size = 65529; size <= 65544; ++size)
    {
        const WithoutAvx2 plain(size / 2 % 2 == 1); // units lie across the buffer's end or not, each way
        std::string narrow = std::string(size, 'n') + "\r\nx\n";
        CXStdioFile file(folder.WriteFile("narrow", narrow).c_str(), CXFile::modeRead);
        EXPECT_EQ(ReadLines<char>(file), (std::vector<std::string>{std::string(size, 'n') + "\n", "x\n"})) << size;

        // Starts at an odd place, so that units lie across the buffer's end too.
        std::string wide = "-";
        for (const char c : narrow)
            wide.append({c, '\0'});
        file.Open(folder.WriteFile("wide", wide.substr(wide.size() - 65536 - 7)).c_str(), CXFile::modeRead);
        file.Seek(1, CXFile::begin);
        const std::vector<std::wstring> lines = ReadLines<wchar_t>(file);
        ASSERT_EQ(lines.size(), 2u) << size;
        EXPECT_EQ(lines[0].substr(lines[0].size() - 2), L"n\n");
        EXPECT_EQ(lines[1], L"x\n");
    }
}

TEST(CXStdioFile, BehavesLikeAStringOfBytesInEveryMixtureOfOperations)
{
    const unsigned seed = 20261121;
    std::mt19937 random(seed);
    RecordProperty("seed", static_cast<int>(seed));
    const auto below = [&](std::size_t bound) { return static_cast<std::size_t>(random() % bound); };
    const TempFolder folder;
    for (int round = 0; round < 60; ++round)
    {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
        CXStdioFile file;
        file.SetBufferSize(static_cast<unsigned>(8 + below(40)));
        ASSERT_TRUE(file.Open(folder.WidePath("random").c_str(), kReadWrite));
        std::string bytes;
        std::size_t position = 0;
        const auto write = [&](const std::string& text) {
            if (position > bytes.size())
                bytes.resize(position);
            bytes.replace(position, std::min(text.size(), bytes.size() - position), text);
            position += text.size();
        };
        for (int step = 0; step < 300; ++step)
        {
            switch (below(8))
            {
            case 0:
            case 1: {
                std::string text;
                for (std::size_t left = below(below(8) == 0 ? 100 : 12); left != 0; --left)
                    text += "\r\n\n\0aaaaa"s[below(9)];
                file.Write(text.data(), static_cast<unsigned>(text.size()));
                if (!text.empty())
                    write(text);
                break;
            }
            case 2:
                file.WriteString("one\r\n");
                write("one\r\n");
                file.WriteString(L"\u00E9\U0001D11E");
                write("\xE9\0\x34\xD8\x1E\xDD"s);
                break;
            case 3: {
                std::string target(below(below(4) == 0 ? 100 : 12), '?');
                const unsigned count = file.Read(target.data(), static_cast<unsigned>(target.size()));
                const std::string expected = position < bytes.size() ? bytes.substr(position, target.size()) : "";
                ASSERT_EQ(target.substr(0, count), expected);
                position += count;
                break;
            }
            case 4:
            case 5: {
                CXTString<char> line;
                const bool more = position < bytes.size();
                ASSERT_EQ(file.ReadString(line), more);
                ASSERT_EQ(ToStd(line), more ? LineAt(bytes, position) : "");
                break;
            }
            case 6: {
                const auto origin = static_cast<CXFile::SeekPosition>(below(3));
                const std::size_t base[] = {0, position, bytes.size()};
                const __int64 target = static_cast<__int64>(below(bytes.size() + 20)) - 5;
                const unsigned __int64 result = file.Seek(target - static_cast<__int64>(base[origin]), origin);
                ASSERT_EQ(result, target < 0 ? kFailed : static_cast<unsigned __int64>(target));
                if (target >= 0)
                    position = static_cast<std::size_t>(target);
                break;
            }
            default:
                file.Flush();
                ASSERT_EQ(folder.ReadFile("random"), bytes);
                if (below(4) == 0)
                {
                    bytes.resize(position = below(bytes.size() + 10));
                    ASSERT_TRUE(file.SetLength(position));
                }
            }
            ASSERT_EQ(file.GetPosition(), position);
            ASSERT_EQ(file.GetLength(), bytes.size());
        }
        file.Close();
        ASSERT_EQ(folder.ReadFile("random"), bytes);
    }
}

TEST(CXStdioFile, WhatWaitsInTheBufferReachesTheFileHoweverTheObjectEnds)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("file");
    {
        CXStdioFile file(path.c_str(), kReadWrite);
        file.WriteString("destroyed");
        EXPECT_EQ(folder.ReadFile("file"), "");
    }
    EXPECT_EQ(folder.ReadFile("file"), "destroyed");
    CXStdioFile file(path.c_str(), kReadWrite);
    file.WriteString("aborted");
    file.Abort();
    EXPECT_EQ(folder.ReadFile("file"), "aborted");
    EXPECT_TRUE(file.Open(path.c_str(), kReadWrite));
    file.WriteString("left for another");
    EXPECT_TRUE(file.Open(folder.WidePath("other").c_str(), kReadWrite));
    EXPECT_EQ(folder.ReadFile("file"), "left for another");
    file.Close();
    CXTString<char> line("x");
    EXPECT_FALSE(file.ReadString(line));
    EXPECT_TRUE(line.IsEmpty());
    EXPECT_EQ(file.Seek(0, CXFile::begin), kFailed);
    EXPECT_EQ(Thrown([&] { file.Write("x", 1); }), fileNotFound);
}

TEST(CXStdioFile, AFullDeviceIsReportedAndLosesNothing)
{
    const TempFolder folder;
    {
        CXStdioFile full(L"/dev/full", CXFile::modeWrite);
        full.WriteString("text");
        EXPECT_EQ(Thrown([&] { full.Flush(); }), fileDiskFull);
        EXPECT_EQ(Thrown([&] { full.Close(); }), fileDiskFull);
        EXPECT_EQ(Thrown([&] { full.Close(); }), kNothingThrown);
        ASSERT_TRUE(full.Open(L"/dev/full", CXFile::modeWrite));
        full.WriteString("text");
        CXFileException error;
        EXPECT_FALSE(full.Open(folder.WidePath("next").c_str(), kReadWrite, &error));
        EXPECT_EQ(error.GetCause(), fileDiskFull);
        ASSERT_TRUE(full.Open(L"/dev/full", CXFile::modeWrite));
        full.WriteString("goes unseen");
    }
    CXStdioFile quiet(false);
    ASSERT_TRUE(quiet.Open(L"/dev/full", CXFile::modeWrite));
    quiet.WriteString("text");
    EXPECT_EQ(Thrown([&] { quiet.Close(); }), kNothingThrown);

    FailingFileSystem disk;
    CXStdioFile file;
    file.SetBufferSize(16);
    ASSERT_TRUE(file.Open(folder.WidePath("partial").c_str(), kReadWrite));
    disk.LimitSpace(5);
    file.WriteString("0123456789");
    EXPECT_EQ(Thrown([&] { file.WriteString("abcdefghij"); }), fileDiskFull);
    EXPECT_EQ(Thrown([&] { file.Flush(); }), fileDiskFull);
    EXPECT_EQ(folder.ReadFile("partial"), "01234");
    EXPECT_EQ(file.GetPosition(), 10u);
    EXPECT_EQ(file.GetLength(), 10u);
    disk.LimitSpace(100);
    file.WriteString("!");
    file.Close();
    EXPECT_EQ(folder.ReadFile("partial"), "0123456789!");
}

TEST(CXStdioFile, AFailureWhileReadingLeavesTheLineEmpty)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "first\nsecond line");
    FailingFileSystem disk;
    unsigned failures = 0;
    for (unsigned operation = 1; operation <= 12; ++operation)
    {
        CXStdioFile file;
        file.SetBufferSize(8);
        ASSERT_TRUE(file.Open(path.c_str(), CXFile::modeRead));
        CXTString<char> line;
        std::string read;
        disk.FailAt(operation, EIO);
        const int thrown = Thrown([&] {
            while (file.ReadString(line))
                read += ToStd(line);
        });
        disk.FailAt(0, 0);
        EXPECT_TRUE(line.IsEmpty());
        if (thrown == kNothingThrown)
        {
            EXPECT_EQ(read, "first\nsecond line");
            continue;
        }
        EXPECT_EQ(thrown, fileHardIO);
        ++failures;
    }
    EXPECT_GE(failures, 3u);
}

TEST(CXStdioFile, ReadsAndWritesPipes)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        CXStdioFile in(CXFile::HandleFromDescriptor(ends[1]), true);
        in.WriteString("one\r\ntwo\nthree");
    }
    close(ends[1]);
    CXStdioFile out(CXFile::HandleFromDescriptor(ends[0]), true);
    EXPECT_EQ(ReadLines<char>(out), (std::vector<std::string>{"one\n", "two\n", "three"}));
    out.Close();
}
} // namespace
