#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace
{
using namespace std::string_literals;
using tev::test::FailingFileSystem;
using tev::test::kNothingThrown;
using tev::test::TempFolder;
using tev::test::Thrown;
using Bytes = std::string;
using Keys = std::pair<unsigned, unsigned>;
using Records = std::vector<XPreferenceRecord>;
namespace fs = std::filesystem;

constexpr unsigned kValue = 7;

CCustomData Holding(int value)
{
    CCustomData store;
    store.SetInt(kValue, value);
    return store;
}

/// What stands in the file under the keys, -1 for nothing.
int Saved(const std::wstring& path, Keys keys)
{
    CCustomData store;
    int value = -1;
    if (store.LoadFromPrefs(path.c_str(), keys.first, keys.second, false))
        store.GetInt(kValue, value, -1);
    return value;
}

bool Save(const std::wstring& path, Keys keys, int value)
{
    return Holding(value).SaveToPrefs(path.c_str(), keys.first, keys.second);
}

/// The record of a store that holds one value below 256, with keys below 256.
Bytes Record(Keys keys, int value)
{
    const auto number = [](int low) { return Bytes(1, static_cast<char>(low)) + "\0\0\0"s; };
    return number(static_cast<int>(keys.first)) + number(static_cast<int>(keys.second)) + "5SUC" + number(36) +
           number(1) + number(1) + number(4) + number(0) + number(0) + number(7) + number(4) + "TNI " + number(value);
}

Bytes File(const std::vector<Bytes>& records)
{
    Bytes file = Bytes(1, static_cast<char>(records.size())) + "\0\0\0"s;
    for (const Bytes& record : records)
        file += record;
    return file;
}

TEST(CustomDataPrefs, TheNewestRecordStandsFirstAndTheOthersStay)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("prefs");
    EXPECT_EQ(Saved(path, {1, 2}), -1);
    for (const auto& [keys, value] : {std::pair(Keys(1, 2), 10), {{1, 3}, 11}, {{2, 2}, 12}, {{1, 3}, 13}})
        ASSERT_TRUE(Save(path, keys, value));
    EXPECT_EQ(folder.ReadFile("prefs"), File({Record({1, 3}, 13), Record({2, 2}, 12), Record({1, 2}, 10)}));
    EXPECT_FALSE(folder.Exists("prefs.tmp") || folder.Exists("prefs.damaged"));
    EXPECT_EQ(Saved(path, {1, 2}), 10);
    EXPECT_EQ(Saved(path, {1, 3}), 13);
    EXPECT_EQ(Saved(path, {3, 1}), -1) << "both keys count, in their order";

    Records records;
    EXPECT_TRUE(XListPreferences(path.c_str(), records));
    ASSERT_EQ(records.size(), 3U);
    EXPECT_TRUE(records[1].m_isSound);
    EXPECT_EQ(records[1].m_key1 + records[1].m_valueCount, 3U);
    EXPECT_EQ(records[1].m_offset, 4 + Record({1, 3}, 13).size());
    EXPECT_EQ(records[1].m_size, Record({1, 3}, 13).size());

    EXPECT_TRUE(XRemovePreference(path.c_str(), 2, 2));
    EXPECT_FALSE(XRemovePreference(path.c_str(), 2, 2));
    EXPECT_EQ(folder.ReadFile("prefs"), File({Record({1, 3}, 13), Record({1, 2}, 10)}));
    CCustomData other = Holding(99);
    EXPECT_FALSE(other.LoadFromPrefs(path.c_str(), 5, 5, true)) << "nothing is damaged";
    EXPECT_TRUE(other.IsEqual(Holding(99)));

    folder.WriteFile("old", File({"\1\0\0\0\2\0\0\0TSUC\0\0\0\0"s, Record({1, 3}, 5)}));
    ASSERT_TRUE(Save(folder.WidePath("old"), {9, 9}, 1));
    EXPECT_EQ(folder.ReadFile("old"), File({Record({9, 9}, 1), "\1\0\0\0\2\0\0\0TSUC\0\0\0\0"s, Record({1, 3}, 5)}))
        << "records of older layouts stay as they are";
}

