#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"
#include "settings/PreferenceRecords.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
    int newButFailed = 0;
    for (unsigned n = 1; n < 25; ++n) // more operations than there are
    {
        folder.WriteFile("prefs", before);
        {
            FailingFileSystem disk;
            disk.FailAt(n, EIO);
            isSaved = Save(path, {1, 2}, 9);
        }
        const Bytes now = folder.ReadFile("prefs");
        if (!isSaved && now == after)
            ++newButFailed;
        else
            ASSERT_EQ(now, isSaved ? after : before) << "operation " << n;
    }
    EXPECT_TRUE(isSaved);
    EXPECT_EQ(newButFailed, 1) << "only the flush of the folder comes behind the rename";
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

TEST(CustomDataPrefs, LackOfMemoryLeavesTheOldFile)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("prefs");
    const Bytes before = File({Record({1, 2}, 3), "\1\0\0\0\2\0\0\0TSUC\0\0\0\0"s, Record({4, 5}, 6)});
    const CCustomData store = Holding(9);
    const CXTString<wchar_t> text = path.c_str();
    const unsigned allocations = tev::test::FailEachAllocation([&](tev::test::FailingAllocations& failing) {
        folder.WriteFile("prefs", before);
        bool isSaved = false;
        EXPECT_TRUE(failing.Run([&] { isSaved = store.SaveToPrefs(text, 4, 5); }));
        const Bytes after = File({Record({4, 5}, 9), before.substr(4, before.size() - 4 - Record({4, 5}, 6).size())});
        EXPECT_EQ(folder.ReadFile("prefs").substr(4), (isSaved ? after : before).substr(4));
        EXPECT_FALSE(folder.Exists("prefs.damaged")) << "what could not be read for lack of memory is not damaged";
    });
    EXPECT_GT(allocations, 5U);
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

Bytes Number(unsigned number)
{
    Bytes bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(number >> shift);
    return bytes;
}

/// The record of a store of values of these sizes. The bytes of a value look like small numbers.
Bytes RecordOf(Keys keys, const std::vector<unsigned>& sizes)
{
    Bytes chunks;
    unsigned total = 0;
    for (const unsigned size : sizes)
    {
        chunks += Number(static_cast<unsigned>(100 + chunks.size())) + Number(size) + " BIN";
        for (unsigned i = 0; i < size; ++i)
            chunks += static_cast<char>(i % 4 == 0 ? size : 0);
        total += size;
    }
    const Bytes start = Number(keys.first) + Number(keys.second) + "5SUC";
    if (sizes.empty())
        return start + Number(0);
    return start + Number(static_cast<unsigned>(chunks.size()) + 20) + Number(1) +
           Number(static_cast<unsigned>(sizes.size())) + Number(total) + Number(0) + Number(0) + chunks;
}

Records Split(const Bytes& file)
{
    Records records;
    static_cast<void>(tev::SplitPreferences(std::vector<unsigned char>(file.begin(), file.end()), records));
    records.erase(std::remove_if(records.begin(), records.end(), [](const auto& record) { return !record.m_isSound; }),
                  records.end());
    return records;
}

/// Keys and places of records, but for one of the places.
std::vector<std::array<unsigned __int64, 4>> Without(const Records& records, unsigned __int64 place)
{
    std::vector<std::array<unsigned __int64, 4>> rows;
    for (const XPreferenceRecord& record : records)
    {
        if (record.m_offset != place)
            rows.push_back({record.m_offset, record.m_size, record.m_key1, record.m_key2});
    }
    return rows;
}

