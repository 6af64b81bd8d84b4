#include "settings/CCustomData.h"

#include "objects/LastFailure.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/PreferenceFiles.h"

namespace
{
using namespace tev::test;
using Bytes = std::string;

class CustomDataPrefs : public testing::Test
{
protected:
    const TempFolder m_folder;
    const std::wstring m_path = m_folder.WidePath("prefs");
};

TEST_F(CustomDataPrefs, TheNewestRecordStandsFirstAndTheOthersStay)
{
    EXPECT_EQ(Saved(m_path, {1, 2}), -1);
    for (const auto& [keys, value] : {std::pair(Keys(1, 2), 10), {{1, 3}, 11}, {{2, 2}, 12}, {{1, 3}, 13}})
        ASSERT_TRUE(Save(m_path, keys, value));
    EXPECT_EQ(m_folder.ReadFile("prefs"), File({Record({1, 3}, 13), Record({2, 2}, 12), Record({1, 2}, 10)}));
    EXPECT_FALSE(m_folder.Exists("prefs.tmp") || m_folder.Exists("prefs.damaged"));
    EXPECT_EQ(Saved(m_path, {1, 2}), 10);
    EXPECT_EQ(Saved(m_path, {1, 3}), 13);
    EXPECT_EQ(Saved(m_path, {3, 1}), -1) << "both keys count, in their order";

    Records records;
    EXPECT_TRUE(XListPreferences(m_path.c_str(), records));
    ASSERT_EQ(records.size(), 3U);
    EXPECT_TRUE(records[1].m_isSound);
    EXPECT_EQ(records[1].m_key1 + records[1].m_valueCount, 3U);
    EXPECT_EQ(records[1].m_offset, 4 + Record({1, 3}, 13).size());
    EXPECT_EQ(records[1].m_size, Record({1, 3}, 13).size());

    CCustomData expected;
    ASSERT_TRUE(expected.LoadFromPrefs(m_path.c_str(), 2, 2, true));
    expected.SetInt(99, 1);
    EXPECT_FALSE(XRemovePreference(m_path.c_str(), 2, 2, expected));
    EXPECT_EQ(1237U, XLastFailure().GetSystemError());
    expected.RemoveCustom(99);
    EXPECT_TRUE(XRemovePreference(m_path.c_str(), 2, 2, expected));
    EXPECT_FALSE(XRemovePreference(m_path.c_str(), 2, 2));
    EXPECT_EQ(m_folder.ReadFile("prefs"), File({Record({1, 3}, 13), Record({1, 2}, 10)}));
    CCustomData other = Holding(99);
    EXPECT_FALSE(other.LoadFromPrefs(m_path.c_str(), 5, 5, true)) << "nothing is damaged";
    EXPECT_TRUE(other.IsEqual(Holding(99)));

    m_folder.WriteFile("old", File({"\1\0\0\0\2\0\0\0TSUC\0\0\0\0"s, Record({1, 3}, 5)}));
    ASSERT_TRUE(Save(m_folder.WidePath("old"), {9, 9}, 1));
    EXPECT_EQ(m_folder.ReadFile("old"), File({Record({9, 9}, 1), "\1\0\0\0\2\0\0\0TSUC\0\0\0\0"s, Record({1, 3}, 5)}))
        << "records of older layouts stay as they are";
}

TEST_F(CustomDataPrefs, WhatIsNoFileIsRefused)
{
    m_folder.WriteFile("folder/file", "");
    ASSERT_EQ(mkfifo(m_folder.Path("pipe").c_str(), 0600), 0);
    for (const char* name : {"", "folder/", "folder\\", "folder", "missing/prefs", "folder/file/prefs", "pipe"})
    {
        const std::wstring path =
            *name == '\0' ? L"" : m_folder.WidePath() + L"/" + std::wstring(name, name + strlen(name));
        EXPECT_FALSE(Save(path, {1, 2}, 3)) << name;
        EXPECT_FALSE(XRemovePreference(path.c_str(), 1, 2)) << name;
        CCustomData store;
        EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 1, 2, false)) << name;
    }
    Records records;
    EXPECT_EQ(Thrown([&] { static_cast<void>(XListPreferences(m_folder.WidePath("none").c_str(), records)); }),
              int{fileNotFound});
    EXPECT_TRUE(Save(m_folder.WidePath("folder/file"), {1, 2}, 3)) << "an empty file is a file without records";
    EXPECT_EQ(m_folder.ReadFile("folder/file"), File({Record({1, 2}, 3)}));
}

