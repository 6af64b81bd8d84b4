#include "tests/support/RawZip.h"
#include "tests/support/TempFolder.h"
#include "tests/support/ZipTools.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;
using testing::MatchesRegex;

TEST(TevZip, ArchivesAreMadeListedChangedAndExtracted)
{
    const TempFolder folder;
    folder.WriteFile("in/b.txt", std::string(1000, 'b'));
    folder.WriteFile("in/sub/\xC3\xA9.txt", "second");
    const std::string root = folder.Path().string();
    const std::string archive = root + "/x.zip";
    EXPECT_EQ(RunTev({"zip", "add", archive, root + "/in/", "--level", "9"}).m_exitCode, 0);
    EXPECT_THAT(RunTev({"zip", "list", archive}).m_output,
                MatchesRegex("0\t0\t2[0-9: -]+\tfolder\t-\tin/\n"
                             "1000\t[0-9]+\t2[0-9: -]+\tdeflated\t-\tin/b.txt\n"
                             "0\t0\t2[0-9: -]+\tfolder\t-\tin/sub/\n"
                             "6\t[0-9]+\t2[0-9: -]+\tdeflated\t-\tin/sub/\xC3\xA9.txt\n"));
    EXPECT_THAT(RunTev({"zip", "list", archive, "*.txt", "--format", "table"}).m_output,
                testing::StartsWith("SIZE  PACKED  MODIFIED             METHOD    ENCRYPTION  NAME\n1000 "));
    EXPECT_EQ(RunTev({"zip", "test", archive}).m_output, archive + ": sound, 4 entries are sound\n");

    EXPECT_THAT(RunTev({"zip", "add", archive, root + "/in/sub", root + "/in"}),
                FieldsAre(1, _, "tev: " + root + "/in: The archive has an entry of that name already.\n"));
    EXPECT_EQ(RunTev({"zip", "rename", archive, "in/b.txt", "c.txt"}).m_exitCode, 0);
    EXPECT_EQ(RunTev({"zip", "delete", archive, "in/", "*sub/"}).m_exitCode, 0);
    EXPECT_EQ(RunTev({"zip", "delete", archive, "none"}).m_error, "tev: " + archive + ": has no entry none\n");
    EXPECT_EQ(RunTev({"zip", "extract", archive, "--to", root + "/out"}).m_exitCode, 0);
    EXPECT_EQ(folder.ReadFile("out/c.txt").size() + folder.ReadFile("out/in/sub/\xC3\xA9.txt").size(), 1006U);
    EXPECT_EQ(RunTev({"zip", "extract", archive, "*.txt", "--flat", "--to", root + "/flat"}).m_exitCode, 0);
    EXPECT_EQ(folder.ReadFile("flat/\xC3\xA9.txt"), "second");
    EXPECT_EQ(RunTev({"zip", "extract"}).m_exitCode, 2);
    EXPECT_EQ(RunTev({"zip", "add", archive, archive, "--level", "10"}).m_exitCode, 2);
}

TEST(TevZip, ProcessesThatAddToOneNewArchiveLoseNothing)
{
    const TempFolder folder;
    const std::string root = folder.Path().string();
    std::vector<std::unique_ptr<TevProcess>> processes;
    constexpr int kFiles = 8;
    for (int i = 0; i < kFiles; ++i)
    {
        folder.WriteFile(std::to_string(i), "x");
        processes.push_back(std::make_unique<TevProcess>(
            std::vector<std::string>{"zip", "add", root + "/x.zip", root + "/" + std::to_string(i)}, -1, -1, -1));
    }
    for (const auto& process : processes)
        EXPECT_EQ(process->Wait(), 0);
    EXPECT_EQ(RunTev({"zip", "test", root + "/x.zip"}).m_output, root + "/x.zip: sound, 8 entries are sound\n");
}

TEST(TevZip, PasswordsAndDamageAreTold)
{
    const TempFolder folder;
    folder.WriteFile("a.txt", "secret");
    const std::string root = folder.Path().string();
    const std::string archive = root + "/x.zip";
    ASSERT_EQ(
        RunTev({"zip", "add", archive, root + "/a.txt", "--password", "key", "--encryption", "aes128"}).m_exitCode, 0);
    EXPECT_THAT(RunTev({"zip", "list", archive}).m_output, HasSubstr("\taes128\ta.txt\n"));
    EXPECT_THAT(RunTev({"zip", "test", archive}),
                FieldsAre(1, _, "tev: " + archive + ": a.txt: A password is needed.\n"));
    EXPECT_EQ(RunTev({"zip", "test", archive, "--password", "key"}).m_exitCode, 0);

    RawEntry damaged{"damaged", "contents"};
    damaged.checksum = 1;
    folder.WriteFile("y.zip", RawZip({damaged, {"../u\x1B[2Jp", "x"}, {"sound", "x"}}));
    const TevResult extracted = RunTev({"zip", "extract", root + "/y.zip", "--to", root + "/out"});
    EXPECT_EQ(extracted.m_exitCode, 1);
    EXPECT_THAT(extracted.m_error, HasSubstr("y.zip: damaged: The archive or the entry is damaged.\n"));
    EXPECT_THAT(extracted.m_error, HasSubstr("y.zip: ../u?[2Jp: The name leads out"));
    EXPECT_TRUE(folder.Exists("out/sound"));
    EXPECT_FALSE(folder.Exists("out/damaged"));
    EXPECT_EQ(RunTev({"zip", "list", root + "/a.txt"}).m_error,
              "tev: " + root + "/a.txt: The file is not a ZIP archive.\n");
    EXPECT_EQ(RunTev({"zip", "list", root + "/none.zip"}).m_exitCode, 1);
}
} // namespace