TEST(CustomDataPrefs, ABitOfAHeaderCostsNoOtherRecord)
{
    // Second keys that make the next record look like a chunk; totals of which one bit makes another record's place, or 0.
    const std::vector<std::vector<std::pair<Keys, std::vector<unsigned>>>> files = {
        {{{5, 0}, {4}}, {{4, 0}, {16}}, {{3, 0}, {16}}, {{2, 0}, {16}}, {{1, 0}, {16}}},
        {{{1, 1}, {}}, {{2, 0}, {32}}, {{3, 56}, {}}, {{4, 4}, {}}, {{5, 40}, {4, 4}}},
        {{{1, 40}, {4}}, {{2, 40}, {4}}, {{3, 52}, {16}}, {{4, 68}, {4, 4, 4}}, {{5, 24}, {1}}, {{6, 0}, {12, 100}}},
        {{{1, 25}, {1}}, {{2, 3}, {7, 9, 11}}, {{1, 8}, {20, 20}}, {{1, 16}, {}}, {{7, 7}, {500, 3}}, {{8, 8}, {44}}},
        {{{9, 116}, {64, 4}}, {{9, 52}, {4, 4}}, {{9, 36}, {}}, {{9, 84}, {48}}, {{1, 1}, {244}}},
    };
    for (std::size_t number = 0; number < files.size(); ++number)
    {
        std::vector<Bytes> parts;
        for (const auto& [keys, sizes] : files[number])
            parts.push_back(RecordOf(keys, sizes));
        const Bytes good = File(parts);
        const Records all = Split(good);
        ASSERT_EQ(all.size(), parts.size());
        for (const XPreferenceRecord& hurt : all)
        {
            const auto start = static_cast<std::size_t>(hurt.m_offset);
            const std::size_t header = std::min<std::size_t>(static_cast<std::size_t>(hurt.m_size), 36);
            for (std::size_t bit = 8 * 8; bit < header * 8; ++bit)
            {
                Bytes bad = good;
                bad[start + bit / 8] = static_cast<char>(bad[start + bit / 8] ^ 1 << bit % 8);
                ASSERT_EQ(Without(Split(bad), start), Without(all, start))
                    << "file " << number << ", record at " << start << ", byte " << bit / 8 << ", bit " << bit % 8;
            }
            // Nor does a chunk of a wrong size, which may hide the next chunk.
            for (std::size_t at = 40; at + 4 <= hurt.m_size && at < 60; at += 16)
            {
                for (unsigned bit = 0; bit < 32; ++bit)
                {
                    Bytes bad = good;
                    bad[start + at + bit / 8] = static_cast<char>(bad[start + at + bit / 8] ^ 1 << bit % 8);
                    ASSERT_EQ(Without(Split(bad), start), Without(all, start)) << number << " " << start << " " << bit;
                }
            }
        }
    }
}