TEST_F(CustomDataPrefs, LinksAndPermissionsSurviveAndStaleFilesDoNotStop)
{
    m_folder.WriteFile("real/prefs", File({Record({1, 2}, 3)}));
    m_folder.WriteFile("real/prefs.tmp", "left over");
    fs::permissions(m_folder.Path("real/prefs.tmp"), fs::perms::none);
    const fs::perms permissions = fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read;
    fs::permissions(m_folder.Path("real/prefs"), permissions);
    fs::create_symlink("real/prefs", m_folder.Path("link"));
    fs::create_symlink(m_folder.Path("link"), m_folder.Path("far"));
    fs::create_symlink("real/new", m_folder.Path("dangling"));
    fs::create_symlink("circle", m_folder.Path("circle"));
    EXPECT_TRUE(Save(m_folder.WidePath("far"), {4, 5}, 6));
    EXPECT_TRUE(fs::is_symlink(m_folder.Path("far")) && fs::is_symlink(m_folder.Path("link")));
    EXPECT_EQ(fs::status(m_folder.Path("real/prefs")).permissions(), permissions);
    EXPECT_EQ(m_folder.ReadFile("real/prefs"), File({Record({4, 5}, 6), Record({1, 2}, 3)}));
    EXPECT_TRUE(Save(m_folder.WidePath("dangling"), {4, 5}, 6));
    EXPECT_EQ(m_folder.ReadFile("real/new"), File({Record({4, 5}, 6)}));
    EXPECT_FALSE(Save(m_folder.WidePath("circle"), {4, 5}, 6));

    // What lies in wait at the temporary name is neither followed nor written to.
    m_folder.WriteFile("victim", "untouched");
    fs::create_symlink(m_folder.Path("victim"), m_folder.Path("real/prefs.tmp"));
    EXPECT_TRUE(Save(m_folder.WidePath("link"), {4, 5}, 7));
    EXPECT_EQ(m_folder.ReadFile("victim"), "untouched");
    EXPECT_FALSE(fs::exists(fs::symlink_status(m_folder.Path("real/prefs.tmp"))));
}

TEST_F(CustomDataPrefs, AFailingDiskLeavesTheOldFile)
{
    const Bytes before = File({Record({1, 2}, 3), Record({4, 5}, 6)});
    const Bytes after = File({Record({1, 2}, 9), Record({4, 5}, 6)});
    bool isSaved = false;
    int newButFailed = 0;
    for (unsigned n = 1; n < 25; ++n) // more operations than there are
    {
        m_folder.WriteFile("prefs", before);
        {
            FailingFileSystem disk;
            disk.FailAt(n, EIO);
            isSaved = Save(m_path, {1, 2}, 9);
        }
        const Bytes now = m_folder.ReadFile("prefs");
        if (!isSaved && now == after)
            ++newButFailed;
        else
            ASSERT_EQ(now, isSaved ? after : before) << "operation " << n;
    }
    EXPECT_TRUE(isSaved);
    EXPECT_EQ(newButFailed, 1) << "only the flush of the folder comes behind the rename";
    for (size_t space = 0; space <= after.size(); ++space)
    {
        m_folder.WriteFile("prefs", before);
        {
            FailingFileSystem disk;
            disk.LimitSpace(space);
            isSaved = Save(m_path, {1, 2}, 9);
        }
        EXPECT_EQ(isSaved, space == after.size());
        EXPECT_EQ(m_folder.ReadFile("prefs"), isSaved ? after : before) << space;
        EXPECT_FALSE(m_folder.Exists("prefs.tmp")) << space;
    }
    // Nor is a damaged file lost when its copy finds no room.
    m_folder.WriteFile("prefs", before + "damage");
    {
        FailingFileSystem disk;
        disk.LimitSpace(before.size());
        EXPECT_FALSE(Save(m_path, {1, 2}, 9));
    }
    EXPECT_EQ(m_folder.ReadFile("prefs"), before + "damage");
    EXPECT_FALSE(m_folder.Exists("prefs.tmp") || m_folder.Exists("prefs.damaged"));
}

