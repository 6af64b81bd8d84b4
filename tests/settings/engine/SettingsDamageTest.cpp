#include "settings/engine/SettingsStore.h"

#include "files/CXMemFile.h"
#include "settings/CRegUtil.h"
#include "settings/RegistryText.h"
#include "tests/support/PrintText.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SettingsFixture.h"
#include "tests/support/TextTools.h"

namespace
{
using namespace tev::test;
using SettingsDamage = SettingsStore;

TEST_F(SettingsDamage, AFileThatIsNoSoundRegistryIsLeftAsItIs)
{
    {
        CRegUtil registry(kAll);
        ASSERT_TRUE(registry.SetPath(kPath, true));
        for (int i = 0; i < 2000; ++i)
            ASSERT_TRUE(registry.WriteKeyString(std::to_wstring(i).c_str(), L"a text that takes some place"));
    }
    Settle();
    const std::string sound = m_registry.m_folder.ReadFile("user.db");
    const auto changed = [&](std::size_t from, std::size_t count) {
        std::string bytes = sound;
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(from), count, '\x55');
        return bytes;
    };
    std::string newer = sound;
    newer[63] = 9; // user_version
    const std::tuple<const char*, std::string, int> cases[] = {
        {"text.db", "[settings]\nnot a database, but longer than the header of one would be: " + std::string(200, 'x'),
         1009},
        {"short.db", sound.substr(0, 50), 1009},
        {"cut.db", sound.substr(0, sound.size() / 3), 1009},
        {"torn.db", changed(4096, sound.size() - 4096), 1009},
        {"newer.db", newer, 1306},
        {"other.db", {}, 1017},
    };
    for (const auto& [name, bytes, error] : cases)
    {
        SCOPED_TRACE(name);
        m_registry.m_folder.WriteFile(name, bytes);
        const std::string path = m_registry.m_folder.Path(name).string();
        if (bytes.empty())
            Ask(path, "CREATE TABLE contacts (name TEXT)");
        const std::string before = m_registry.m_folder.ReadFile(name);
        const EnvironmentVariable chosen("TEVTOOLS_REGISTRY", path);
        CRegUtil registry(kAll);
        EXPECT_FALSE(registry.SetPath(kPath, true));
        EXPECT_EQ(registry.GetLastError(), error);
        CRegUtil root(kAll);
        EXPECT_FALSE(root.WriteKeyInt(L"a", 1));
        EXPECT_FALSE(root.KeyExists(L"a"));
        EXPECT_FALSE(root.StartSubKeyEnum());
        EXPECT_EQ(m_registry.m_folder.ReadFile(name), before);
    }
    const EnvironmentVariable folder("TEVTOOLS_REGISTRY", m_registry.m_folder.Path().string());
    EXPECT_FALSE(CRegUtil(kAll).SetPath(kPath, true));
    const EnvironmentVariable beneath("TEVTOOLS_REGISTRY", File() + "/below.db");
    CRegUtil registry(kAll);
    EXPECT_EQ(ErrorOf(registry, registry.SetPath(kPath, true)), 3);
}