TEST(CustomDataPrefs, WhatIsNoFileIsRefused)
{
    const TempFolder folder;
    folder.WriteFile("folder/file", "");
    ASSERT_EQ(mkfifo(folder.Path("pipe").c_str(), 0600), 0);
    for (const char* name : {"", "folder/", "folder\\", "folder", "missing/prefs", "folder/file/prefs", "pipe"})
    {
        const std::wstring path =
            *name == '\0' ? L"" : folder.WidePath() + L"/" + std::wstring(name, name + strlen(name));
        EXPECT_FALSE(Save(path, {1, 2}, 3)) << name;
        EXPECT_FALSE(XRemovePreference(path.c_str(), 1, 2)) << name;
        CCustomData store;
        EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 1, 2, false)) << name;
    }
    Records records;
    EXPECT_EQ(Thrown([&] { XListPreferences(folder.WidePath("none").c_str(), records); }), int{fileNotFound});
    EXPECT_TRUE(Save(folder.WidePath("folder/file"), {1, 2}, 3)) << "an empty file is a file without records";
    EXPECT_EQ(folder.ReadFile("folder/file"), File({Record({1, 2}, 3)}));
}

TEST(CustomDataPrefs, LinksAndPermissionsSurviveAndStaleFilesDoNotStop)
{
    const TempFolder folder;
    folder.WriteFile("real/prefs", File({Record({1, 2}, 3)}));
    folder.WriteFile("real/prefs.tmp", "left over");
    fs::permissions(folder.Path("real/prefs.tmp"), fs::perms::none);
    const fs::perms permissions = fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read;
    fs::permissions(folder.Path("real/prefs"), permissions);
    fs::create_symlink("real/prefs", folder.Path("link"));
    fs::create_symlink(folder.Path("link"), folder.Path("far"));
    fs::create_symlink("real/new", folder.Path("dangling"));
    fs::create_symlink("circle", folder.Path("circle"));
    EXPECT_TRUE(Save(folder.WidePath("far"), {4, 5}, 6));
    EXPECT_TRUE(fs::is_symlink(folder.Path("far")) && fs::is_symlink(folder.Path("link")));
    EXPECT_EQ(fs::status(folder.Path("real/prefs")).permissions(), permissions);
    EXPECT_EQ(folder.ReadFile("real/prefs"), File({Record({4, 5}, 6), Record({1, 2}, 3)}));
    EXPECT_TRUE(Save(folder.WidePath("dangling"), {4, 5}, 6));
    EXPECT_EQ(folder.ReadFile("real/new"), File({Record({4, 5}, 6)}));
    EXPECT_FALSE(Save(folder.WidePath("circle"), {4, 5}, 6));

    // What lies in wait at the temporary name is neither followed nor written to.
    folder.WriteFile("victim", "untouched");
    fs::create_symlink(folder.Path("victim"), folder.Path("real/prefs.tmp"));
    EXPECT_TRUE(Save(folder.WidePath("link"), {4, 5}, 7));
    EXPECT_EQ(folder.ReadFile("victim"), "untouched");
    EXPECT_FALSE(fs::exists(fs::symlink_status(folder.Path("real/prefs.tmp"))));
}

TEST(CustomDataPrefs, AFailingDiskLeavesTheOldFile)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("prefs");
    const Bytes before = File({Record({1, 2}, 3), Record({4, 5}, 6)});
    const Bytes after = File({Record({1, 2}, 9), Record({4, 5}, 6)});
    bool isSaved = false;
    for (unsigned n = 1; !isSaved || n < 8; ++n)
    {
        folder.WriteFile("prefs", before);
        {
            FailingFileSystem disk;
            disk.FailAt(n, EIO);
            isSaved = Save(path, {1, 2}, 9);
        }
        const Bytes now = folder.ReadFile("prefs");
        ASSERT_EQ(now, isSaved ? after : before) << "operation " << n;
        ASSERT_LT(n, 100U);
    }
    for (size_t space = 0; space <= after.size(); ++space)
    {
        folder.WriteFile("prefs", before);
        {
            FailingFileSystem disk;
            disk.LimitSpace(space);
            isSaved = Save(path, {1, 2}, 9);
        }
        EXPECT_EQ(isSaved, space == after.size());
        EXPECT_EQ(folder.ReadFile("prefs"), isSaved ? after : before) << space;
        EXPECT_FALSE(folder.Exists("prefs.tmp")) << space;
    }
    // Nor is a damaged file lost when its copy finds no room.
    folder.WriteFile("prefs", before + "damage");
    {
        FailingFileSystem disk;
        disk.LimitSpace(before.size());
        EXPECT_FALSE(Save(path, {1, 2}, 9));
    }
    EXPECT_EQ(folder.ReadFile("prefs"), before + "damage");
    EXPECT_FALSE(folder.Exists("prefs.tmp") || folder.Exists("prefs.damaged"));
}