TEST(CustomDataPrefs, DamageCostsTheRecordInWhichItLies)
{
    const TempFolder folder;
    const Bytes good = File({Record({1, 1}, 1), Record({2, 2}, 2), Record({3, 3}, 3)});
    const size_t size = Record({1, 1}, 1).size();
    // The first bytes are the count of records; keys, identifiers and values may change without being noticed.
    for (size_t at = 0; at < size; ++at)
    {
        Bytes bad = good;
        char& byte = bad[4 + at % 3 * size + at];
        byte = static_cast<char>(byte ^ 0x80);
        const std::wstring path = folder.WriteFile("prefs", bad);
        Records records;
        if (!XListPreferences(path.c_str(), records))
        {
            EXPECT_EQ(KeptAfterSaving(folder, bad), 2) << "byte " << at;
        }
    }
    for (size_t cut = 1; cut < good.size(); cut += 3)
        EXPECT_EQ(KeptAfterSaving(folder, good.substr(0, cut)), static_cast<int>((cut < 4 ? 0 : cut - 4) / size))
            << cut;
    EXPECT_EQ(KeptAfterSaving(folder, good + "more"), 3);
    EXPECT_EQ(KeptAfterSaving(folder, "\2" + good.substr(1)), 3) << "the number of records lies";
    const Bytes rubbish = good.substr(0, 4 + size) + "rubbish";
    EXPECT_EQ(KeptAfterSaving(folder, rubbish + good.substr(4 + size)), 3);
    // Records of the older layouts, and empty ones, are found where the next record or the end of the file follows.
    const Bytes keys = "\3\0\0\0\3\0\0\0"s;
    const Bytes value = Number(kValue) + Number(4) + Number(3);
    for (const Bytes& found : {keys + "USUC" + Number(12) + value, keys + "TSUC" + Number(1) + value})
    {
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found), 2);
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found + Record({2, 2}, 2)), 3);
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found + "more"), 1) << "it may be part of a value";
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found + value), 1);
    }
    const std::vector<Bytes> layouts = {
        keys + "USUC" + Number(1 << 24) + value,    // more than there is
        keys + "USUC" + Number(13) + value,         // not a whole number of records
        keys + "USUC" + Number(24) + value + value, // an identifier twice
        keys + "TSUC" + Number(2) + value,          // too few
        keys + "5SUC" + Number(52) + Number(1) + Number(2) + Number(8) + Number(0) + Number(0) +
            Record({0, 0}, 1).substr(36) + Record({0, 0}, 1).substr(36), // an identifier twice
        keys + "5SUC" + Number(36) + Number(2) + Number(1) + Number(4) + Number(0) + Number(0) + Bytes(16, '\0'),
    };
    for (const Bytes& bad : layouts)
        EXPECT_EQ(KeptAfterSaving(folder, File({Record({1, 1}, 1), bad, Record({2, 2}, 2)})), 2);
    // The counts in a header are not needed for loading; where both are wrong the record ends at the next one.
    Bytes other = Record({2, 2}, 2);
    other[20] = 9;
    other[24] = 9;
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, Record({3, 3}, 3)})).size(), 3U);
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, "no record"})).size(), 1U);
    other[20] = 1;
    EXPECT_EQ(Split(rubbish + other).size(), 2U);
    EXPECT_EQ(Split(rubbish + other + "more").size(), 1U) << "it may be part of a value";
    other[12] = 99; // with the total wrong too its end is not known
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, Record({3, 3}, 3)})).size(), 2U);
    EXPECT_EQ(Split(File({keys + "USUC" + Number(28) + value + Number(5) + Number(0) + Number(5) + Number(0)})).size(),
              1U)
        << "values without bytes are none";
    Records none;
    EXPECT_TRUE(tev::SplitPreferences({0, 0, 0, 0}, none) && none.empty());
    // What a value holds is not taken for a record, though the one that holds it is damaged.
    Bytes outer = RecordOf({2, 2}, {static_cast<unsigned>(Record({7, 7}, 7).size())});
    outer.replace(48, outer.npos, Record({7, 7}, 7));
    for (const std::size_t at : {8, 12, 16, 20, 24})
    {
        Bytes bad = outer;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        for (const XPreferenceRecord& record : Split(File({Record({1, 1}, 1), bad, Record({3, 3}, 3)})))
            EXPECT_NE(record.m_key1, 7U) << at;
    }
    EXPECT_EQ(Split(File({RecordOf({1, 1}, {0}), RecordOf({2, 2}, {})})).size(), 2U) << "values without bytes";
    EXPECT_EQ(Split(File({"rubbish", RecordOf({2, 2}, {})})).size(), 1U);
    // Made to be searched for long: signatures everywhere; sound records that each follow one which claims all the rest,
    // as a size or as records to be counted; headers that count all the chunks behind them.
    const Bytes empty = keys + "5SUC\0\0\0\0"s;
    for (const Bytes& trap :
         {"5SUC"s, keys + "5SUC\0\0\x10\0\1\0\0\0"s + empty, keys + "TSUC\xFF\xFF\xFF\x7F"s + empty,
          Number(0) + Number(24) + "5SUC" + Number(0x100000) + Number(1) + Number(0x10000) + Number(1) + Number(0)})
    {
        Bytes traps = "\3\0\0\0"s;
        while (traps.size() < 2000000)
            traps += trap;
        Records records;
        static_cast<void>(tev::SplitPreferences(std::vector<unsigned char>(traps.begin(), traps.end()), records));
        EXPECT_FALSE(records.empty());
    }
}