TEST_F(SettingsDamage, DamageAnywhereEndsInAnswersOrErrors)
{
    {
        CRegUtil registry(kAll);
        ASSERT_TRUE(registry.SetPath(kPath, true));
        for (int i = 0; i < 300; ++i)
            ASSERT_TRUE(
                registry.WriteSubKeyString(std::to_wstring(i % 40).c_str(), std::to_wstring(i).c_str(), L"text"));
    }
    Settle();
    const std::string sound = m_registry.m_folder.ReadFile("user.db");
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round)
    {
        std::string bytes = sound.substr(0, round % 5 == 0 ? random() % sound.size() : sound.size());
        for (unsigned i = 0; !bytes.empty() && i < 1 + random() % 40; ++i)
            bytes[(100 + random()) % bytes.size()] = static_cast<char>(random());
        m_registry.m_folder.WriteFile("hurt.db", bytes);
        const EnvironmentVariable chosen("TEVTOOLS_REGISTRY", m_registry.m_folder.Path("hurt.db").string());
        CRegUtil registry(kAll);
        wchar_t name[64];
        int names = 0;
        if (!registry.SetPath(kPath, false))
        {
            EXPECT_NE(registry.GetLastError(), 0);
            EXPECT_EQ(m_registry.m_folder.ReadFile("hurt.db"), bytes);
        }
        for (registry.StartSubKeyEnum(); registry.GetNextSubKeyName(name, 64); ++names)
            registry.GetSubKeyString(name, L"7", L"", false);
        registry.EndSubKeyEnum();
        EXPECT_LE(names, 10000) << "more than the file can hold";
        std::vector<tev::SettingsTreeKey> tree;
        EXPECT_LT(tev::ReadSettingsTree(tev::RootKey(tev::kCurrentUser), L"", tree), 2000U);
        registry.WriteKeyInt(L"new", 1);
        registry.DeleteKey(L"7", true);
        std::filesystem::remove(m_registry.m_folder.Path("hurt.db-journal"));
    }
}

TEST_F(SettingsDamage, WhatAHostileFileHoldsIsReadAsFarAsItGoes)
{
    const auto tree = [] {
        std::vector<tev::SettingsTreeKey> keys;
        return tev::ReadSettingsTree(tev::RootKey(tev::kCurrentUser), L"", keys);
    };
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteSubKeyInt(L"sub", L"v", 1));
    Ask(File(), "ALTER TABLE entries RENAME TO kept; CREATE VIEW entries AS SELECT * FROM kept");
    EXPECT_EQ(registry.GetSubKeyInt(L"sub", L"v", 7), 7) << "no view is executed";
    Ask(File(), "DROP VIEW entries; ALTER TABLE kept RENAME TO entries");
    EXPECT_EQ(registry.GetSubKeyInt(L"sub", L"v", 7), 1);
    MakeOlder(); // checksums would keep it from being read
    Ask(File(), "UPDATE entries SET name = x'C328ED00FF', data = CAST(x'C3A9C3A9' AS TEXT), type = 77777777777;"
                "UPDATE keys SET name = x'F8' WHERE id > 9");
    wchar_t name[16];
    ASSERT_TRUE(registry.StartValueSection(L"sub"));
    EXPECT_TRUE(registry.GetNextValueName(name, 16));
    unsigned char bytes[4] = {};
    unsigned long size = 2;
    EXPECT_FALSE(registry.GetKeyBin(L"v", bytes, size)) << "2 characters are 4 bytes";
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(bytes[3], 0);
    EXPECT_TRUE(registry.GetKeyBin(L"v", bytes, size) && bytes[3] == 0xA9);
    registry.EndValueSection();

    // A key that is its own descendant: found by no path but its own, and the walk through all ends.
    Ask(File(), "UPDATE keys SET parent = (SELECT max(id) FROM keys) WHERE parent = 2");
    EXPECT_EQ(tree(), 0U);
    Ask(File(), "UPDATE keys SET parent = 2 WHERE id = 2");
    EXPECT_EQ(tree(), 1009U);
}

