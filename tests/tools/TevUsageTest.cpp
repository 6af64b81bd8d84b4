#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using namespace tev::test;
using testing::HasSubstr;
using testing::StartsWith;

TEST(TevUsage, ListsTheCommandsWhereOneIsMissingOrUnknown)
{
    const struct
    {
        std::vector<std::string> m_arguments;
        const char* m_error;
    } cases[] = {
        {{}, "tev: a command is needed: text, "},
        {{"color", "#ff0000"}, "tev: there is no command color, but text, "},
        {{"log"}, "tev: log: a command is needed: show\n"},
        {{"log", "list", "x"}, "tev: log: there is no command list, but show\n"},
        {{"log", "show"}, "tev: FILE is required\n"},
        {{"--colour"}, "tev: there is no command --colour, but text, "},
    };
    for (const auto& [arguments, error] : cases)
    {
        const TevResult result = RunTev(arguments);
        EXPECT_EQ(result.m_exitCode, 2);
        EXPECT_EQ(result.m_output, "");
        EXPECT_THAT(result.m_error, StartsWith(error));
        EXPECT_THAT(result.m_error, HasSubstr("--help"));
    }
}

TEST(TevUsage, ErrorsNameTheRightFileOnce)
{
    const TempFolder folder;
    const std::string archive = folder.Path("a.zip").string();
    const std::string text = folder.Path("text").string();
    const std::string missing = folder.Path("missing").string();
    folder.WriteFile("text", "x");
    ASSERT_EQ(RunTev({"zip", "add", archive, text}).m_exitCode, 0);
    const struct
    {
        std::vector<std::string> m_arguments;
        std::string m_error;
    } cases[] = {
        {{"text", "cat", missing}, missing + ": Cannot find it."},
        {{"text", "convert", missing, text, "--to", "utf-16"}, missing + ": Cannot find it."},
        {{"text", "convert", text, missing + "/out", "--to", "utf-16"},
         missing + "/out: there is no folder " + missing},
        {{"zip", "add", archive, missing}, missing + ": Cannot find it."},
        {{"zip", "add", missing + "/new.zip", text}, missing + "/new.zip: there is no folder " + missing},
        {{"zip", "extract", archive, "--to", text + "/sub"},
         text + "/sub: Cannot reach it: the path does not exist or is not valid."},
    };
    for (const auto& [arguments, error] : cases)
    {
        const TevResult result = RunTev(arguments);
        EXPECT_EQ(result.m_error, "tev: " + error + "\n");
        EXPECT_EQ(result.m_exitCode, 1);
    }
}
} // namespace
