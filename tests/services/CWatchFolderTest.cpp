#include "services/CWatchFolder.h"

#include "objects/LastFailure.h"
#include "platform/PathNames.h"
#include "tests/services/WatchFolderFixture.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"

namespace
{
using namespace tev::test;

TEST_F(CWatchFolderTest, ReportsChangesOfFiles)
{
    m_folder.WriteFile("w/old", "x");
    m_folder.WriteFile("w/sub/deep", "x");
    ASSERT_TRUE(Watch(false));
    EXPECT_EQ(Changes(), "");
    Touch("w/new");
    Touch("w/old");
    Touch("w/sub/deep");
    EXPECT_EQ(Changes(), "+new ~old") << "a new file stays added, and folders beneath are not watched";
    Rename("w/new", "w/newer");
    fs::remove(m_folder.Path("w/old"));
    EXPECT_EQ(Changes(), ">new >newer -old");
    Rename("w/newer", "outside");
    Rename("outside", "w/back");
    EXPECT_EQ(Changes(), "+back -newer");
    m_folder.WriteFile("w/caf\xC3\xA9", "x");
    ASSERT_EQ(mkdir((m_folder.Path("w").string() + "/\xFF").c_str(), 0755), 0);
    m_watcher.CheckRefreshNotification();
    EXPECT_NE(m_watcher.GetChanges().Find((m_folder.WidePath("w") + L"/\xDCFF").c_str()), nullptr);
    EXPECT_NE(m_watcher.GetChanges().Find((m_folder.WidePath("w") + L"/caf\xE9").c_str()), nullptr);
    m_watcher.ReleaseChanges();
    EXPECT_EQ(m_watcher.GetChanges().GetCount(), 0U);
    m_watcher.ReleaseChanges();
}

TEST_F(CWatchFolderTest, TheFilterSelectsChanges)
{
    const std::pair<unsigned, const char*> cases[] = {
        {CWatchFolder::kFileNames, "+a -b >c >d"},
        {CWatchFolder::kFolderNames, "+f"},
        {CWatchFolder::kCreation, "+a +f"},
        {CWatchFolder::kSize, "~a ~old"},
        {CWatchFolder::kLastWrite, "~a ~old ~status"},
        {CWatchFolder::kAttributes, "~status"},
        {CWatchFolder::kSecurity, "~status"},
        {CWatchFolder::kLastAccess, "~read"},
        {0, ""},
    };
    for (const auto& [filter, changes] : cases)
    {
        fs::remove_all(m_folder.Path("w"));
        for (const char* name : {"w/b", "w/c", "w/old", "w/status", "w/read"})
            m_folder.WriteFile(name, "x");
        m_watcher.RemoveAll();
        CWatchFolder other; // watches the same folder for everything, which must not change what this one reports
        other.AddRefreshNotification(m_folder.WidePath("w").c_str(), true, 0xFFF);
        ASSERT_TRUE(Watch(true, filter));
        Touch("w/a");
        Touch("w/old");
        MakeFolder("w/f");
        fs::remove(m_folder.Path("w/b"));
        Rename("w/c", "w/d");
        chmod(m_folder.Path("w/status").c_str(), 0600);
        m_folder.ReadFile("w/read");
        EXPECT_EQ(Changes(), changes) << filter;
    }
}

TEST_F(CWatchFolderTest, ATreeIsWatchedAsItGrows)
{
    m_folder.WriteFile("w/a/one", "x");
    m_folder.WriteFile("in/deep/two", "x");
    fs::create_directory_symlink(m_folder.Path("in"), m_folder.Path("w/link"));
    ASSERT_TRUE(Watch(true, kNames));
    m_folder.WriteFile("w/b/c/new", "x"); // filled before the watcher polls
    EXPECT_EQ(Changes(), "+b +b/c +b/c/new");
    Touch("w/b/c/later");
    Touch("in/unseen"); // links are not followed
    EXPECT_EQ(Changes(), "+b/c/later");
    Rename("w/b", "w/a/b");
    Touch("w/a/b/c/moved");
    m_folder.WriteFile("w/a/b/d/e/new", "x");
    EXPECT_EQ(Changes(), ">a/b +a/b/c/moved +a/b/d +a/b/d/e +a/b/d/e/new >b");
    Rename("in", "w/in");
    EXPECT_EQ(Changes(), "+in +in/deep +in/deep/two +in/unseen");
    Rename("w/a/b", "out");
    EXPECT_EQ(Changes(), "-a/b");
    Touch("out/c/unseen");
    EXPECT_EQ(Changes(), "");
    MakeFolder("w/a/b");
    Touch("w/a/b/again");
    fs::remove_all(m_folder.Path("w/in"));
    EXPECT_EQ(Changes(), "+a/b +a/b/again -in -in/deep -in/deep/two -in/unseen");
}

TEST_F(CWatchFolderTest, TheLastChangeOfAPathCounts)
{
    for (const char* name : {"w/x/old", "w/y/f", "w/file", "w/other"})
        m_folder.WriteFile(name, "x");
    ASSERT_TRUE(Watch(true, kNames));
    // A file that moves into a folder not watched yet is removed; another may have its name by then.
    MakeFolder("w/new");
    Rename("w/x", "w/new/x");
    Rename("w/y", "w/x");
    Rename("w/file", "w/new/file");
    Touch("w/file");
    Rename("w/other", "w/new/other");
    EXPECT_EQ(Changes(), "+file +new +new/file +new/other +new/x +new/x/old -other >x >y");
}

TEST_F(CWatchFolderTest, RenamesInOnePollLoseNothing)
{
    const auto exchange = [&](const char* a, const char* b) {
        ASSERT_EQ(renameat2(AT_FDCWD, m_folder.Path(a).c_str(), AT_FDCWD, m_folder.Path(b).c_str(), RENAME_EXCHANGE),
                  0);
    };
    const std::tuple<std::function<void()>, const char*, const char*> cases[] = {
        {[&] {
             m_folder.WriteFile("w/new/x/f", "");
             Rename("w/new", "w/made");
         },
         ">made +made/x +made/x/f >new", "+new new>made +made/x +made/x/f"},
        {[&] {
             Rename("w/a", "w/once");
             Touch("w/once/2");
             Rename("w/once", "w/twice");
             Touch("w/twice/3");
         },
         ">a >once +once/2 >twice +twice/3", "a>once +once/2 once>twice +twice/3"},
        {[&] {
             exchange("w/a", "w/b");
             Touch("w/a/3");
             Touch("w/b/4");
         },
         ">a +a/3 >b +b/4", "a=b +a/3 +b/4"},
        {[&] { exchange("w/a/1", "w/f"); }, ">a/1 >f", "a/1=f"},
        {[&] { exchange("w/f", "w/b"); }, ">b >f", "f=b"},
        {[&] { // the same events as an exchange, but the empty folder is replaced
             Rename("w/a", "w/empty");
             Rename("w/empty", "w/a");
         },
         ">a >empty", "a>empty empty>a"},
        {[&] {
             Rename("w/f", "w/g");
             Rename("w/g", "w/f");
         },
         ">f >g", "f>g g>f"},
        {[&] { // with something in a folder that is not watched yet
             MakeFolder("w/new");
             Touch("w/new/f");
             exchange("w/new/f", "w/b");
         },
         "+b +new +new/f +new/f/2", "+new -b +b +new/f +new/f/2"},
        {[&] {
             Rename("w/a", "out");
             MakeFolder("w/a");
             Touch("w/a/3");
         },
         "+a +a/3", "-a +a +a/3"},
    };
    for (const auto& [change, map, list] : cases)
    {
        SCOPED_TRACE(list);
        m_watcher.RemoveAll();
        for (const char* name : {"w", "out"})
            fs::remove_all(m_folder.Path(name));
        for (const char* name : {"w/a/1", "w/b/2", "w/f", "w/g"})
            m_folder.WriteFile(name, "");
        MakeFolder("w/empty");
        ASSERT_TRUE(Watch(true, kNames));
        change();
        EXPECT_EQ(Changes(), map);
        EXPECT_EQ(m_list, list);
        EXPECT_EQ(Changes(), "");
        // All folders are watched from then on, under their present names.
        std::set<std::string> probes;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_folder.Path("w")))
        {
            if (entry.is_directory())
                probes.insert(fs::relative(entry.path(), m_folder.Path("w")).string() + "/probe");
        }
        std::string expected;
        for (const std::string& probe : probes)
        {
            Touch("w/" + probe);
            expected += (expected.empty() ? "+" : " +") + probe;
        }
        EXPECT_EQ(Changes(), expected);
    }
}