TEST_F(CustomDataPrefs, LackOfMemoryLeavesTheOldFile)
{
    const Bytes before = File({Record({1, 2}, 3), "\1\0\0\0\2\0\0\0TSUC\0\0\0\0"s, Record({4, 5}, 6)});
    const CCustomData store = Holding(9);
    const CXTString<wchar_t> text = m_path.c_str();
    const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
        m_folder.WriteFile("prefs", before);
        bool isSaved = false;
        EXPECT_TRUE(failing.Run([&] { isSaved = store.SaveToPrefs(text, 4, 5); }));
        const Bytes after = File({Record({4, 5}, 9), before.substr(4, before.size() - 4 - Record({4, 5}, 6).size())});
        EXPECT_EQ(m_folder.ReadFile("prefs").substr(4), (isSaved ? after : before).substr(4));
        EXPECT_FALSE(m_folder.Exists("prefs.damaged")) << "what could not be read for lack of memory is not damaged";
    });
    EXPECT_GT(allocations, 5U);
}

TEST_F(CustomDataPrefs, AFileThatIsTooLargeIsRefusedBeforeItIsRead)
{
    const std::wstring path = m_folder.WriteFile("prefs", File({Record({1, 2}, 3)}));
    const unsigned __int64 gibibyte = 1ULL << 30;
    for (const unsigned __int64 size : {gibibyte + 1, 100 * gibibyte})
    {
        fs::resize_file(m_folder.Path("prefs"), size); // takes no room
        CCustomData store;
        Records records;
        EXPECT_EQ(Thrown([&] { store.LoadFromPrefs(path.c_str(), 1, 2, true); }), int{fileInvalidFile});
        EXPECT_EQ(Thrown([&] { static_cast<void>(XListPreferences(path.c_str(), records)); }), int{fileInvalidFile});
        EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 1, 2, false));
        EXPECT_FALSE(Save(path, {1, 2}, 4));
        EXPECT_EQ(fs::file_size(m_folder.Path("prefs")), size);
        EXPECT_FALSE(m_folder.Exists("prefs.damaged"));
    }
}

TEST_F(CustomDataPrefs, DamageIsReportedWhereTheStoreIsNotFound)
{
    Bytes bad = File({Record({1, 1}, 1), Record({2, 2}, 2)});
    bad[4 + 8] = '?'; // the signature of the first
    const std::wstring path = m_folder.WriteFile("prefs", bad);
    CCustomData store = Holding(5);
    EXPECT_EQ(Thrown([&] { store.LoadFromPrefs(path.c_str(), 1, 1, true); }), int{fileInvalidFile});
    EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 1, 1, false));
    EXPECT_TRUE(store.IsEqual(Holding(5)));
    EXPECT_TRUE(store.LoadFromPrefs(path.c_str(), 2, 2, true));
    EXPECT_TRUE(store.IsEqual(Holding(2)));
    EXPECT_FALSE(XRemovePreference(path.c_str(), 2, 2));
    Records records;
    EXPECT_FALSE(XListPreferences(path.c_str(), records));
    ASSERT_EQ(records.size(), 2U);
    EXPECT_FALSE(records[0].m_isSound);
    EXPECT_EQ(records[0].m_key1, 1U);
    EXPECT_EQ(records[0].m_valueCount, 0U);
    EXPECT_TRUE(records[1].m_isSound);

    FailingFileSystem disk;
    disk.FailAt(1, EACCES);
    EXPECT_EQ(Thrown([&] { store.LoadFromPrefs(path.c_str(), 1, 1, true); }), int{fileAccessDenied});
    disk.FailAt(3, EIO);
    EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 2, 2, false));
}

TEST_F(CustomDataPrefs, AStoreIsLockedBeforeTheFolder)
{
    const CCustomData store = Holding(1);
    bool wasLocked = false;
    FailingFileSystem disk;
    disk.AtStep("lock folder", [&] {
        std::thread([&] {
            if (store.GetThreadLock()->TryLock())
                store.GetThreadLock()->Unlock();
            else
                wasLocked = true;
        }).join();
    });
    EXPECT_TRUE(store.SaveToPrefs(m_folder.WidePath("prefs").c_str(), 1, 2));
    EXPECT_TRUE(wasLocked) << "a thread that saves the same store later could be faster, and then be undone";
}