TEST_F(SettingsDamage, AFileWithoutChecksumsIsReadAndThenConverted)
{
    const auto exported = [] {
        CXMemFile file;
        int error = 0;
        EXPECT_TRUE(XExportRegistry(L"", file, xEncodingUtf8, error)) << error;
        std::string text(static_cast<std::size_t>(file.GetLength()), '\0');
        file.SeekToBegin();
        file.Read(text.data(), static_cast<unsigned>(text.size()));
        return text;
    };
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true));
    const std::string large(100000, 'x');
    ASSERT_TRUE(registry.WriteKeyBin(L"large", large.data(), large.size()));
    ASSERT_TRUE(registry.WriteSubKeyString(L"Sub\\deeper", L"", L"text") && registry.WriteKeyInt(L"Int", 5));
    const std::string before = exported();
    MakeOlder();
    const std::string older = m_registry.m_folder.ReadFile("user.db");
    EXPECT_EQ(exported(), before);
    wchar_t name[16];
    unsigned long size = 0;
    EXPECT_TRUE(registry.GetKeyBin(L"large", nullptr, size) && size == large.size());
    EXPECT_TRUE(registry.StartSubKeyEnum() && registry.GetNextSubKeyName(name, 16) && name == L"Sub"s);
    registry.EndSubKeyEnum();
    EXPECT_TRUE(registry.StartValueSection(L"") && registry.GetNextValueName(name, 16) && name == L"Int"s);
    registry.EndValueSection();
    EXPECT_EQ(m_registry.m_folder.ReadFile("user.db"), older) << "reading changes nothing";

    ChildProcess another([] { return CRegUtil(kAll).SetPath(L"Software\\New", true); });
    EXPECT_TRUE(another.EndsWell());
    ASSERT_TRUE(registry.WriteKeyInt(L"INT", 5) && registry.GetLastError() == 0);
    EXPECT_EQ(Ask(File(), "PRAGMA user_version"), "2");
    CRegUtil above(kAll);
    EXPECT_TRUE(above.SetPath(L"Software", false) && above.DeleteKey(L"New", true));
    EXPECT_EQ(exported(), before) << "names keep their spelling";
    EXPECT_EQ(Ask(File(), "PRAGMA integrity_check") + Ask(File(), "PRAGMA foreign_key_check"), "ok");
    EXPECT_TRUE(registry.DeleteKey(L"Sub", true));
    EXPECT_EQ(Ask(File(), "SELECT count(*) FROM entries"), "2") << "keys take their values with them";
}

TEST_F(SettingsDamage, AConversionThatFailsChangesNothingAndLocksNothing)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyInt(L"v", 5));
    MakeOlder();
    Ask(File(), "CREATE TABLE older (a)"); // in the way
    EXPECT_FALSE(registry.WriteKeyInt(L"v", 6));
    EXPECT_EQ(registry.GetSubKeyInt(L"", L"v", 7), 5);
    EXPECT_EQ(Ask(File(), "BEGIN IMMEDIATE; DROP TABLE older; COMMIT"), "");
    EXPECT_TRUE(registry.WriteKeyInt(L"v", 6));
    EXPECT_EQ(registry.GetSubKeyInt(L"", L"v", 7), 6);
    EXPECT_EQ(Ask(File(), "SELECT checksum <> 0 FROM entries"), "1");
}

