#include "services/Paths.h"

#include "services/ApplicationName.h"
#include "services/FileStamp.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/FileFailure.h"
#include "tests/support/PrintText.h"
#include "tests/support/System.h"
#include "tests/support/TempFolder.h"

namespace
{
using namespace tev::test;
using Text = CXTString<wchar_t>;
using Variable = EnvironmentVariable;

TEST(CPathString, TakesPathsApart)
{
    const struct
    {
        const wchar_t *m_path, *m_folder, *m_title, *m_extension;
    } cases[] = {
        {L"", L"", L"", L""},
        {L"a", L"", L"a", L""},
        {L"/a/b.c.d", L"/a", L"b.c", L".d"},
        {L"C:\\a\\b/.hidden", L"C:\\a\\b", L".hidden", L""},
        {L"a.b//c", L"a.b", L"c", L""},
        {L"a/b/", L"a/b", L"", L""},
        {L"/", L"/", L"", L""},
        {L"//a.", L"//", L"a", L"."},
    };
    for (const auto& [text, folder, title, extension] : cases)
    {
        const CPathString path(text);
        EXPECT_EQ(path.GetFolder(), folder) << path;
        EXPECT_EQ(path.GetTitle(), title) << path;
        EXPECT_EQ(path.GetExtension(), extension) << path;
        EXPECT_EQ(path.GetFileName(), Text(title) + extension) << path;
    }
}

TEST(CPathString, JoinsWithOneSeparator)
{
    const struct
    {
        const wchar_t *m_folder, *m_path, *m_joined;
    } cases[] = {
        {L"a", L"b", L"a/b"},
        {L"a/", L"b", L"a/b"},
        {L"a\\", L"b", L"a\\b"},
        {L"a", L"/\\b/", L"a/b/"},
        {L"", L"b", L"b"},
        {L"a", L"", L"a"},
        {L"a", L"//", L"a"},
        {L"/", L"b", L"/b"},
        {L"a", L"../b", L"a/../b"},
        {L"", L"/b", L"b"},
        {L"a//", L"b", L"a/b"},
        {L"a\\/\\", L"/b", L"a\\b"},
        {L"///", L"b", L"/b"},
        {L"C:\\\\", L"b", L"C:\\b"},
        {L"C:", L"b", L"C:/b"},
        {L"a//", L"/", L"a//"},
        {L"\\\\", L"host", L"\\\\host"},
        {L"//host//", L"b", L"//host/b"},
        {L"a//b//", L"c", L"a//b/c"},
    };
    for (const auto& [folder, path, joined] : cases)
        EXPECT_EQ(CPathString(folder) / path, joined) << folder << " " << path;
    CPathString own(L"a");
    const CPathString& same = own;
    own /= same;
    EXPECT_EQ(own, L"a/a");
}

TEST(Paths, ApplicationDataHasItsOwnFolder)
{
    const TempFolder folder;
    const Variable home("HOME", folder.Path().c_str());
    const Variable xdg("XDG_DATA_HOME", "relative: does not count");
    const Variable user("TEVTOOLS_USER_DATA", "");
    EXPECT_EQ(XGetApplicationName(), L"tevtools_tests");
    EXPECT_EQ(GetUserApplicationDataPath(), folder.WidePath(".local/share/tevtools_tests").c_str());
    EXPECT_TRUE(folder.Exists(".local/share/tevtools_tests"));
    for (const wchar_t* name : {L"a/b", L"\\", L".", L".."})
        EXPECT_EQ(Thrown([name] { XSetApplicationName(name); }), kInvalidArgument) << Text(name);
    XSetApplicationName(L"Modeller \u00E9");
    {
        const Variable data("XDG_DATA_HOME", folder.Path("xdg").c_str());
        EXPECT_EQ(GetUserApplicationDataPath(), folder.WidePath("xdg/Modeller \u00E9").c_str());
        const Variable chosen("TEVTOOLS_USER_DATA", folder.Path("deep/own").c_str());
        EXPECT_EQ(GetUserApplicationDataPath(), folder.WidePath("deep/own").c_str());
        const Variable common("TEVTOOLS_COMMON_DATA", folder.Path("common").c_str());
        EXPECT_EQ(GetCommonApplicationDataPath(), folder.WidePath("common").c_str());
        EXPECT_TRUE(folder.Exists("deep/own") && folder.Exists("common"));
    }
    XSetApplicationName(L"");
    EXPECT_EQ(XGetApplicationName(), L"tevtools_tests");

    folder.WriteFile("file", "");
    const Variable blocked("TEVTOOLS_USER_DATA", folder.Path("file/x").c_str());
    EXPECT_EQ(Caught(GetUserApplicationDataPath)->GetFileName(), folder.WidePath("file/x").c_str());
}

TEST(Paths, TemporaryFoldersAreNewAndPrivate)
{
    const TempFolder folder;
    const Variable temporary("TMPDIR", folder.Path().c_str());
    const CPathString first = fileCreateTemporaryFolder(L"MiniZip");
    const CPathString second = fileCreateTemporaryFolder(L"MiniZip");
    EXPECT_NE(first, second);
    EXPECT_EQ(first.GetFolder(), folder.WidePath().c_str());
    EXPECT_EQ(first.GetFileName().Left(7), L"MiniZip");
    struct stat status;
    ASSERT_EQ(stat(CXTString<char>(first), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    EXPECT_NO_THROW(Caught([] { static_cast<void>(fileCreateTemporaryFolder(L"../x")); }));
}

TEST(Paths, NumbersStandBeforeTheExtension)
{
    const TempFolder folder;
    folder.WriteFile("a.b/log.txt", "");
    EXPECT_EQ(fileNextNumberedName(folder.WidePath("a.b/log.txt").c_str()), folder.WidePath("a.b/log (1).txt").c_str());
    folder.WriteFile("a.b/log (1).txt", "");
    std::filesystem::create_directory(folder.Path("a.b/log (2).txt"));
    EXPECT_EQ(fileNextNumberedName(folder.WidePath("a.b/log.txt").c_str()), folder.WidePath("a.b/log (3).txt").c_str());
    EXPECT_EQ(fileNextNumberedName(folder.WidePath("a.b/log").c_str()), folder.WidePath("a.b/log (1)").c_str());
    EXPECT_EQ(fileNextNumberedName(folder.WidePath(".log").c_str()), folder.WidePath(".log (1)").c_str());
}

TEST(Paths, FilesAreTheSameByIdentity)
{
    const TempFolder folder;
    const Text file = folder.WriteFile("d/file", "x").c_str();
    const Text other = folder.WriteFile("d/other", "x").c_str();
    std::filesystem::create_hard_link(folder.Path("d/file"), folder.Path("hard"));
    std::filesystem::create_symlink(folder.Path("d/file"), folder.Path("soft"));
    std::filesystem::create_symlink(folder.Path("d"), folder.Path("e"));
    std::filesystem::create_symlink("nowhere", folder.Path("dangling"));
    for (const char* spelling : {"d/file", "d/../d/./file", "hard", "soft", "e/file"})
        EXPECT_TRUE(fileIsSameFile(file, folder.WidePath(spelling).c_str())) << spelling;
    for (const char* spelling : {"d/other", "d", "none", "dangling"})
        EXPECT_FALSE(fileIsSameFile(file, folder.WidePath(spelling).c_str())) << spelling;
    EXPECT_FALSE(fileIsSameFile(L"/none", L"/none"));
    EXPECT_TRUE(fileIsSameDirectory(folder.WidePath("d/").c_str(), folder.WidePath("e").c_str()));
    EXPECT_FALSE(fileIsSameDirectory(file, file));

    const std::tuple<const char*, bool, bool, bool> cases[] = {
        {"d/file", true, true, false}, {"e", true, false, true}, {"dangling", false, false, false}};
    for (const auto& [name, exists, isFile, isFolder] : cases)
    {
        const Text path = folder.WidePath(name).c_str();
        EXPECT_EQ(fileExists(path), exists) << name;
        EXPECT_EQ(fileIsFile(path), isFile) << name;
        EXPECT_EQ(fileIsDirectory(path), isFolder) << name;
    }
    EXPECT_TRUE(fileExists(L"/dev/null"));
    EXPECT_FALSE(fileIsFile(L"/dev/null"));
    EXPECT_FALSE(fileExists(Text(static_cast<wchar_t>(0xD800), 1))); // no file can have that name
}

TEST(Paths, StampsTellFilesAndTheirStatesApart)
{
    const TempFolder folder;
    const Text file = folder.WriteFile("file", "x").c_str();
    const std::filesystem::path path(folder.Path("file"));
    std::filesystem::create_hard_link(path, folder.Path("hard"));
    XFileStamp first;
    XFileStamp later;
    ASSERT_TRUE(XGetFileStamp(file, first) && XGetFileStamp(folder.WidePath("hard").c_str(), later));
    EXPECT_TRUE(first == later && first.m_size == 1);
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::microseconds(1));
    ASSERT_TRUE(XGetFileStamp(file, later));
    EXPECT_TRUE(first != later && first.IsSameFile(later));
    folder.WriteFile("other", "y");
    std::filesystem::last_write_time(folder.Path("other"), std::filesystem::last_write_time(path));
    std::filesystem::rename(folder.Path("other"), path);
    first = later;
    EXPECT_FALSE(XGetFileStamp(folder.WidePath("none").c_str(), later));
    EXPECT_TRUE(first == later && XGetFileStamp(file, later) && !first.IsSameFile(later));
}

TEST(Paths, DatesOfFiles)
{
    const TempFolder folder;
    const CXTime before = CXTime::GetTickCount();
    const Text file = folder.WriteFile("file", "x").c_str();
    CXTime date = 0;
    ASSERT_TRUE(fileGetLastWriteDate(file, date));
    EXPECT_LE((date - before).GetTotalSeconds(), 60);
    EXPECT_GE((date - before).GetTotalSeconds(), -1);
    for (const __int64 seconds : {1000000000LL, 5000000000LL, -1LL})
    {
        EXPECT_TRUE(fileSetLastWriteDate(file, seconds));
        ASSERT_TRUE(fileGetLastWriteDate(file, date));
        EXPECT_EQ(date.GetTime(), seconds);
    }
    if (fileGetCreationDate(file, date))
    {
        EXPECT_LE(before.GetTime() - 1, date.GetTime());
    }
    EXPECT_FALSE(fileSetCreationDate(file, 0));
    date = 77;
    const Text none = folder.WidePath("none").c_str();
    EXPECT_FALSE(fileGetLastWriteDate(none, date) || fileGetCreationDate(none, date) || fileSetLastWriteDate(none, 0));
    EXPECT_EQ(date.GetTime(), 77);
}
} // namespace