TEST_F(CWatchFolderTest, ALongListIsReplacedByTheWholeFolder)
{
    ASSERT_TRUE(Watch(true, kNames));
    const CXTString<wchar_t> path((m_folder.WidePath("w") + L"/x").c_str());
    for (int i = 0; i < 0x8000; ++i)
        m_watcher.AddChange(path, CWatchFolder::xChangeAdded);
    Touch("w/a");
    EXPECT_EQ(Changes(), "+a +x");
    EXPECT_EQ(m_list, "! +a");
}

TEST_F(CWatchFolderTest, MoreThanTheBufferHoldsIsTheWholeFolder)
{
    ASSERT_TRUE(Watch(true, kNames));
    // Entries of 12 bytes and a name of 10 characters: 128 of them fill 4096 bytes.
    int number = 100000;
    const auto create = [&](int count) {
        for (int i = 0; i < count; ++i)
            Touch("w/file" + std::to_string(number++));
    };
    create(128);
    EXPECT_EQ(Changes().substr(0, 12), "+file100000 ");
    create(129);
    EXPECT_EQ(Changes(), "!");
    create(1);
    EXPECT_EQ(Changes(), "+file100257");
}

TEST_F(CWatchFolderTest, WhenTheSystemsQueueOverflowsTheTreeIsReadAgain)
{
    ASSERT_TRUE(Watch(true, kNames | CWatchFolder::kSize));
    std::ofstream files[] = {std::ofstream(m_folder.Path("w/a")), std::ofstream(m_folder.Path("w/b"))};
    for (int i = 0; i < 20000; ++i)
        (files[i % 2] << "x").flush(); // by turns: the same event twice in a row would count once
    MakeFolder("w/lost");
    EXPECT_EQ(Changes(), "!");
    Touch("w/lost/late");
    EXPECT_EQ(Changes(), "+lost/late");
}

