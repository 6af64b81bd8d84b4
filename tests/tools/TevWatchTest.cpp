#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

TEST(TevWatch, PrintsChangesUntilInterrupted)
{
    const TempFolder folder;
    folder.WriteFile("here/probe", "");
    Pipe output;
    TevProcess tool({"watch", "--interval", "1", "--tree", "--filter", "files", folder.Path()}, -1, output.WriteEnd(),
                    -1);
    output.CloseWrite();
    const std::string probe = folder.Path("here/probe").string();
    std::string text;
    do // until the tool is watching
    {
        std::filesystem::remove(probe);
        folder.WriteFile("here/probe", "");
        pollfd waiting = {output.ReadEnd(), POLLIN, 0};
        if (poll(&waiting, 1, 10) == 1)
            text = ReadUntil(output.ReadEnd(), "\n");
    } while (text.empty());
    EXPECT_THAT(text, testing::AnyOf(HasSubstr("added\t" + probe + "\n"), HasSubstr("removed\t" + probe + "\n")));

    std::filesystem::rename(probe, folder.Path("other"));
    const std::string renamed = "renamed\t" + folder.Path("other").string() + "\n";
    EXPECT_THAT(ReadUntil(output.ReadEnd(), renamed), HasSubstr(renamed));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 128 + SIGINT);
}

TEST(TevWatch, NamesDoNotControlATerminal)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0)
        GTEST_SKIP() << "this system has no terminals";
    const int toolsEnd = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const TempFolder folder;
    const TevProcess tool({"watch", "--interval", "1", folder.Path()}, -1, toolsEnd, -1);
    pollfd waiting = {terminal, POLLIN, 0};
    do // until the tool is watching
    {
        folder.WriteFile("red\x1B[31m", "");
        std::filesystem::remove(folder.Path("red\x1B[31m"));
    } while (poll(&waiting, 1, 10) != 1);
    EXPECT_THAT(ReadUntil(terminal, "\n"), HasSubstr("/red?[31m\r\n"));
    close(toolsEnd);
    close(terminal);
}

TEST(TevWatch, RefusesAPathWithoutAFolder)
{
    EXPECT_THAT(RunTev({"watch", "/nowhere"}), FieldsAre(1, _, HasSubstr("/nowhere: The path was not found.")));
    EXPECT_EQ(RunTev({"watch", "--filter", "colour", "/"}).m_exitCode, 2);
    EXPECT_EQ(RunTev({"watch"}).m_exitCode, 2);
}
} // namespace
