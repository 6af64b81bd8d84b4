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
} // namespace