TEST_F(SettingsDamage, ChecksumsTellWhatIsDamaged)
{
    const auto prepare = [] {
        CRegUtil registry(kAll);
        EXPECT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyString(L"text", L"right"));
        EXPECT_TRUE(registry.WriteSubKeyInt(L"Sub", L"n", 7) && registry.WriteKeyInt(L"other", 8));
        return registry.GetLastError();
    };
    ASSERT_EQ(prepare(), 0);
    const struct
    {
        const char* m_damage;
        bool m_text, m_sub, m_names, m_keys; // what is still read
    } cases[] = {
        {"UPDATE entries SET data = x'720069006700670074000000' WHERE name = CAST('text' AS BLOB)", false, true, true,
         true},
        {"UPDATE entries SET type = 2 WHERE name = CAST('text' AS BLOB)", false, true, false, true},
        {"UPDATE entries SET name = CAST('texT' AS BLOB) WHERE name = CAST('text' AS BLOB)", false, true, false, true},
        {"UPDATE entries SET checksum = checksum + 1 WHERE name = CAST('text' AS BLOB)", false, true, true, true},
        {"UPDATE entries SET checksum = 0 WHERE name = CAST('text' AS BLOB)", false, true, false, true},
        {"UPDATE entries SET key = (SELECT id FROM keys WHERE fold = CAST('sub' AS BLOB)), fold = CAST('n2' AS BLOB)"
         " WHERE name = CAST('text' AS BLOB)",
         false, true, true, true},
        {"UPDATE keys SET name = CAST('sub' AS BLOB) WHERE name = CAST('Sub' AS BLOB)", true, false, true, false},
        {"UPDATE keys SET checksum = 0 WHERE name = CAST('Sub' AS BLOB)", true, false, true, false},
        {"UPDATE keys SET parent = 3 WHERE name = CAST('Software' AS BLOB)", false, false, false, false},
    };
    for (const auto& row : cases)
    {
        SCOPED_TRACE(row.m_damage);
        ASSERT_EQ(prepare(), 0);
        Ask(File(), row.m_damage);
        CRegUtil registry(kAll);
        registry.SetPath(row.m_damage[7] == 'k' && !row.m_text ? L"HKEY_LOCAL_MACHINE\\Software\\Program" : kPath,
                         false);
        EXPECT_EQ(registry.GetKeyString(L"text", false) == L"right", row.m_text);
        EXPECT_EQ(registry.GetLastError() == 0, row.m_text);
        EXPECT_EQ(registry.GetSubKeyInt(L"Sub", L"n", -1), row.m_sub ? 7 : -1);
        EXPECT_EQ(registry.GetLastError() == 0, row.m_sub);
        wchar_t name[16];
        registry.StartValueSection(L"");
        while (registry.GetNextValueName(name, 16))
            continue;
        EXPECT_EQ(registry.GetLastError() == 259, row.m_names);
        registry.EndValueSection();
        registry.StartSubKeyEnum();
        while (registry.GetNextSubKeyName(name, 16))
            continue;
        EXPECT_EQ(registry.GetLastError() == 259, row.m_keys);
        registry.EndSubKeyEnum();
        std::vector<tev::SettingsTreeKey> tree;
        EXPECT_EQ(tev::ReadSettingsTree(tev::RootKey(tev::kCurrentUser), L"", tree) == 0,
                  !row.m_text && row.m_damage[7] == 'k');
        for (const char* const suffix : {"", "-wal", "-shm"})
            std::filesystem::remove(File() + suffix);
    }
}

TEST_F(SettingsDamage, AFlippedBitNeverGivesAnotherText)
{
    const std::wstring texts[] = {L"the right text", std::wstring(3000, L'r')};
    {
        CRegUtil registry(kAll);
        ASSERT_TRUE(registry.SetPath(kPath, true));
        for (int i = 0; i < 30; ++i)
            ASSERT_TRUE(registry.WriteSubKeyString(std::to_wstring(i % 6).c_str(), std::to_wstring(i / 6).c_str(),
                                                   texts[i % 7 == 0].c_str()));
    }
    Settle();
    const std::string sound = m_registry.m_folder.ReadFile("user.db");
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    int damaged = 0;
    for (std::size_t at = 0; at < sound.size(); at += 1 + random() % (kIsSanitized ? 160 : 40))
    {
        std::string bytes = sound;
        bytes[at] = static_cast<char>(bytes[at] ^ 1 << random() % 8);
        // Two names, so that each file is opened anew.
        const std::string file = at % 2 == 0 ? "even.db" : "odd.db";
        m_registry.m_folder.WriteFile(file, bytes);
        const EnvironmentVariable chosen("TEVTOOLS_REGISTRY", m_registry.m_folder.Path(file).string());
        CRegUtil registry(kAll);
        registry.SetPath(kPath, false);
        for (int i = 0; i < 30; ++i)
        {
            const CXTString<wchar_t> text = registry.GetSubKeyString(std::to_wstring(i % 6).c_str(),
                                                                     std::to_wstring(i / 6).c_str(), L"default", false);
            damaged += text == L"default" ? 1 : 0;
            ASSERT_TRUE(text == texts[i % 7 == 0].c_str() || (text == L"default" && registry.GetLastError() != 0))
                << "byte " << at << ", value " << i << ", error " << registry.GetLastError() << ": "
                << testing::PrintToString(ToStd(text));
        }
        std::filesystem::remove(m_registry.m_folder.Path(file));
    }
    EXPECT_GT(damaged, 0);
}

