#include "platform/ContainedFolder.h"

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;
using tev::platform::ContainedFile;
using tev::platform::ContainedFolder;
using tev::platform::FileIdentity;
using tev::test::TempFolder;

/// Both ways to follow names, in a folder "in" beside which "out" stands.
class ContainedFolders : public testing::TestWithParam<ContainedFolder::Following>
{
protected:
    void SetUp() override
    {
        m_temp.WriteFile("out/precious", "precious");
        m_folder =
            ContainedFolder::Open(m_temp.WidePath("new/in").c_str(), ContainedFolder::Missing::Create, GetParam());
        ASSERT_NE(m_folder, nullptr);
    }

    /// The error, 0 when the file was written.
    int WriteFile(const std::string& name, const std::string& bytes = "new", bool keep = true)
    {
        errno = 0;
        const std::unique_ptr<ContainedFile> file = m_folder->CreateFile(name);
        if (file == nullptr || !file->Write(bytes.data(), bytes.size()))
            return errno;
        return !keep || file->Keep(1000000000, m_identity) ? 0 : errno;
    }

    TempFolder m_temp;
    std::unique_ptr<ContainedFolder> m_folder;
    FileIdentity m_identity;
};

INSTANTIATE_TEST_SUITE_P(Following, ContainedFolders,
                         testing::Values(ContainedFolder::Following::Best, ContainedFolder::Following::ByComponent));

TEST_P(ContainedFolders, CreatesReplacesAndRemovesFiles)
{
    EXPECT_EQ(WriteFile("a/b/c.txt", "first"), 0);
    struct stat status;
    ASSERT_EQ(stat(m_temp.Path("new/in/a/b/c.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, 1000000000);
    const FileIdentity first = m_identity;

    EXPECT_EQ(WriteFile("a/b/c.txt", "second", false), 0);
    EXPECT_EQ(m_temp.ReadFile("new/in/a/b/c.txt"), "first") << "what is not kept changes nothing";
    EXPECT_EQ(WriteFile("a/b/c.txt", "second"), 0);
    EXPECT_EQ(m_temp.ReadFile("new/in/a/b/c.txt"), "second");
    EXPECT_EQ(WriteFile("a/gone", "x", false), 0);
    m_folder->Protect(m_identity);
    EXPECT_NE(WriteFile("a/b/c.txt", "third"), 0);
    EXPECT_EQ(m_temp.ReadFile("new/in/a/b/c.txt"), "second");
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(m_temp.Path("new/in")), {}), 3) << "nothing left over";

    EXPECT_FALSE(m_folder->Remove("a/b/c.txt", first)) << "another file stands there by now";
    EXPECT_TRUE(m_folder->Remove("a/b/c.txt", m_identity));
    EXPECT_FALSE(m_temp.Exists("new/in/a/b/c.txt"));
    EXPECT_TRUE(m_folder->Remove("a/b/c.txt", m_identity));
    EXPECT_TRUE(m_folder->CreateFolders("a/x/y"));
    EXPECT_TRUE(m_folder->CreateFolders("a/x/y"));
    EXPECT_TRUE(fs::is_directory(m_temp.Path("new/in/a/x/y")));
}

TEST_P(ContainedFolders, NeverLeavesItsFolder)
{
    const fs::path in = m_temp.Path("new/in");
    fs::create_directory_symlink(m_temp.Path("out"), in / "link");
    fs::create_directory_symlink(".", in / "self");
    fs::create_symlink(m_temp.Path("out/precious"), in / "leaf");
    fs::create_symlink(m_temp.Path("out/made"), in / "dangling");
    fs::create_directory(in / "folder");
    mkfifo((in / "pipe").c_str(), 0600);
    for (const char* name : {"", "/a", "a/", "a//b", "..", "../a", "a/../../b", "./a", "link/made", "link/precious",
                             "self/made", "leaf", "dangling", "folder", "pipe", "link/new/made", "leaf/made"})
    {
        EXPECT_NE(WriteFile(name), 0) << name;
        EXPECT_FALSE(m_folder->Remove(name, {})) << name;
    }
    EXPECT_FALSE(m_folder->CreateFolders("link/made"));
    EXPECT_FALSE(m_folder->CreateFolders("../made"));
    EXPECT_EQ(m_temp.ReadFile("out/precious"), "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_temp.Path("out")), {}), 1);

    std::string deep = "d"; // deeper than the process may have files open
    for (int i = 0; i < 200; ++i)
        deep += "/d";
    EXPECT_EQ(WriteFile(deep), 0);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few = {100, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_TRUE(m_folder->RemoveContents());
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(fs::is_empty(in));
    EXPECT_EQ(m_temp.ReadFile("out/precious"), "precious");
    EXPECT_FALSE(tev::platform::RemoveEmptyFolder((m_temp.WidePath("new")).c_str()));
    EXPECT_TRUE(tev::platform::RemoveEmptyFolder(m_folder->Path().c_str()));
    EXPECT_TRUE(tev::platform::RemoveEmptyFolder(m_folder->Path().c_str()));
}

TEST_P(ContainedFolders, StaysWithTheFolderThatItOpened)
{
    fs::rename(m_temp.Path("new/in"), m_temp.Path("new/moved"));
    fs::create_directory_symlink(m_temp.Path("out"), m_temp.Path("new/in"));
    EXPECT_EQ(WriteFile("made"), 0);
    EXPECT_EQ(m_temp.ReadFile("new/moved/made"), "new");
    EXPECT_EQ(ContainedFolder::OpenItself(m_temp.WidePath("new/in").c_str()), nullptr);
    EXPECT_NE(ContainedFolder::Open(m_temp.WidePath("new/in").c_str()), nullptr);
    EXPECT_EQ(ContainedFolder::Open(m_temp.WidePath("none").c_str()), nullptr);
}
} // namespace
