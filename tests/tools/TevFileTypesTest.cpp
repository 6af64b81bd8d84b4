#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;
using testing::Not;

TEST(TevFileTypes, TypesAreListedAndNamesResolved)
{
    const TevResult all = RunTev({"types"});
    EXPECT_EQ(all.m_exitCode, 0);
    EXPECT_THAT(all.m_output, HasSubstr("BMP\timage\tFERN\t-\t.bmp|.dib\tBmp files\n"));
    EXPECT_THAT(all.m_output, HasSubstr("FLAS\timage+web\t"));
    const TevResult archives = RunTev({"types", "--kind", "archive", "--format", "table"});
    EXPECT_THAT(archives.m_output, testing::StartsWith("CLASS  KIND     LOADER  SAVER  EXTENSIONS  DESCRIPTION\n"));
    EXPECT_THAT(archives.m_output, HasSubstr("\nZIP    archive  FERN    FERN   .zip        Zip files\n"));
    EXPECT_THAT(archives.m_output, Not(HasSubstr("BMP")));
    EXPECT_EQ(RunTev({"types", "a.WMV", "b"}).m_output, "a.WMV\tMPG4\tvideo\tFERN\t-\tWMV\nb\t-\t-\t-\t-\t-\n");
    EXPECT_EQ(RunTev({"types", "--kind", "audio", "a.wmv", "b.wav"}).m_output, "b.wav\tAIWV\taudio\tFERN\t-\t-\n");
    EXPECT_EQ(RunTev({"types", "--kind", "paper"}).m_exitCode, 2);
}

TEST(TevFileTypes, MatchPrintsMatchingNames)
{
    EXPECT_THAT(RunTev({"match", "tree,\"bmp\"", "Trees.txt", "a.BMP", "bmp.c"}),
                FieldsAre(0, "Trees.txt\na.BMP\n", _));
    EXPECT_EQ(RunTev({"match", "x?", "abc"}).m_exitCode, 1);
    EXPECT_EQ(RunTev({"match", "x"}).m_exitCode, 2);
}

TEST(TevTerminal, TextOfOthersDoesNotControlIt)
{
    const TempFolder folder;
    // An escape, a control of one byte, one of two, an override of the direction, an invalid byte, a bell.
    const std::string evil = "\x1B[31mA\x9B\xC2\x9B\xE2\x80\xAE\xFF\aB\t\xC3\xA9";
    const std::string shown = "?[31mA?????B\t\xC3\xA9";
    const std::string utf8 = "\x1B[31mA\xC2\x9B\xE2\x80\xAE\aB\t\xC3\xA9";
    const std::string shownUtf8 = "?[31mA???B\t\xC3\xA9";
    folder.WriteFile("evil", utf8 + "\n");
    const std::string file = folder.Path("evil").string();
    const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
        {{"match", "A", evil}, shown, evil},
        {{"log", "show", file}, shownUtf8, utf8},
        {{"text", "cat", file}, shownUtf8, utf8},
        {{"types", evil + ".bmp"}, shown + ".bmp", evil + ".bmp"},
        {{"text", "cat", "none" + utf8}, "none" + shownUtf8, "none" + utf8},
        {{evil}, "command " + shown, ""},
    };
    for (const auto& [words, printable, raw] : cases)
    {
        const std::optional<std::string> text = RunTevOnTerminal(words);
        if (!text)
            GTEST_SKIP() << "this system has no terminals";
        EXPECT_THAT(*text, HasSubstr(printable)) << words[0];
        std::vector<std::string> rawWords = words;
        rawWords.emplace_back("--raw");
        EXPECT_THAT(RunTevOnTerminal(rawWords).value_or(raw), HasSubstr(raw)) << words[0];
    }
    EXPECT_EQ(RunTev({"match", "A", evil}).m_output, evil + "\n") << "to a file";
}
} // namespace
