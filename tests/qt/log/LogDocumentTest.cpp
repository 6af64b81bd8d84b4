#include "qt/log/LogDocument.h"

#include "tests/qt/log/LogFiles.h"
#include "text/CXTString.h"

#include <gmock/gmock.h>

#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
// What happened, once the document has looked at the file and counted what there is.
FileEvent EventAfterCheck(LogDocument& document)
{
    document.RequestCheck();
    return WaitUntilIdle(document) ? document.GetStatus().m_event : FileEvent::None;
}

std::vector<std::string> AllTexts(const LogDocument& document)
{
    return TextsOf(document.ReadRows(0, 1000));
}
} // namespace

TEST(LogDocument, SaysWhatHappensToTheFileAndGoesOn)
{
    for (const LogDocument::Work work : {LogDocument::Work::InThread, LogDocument::Work::InTick})
    {
        const LogFolder folder;
        const CXTString<wchar_t> path = folder.Write("a.log", "one\ntwo\nthree\n");
        LogDocument document(work);
        document.Open(path);
        ASSERT_TRUE(WaitUntilIdle(document));
        EXPECT_THAT(AllTexts(document), ElementsAre("one", "two", "three"));

        folder.Append("a.log", "four");
        EXPECT_EQ(FileEvent::None, EventAfterCheck(document));
        EXPECT_THAT(AllTexts(document), ElementsAre("one", "two", "three", "four"));
        const unsigned generation = document.GetStatus().m_generation;

        folder.Write("a.log", "one\n");
        EXPECT_EQ(FileEvent::Cut, EventAfterCheck(document));
        EXPECT_THAT(AllTexts(document), ElementsAre("one"));
        EXPECT_NE(generation, document.GetStatus().m_generation);

        folder.Write("a.log", "ONE\nmore\n");
        EXPECT_EQ(FileEvent::Changed, EventAfterCheck(document));
        EXPECT_THAT(AllTexts(document), ElementsAre("ONE", "more"));

        std::filesystem::remove(folder.Path("a.log"));
        EXPECT_EQ(FileEvent::Deleted, EventAfterCheck(document));
        EXPECT_THAT(AllTexts(document), ElementsAre("ONE", "more")); // is still shown
        const unsigned count = document.GetStatus().m_eventCount;
        EXPECT_EQ(FileEvent::Deleted, EventAfterCheck(document));
        EXPECT_EQ(count, document.GetStatus().m_eventCount); // said once

        folder.Write("b.log", "other\n");
        std::filesystem::rename(folder.Path("b.log"), folder.Path("a.log"));
        EXPECT_EQ(FileEvent::Replaced, EventAfterCheck(document));
        EXPECT_THAT(AllTexts(document), ElementsAre("other"));

        std::filesystem::remove(folder.Path("a.log"));
        std::filesystem::create_directory(folder.Path("a.log"));
        EXPECT_EQ(FileEvent::Unreadable, EventAfterCheck(document));
        EXPECT_FALSE(document.GetStatus().m_reason.IsEmpty());
        EXPECT_THAT(AllTexts(document), ElementsAre("other"));
    }
}

