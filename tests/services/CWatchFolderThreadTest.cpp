// Watched folders in forked children and on several threads.

#include "tests/services/WatchFolderFixture.h"
#include "tests/support/BusyFork.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"

namespace
{
using namespace tev::test;

TEST_F(CWatchFolderTest, ChangesThatAreHeldOverAForkAreReleasedInTheChild)
{
    m_watcher.AddChange(L"a", CWatchFolder::xChangeAdded);
    EXPECT_EQ(m_watcher.GetChanges().GetCount(), 1U);
    EXPECT_EQ(ResultInChild([this] {
                  m_watcher.ReleaseChanges();
                  unsigned left = 1;
                  std::thread([&] { left = m_watcher.GetChanges().GetCount(); }).join();
                  return left == 0 ? 0 : 1;
              }),
              0);
    m_watcher.ReleaseChanges();
}

TEST_F(CWatchFolderTest, AChildProcessHasEventsOfItsOwn)
{
    ASSERT_TRUE(Watch(true, kNames));
    const auto second = std::make_unique<CWatchFolder>();
    ASSERT_TRUE(second->AddRefreshNotification(m_folder.WidePath("w").c_str(), true, kNames));
    Touch("w/a");
    EXPECT_EQ(ResultInChild([&] {
                  const bool isAnew = Changes() == "!";
                  Touch("w/b");
                  const bool isTold = Changes() == "+b";
                  m_watcher.RemoveAll();
                  return (isAnew ? 0 : 1) + (isTold ? 0 : 2);
              }),
              0);
    EXPECT_EQ(Changes(), "+a +b");
    Touch("w/c");
    EXPECT_EQ(Changes(), "+c");
    EXPECT_TRUE(second->CheckRefreshNotification());
}

using CWatchFolderThread = CWatchFolderTest;

TEST_F(CWatchFolderThread, AForkDoesNotWaitForTheReadingOfATree)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    constexpr int kFolders = 3000;
    for (int i = 0; i < kFolders; ++i)
        fs::create_directories(m_folder.Path("w/" + std::to_string(i)));
    ASSERT_TRUE(Watch(true, kNames, "small"));
    std::atomic<bool> isDone{false};
    std::atomic<int> readings{0};
    std::thread reader([&] {
        CWatchFolder watcher;
        for (; !isDone; ++readings)
        {
            watcher.AddRefreshNotification(m_folder.WidePath("w").c_str(), true, kNames);
            watcher.RemoveAll();
        }
    });
    // In the child a thread that was reading does not exist.
    const auto watchInChild = [this] {
        Touch("small/a");
        CWatchFolder watcher;
        const std::wstring path = m_folder.WidePath("w");
        return m_watcher.CheckRefreshNotification() && watcher.AddRefreshNotification(path.c_str(), true, kNames) &&
               !watcher.CheckRefreshNotification();
    };
    EXPECT_TRUE(Eventually([&] {
        EXPECT_EQ(ResultInChild([&] { return watchInChild() ? 0 : 1; }), 0);
        const int before = readings;
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(ResultInChild([] { return 0; }), 0);
        return readings == before;
    })) << "each fork waited for the end of a reading";
    isDone = true;
    reader.join();
}

TEST_F(CWatchFolderThread, HeldChangesKeepOthersWaiting)
{
    ASSERT_TRUE(Watch(false));
    Touch("w/a");
    EXPECT_TRUE(m_watcher.CheckRefreshNotification());
    std::optional<CXFolderChanges> changes(m_watcher);
    EXPECT_TRUE(m_watcher.CheckRefreshNotification()) << "on the thread that holds them it does not wait";
    std::atomic<bool> collected{false};
    std::thread other([&] {
        EXPECT_FALSE(m_watcher.ReleaseChanges()) << "does nothing here";
        EXPECT_TRUE(m_watcher.CheckRefreshNotification());
        collected = true;
    });
    Touch("w/b");
    for (const auto& [path, change] : *changes)
        EXPECT_TRUE(change == CWatchFolder::xChangeAdded && path == changes->GetList()[0].m_path);
    EXPECT_EQ(changes->GetMap().GetCount(), 1U);
    EXPECT_FALSE(collected);
    changes.reset();
    other.join();
    EXPECT_EQ(Describe(m_watcher, m_folder.WidePath("w") + L"/"), "+b");
}

TEST_F(CWatchFolderThread, WatchersOfManyThreadsShareOneQueue)
{
    constexpr int kThreads = 4;
    constexpr int kFiles = 200;
    std::atomic<int> found{0};
    OnThreads(kThreads, [&](int number) {
        const std::string name = "t" + std::to_string(number);
        for (int i = 0; i < kFiles; ++i)
        {
            CWatchFolder watcher;
            m_folder.WriteFile(name + "/sub/x", "");
            watcher.AddRefreshNotification(m_folder.WidePath(name).c_str(), true, kNames);
            Touch(name + "/sub/" + std::to_string(i));
            watcher.CheckRefreshNotification();
            found += static_cast<int>(watcher.GetChanges().GetCount());
            watcher.ReleaseChanges();
        }
    });
    EXPECT_EQ(found, kThreads * kFiles);
}
} // namespace
