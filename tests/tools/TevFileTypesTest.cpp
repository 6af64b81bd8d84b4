#include "tests/tools/TevRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using namespace tev::test;
using testing::HasSubstr;
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
    const TevResult found = RunTev({"match", "tree,\"bmp\"", "Trees.txt", "a.BMP", "bmp.c"});
    EXPECT_EQ(found.m_output, "Trees.txt\na.BMP\n");
    EXPECT_EQ(found.m_exitCode, 0);
    EXPECT_EQ(RunTev({"match", "x?", "abc"}).m_exitCode, 1);
    EXPECT_EQ(RunTev({"match", "x"}).m_exitCode, 2);
}
} // namespace
