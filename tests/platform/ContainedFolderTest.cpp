#include "platform/ContainedFolder.h"

#include "tests/support/NoUnnamedFiles.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TempFolder.h"

#include <cctype>

#include <sys/statfs.h>
#include <sys/statvfs.h>

namespace
{
using namespace tev::test;

// What the system is to answer in a test; else it answers itself.
std::optional<struct statvfs> g_disk;
std::function<void()> g_beforeRename;
std::function<void()> g_beforeUnlink;
bool g_ignoresCase = false;
} // namespace

// In place of the C library's functions in this program.
extern "C"
{
    int fstatvfs(int file, struct statvfs* status) noexcept
    {
        if (g_disk)
        {
            *status = *g_disk;
            return g_disk->f_bsize == 0 ? 0 : -1;
        }
        struct statfs disk;
        if (fstatfs(file, &disk) != 0)
            return -1;
        *status = {};
        status->f_frsize = static_cast<unsigned long>(disk.f_bsize);
        status->f_blocks = disk.f_blocks;
        status->f_bavail = disk.f_bavail;
        return 0;
    }

    int renameat(int folder, const char* name, int newFolder, const char* newName) noexcept
    {
        if (g_beforeRename)
            g_beforeRename();
        return static_cast<int>(syscall(SYS_renameat, folder, name, newFolder, newName));
    }

    int unlinkat(int folder, const char* name, int flags) noexcept
    {
        if (g_beforeUnlink)
            g_beforeUnlink();
        return static_cast<int>(syscall(SYS_unlinkat, folder, name, flags));
    }

    int faccessat(int folder, const char* name, int mode, int flags) noexcept
    {
        std::string found = name;
        if (g_ignoresCase)
            std::transform(found.begin(), found.end(), found.begin(), [](unsigned char c) { return std::tolower(c); });
        const long result = syscall(SYS_faccessat2, folder, found.c_str(), mode, flags);
        if (result == 0 || errno != ENOSYS)
            return static_cast<int>(result);
        return static_cast<int>(syscall(SYS_faccessat, folder, found.c_str(), mode));
    }
}

namespace
{
using tev::platform::ContainedFile;
using tev::platform::ContainedFolder;
using tev::platform::FileIdentity;

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
    EXPECT_EQ(m_temp.Names("out").size(), 1u);

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

TEST_P(ContainedFolders, AnotherExtractionRemovesNoCompleteFile)
{
    const auto replace = [this] {
        WriteFile("file", "old");
        g_beforeRename = [this] {
            const auto other = ContainedFolder::Open(m_folder->Path().c_str());
            other->ClearLeftovers();
            EXPECT_NE(other->CreateFile("other"), nullptr);
        };
        const int error = WriteFile("file");
        g_beforeRename = nullptr;
        EXPECT_EQ(error, 0);
        return m_temp.ReadFile("new/in/file") == "new" && m_temp.Names("new/in").size() == 1 ? 0 : 1;
    };
    EXPECT_EQ(replace(), 0);
    if (!CanForbidUnnamedFiles())
        return;
    EXPECT_EQ(ResultInChild([&] { return ForbidUnnamedFiles() ? replace() : 1; }), 0);

    // A temporary file that another process holds is about to be removed by it.
    const auto createWithoutLock = [this] {
        if (!ForbidUnnamedFiles() || !ForbidCall(SYS_flock, EWOULDBLOCK))
            return 1;
        const bool isRefused = m_folder->CreateFile("another") == nullptr && errno == EEXIST;
        return isRefused && m_temp.Names("new/in").size() == 1 ? 0 : 2;
    };
    EXPECT_EQ(ResultInChild(createWithoutLock), 0);
}

TEST_P(ContainedFolders, RemovesWithTheDescriptorsThatItHolds)
{
    if (kIsSanitized)
        GTEST_SKIP() << "the sanitizer looks at types of objects through a pipe";
    const auto remove = [this](const char* name) {
        FileIdentity identities[2];
        for (FileIdentity& identity : identities)
        {
            EXPECT_EQ(WriteFile(&identity == identities ? "leaf" : name), 0);
            identity = m_identity;
        }
        if (!m_folder->ReserveDescriptors())
            return 1;
        rlimit few = {64, 64};
        setrlimit(RLIMIT_NOFILE, &few);
        while (open("/dev/null", O_RDONLY) >= 0)
            ;
        bool isHeld = true;
        g_beforeUnlink = [&isHeld] { isHeld = open("/dev/null", O_RDONLY) < 0; };
        if (!m_folder->Remove("leaf", identities[0]))
            return 2;
        g_beforeUnlink = nullptr;
        if (!isHeld)
            return 3; // another thread could have taken what was set aside
        return m_folder->Remove(name, identities[1]) && m_folder->RemoveContents() ? 0 : 4;
    };
    EXPECT_EQ(ResultInChild([&] { return remove("a/b/c"); }), 0);
}

TEST_P(ContainedFolders, OthersGetNoMoreThanTheyHad)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "another user's file is needed";
    m_temp.WriteFile("new/in/file", "root's");
    ASSERT_EQ(chmod(m_temp.Path("new/in/file").c_str(), 0676), 0);
    ASSERT_EQ(chmod(m_temp.Path("new/in").c_str(), 0777), 0);
    const auto replace = [this] {
        constexpr uid_t kNobody = 65534;
        if (setegid(kNobody) != 0 || seteuid(kNobody) != 0)
            return 1;
        return WriteFile("file");
    };
    EXPECT_EQ(ResultInChild(replace), 0);
    struct stat status;
    ASSERT_EQ(stat(m_temp.Path("new/in/file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666u) << "the group is another one";
    EXPECT_EQ(m_temp.ReadFile("new/in/file"), "new");
}

TEST_P(ContainedFolders, AsksTheDisk)
{
    constexpr std::uint64_t kMiB = 1 << 20;
    const std::tuple<std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, bool> disks[] = {
        {4096, 1000, 64, 63 * 4096, true},
        {4096, 1000, 64, 63 * 4096 + 1, false}, // less a 64th
        {kMiB, 1u << 20, 100'000, 99'936 * kMiB, true},
        {kMiB, 1u << 20, 100'000, 99'936 * kMiB + 1, false},
        {4096, 1000, 0, 1, false},
        {4096, 1000, 0, 0, true},
        {0, 0, 0, ~0ull, true},
        {4096, 0, 0, 1, true}, // which tells nothing
        {1u << 20, ~0ull, 1ull << 44, 1ull << 60, true},
        {1u << 20, ~0ull, (1ull << 44) + 1, kMiB, true},
    };
    for (const auto& [blockSize, blocks, free, bytes, fits] : disks)
    {
        g_disk.emplace();
        g_disk->f_frsize = blockSize;
        g_disk->f_blocks = blocks;
        g_disk->f_bavail = free;
        errno = 0;
        EXPECT_EQ(m_folder->HasSpaceFor(bytes), fits) << free << " " << bytes;
        EXPECT_EQ(errno, fits ? 0 : ENOSPC);
    }
    g_disk->f_bsize = 1; // the call fails
    g_disk->f_bavail = 0;
    EXPECT_TRUE(m_folder->HasSpaceFor(~0ull));
    g_disk.reset();

    EXPECT_TRUE(m_folder->TellsNamesApart());
    g_ignoresCase = true;
    EXPECT_FALSE(m_folder->TellsNamesApart());
    g_ignoresCase = false;
    EXPECT_TRUE(fs::is_empty(m_temp.Path("new/in")));
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