TEST_F(CWatchFolderTest, ADeletedFolderIsWatchedAgain)
{
    ASSERT_TRUE(Watch(true));
    fs::remove_all(m_folder.Path("w"));
    EXPECT_EQ(Changes(), "!");
    EXPECT_EQ(Changes(), "");
    m_folder.WriteFile("w/a/b", "x");
    EXPECT_EQ(Changes(), "!");
    Touch("w/a/c");
    EXPECT_EQ(Changes(), "+a/c");
    Rename("w", "elsewhere");
    m_folder.WriteFile("w/d", "x");
    EXPECT_EQ(Changes(), "!");
    Touch("elsewhere/a/unseen");
    Touch("w/e");
    EXPECT_EQ(Changes(), "+e");
}

TEST_F(CWatchFolderTest, TheFolderAtThePathIsWatched)
{
    m_folder.WriteFile("one/x", "");
    m_folder.WriteFile("up/two/x", "");
    const auto lead = [&](const char* target) {
        fs::remove(m_folder.Path("w"));
        fs::create_directory_symlink(m_folder.Path(target), m_folder.Path("w"));
    };
    lead("one");
    ASSERT_TRUE(Watch(true));
    lead("up/two");
    EXPECT_EQ(Changes(), "!");
    Touch("one/unseen");
    Touch("up/two/a");
    EXPECT_EQ(Changes(), "+a");
    Rename("up", "elsewhere"); // for which the system sends the watches below no event
    EXPECT_EQ(Changes(), "!");
    EXPECT_EQ(Changes(), "");
    m_folder.WriteFile("up/two/b", "");
    EXPECT_EQ(Changes(), "!");
    Touch("elsewhere/two/unseen");
    Touch("up/two/c");
    EXPECT_EQ(Changes(), "+c");

    const fs::path before = fs::current_path();
    fs::current_path(m_folder.Path("up"));
    CWatchFolder relative;
    EXPECT_TRUE(relative.AddRefreshNotification(L"two", true, kNames));
    fs::current_path(before);
    MakeFolder("up/two/new");
    EXPECT_TRUE(relative.CheckRefreshNotification());
    Touch("up/two/new/file");
    EXPECT_TRUE(relative.CheckRefreshNotification());
    EXPECT_EQ(Describe(relative, L"two/"), "+new +new/file");
}

