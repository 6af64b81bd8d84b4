#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

TEST(TevUsage, ListsTheCommandsWhereOneIsMissingOrUnknown)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "tev: a command is needed: text, "},
        {{"color", "#ff0000"}, "tev: there is no command color, but text, "},
        {{"help", "zpi", "list"}, "tev: there is no command zpi\nDid you mean zip?\n"},
        {{"help", "zip", "frobnicate"}, "tev: there is no command frobnicate\nRun "},
        {{"log"}, "tev: log: a command is needed: show\n"},
        {{"log", "list", "x"}, "tev: log: there is no command list, but show\n"},
        {{"log", "show"}, "tev: FILE is required\n"},
        {{"--colour"}, "tev: there is no command --colour, but text, "},
    };
    for (const auto& [arguments, error] : cases)
    {
        EXPECT_THAT(RunTev(arguments), FieldsAre(2, "", AllOf(StartsWith(error), HasSubstr("--help"))));
    }
}

TEST(TevUsage, SuggestsTheNearestCommand)
{
    for (const auto& [word, nearest] : {std::pair("color", "colour"), {"regsitry", "registry"}, {"txt", "text"}})
        EXPECT_THAT(RunTev({word}).m_error, HasSubstr("\nDid you mean "s + nearest + "?\n"));
    for (const char* word : {"xy", "frobnicate"})
        EXPECT_THAT(RunTev({word}).m_error, testing::Not(HasSubstr("Did you mean")));
}

TEST(TevUsage, HelpIsTheSameInBothForms)
{
    EXPECT_EQ(RunTev({"help"}).m_output, RunTev({"--help"}).m_output);
    EXPECT_EQ(RunTev({"help", "zip", "add"}).m_output, RunTev({"zip", "add", "--help"}).m_output);
    const std::string page = RunTev({"help", "--man"}).m_output;
    EXPECT_THAT(page, StartsWith(".TH TEV 1 "));
    EXPECT_THAT(page, HasSubstr(".SS \"tev zip list ARCHIVE [NAME]\"\n"));
    EXPECT_THAT(page, HasSubstr("\n\\fB\\-\\-encryption\\fR \\fI"));
}

TEST(TevUsage, ColoursAreForTerminalsWhoseUsersWantThem)
{
    const auto shown = [](const char* name, const char* value) {
        setenv(name, value, 1);
        const std::optional<std::string> text = RunTevOnTerminal({"types", "a.zip"});
        unsetenv(name);
        return text;
    };
    setenv("TERM", "xterm", 1);
    const std::optional<std::string> coloured = RunTevOnTerminal({"types", "a.zip"});
    if (!coloured)
        GTEST_SKIP() << "no terminals";
    EXPECT_THAT(*coloured, StartsWith("\033[1mNAME "));
    EXPECT_THAT(*RunTevOnTerminal({"text", "cat", "missing"}), StartsWith("\033[1;31mtev:\033[0m missing: "));
    EXPECT_THAT(*shown("NO_COLOR", "1"), StartsWith("NAME "));
    EXPECT_THAT(*shown("TERM", "dumb"), StartsWith("NAME "));
    EXPECT_THAT(RunTev({"types", "a.zip", "--format", "table"}).m_output, StartsWith("NAME "));
}

TEST(TevUsage, ErrorsNameTheRightFileOnce)
{
    const TempFolder folder;
    const std::string archive = folder.Path("a.zip").string();
    const std::string text = folder.Path("text").string();
    const std::string missing = folder.Path("missing").string();
    const std::string prefs = folder.Path("a.prefs").string();
    folder.WriteFile("text", "x");
    ASSERT_EQ(RunTev({"settings", "set", prefs, "1", "1", "1", "int", "7"}).m_exitCode, 0);
    ASSERT_EQ(RunTev({"zip", "add", archive, text}).m_exitCode, 0);
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"text", "cat", missing}, missing + ": Cannot find it."},
        {{"text", "convert", missing, text, "--to", "utf-16"}, missing + ": Cannot find it."},
        {{"text", "convert", text, missing + "/out", "--to", "utf-16"},
         missing + "/out: there is no folder " + missing},
        {{"zip", "add", archive, missing}, missing + ": Cannot find it."},
        {{"zip", "add", missing + "/new.zip", text}, missing + "/new.zip: there is no folder " + missing},
        {{"zip", "extract", archive, "--to", text + "/sub"},
         text + "/sub: Cannot reach it: the path does not exist or is not valid."},
        {{"settings", "show", prefs, "9", "9"},
         prefs + ": There is no store of these keys in it. (CCustomData::LoadFromPrefs)"},
        {{"settings", "copy", prefs, "1", "1", missing + "/b", "1", "1"},
         missing + "/b: Cannot find it. (CCustomData::SaveToPrefs, system error 2)"},
        {{"settings", "set", missing + "/b", "1", "1", "1", "int", "7"},
         missing + "/b: Cannot find it. (XUpdatePreferences, system error 2)"},
    };
    for (const auto& [arguments, error] : cases)
    {
        EXPECT_THAT(RunTev(arguments), FieldsAre(1, _, "tev: " + error + "\n"));
    }
}
} // namespace