TEST_F(CustomDataPrefs, AnUpdateIsSavedAsAWholeOrNotAtAll)
{
    const auto add = [](CCustomData& store) {
        int value = 0;
        store.GetInt(kValue, value, 40);
        store.SetInt(kValue, value + 1);
    };
    EXPECT_TRUE(XUpdatePreferences(m_path.c_str(), 1, 2, add)) << "neither file nor store";
    EXPECT_TRUE(XUpdatePreferences(m_path.c_str(), 1, 2, add));
    EXPECT_TRUE(XUpdatePreferences(m_path.c_str(), 1, 3, add));
    const Bytes saved = File({Record({1, 3}, 41), Record({1, 2}, 42)});
    EXPECT_EQ(m_folder.ReadFile("prefs"), saved);

    const auto fails = [&](CCustomData& store) {
        add(store);
        throw std::runtime_error("no more");
    };
    EXPECT_THROW(static_cast<void>(XUpdatePreferences(m_path.c_str(), 1, 2, fails)), std::runtime_error);
    EXPECT_EQ(Thrown([&] {
                  static_cast<void>(XUpdatePreferences(m_path.c_str(), 1, 2,
                                                       [](CCustomData&) { CXFileException::Throw(fileHardIO, {}); }));
              }),
              int{fileHardIO});
    EXPECT_EQ(m_folder.ReadFile("prefs"), saved);
    EXPECT_THROW(static_cast<void>(XUpdatePreferences(m_folder.WidePath("new").c_str(), 1, 2, fails)),
                 std::runtime_error);
    EXPECT_FALSE(m_folder.Exists("new") || m_folder.Exists("prefs.tmp"));
    for (unsigned n = 1; n < 8; ++n)
    {
        FailingFileSystem disk;
        disk.FailAt(n, EIO);
        const bool isDone = XUpdatePreferences(m_path.c_str(), 1, 3, add);
        EXPECT_EQ(m_folder.ReadFile("prefs") == saved, !isDone) << n;
        if (isDone)
            m_folder.WriteFile("prefs", saved);
    }

    // Damage elsewhere does not matter; the damaged store itself is not taken for a missing one.
    const auto unexpected = [](CCustomData&) { FAIL(); };
    m_folder.WriteFile("prefs", saved + "more");
    EXPECT_FALSE(XUpdatePreferences(m_path.c_str(), 5, 5, unexpected));
    EXPECT_TRUE(XUpdatePreferences(m_path.c_str(), 1, 2, add));
    EXPECT_EQ(m_folder.ReadFile("prefs"), File({Record({1, 2}, 43), Record({1, 3}, 41)}));
    EXPECT_EQ(m_folder.ReadFile("prefs.damaged"), saved + "more");
    EXPECT_FALSE(XUpdatePreferences(m_folder.WidePath("missing/prefs").c_str(), 1, 2, unexpected));
    EXPECT_FALSE(XUpdatePreferences(L"", 1, 2, unexpected));
}

TEST_F(CustomDataPrefs, AnUpdateRefusesToSaveIntoItsFolder)
{
    m_folder.WriteFile("one/prefs", "");
    m_folder.WriteFile("two/prefs", "");
    fs::create_directory_symlink("one", m_folder.Path("alias"));
    fs::create_symlink("one/prefs", m_folder.Path("link"));
    int locks = 0;
    FailingFileSystem disk;
    disk.AtStep("lock folder", [&] { ++locks; });
    const auto nothing = [](CCustomData&) {};
    EXPECT_TRUE(XUpdatePreferences(m_folder.WidePath("link").c_str(), 1, 2, [&](CCustomData& store) {
        EXPECT_TRUE(Save(m_folder.WidePath("two/prefs"), {3, 4}, 5));
        EXPECT_TRUE(XUpdatePreferences(m_folder.WidePath("two/prefs").c_str(), 1, 2, [&](CCustomData&) {
            for (const char* const name : {"one/prefs", "one/other", "alias/prefs", "link", "two/prefs"})
            {
                const std::wstring path = m_folder.WidePath(name);
                EXPECT_FALSE(Save(path, {3, 4}, 5)) << name;
                EXPECT_FALSE(XUpdatePreferences(path.c_str(), 3, 4, nothing)) << name;
                EXPECT_FALSE(XRemovePreference(path.c_str(), 3, 4)) << name;
            }
        }));
        EXPECT_EQ(Saved(m_folder.WidePath("one/prefs"), {1, 2}), -1) << "loading is allowed";
        store.SetInt(kValue, 6);
    }));
    EXPECT_EQ(locks, 3) << "what is refused does not wait";
    EXPECT_EQ(m_folder.ReadFile("one/prefs"), File({Record({1, 2}, 6)}));
    EXPECT_TRUE(Save(m_folder.WidePath("link"), {3, 4}, 5));
}