TEST_F(CWatchFolderTest, AFolderIsWatchedOnceUnderAnyName)
{
    EXPECT_FALSE(m_watcher.AddRefreshNotification(m_folder.WidePath("none").c_str(), true, kAll));
    m_folder.WriteFile("file", "x");
    EXPECT_FALSE(m_watcher.AddRefreshNotification(m_folder.WidePath("file").c_str(), true, kAll));
    ASSERT_TRUE(Watch(true));
    fs::create_directory_symlink(m_folder.Path("w"), m_folder.Path("alias"));
    EXPECT_TRUE(m_watcher.AddRefreshNotification((m_folder.WidePath("w") + L"/../alias//").c_str(), true, kAll));
    Touch("w/a");
    EXPECT_EQ(Changes(), "+a") << "by one watch, under the name that came first";
    EXPECT_FALSE(m_watcher.RemoveRefreshNotification(m_folder.WidePath("w").c_str()));
    Touch("w/b");
    EXPECT_EQ(Changes(), "+b");
    EXPECT_TRUE(m_watcher.StopWatching(m_folder.WidePath("alias").c_str()));
    EXPECT_FALSE(m_watcher.StopWatching(m_folder.WidePath("w").c_str()));
    Touch("w/c");
    EXPECT_EQ(Changes(), "");
    ASSERT_TRUE(m_watcher.AddRefreshNotification(L"/", false, 0));
    EXPECT_FALSE(m_watcher.StopWatching(L"")) << "which is not the root";
    EXPECT_TRUE(m_watcher.StopWatching(L"//"));

    ASSERT_TRUE(m_watcher.AddRefreshNotification(m_folder.WidePath("alias").c_str(), true, kNames));
    CWatchFolder second;
    ASSERT_TRUE(second.AddRefreshNotification(m_folder.WidePath("w").c_str(), false, kNames));
    Touch("w/d");
    EXPECT_TRUE(second.CheckRefreshNotification());
    EXPECT_TRUE(m_watcher.CheckRefreshNotification()) << "a watcher does not take the events of another";
    EXPECT_EQ(Describe(m_watcher, m_folder.WidePath("alias") + L"/"), "+d");
}

TEST_F(CWatchFolderTest, RefreshingIsLockedAndCallersAddChanges)
{
    ASSERT_TRUE(Watch(false));
    m_watcher.LockRefresh();
    {
        const CXRefreshLock lock(m_watcher);
        Touch("w/a");
        EXPECT_FALSE(m_watcher.CheckRefreshNotification());
    }
    EXPECT_FALSE(m_watcher.CheckRefreshNotification());
    EXPECT_TRUE(m_watcher.UnlockRefresh());
    EXPECT_TRUE(m_watcher.UnlockRefresh()) << "it stays unlocked";
    m_watcher.AddChange((m_folder.WidePath("w") + L"/by hand").c_str(), CWatchFolder::xChangeModified);
    EXPECT_EQ(Changes(), "+a ~by hand");
    m_watcher.AddChange((m_folder.WidePath("w") + L"/x").c_str(), CWatchFolder::xChangeRemoved);
    m_watcher.AddChange((m_folder.WidePath("w") + L"/x").c_str(), CWatchFolder::xChangeModified);
    EXPECT_EQ(Changes(), "~x");
}

