#include "tests/support/Iconv.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

TEST(TevLog, PrintsALogAsUtf8)
{
    const TempFolder folder;
    const std::string mark = "\xFF\xFE";
    std::string units = mark + Utf16("one\n\ttwo\n\t\tthree\n");
    units += "\x41\x0A";
    units += std::string("\x0A\x00", 2) + Utf16("end");
    folder.WriteFile("a.log", units);
    folder.WriteFile("b.log", "plain\n\tUTF-8 \xC3\xA9\n");
    folder.WriteFile("empty.log", mark);
    const auto show = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"log", "show"});
        return RunTev(words);
    };
    EXPECT_EQ(show({folder.Path("a.log")}).m_output, "one\n\ttwo\n\t\tthree\n\xE0\xA9\x81\nend");
    EXPECT_EQ(show({folder.Path("a.log"), "--level", "1"}).m_output, "one\n\ttwo\n\xE0\xA9\x81\nend");
    EXPECT_EQ(show({folder.Path("b.log"), "--level", "0"}).m_output, "plain\n");
    EXPECT_EQ(show({folder.Path("empty.log")}).m_output, "");
    EXPECT_EQ(RunTev({"log", "show", "--follow", "-"}, units).m_output, "one\n\ttwo\n\t\tthree\n\xE0\xA9\x81\nend");
    const TevResult none = show({folder.Path("none.log")});
    EXPECT_EQ(none.m_exitCode, 1);
    EXPECT_THAT(none.m_error, HasSubstr("none.log"));
    EXPECT_EQ(RunTev({"log"}).m_exitCode, 2);
}

TEST(TevLog, LevelsOfPrefixesCountToo)
{
    const std::string kept =
        "[2026-11-22T13:45:10.123Z L1] a\n[L-] b\n[8 L1] \tc\n[L2 8] d\n[L2]e\n[x] f\n[] g\n[L2 ] h\n[9 9] i\n";
    const std::string omitted = "[L2] x\n[2026-11-22T13:45:10.123Z 7 L2] y\n[L1] \t\tz\n";
    EXPECT_EQ(RunTev({"log", "show", "-", "--level", "1"}, omitted + kept + omitted).m_output, kept);
}

TEST(TevLog, SaysWhatIsNoLog)
{
    const TempFolder folder;
    const std::string euro = "\xE2\x82\xAC";
    for (const std::string& bytes :
         {"PK\3\4"s + '\0', "caf\xE9 au lait"s, std::string(5000, 'a') + euro, "cut "s + euro[0]})
    {
        folder.WriteFile("file", bytes);
        const TevResult shown = RunTev({"log", "show", folder.Path("file")});
        const bool isText = bytes.back() == euro[0] || bytes.size() > 5000;
        EXPECT_EQ(shown.m_exitCode, isText ? 0 : 1);
        EXPECT_EQ(shown.m_output, isText ? bytes : "");
        EXPECT_EQ(shown.m_error, isText ? "" : "tev: " + folder.Path("file").string() + ": is no log\n");
    }
}

TEST(TevLog, FollowsALogThatGrowsAndOneThatIsStartedAgain)
{
    const TempFolder folder;
    folder.WriteFile("a.log", "\xFF\xFE" + Utf16("first\nsec"));
    Pipe output;
    TevProcess tool({"log", "show", "--follow", folder.Path("a.log")}, -1, output.WriteEnd(), -1);
    output.CloseWrite();
    EXPECT_EQ(ReadUntil(output.ReadEnd(), "first\n"), "first\n");
    std::ofstream(folder.Path("a.log"), std::ios::app | std::ios::binary) << Utf16("ond\n");
    EXPECT_EQ(ReadUntil(output.ReadEnd(), "second\n"), "second\n");
    folder.WriteFile("a.log", "new\n");
    EXPECT_EQ(ReadUntil(output.ReadEnd(), "new\n"), "new\n");
    tool.Signal(SIGINT);
    EXPECT_NE(tool.Wait(), 0);
}
} // namespace