/// Once more where others held the folder's lock for its ten seconds, as they may where the disk is slow.
bool Patiently(const std::function<bool()>& save)
{
    constexpr unsigned kSharingViolation = 32;
    for (int attempt = 0; attempt < 20; ++attempt)
    {
        if (save())
            return true;
        if (XLastFailure().GetSystemError() != kSharingViolation)
            return false;
    }
    return false;
}

TEST_F(CustomDataPrefs, ProcessesAndThreadsThatUpdateAtOnceLoseNothing)
{
    constexpr int kUpdates = 20;
    const auto update = [this] {
        for (int i = 0; i < kUpdates; ++i)
        {
            const auto change = [](CCustomData& store) {
                int value = 0;
                store.GetInt(kValue, value, 0);
                store.SetInt(kValue, value + 1);
            };
            if (!Patiently([&] { return XUpdatePreferences(m_path.c_str(), 1, 2, change); }))
                return false;
        }
        return true;
    };
    std::deque<ChildProcess> processes;
    for (int i = 0; i < 3; ++i)
        processes.emplace_back(update);
    OnThreads(2, [&](int) { EXPECT_TRUE(update()); });
    for (ChildProcess& process : processes)
        EXPECT_TRUE(process.EndsWell());
    EXPECT_EQ(m_folder.ReadFile("prefs"), File({Record({1, 2}, 5 * kUpdates)}));
}

TEST_F(CustomDataPrefs, AFolderThatCannotBeReadIsAFailure)
{
    const Bytes before = File({Record({1, 2}, 3)});
    m_folder.WriteFile("closed/prefs", before);
    const auto isRefused = [&] {
        // Permissions do not keep root from anything.
        const bool isOther = geteuid() != 0 || (chown(m_folder.Path("closed").c_str(), 65534, 65534) == 0 &&
                                                chown(m_folder.Path("closed/prefs").c_str(), 65534, 65534) == 0 &&
                                                chmod(m_folder.Path().c_str(), 0755) == 0 && setuid(65534) == 0);
        const std::wstring path = m_folder.WidePath("closed/prefs");
        const bool isClosed = chmod(m_folder.Path("closed").c_str(), 0300) == 0;
        return isOther && isClosed && Saved(path, {1, 2}) == 3 && !Save(path, {1, 2}, 4) ? 1 : 0;
    };
    EXPECT_EQ(ResultInChild(isRefused), 1);
    fs::permissions(m_folder.Path("closed"), fs::perms::owner_all);
    EXPECT_EQ(m_folder.ReadFile("closed/prefs"), before);
}

TEST_F(CustomDataPrefs, ThreadsSaveIntoOneFileAtOnce)
{
    ASSERT_TRUE(Save(m_path, {0, 0}, 0));
    OnThreads(4, [this](int number) {
        for (unsigned value = 0; value < 10; ++value)
        {
            EXPECT_TRUE(Patiently([&] { return Save(m_path, {number + 1, value}, static_cast<int>(value)); }));
            Records records;
            EXPECT_TRUE(XListPreferences(m_path.c_str(), records)) << "the old file or the new one";
        }
    });
    Records records;
    EXPECT_TRUE(XListPreferences(m_path.c_str(), records));
    EXPECT_EQ(records.size(), 41U) << "none was lost";
}
} // namespace