TEST(CustomDataPrefs, AFileThatIsTooLargeIsRefusedBeforeItIsRead)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("prefs", File({Record({1, 2}, 3)}));
    const unsigned __int64 gibibyte = 1ULL << 30;
    for (const unsigned __int64 size : {gibibyte + 1, 100 * gibibyte})
    {
        fs::resize_file(folder.Path("prefs"), size); // takes no room
        CCustomData store;
        Records records;
        EXPECT_EQ(Thrown([&] { store.LoadFromPrefs(path.c_str(), 1, 2, true); }), int{fileInvalidFile});
        EXPECT_EQ(Thrown([&] { XListPreferences(path.c_str(), records); }), int{fileInvalidFile});
        EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 1, 2, false));
        EXPECT_FALSE(Save(path, {1, 2}, 4));
        EXPECT_EQ(fs::file_size(folder.Path("prefs")), size);
        EXPECT_FALSE(folder.Exists("prefs.damaged"));
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
    EXPECT_EQ(records[0].m_valueCount, 0U);
    EXPECT_TRUE(records[1].m_isSound);

    FailingFileSystem disk;
    disk.FailAt(1, EACCES);
    EXPECT_EQ(Thrown([&] { store.LoadFromPrefs(path.c_str(), 1, 1, true); }), int{fileAccessDenied});
    disk.FailAt(3, EIO);
    EXPECT_FALSE(store.LoadFromPrefs(path.c_str(), 2, 2, false));
}

TEST(CustomDataPrefs, AStoreIsLockedBeforeTheFolder)
{
    const TempFolder folder;
    const CCustomData store = Holding(1);
    bool wasLocked = false;
    FailingFileSystem disk;
    disk.AtFolderLock([&] {
        std::thread([&] {
            if (store.GetThreadLock()->TryLock())
                store.GetThreadLock()->Unlock();
            else
                wasLocked = true;
        }).join();
    });
    EXPECT_TRUE(store.SaveToPrefs(folder.WidePath("prefs").c_str(), 1, 2));
    EXPECT_TRUE(wasLocked) << "a thread that saves the same store later could be faster, and then be undone";
}

TEST(CustomDataPrefs, AnUpdateIsSavedAsAWholeOrNotAtAll)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("prefs");
    const auto add = [](CCustomData& store) {
        int value = 0;
        store.GetInt(kValue, value, 40);
        store.SetInt(kValue, value + 1);
    };
    EXPECT_TRUE(XUpdatePreferences(path.c_str(), 1, 2, add)) << "neither file nor store";
    EXPECT_TRUE(XUpdatePreferences(path.c_str(), 1, 2, add));
    EXPECT_TRUE(XUpdatePreferences(path.c_str(), 1, 3, add));
    const Bytes saved = File({Record({1, 3}, 41), Record({1, 2}, 42)});
    EXPECT_EQ(folder.ReadFile("prefs"), saved);

    const auto fails = [&](CCustomData& store) {
        add(store);
        throw std::runtime_error("no more");
    };
    EXPECT_THROW(XUpdatePreferences(path.c_str(), 1, 2, fails), std::runtime_error);
    EXPECT_EQ(Thrown([&] {
                  XUpdatePreferences(path.c_str(), 1, 2, [](CCustomData&) { CXFileException::Throw(fileHardIO, {}); });
              }),
              int{fileHardIO});
    EXPECT_EQ(folder.ReadFile("prefs"), saved);
    EXPECT_THROW(XUpdatePreferences(folder.WidePath("new").c_str(), 1, 2, fails), std::runtime_error);
    EXPECT_FALSE(folder.Exists("new") || folder.Exists("prefs.tmp"));
    for (unsigned n = 1; n < 8; ++n)
    {
        FailingFileSystem disk;
        disk.FailAt(n, EIO);
        const bool isDone = XUpdatePreferences(path.c_str(), 1, 3, add);
        EXPECT_EQ(folder.ReadFile("prefs") == saved, !isDone) << n;
        if (isDone)
            folder.WriteFile("prefs", saved);
    }

    // Damage elsewhere does not matter; the damaged store itself is not taken for a missing one.
    const auto unexpected = [](CCustomData&) { FAIL(); };
    folder.WriteFile("prefs", saved + "more");
    EXPECT_FALSE(XUpdatePreferences(path.c_str(), 5, 5, unexpected));
    EXPECT_TRUE(XUpdatePreferences(path.c_str(), 1, 2, add));
    EXPECT_EQ(folder.ReadFile("prefs"), File({Record({1, 2}, 43), Record({1, 3}, 41)}));
    EXPECT_EQ(folder.ReadFile("prefs.damaged"), saved + "more");
    EXPECT_FALSE(XUpdatePreferences(folder.WidePath("missing/prefs").c_str(), 1, 2, unexpected));
    EXPECT_FALSE(XUpdatePreferences(L"", 1, 2, unexpected));
}