TEST_F(CWatchFolderTest, VolumesAreReleasedForRemoval)
{
    ASSERT_TRUE(Watch(true));
    const std::wstring path = m_folder.WidePath("w");
    const auto tell = [&](unsigned event, unsigned device) {
        const CWatchFolder::DeviceEvent data{device, path.c_str()};
        return m_watcher.OnDeviceChange(event, reinterpret_cast<std::uintptr_t>(&data));
    };
    EXPECT_EQ(m_watcher.OnDeviceChange(CWatchFolder::kQueryRemove, 0), 0U);
    EXPECT_EQ(XLastFailure().GetKind(), XFailureKind::kArgument);
    EXPECT_EQ(tell(0x8005, CWatchFolder::kDeviceHandle), 0U);
    EXPECT_EQ(tell(CWatchFolder::kQueryRemove, CWatchFolder::kDeviceHandle), 1U);
    Touch("w/a");
    EXPECT_EQ(Changes(), "");
    EXPECT_TRUE(Watch(false, CWatchFolder::kSize)) << "which starts it again, as it is asked for now";
    Touch("w/a");
    MakeFolder("w/sub");
    Touch("w/sub/a");
    EXPECT_EQ(Changes(), "! ~a") << "what happened meanwhile is not known";
    fs::remove_all(m_folder.Path("w/sub"));
    tell(CWatchFolder::kQueryRemove, CWatchFolder::kDeviceHandle);
    EXPECT_TRUE(Watch(true));
    tell(CWatchFolder::kQueryRemove, CWatchFolder::kDeviceHandle);
    EXPECT_EQ(tell(CWatchFolder::kQueryRemoveFailed, CWatchFolder::kDeviceHandle), 1U);
    Touch("w/b");
    EXPECT_EQ(tell(CWatchFolder::kQueryRemoveFailed, CWatchFolder::kDeviceHandle), 1U) << "is watched already";
    EXPECT_EQ(Changes(), "! +b");
    tell(CWatchFolder::kQueryRemove, CWatchFolder::kDeviceHandle);
    EXPECT_EQ(tell(CWatchFolder::kVolumeArrived, CWatchFolder::kDeviceVolume), 0U) << "not enabled yet";
    m_watcher.EnableDriveInsertionNotification(false, 4);
    EXPECT_EQ(tell(CWatchFolder::kQueryRemove, CWatchFolder::kDeviceVolume), 0U);
    EXPECT_EQ(tell(CWatchFolder::kVolumeArrived, CWatchFolder::kDeviceVolume), 1U);
    Touch("w/c");
    EXPECT_EQ(Changes(), "! +c");
    EXPECT_EQ(tell(CWatchFolder::kRemovePending, CWatchFolder::kDeviceHandle), 1U);
    EXPECT_FALSE(m_watcher.StopWatching(path.c_str()));
}

/// In a child with a limit of its own on watches.
TEST_F(CWatchFolderTest, WhatIsBeyondTheLimitIsNotHalfWatched)
{
    for (int i = 0; i < 20; ++i)
        m_folder.WriteFile("big/" + std::to_string(i) + "/x", "");
    m_folder.WriteFile("small/1/x", "");
    constexpr int kNoLimit = 99;
    const pid_t child = fork();
    if (child == 0)
    {
        bool limited = unshare(CLONE_NEWUSER) == 0;
        std::ofstream limit("/proc/sys/user/max_inotify_watches");
        limit << "8";
        limited = limited && limit.flush();
        if (!limited)
            _exit(kNoLimit);
        CWatchFolder watcher;
        const bool big = watcher.AddRefreshNotification(m_folder.WidePath("big").c_str(), true, kNames);
        const bool small = watcher.AddRefreshNotification(m_folder.WidePath("small").c_str(), true, kNames);
        for (int i = 0; i < 20; ++i)
            MakeFolder("small/new" + std::to_string(i));
        // More folders than can be watched: their changes are not known, so the whole tree is reported.
        bool whole = true;
        for (int poll = 0; poll < 2; ++poll)
        {
            watcher.CheckRefreshNotification();
            const auto* change = watcher.GetChanges().Find((m_folder.WidePath("small") + L"/").c_str());
            whole = whole && change != nullptr && *change == CWatchFolder::xChangeWholeFolder;
            watcher.ReleaseChanges();
        }
        _exit((big ? 1 : 0) + (small ? 0 : 2) + (whole ? 0 : 4));
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WEXITSTATUS(status) == kNoLimit)
        GTEST_SKIP() << "this system does not allow setting a limit";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
} // namespace