TEST(LogDocument, NoticesWhatIsWrittenAmongTheLinesAndFilesThatLookAlike)
{
    const LogFolder folder;
    const std::string bytes(12288, 'x');
    LogDocument document;
    document.Open(folder.Write("a.log", bytes));
    ASSERT_TRUE(WaitUntilIdle(document));
    const auto time = std::filesystem::last_write_time(folder.Path("a.log"));
    const auto change = [&](const char* name, std::filesystem::file_time_type written) {
        std::fstream file(folder.Path(name), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(6000) << 'y';
        file.close();
        std::filesystem::last_write_time(folder.Path(name), written);
    };
    folder.Write("b.log", bytes);
    change("b.log", time);
    std::filesystem::rename(folder.Path("b.log"), folder.Path("a.log"));
    EXPECT_EQ(FileEvent::Replaced, EventAfterCheck(document));
    const auto events = [&] { return document.GetStatus().m_eventCount; };
    EXPECT_EQ(1U, events());
    change("a.log", time + std::chrono::milliseconds(1));
    EXPECT_EQ(FileEvent::Changed, EventAfterCheck(document));
    // What is longer has a new time, too.
    folder.Append("a.log", "more");
    std::filesystem::last_write_time(folder.Path("a.log"), time + std::chrono::milliseconds(2));
    EXPECT_TRUE(EventAfterCheck(document) == FileEvent::Changed && EventAfterCheck(document) == FileEvent::Changed);
    EXPECT_EQ(2U, events());
    change("a.log", time);
    EventAfterCheck(document);
    EXPECT_EQ(3U, events());
    // Also where the file was read at once.
    document.Open(CXTString<wchar_t>(folder.Path("a.log").wstring()));
    std::filesystem::resize_file(folder.Path("a.log"), 8192);
    EXPECT_EQ(FileEvent::Cut, EventAfterCheck(document));
}

// Files of the system state a length that has nothing to do with what they hold, and some can be opened, but not read.
TEST(LogDocument, ReadsFilesThatStateAnotherLength)
{
    struct
    {
        const wchar_t* m_path;
        bool m_isReadable;
    } const cases[] = {{L"/sys/class/net/lo/mtu", true},
                       {L"/proc/version", true},
                       {L"/sys/class/net/lo/speed", false},
                       {L"/proc/self/mem", false}};
    for (const auto& [path, isReadable] : cases)
    {
        if (!fileExists(path))
            continue;
        for (const LogDocument::Work work : {LogDocument::Work::InThread, LogDocument::Work::InTick})
        {
            SCOPED_TRACE(CXTString<char>(path).GetConstBuffer());
            LogDocument document(work);
            document.Open(path);
            ASSERT_TRUE(WaitUntilIdle(document));
            EXPECT_EQ(FileEvent::None, EventAfterCheck(document));
            EXPECT_EQ(isReadable, !document.GetStatus().m_lines.m_hasFailed);
            EXPECT_EQ(isReadable ? 1U : 0U, document.GetStatus().m_lines.m_lines);
        }
    }
}

TEST(LogDocument, OpensAFileThatIsLockedOrMissingWhenItCan)
{
    const LogFolder folder;
    const CXTString<wchar_t> path = folder.Write("a.log", "text\n");
    LogDocument document;
    {
        const CXFile owner(path, CXFile::modeReadWrite | CXFile::shareExclusive);
        document.Open(path);
        ASSERT_TRUE(WaitUntilIdle(document));
        EXPECT_EQ(FileEvent::Locked, document.GetStatus().m_event);
        EXPECT_THAT(AllTexts(document), IsEmpty());
    }
    EXPECT_EQ(FileEvent::Back, EventAfterCheck(document));
    EXPECT_THAT(AllTexts(document), ElementsAre("text"));

    document.Open(CXTString<wchar_t>(folder.Path("later.log").wstring()));
    EXPECT_EQ(FileEvent::Deleted, EventAfterCheck(document));
    folder.Write("later.log", "now");
    EXPECT_EQ(FileEvent::Back, EventAfterCheck(document));
    EXPECT_THAT(AllTexts(document), ElementsAre("now"));
}

TEST(LogDocument, FiltersAndSearchesWhatIsThereAndWhatComes)
{
    const LogFolder folder;
    const CXTString<wchar_t> path = folder.Write("a.log", "error 1\nfine\nerror 2\n\terror 3\n");
    LogDocument document;
    document.Open(path);
    document.SetFilter({PatternKind::Text, QStringLiteral("error"), false}, 0);
    document.SetSearch({PatternKind::Wildcard, QStringLiteral("r ?"), false});
    ASSERT_TRUE(WaitUntilIdle(document));
    EXPECT_THAT(AllTexts(document), ElementsAre("error 1", "error 2", "\terror 3"));
    EXPECT_EQ(1U, document.RowOfLine(1)); // the row of the next line that is shown
    EXPECT_EQ(2U, document.ReadRows(1, 1)[0].m_line);
    EXPECT_EQ(std::optional<std::uint64_t>(1), document.NextMatch(1));
    EXPECT_EQ(std::optional<std::uint64_t>(0), document.PreviousMatch(1));
    EXPECT_EQ(std::nullopt, document.NextMatch(3));
    EXPECT_EQ(std::nullopt, document.PreviousMatch(0));

    folder.Append("a.log", "fine\nerror 4");
    ASSERT_EQ(FileEvent::None, EventAfterCheck(document));
    EXPECT_THAT(TextsOf(document.ReadRows(2, 9)), ElementsAre("\terror 3", "error 4"));
    EXPECT_EQ(std::optional<std::uint64_t>(3), document.NextMatch(3));

    document.SetFilter({}, kTabColumns);
    ASSERT_TRUE(WaitUntilIdle(document));
    EXPECT_THAT(AllTexts(document), ElementsAre("error 1", "fine", "error 2", "fine", "error 4"));
    EXPECT_EQ(std::vector<bool>({true, false, true, false, true}), document.FindMatchingParts(5));
    EXPECT_EQ(3U, document.GetStatus().m_matches.m_hits);
}

TEST(LogDocument, FindsWhatAFoldHides)
{
    const LogFolder folder;
    std::string bytes = "a\n";
    for (int i = 0; i < 40000; ++i) // more than is counted at once
        bytes += "\tdeeper\n\n";
    LogDocument document;
    document.Open(folder.Write("a.log", bytes + "\t\tdeepest\n\tdeeper\nb\n"));
    document.RequestFold(80001);
    document.RequestFold(0);
    document.RequestFold(80003);
    ASSERT_TRUE(WaitUntilIdle(document));
    std::vector<std::pair<std::uint64_t, std::uint64_t>> folds;
    for (std::optional<LogDocument::Fold> fold; (fold = document.TakeFold()).has_value();)
        folds.emplace_back(fold->m_row, fold->m_end);
    EXPECT_THAT(folds, testing::UnorderedElementsAre(std::make_pair(80001U, 80002U), std::make_pair(0U, 80003U),
                                                     std::make_pair(80003U, 80004U)));
}

TEST(LogDocument, KnowsEncodings)
{
    const LogFolder folder;
    const std::string utf16("\xFF\xFE"
                            "\xE9\0t\0\n\0x\0\n\x01\n\0",
                            14);
    struct
    {
        std::string m_bytes;
        xStringEncoding m_encoding;
        std::vector<std::string> m_lines;
    } const cases[] = {
        {"\xEF\xBB\xBF\xC3\xA9t\nx", xEncodingUtf8, {"\xC3\xA9t", "x"}},
        {utf16, xEncodingUtf16, {"\xC3\xA9t", "x\xC4\x8A"}}, // U+010A is no line end
        {std::string("\xFE\xFF\0t\0\n\0x", 8), xEncodingUtf16BE, {"t", "x"}},
        {std::string("\xFF\xFE\0\0t\0\0\0\n\0\0\0x\0\0\0", 16), xStringEncoding{12000}, {"t", "x"}},
        {std::string(65535, 'a') + "\xC3\xA9", xEncodingUtf8, {std::string(8192, 'a')}},
        {"caf\xE9\n", xEncodingAnsi, {"caf\xEF\xBF\xBD"}},
        {"", xEncodingUtf8, {}},
    };
    for (const auto& [bytes, encoding, lines] : cases)
    {
        LogDocument document;
        document.Open(folder.Write("a.log", bytes));
        EXPECT_EQ(encoding, document.GetStatus().m_encoding);
        EXPECT_EQ(lines, AllTexts(document));
    }
    LogDocument document;
    document.Open(folder.Write("a.log", "caf\xE9\n"), xStringEncoding{1252});
    EXPECT_THAT(AllTexts(document), ElementsAre("caf\xC3\xA9"));
    // Too short to tell at first.
    document.Open(folder.Write("a.log", "\xFF"));
    folder.Append("a.log", std::string("\xFEy\0", 3));
    EXPECT_EQ(FileEvent::None, EventAfterCheck(document));
    EXPECT_THAT(AllTexts(document), ElementsAre("y"));
}

TEST(LogDocument, CopiesLinesUpToALimit)
{
    const LogFolder folder;
    LogDocument document;
    const std::string longLine(50000, 'x');
    document.Open(folder.Write("a.log", "one\r\n" + longLine + "\r\nthree"));
    bool isCut = true;
    std::uint64_t limit = 50100;
    EXPECT_EQ("one\n" + longLine + "\nthree\n", document.CopyRows(0, 2, limit, isCut).toStdString());
    EXPECT_FALSE(isCut);
    EXPECT_EQ(92U, limit);
    EXPECT_EQ("one\n" + longLine.substr(0, 89) + "\n", document.CopyRows(0, 2, limit, isCut).toStdString());
    EXPECT_TRUE(isCut);
    const std::vector<LogRow> rows = document.ReadRows(1, 2);
    EXPECT_TRUE(rows[0].m_isCut);
    EXPECT_EQ(static_cast<qsizetype>(LogDocument::kShownBytes), rows[0].m_text.size());
    EXPECT_EQ(QStringLiteral("three"), rows[1].m_text);
}

// Whatever the bytes are: every row can be read, and a search for what a row holds finds it.
TEST(LogDocument, TakesAnyBytes)
{
    const LogFolder folder;
    std::mt19937 random(18);
    for (int round = 0; round < 30; ++round)
    {
        std::string bytes;
        const char* const marks[] = {"", "\xFF\xFE", "\xFE\xFF", "\xEF\xBB\xBF"};
        bytes += marks[random() % 4];
        const unsigned range = round % 2 == 0 ? 256 : 14; // few values give many line ends
        for (auto count = random() % 20000; count > 0; --count)
            bytes += static_cast<char>(random() % range);
        LogDocument document(LogDocument::Work::InTick);
        document.Open(folder.Write("a.log", bytes));
        ASSERT_TRUE(WaitUntilIdle(document));
        const std::uint64_t lines = document.GetStatus().m_lines.m_lines;
        const std::vector<LogRow> rows = document.ReadRows(0, bytes.size() + 1);
        ASSERT_EQ(lines, rows.size()) << round;
        const LogRow& row = rows[random() % rows.size()];
        if (row.m_text.isEmpty() || row.m_isCut)
            continue;
        document.SetSearch({PatternKind::Text, row.m_text, true});
        ASSERT_TRUE(WaitUntilIdle(document));
        EXPECT_EQ(std::optional<std::uint64_t>(row.m_row), document.NextMatch(row.m_row)) << round;
    }
}