/// Fills the disk of a folder until it takes no byte more.
bool Fill(const std::string& folder)
{
    const int file = open((folder + "/fill").c_str(), O_WRONLY | O_CREAT, 0600);
    const std::string block(4096, 'x');
    while (write(file, block.data(), block.size()) > 0)
        continue;
    return close(file) == 0 && errno == ENOSPC;
}

// As after a device was taken away and put back: the file is the same, but the descriptor works no more.
TEST_F(SettingsDamage, AFileIsOpenedAnewAfterAnError)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyInt(L"v", 5));
    const std::string log = File() + "-wal";
    const int unreadable = open(log.c_str(), O_WRONLY | O_CLOEXEC);
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        const int descriptor = std::stoi(entry.path().filename());
        if (descriptor != unreadable && std::filesystem::read_symlink(entry, failure) == log)
            dup3(unreadable, descriptor, O_CLOEXEC);
    }
    close(unreadable);
    EXPECT_EQ(Ask(File(), "UPDATE sqlite_sequence SET seq = seq + 1"), ""); // so that the log is read again
    EXPECT_EQ(registry.GetSubKeyInt(L"", L"v", 7), 7);
    EXPECT_EQ(registry.GetLastError(), 6) << "of the descriptor";
    EXPECT_EQ(registry.GetSubKeyInt(L"", L"v", 7), 5);
    EXPECT_TRUE(registry.WriteKeyInt(L"v", 6));
}

TEST_F(SettingsDamage, AFullDiskCanBeRead)
{
    constexpr int kNoRight = 77;
    const std::string folder = m_registry.m_folder.Path("disk").string();
    std::filesystem::create_directory(folder);
    const EnvironmentVariable chosen("TEVTOOLS_REGISTRY", folder + "/r.db");
    const struct
    {
        const char* m_options;
        bool m_hasLog;
    } cases[] = {{"size=256k", false}, {"size=256k", true}, {"size=256k,nr_inodes=3", false}};
    for (const auto& row : cases)
    {
        SCOPED_TRACE(std::string(row.m_options) + (row.m_hasLog ? " with a log" : ""));
        const int result = ResultInChild([&] {
            if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=256k") != 0)
                return kNoRight;
            {
                CRegUtil registry(kAll);
                if (!registry.SetPath(kPath, true) || !registry.WriteKeyInt(L"v", 5))
                    return 1;
                const ChildProcess closes([] { return true; });
            }
            if (!row.m_hasLog)
                Ask(folder + "/r.db", "PRAGMA wal_checkpoint(TRUNCATE)");
            unlink((folder + "/r.db-shm").c_str()); // as after the computer has stopped
            if (mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT, row.m_options) != 0 || !Fill(folder))
                return 2;
            unsigned long value = 0;
            CRegUtil registry(kAll);
            if (!registry.SetPath(kPath, false) || !registry.GetKeyInt(L"v", value) || value != 5)
                return 3;
            const std::string large(100000, 'x');
            if (registry.WriteKeyBin(L"w", large.data(), large.size()) || registry.GetLastError() != 112)
                return 4;
            // The file is not kept locked, and there is no lasting harm.
            unlink((folder + "/fill").c_str());
            mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT, "size=1m,nr_inodes=100");
            ChildProcess other([] { return CRegUtil(kAll).SetPath(L"Software\\Other", true); });
            if (!other.EndsWell() || !registry.WriteKeyInt(L"v", 6) || !registry.GetKeyInt(L"v", value) || value != 6)
                return 5;
            const ChildProcess closes([] { return true; });
            Ask(folder + "/r.db", "PRAGMA wal_checkpoint(TRUNCATE)");
            // Where nothing may be written for a while, this is the reason that is given.
            mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
            if (!registry.GetKeyInt(L"v", value) || registry.WriteKeyInt(L"v", 7) || registry.GetLastError() != 19)
                return 6;
            mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT, nullptr);
            return registry.WriteKeyInt(L"v", 8) && registry.GetKeyInt(L"v", value) && value == 8 ? 0 : 7;
        });
        if (result == kNoRight)
            GTEST_SKIP() << "this user may not mount";
        EXPECT_EQ(result, 0);
    }
}
} // namespace
