#include "tests/tools/TevRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using namespace tev::test;
using testing::HasSubstr;
using testing::StartsWith;

TEST(TevUsage, TellsOfTheCommandsWhereOneIsMissingOrUnknown)
{
    const struct
    {
        std::vector<std::string> m_arguments;
        const char* m_error;
    } cases[] = {
        {{}, "tev needs a command: there are text, "},
        {{"color", "#ff0000"}, "tev has no command color: there are text, "},
        {{"log"}, "tev log needs a command: there are show\n"},
        {{"log", "list", "x"}, "tev log has no command list: there are show\n"},
        {{"log", "show"}, "tev: FILE is required\n"},
        {{"--colour"}, "tev has no command --colour: there are text, "},
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