TEST(CustomDataPrefs, AnUpdateRefusesToSaveIntoItsFolder)
{
    const TempFolder folder;
    folder.WriteFile("one/prefs", "");
    folder.WriteFile("two/prefs", "");
    fs::create_directory_symlink("one", folder.Path("alias"));
    fs::create_symlink("one/prefs", folder.Path("link"));
    int locks = 0;
    FailingFileSystem disk;
    disk.AtFolderLock([&] { ++locks; });
    const auto nothing = [](CCustomData&) {};
    EXPECT_TRUE(XUpdatePreferences(folder.WidePath("link").c_str(), 1, 2, [&](CCustomData& store) {
        EXPECT_TRUE(Save(folder.WidePath("two/prefs"), {3, 4}, 5));
        EXPECT_TRUE(XUpdatePreferences(folder.WidePath("two/prefs").c_str(), 1, 2, [&](CCustomData&) {
            for (const char* const name : {"one/prefs", "one/other", "alias/prefs", "link", "two/prefs"})
            {
                const std::wstring path = folder.WidePath(name);
                EXPECT_FALSE(Save(path, {3, 4}, 5)) << name;
                EXPECT_FALSE(XUpdatePreferences(path.c_str(), 3, 4, nothing)) << name;
                EXPECT_FALSE(XRemovePreference(path.c_str(), 3, 4)) << name;
            }
        }));
        EXPECT_EQ(Saved(folder.WidePath("one/prefs"), {1, 2}), -1) << "loading is allowed";
        store.SetInt(kValue, 6);
    }));
    EXPECT_EQ(locks, 3) << "what is refused does not wait";
    EXPECT_EQ(folder.ReadFile("one/prefs"), File({Record({1, 2}, 6)}));
    EXPECT_TRUE(Save(folder.WidePath("link"), {3, 4}, 5));
}

TEST(CustomDataPrefs, ProcessesAndThreadsThatUpdateAtOnceLoseNothing)
{
    constexpr int kUpdates = 20;
    const TempFolder folder;
    const std::wstring path = folder.WidePath("prefs");
    const auto update = [&path] {
        for (int i = 0; i < kUpdates; ++i)
        {
            const bool isDone = XUpdatePreferences(path.c_str(), 1, 2, [](CCustomData& store) {
                int value = 0;
                store.GetInt(kValue, value, 0);
                store.SetInt(kValue, value + 1);
            });
            if (!isDone)
                return false;
        }
        return true;
    };
    std::vector<pid_t> processes;
    for (int i = 0; i < 3; ++i)
    {
        processes.push_back(fork());
        if (processes.back() == 0)
            _exit(update() ? 0 : 1);
    }
    std::thread first([&] { EXPECT_TRUE(update()); });
    EXPECT_TRUE(update());
    first.join();
    for (const pid_t process : processes)
    {
        int status = 0;
        EXPECT_EQ(waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(folder.ReadFile("prefs"), File({Record({1, 2}, 5 * kUpdates)}));
}

TEST(CustomDataPrefs, AFolderThatCannotBeReadIsAFailure)
{
    const TempFolder folder;
    const Bytes before = File({Record({1, 2}, 3)});
    folder.WriteFile("closed/prefs", before);
    const pid_t process = fork();
    if (process == 0)
    {
        // Permissions do not keep root from anything.
        const bool isOther = geteuid() != 0 || (chown(folder.Path("closed").c_str(), 65534, 65534) == 0 &&
                                                chown(folder.Path("closed/prefs").c_str(), 65534, 65534) == 0 &&
                                                chmod(folder.Path().c_str(), 0755) == 0 && setuid(65534) == 0);
        const std::wstring path = folder.WidePath("closed/prefs");
        const bool isClosed = chmod(folder.Path("closed").c_str(), 0300) == 0;
        _exit(isOther && isClosed && Saved(path, {1, 2}) == 3 && !Save(path, {1, 2}, 4) ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
    fs::permissions(folder.Path("closed"), fs::perms::owner_all);
    EXPECT_EQ(folder.ReadFile("closed/prefs"), before);
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