/// What a save of another record makes of a file, and how many of three records were kept.
int KeptAfterSaving(const TempFolder& folder, const Bytes& file)
{
    const std::wstring path = folder.WriteFile("prefs", file);
    fs::remove(folder.Path("prefs.damaged"));
    EXPECT_TRUE(Save(path, {9, 9}, 9));
    EXPECT_TRUE(folder.Exists("prefs.damaged") && folder.ReadFile("prefs.damaged") == file);
    Records records;
    EXPECT_TRUE(XListPreferences(path.c_str(), records));
    EXPECT_EQ(Saved(path, {9, 9}), 9);
    int kept = 0;
    for (const auto& [keys, value] : {std::pair(Keys(1, 1), 1), {{2, 2}, 2}, {{3, 3}, 3}})
        kept += Saved(path, keys) == value ? 1 : 0;
    return kept;
}

TEST(CustomDataPrefs, DamageCostsTheRecordInWhichItLies)
{
    const TempFolder folder;
    const Bytes good = File({Record({1, 1}, 1), Record({2, 2}, 2), Record({3, 3}, 3)});
    const size_t size = Record({1, 1}, 1).size();
    // The first bytes are the count of records; keys, identifiers and values may become others without anybody knowing.
    for (size_t at = 0; at < size; ++at)
    {
        for (size_t record = 0; record < 3; ++record)
        {
            Bytes bad = good;
            char& byte = bad[4 + record * size + at];
            byte = static_cast<char>(byte ^ 0x80);
            const std::wstring path = folder.WriteFile("prefs", bad);
            Records records;
            if (XListPreferences(path.c_str(), records))
                continue;
            EXPECT_EQ(KeptAfterSaving(folder, bad), 2) << "byte " << at << " of record " << record;
        }
    }
    for (size_t cut = 1; cut < good.size(); ++cut)
        EXPECT_EQ(KeptAfterSaving(folder, good.substr(0, cut)), static_cast<int>((cut < 4 ? 0 : cut - 4) / size))
            << cut;
    EXPECT_EQ(KeptAfterSaving(folder, good + "more"), 3);
    EXPECT_EQ(KeptAfterSaving(folder, "\2" + good.substr(1)), 3) << "the number of records lies";
    EXPECT_EQ(KeptAfterSaving(folder, good.substr(0, 4 + size) + "rubbish" + good.substr(4 + size)), 3);
    // Made to be searched for long: signatures everywhere; sound records that each follow one which claims all the rest,
    // as a size or as records to be counted.
    const Bytes keys = "\1\0\0\0\b\0\0\0"s;
    const Bytes empty = keys + "5SUC\0\0\0\0"s;
    for (const Bytes& trap :
         {"5SUC"s, keys + "5SUC\0\0\x10\0\1\0\0\0"s + empty, keys + "TSUC\xFF\xFF\xFF\x7F"s + empty})
    {
        Bytes traps = "\3\0\0\0"s;
        while (traps.size() < 2000000)
            traps += trap;
        EXPECT_EQ(KeptAfterSaving(folder, traps), 0);
    }
}

TEST(CustomDataPrefs, DamageIsReportedWhereTheStoreIsNotFound)
{
    const TempFolder folder;
    Bytes bad = File({Record({1, 1}, 1), Record({2, 2}, 2)});
    bad[4 + 8] = '?'; // the signature of the first
    const std::wstring path = folder.WriteFile("prefs", bad);
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
    EXPECT_TRUE(records[1].m_isSound);

    FailingFileSystem disk;
    disk.FailAt(1, EACCES);
    EXPECT_EQ(Thrown([&] { store.LoadFromPrefs(path.c_str(), 1, 1, true); }), int{fileAccessDenied});
    disk.FailAt(3, EIO);
    EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 2, 2, false));
}

TEST(CustomDataPrefs, ThreadsSaveIntoOneFileAtOnce)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("prefs");
    ASSERT_TRUE(Save(path, {0, 0}, 0));
    std::vector<std::thread> threads;
    for (unsigned i = 1; i <= 4; ++i)
    {
        threads.emplace_back([i, &path] {
            for (unsigned value = 0; value < 10; ++value)
            {
                EXPECT_TRUE(Save(path, {i, value}, static_cast<int>(value)));
                Records records;
                EXPECT_TRUE(XListPreferences(path.c_str(), records)) << "the old file or the new one";
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    Records records;
    EXPECT_TRUE(XListPreferences(path.c_str(), records));
    EXPECT_EQ(records.size(), 41U) << "none was lost";
}
} // namespace
