#include "settings/engine/SettingsStore.h"

#include "objects/ThreadStatus.h"
#include "settings/CRegUtil.h"
#include "settings/engine/SettingsChecksums.h"
#include "settings/engine/SettingsDatabase.h"
#include "settings/engine/SettingsLayout.h"
#include "settings/engine/SettingsNames.h"
#include "tests/support/Eventually.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Pipe.h"
#include "tests/support/Places.h"
#include "tests/support/PrintText.h"
#include "tests/support/SettingsFixture.h"
#include "tests/support/TextTools.h"

#include <sqlite3.h>

namespace
{
using namespace tev::test;

TEST_F(SettingsStore, NamesDifferByMoreThanCaseOnly)
{
    CRegUtil registry(kAll);
    const std::tuple<const wchar_t*, const wchar_t*, bool> cases[] = {
        {L"Caf\u00C9", L"CAF\u00E9", true},
        {L"\u03A3\u03C2", L"\u03C3\u03A3", true}, // both small sigmas
        {L"\U00010400", L"\U00010428", true},     // beyond 16 bits
        {L"\u212A", L"k", true},                  // the sign of kelvin
        {L"stra\u00DFe", L"STRASSE", false},      // one character for one
        {L"\u0130", L"i", false},                 // in no language's own way
        {L"\xD800x", L"\xD801x", false},          // halves of characters
    };
    for (const auto& [written, sought, isSame] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(std::wstring(written)));
        ASSERT_TRUE(registry.SetPath(written, true));
        ASSERT_TRUE(registry.WriteKeyInt(written, 7));
        EXPECT_EQ(registry.KeyExists(sought), isSame);
        EXPECT_EQ(registry.SetPath(sought, false), isSame);
        wchar_t name[16];
        EXPECT_TRUE(registry.StartValueSection(isSame ? L"" : nullptr) || !isSame);
        EXPECT_TRUE(!isSame || (registry.GetNextValueName(name, 16) && std::wstring(name) == written));
        registry.EndValueSection();
    }
    EXPECT_EQ(ErrorOf(registry, registry.SetPath(L"\x110000", true)), 87) << "no character";
}

TEST_F(SettingsStore, NamesAndDepthsHaveTheirLimits)
{
    CRegUtil registry(kAll);
    const std::wstring key(255, L'k');
    const std::wstring pairs(127, L'\U0001F600'); // of two 16-bit units each
    EXPECT_TRUE(registry.SetPath(key.c_str(), true));
    EXPECT_EQ(ErrorOf(registry, registry.SetPath((key + L"k").c_str(), true)), 87);
    EXPECT_TRUE(registry.SetPath((pairs + L"k").c_str(), true));
    EXPECT_FALSE(registry.SetPath((pairs + L"kk").c_str(), true));
    ASSERT_TRUE(registry.SetPath(kPath, true));
    const std::wstring value(16383, L'v');
    EXPECT_TRUE(registry.WriteKeyInt(value.c_str(), 1));
    EXPECT_EQ(ErrorOf(registry, registry.WriteKeyInt((value + L"v").c_str(), 1)), 87);

    std::wstring deep = L"deep";
    for (int level = 1; level < 512; ++level)
        deep += L"\\d";
    ASSERT_TRUE(registry.SetPath(deep.c_str(), true));
    EXPECT_EQ(ErrorOf(registry, registry.WriteSubKeyInt(L"e", L"", 1)), 87);
    EXPECT_EQ(ErrorOf(registry, registry.SetPath((deep + L"\\e").c_str(), true)), 87);
    CRegUtil root(kAll);
    EXPECT_TRUE(root.DeleteKey(L"deep", true)) << root.GetLastError();
    EXPECT_FALSE(registry.SetPath(deep.c_str(), false));
    EXPECT_EQ(Ask(File(), "SELECT count(*) FROM keys WHERE name = CAST('d' AS BLOB)"), "0") << "nothing is left over";
}

TEST(SettingsNames, AreStoredAsUtf8WithLoneSurrogates)
{
    const std::pair<std::wstring, std::string> cases[] = {
        {L"\x7F\x80\x7FF\x800\xFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {L"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {{L'x', wchar_t(0xD800)}, "x\xED\xA0\x80"},
        {{wchar_t(0xD83D), wchar_t(0xD83D), wchar_t(0xDE00)}, "\xED\xA0\xBD\xF0\x9F\x98\x80"},
        {{wchar_t(0xDE00), wchar_t(0xDE01)}, "\xED\xB8\x80\xED\xB8\x81"},
    };
    tev::SettingsName name;
    for (const auto& [text, stored] : cases)
    {
        ASSERT_TRUE(tev::MakeSettingsName(text, 5, name));
        EXPECT_EQ(name.spelling, stored);
        EXPECT_EQ(name.folded, stored) << "without case";
        const bool hasPair = text.size() == 3;
        EXPECT_EQ(tev::SettingsNameText(stored), hasPair ? L"\xD83D\x1F600" : text);
    }
    EXPECT_FALSE(tev::MakeSettingsName(L"\U00010000", 1, name)) << "two units";
    EXPECT_FALSE(tev::MakeSettingsName(std::wstring(1, wchar_t(0x110000)), 5, name));
    std::vector<tev::SettingsName> names;
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(tev::SplitSettingsPath(L"a\\\\b\\", names) && names.size() == 2 && names[1].spelling == "b");

    // Bytes that are not valid, one by one.
    for (const std::string& bytes :
         {"\x80"s, "\xF8"s, "\xE2\x82"s, "\0"s, "\xC0\x80"s, "\xF4\x90\x80\x80"s, "\xF7\xBF\xBF\xBF"s})
        EXPECT_EQ(tev::SettingsNameText(bytes + "a"), std::wstring(bytes.size(), L'\uFFFD') + L"a") << bytes;
    EXPECT_EQ(tev::SettingsNameText("\xC3("), L"\uFFFD(");
}

TEST_F(SettingsStore, ValuesMayBeLarge)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true));
    std::vector<unsigned char> written(64 << 20);
    std::minstd_rand random(7);
    std::generate(written.begin(), written.end(), [&] { return static_cast<unsigned char>(random()); });
    ASSERT_TRUE(registry.WriteKeyBin(L"large", written.data(), written.size())) << registry.GetLastError();
    std::vector<unsigned char> read(written.size());
    unsigned long size = read.size();
    ASSERT_TRUE(registry.GetKeyBin(L"large", read.data(), size));
    EXPECT_TRUE(size == written.size() && read == written);
    EXPECT_EQ(ErrorOf(registry, registry.WriteKeyBin(L"larger", written.data(), 0xFFFFFFF0)), 1450)
        << "refused before it is read";
}

TEST_F(SettingsStore, ProcessesThatWriteAtOnceLoseNothing)
{
    constexpr int kProcesses = 3;
    constexpr int kWrites = 300;
    CRegUtil own(kAll);
    ASSERT_TRUE(own.SetPath(L"own", true) && own.OpenBase(false)) << "a connection is open when the others begin";
    {
        std::vector<std::unique_ptr<ChildProcess>> processes;
        for (int process = 0; process < kProcesses; ++process)
        {
            processes.push_back(std::make_unique<ChildProcess>([process] {
                CRegUtil registry(kAll);
                bool good = registry.SetPath((L"Shared\\" + std::to_wstring(process)).c_str(), true);
                for (int i = 0; i < kWrites && good; ++i)
                    good = registry.WriteKeyInt(std::to_wstring(i).c_str(), 1) &&
                           registry.WriteSubKeyInt((L"sub" + std::to_wstring(i)).c_str(), L"", 1);
                return good;
            }));
        }
        for (int i = 0; i < kWrites; ++i)
            EXPECT_TRUE(own.WriteKeyInt(std::to_wstring(i).c_str(), 1)) << own.GetLastError();
        for (const auto& process : processes)
            EXPECT_TRUE(process->EndsWell());
    }
    EXPECT_EQ(Ask(File(), "SELECT count(*) FROM entries"), std::to_string(kWrites * (2 * kProcesses + 1)));
    EXPECT_EQ(Ask(File(), "PRAGMA integrity_check"), "ok");
}

TEST_F(SettingsStore, ProcessesThatMakeTheFileAtOnceMakeOne)
{
    for (int round = 0; round < 10; ++round)
    {
        const EnvironmentVariable fresh("TEVTOOLS_REGISTRY", File() + std::to_string(round));
        std::vector<std::unique_ptr<ChildProcess>> processes;
        for (int process = 0; process < 4; ++process)
            processes.push_back(std::make_unique<ChildProcess>([process] {
                CRegUtil registry(kAll);
                return registry.SetPath(kPath, true) && registry.WriteKeyInt(std::to_wstring(process).c_str(), 1);
            }));
        for (const auto& process : processes)
            EXPECT_TRUE(process->EndsWell());
        EXPECT_EQ(Ask(File() + std::to_string(round), "SELECT count(*) FROM entries"), "4");
    }
}

TEST_F(SettingsStore, WhatAnotherProcessHasMadeMeanwhileIsNotMadeAgain)
{
    const std::string path = File();
    tev::SettingsConnection connections[] = {tev::SettingsConnection(path), tev::SettingsConnection(path)};
    const auto areNew = [&connections] {
        std::vector<bool> are;
        for (tev::SettingsConnection& connection : connections)
        {
            bool isNew = false;
            EXPECT_EQ(tev::SettingsLayout(connection).Check(isNew), 0U);
            are.push_back(isNew);
        }
        return are;
    };
    for (tev::SettingsConnection& connection : connections)
    {
        ASSERT_EQ(connection.Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), 0U);
        ASSERT_EQ(tev::SettingsLayout(connection).AddFunctions(), 0U);
    }
    EXPECT_EQ(areNew(), std::vector<bool>(2, true));
    for (tev::SettingsConnection& connection : connections)
        EXPECT_EQ(tev::SettingsLayout(connection).Make(true), 0U);
    EXPECT_EQ(areNew(), std::vector<bool>(2, false));
    EXPECT_EQ(connections[0].Execute("ALTER TABLE keys DROP COLUMN checksum; ALTER TABLE entries DROP COLUMN checksum;"
                                     "PRAGMA user_version = 1"),
              0U);
    EXPECT_EQ(areNew(), std::vector<bool>(2, false));
    for (tev::SettingsConnection& connection : connections)
    {
        EXPECT_FALSE(connection.HasChecksums());
        EXPECT_EQ(tev::SettingsLayout(connection).Convert(), 0U);
        EXPECT_TRUE(connection.HasChecksums());
    }
    connections[0].Close(true);
    EXPECT_FALSE(connections[0].IsOpen() || connections[0].IsBroken());
}

// Other programs make and read files by this page.
TEST_F(SettingsStore, TablesAndChecksumsAreTheDocumentedOnes)
{
    ASSERT_TRUE(CRegUtil(kAll).SetPath(kPath, true));
    std::ifstream page(std::string(kSourceFolder) + "/docs/formats.md");
    const std::string text((std::istreambuf_iterator<char>(page)), {});
    for (const char* const table : {"keys", "entries"})
        EXPECT_THAT(text, HasSubstr(Ask(File(), "SELECT sql FROM sqlite_schema WHERE name = '"s + table + "'") + ";"));
    EXPECT_EQ(Ask(File(), "PRAGMA application_id") + Ask(File(), "PRAGMA user_version"), "14170404872");
    // Computed from the page by hand.
    EXPECT_EQ(tev::SettingsKeyChecksum(5, -2, "caf\xC3\xA9", "Caf\xC3\xA9"), 1218955072);
    const tev::SettingsValueHead head = {5, "caf\xC3\xA9", "Caf\xC3\xA9", 4, 4};
    EXPECT_EQ(tev::SettingsValueChecksum(head, "\x05\0\xFF\0"s), -6972374395509904977);
}

TEST_F(SettingsStore, TheStateOfADatabaseIsKnownWithoutAQuery)
{
    ASSERT_TRUE(CRegUtil(kAll).SetPath(kPath, true));
    const std::string path = File();
    tev::SettingsConnection connection(path);
    tev::SettingsMark first;
    tev::SettingsMark second;
    std::int64_t number = 0;
    ASSERT_EQ(connection.Open(path, SQLITE_OPEN_READWRITE), 0U);
    EXPECT_EQ(connection.ReadNumber("SELECT count(*) FROM keys", number), 0U);
    EXPECT_FALSE(connection.ReadMark(first));
    connection.FindMark();
    EXPECT_TRUE(connection.ReadMark(first) && connection.ReadMark(second) && first == second);
    EXPECT_TRUE(CRegUtil(kAll).SetPath(L"Another", true));
    EXPECT_TRUE(connection.ReadMark(second) && first != second);
}

TEST_F(SettingsStore, AConnectionLeavesTheLogUnlessItIsToldToEmptyIt)
{
    ASSERT_TRUE(CRegUtil(kAll).SetPath(kPath, true));
    EXPECT_TRUE(ChildProcess([] { return true; }).EndsWell()); // a fork closes what is open
    const std::string path = File();
    for (const bool empties : {false, true})
    {
        tev::SettingsConnection connection(path);
        ASSERT_EQ(connection.Open(path, SQLITE_OPEN_READWRITE), 0U);
        EXPECT_EQ(connection.Execute("UPDATE keys SET checksum = checksum"), 0U);
        connection.Close(empties);
        EXPECT_EQ(m_registry.m_folder.Exists("user.db-wal"), !empties);
    }
}

TEST_F(SettingsStore, EachRootHasItsNumber)
{
    for (const wchar_t* const root : {L"HKEY_CLASSES_ROOT", L"HKEY_CURRENT_USER", L"HKEY_LOCAL_MACHINE", L"HKEY_USERS",
                                      L"HKEY_CURRENT_CONFIG", L"HKEY_DYN_DATA"})
        EXPECT_TRUE(CRegUtil(kAll).SetPath((root + L"\\Key"s).c_str(), true)) << testing::PrintToString(root);
    EXPECT_EQ(Ask(File(), "SELECT group_concat(parent) FROM keys WHERE name = CAST('Key' AS BLOB)"), "1,2,3,4,6,7");
}

TEST_F(SettingsStore, AWriterThatWaitsForAnotherProcessHoldsUpNoThreadAndNoFork)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyInt(L"a", 1));
    Pipe ready;
    Pipe release;
    char byte = 0;
    ChildProcess other([&] {
        sqlite3* database = nullptr;
        sqlite3_open(File().c_str(), &database);
        const bool locked = sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
        return locked && write(ready.WriteEnd(), "x", 1) == 1 && read(release.ReadEnd(), &byte, 1) == 1 &&
               sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    });
    ASSERT_EQ(read(ready.ReadEnd(), &byte, 1), 1);
    std::atomic<int> begun{0};
    std::vector<std::thread> writers;
    for (const wchar_t* const name : {L"b", L"c"})
        writers.emplace_back([&, name] {
            CRegUtil own(kAll);
            EXPECT_TRUE(own.SetPath(kPath, false) && own.OpenBase(false));
            ++begun;
            EXPECT_TRUE(own.WriteKeyInt(name, 1)) << own.GetLastError();
        });
    EXPECT_TRUE(Eventually([&] { return begun == 2; }));
    // Were these held up until the writers have waited long enough, the writers would fail.
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(registry.GetSubKeyInt(L"", L"a", 3), 1);
    ChildProcess child([] { return CRegUtil(kAll).SetPath(kPath, false); });
    EXPECT_TRUE(child.EndsWell());
    ASSERT_EQ(write(release.WriteEnd(), "x", 1), 1);
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_TRUE(other.EndsWell());
}

TEST_F(SettingsStore, AWriterGivesUpWhenAnotherProcessDoesNotEnd)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true));
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(File().c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(ErrorOf(registry, registry.WriteKeyInt(L"a", 1)), 170);
    std::vector<tev::SettingsTreeKey> keys;
    EXPECT_EQ(tev::ReadSettingsTree(tev::RootKey(tev::kCurrentUser), L"", keys), 0U) << "reading waits for no writer";
    EXPECT_EQ(sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    EXPECT_TRUE(registry.WriteKeyInt(L"a", 1));
}

TEST_F(SettingsStore, AThreadThatIsAskedToEndSoonGivesUpWaiting)
{
    class Ending : public tev::ThreadStatus
    {
    public:
        bool IsAskedToEnd() const noexcept override { return true; }
    };
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true));
    MakeOlder();
    sqlite3* reader = nullptr; // holds up the end of a conversion
    ASSERT_EQ(sqlite3_open(File().c_str(), &reader), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT * FROM keys", nullptr, nullptr, nullptr), SQLITE_OK);
    int waits = 0;
    std::thread([&] {
        const auto status = std::make_shared<Ending>();
        tev::SetStatusOfThisThread(status.get());
        for (tev::SettingsPatience patience; patience.Wait();)
            ++waits;
        EXPECT_EQ(ErrorOf(registry, registry.WriteKeyInt(L"v", 1)), 170);
        tev::SetStatusOfThisThread(nullptr);
    }).join();
    EXPECT_EQ(sqlite3_exec(reader, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(reader);
    EXPECT_TRUE(registry.WriteKeyInt(L"v", 1));
    EXPECT_GT(waits, 0) << "a change at the end has a chance too";
    EXPECT_LT(waits, 50) << "others wait some 500 times";
}

TEST_F(SettingsStore, AKeyIsOnlyMadeWhereItIsKnownToBeMissing)
{
    /// Lets go of the database when a thread gives up waiting for it: one that tried once more would succeed.
    class Releasing : public tev::ThreadStatus
    {
    public:
        explicit Releasing(sqlite3* database) : m_database(database) {}
        bool IsAskedToEnd() const noexcept override
        {
            if (!std::exchange(m_hasWaited, true))
                CXThread::SleepCurrentThread(150); // longer than one that is asked to end waits
            else
                sqlite3_exec(m_database, "COMMIT", nullptr, nullptr, nullptr);
            return true;
        }

    private:
        sqlite3* const m_database;
        mutable bool m_hasWaited = false;
    };
    m_registry.m_folder.WriteFile("machine.db", ""); // its readers wait for writers
    CRegUtil there(kAll);
    ASSERT_TRUE(there.SetPath(L"HKEY_LOCAL_MACHINE\\There", true) && there.OpenBase(false));
    CRegUtil missing(kAll);
    ASSERT_FALSE(missing.SetPath(L"HKEY_LOCAL_MACHINE\\Missing", false));
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(m_registry.m_folder.Path("machine.db").c_str(), &database), SQLITE_OK);
    const std::function<int()> kMaking[] = {
        [&] { return ErrorOf(missing, missing.OpenBase(true)); },
        [&] { return ErrorOf(missing, missing.SetPath(L"HKEY_LOCAL_MACHINE\\Missing", true)); },
        [&] { return ErrorOf(there, there.WriteSubKeyInt(L"Missing", L"v", 1)); }};
    for (const auto& make : kMaking)
    {
        ASSERT_EQ(sqlite3_exec(database, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
        std::thread([&] {
            const auto status = std::make_shared<Releasing>(database);
            tev::SetStatusOfThisThread(status.get());
            EXPECT_EQ(make(), 170);
            tev::SetStatusOfThisThread(nullptr);
        }).join();
        EXPECT_NE(sqlite3_get_autocommit(database), 0) << "it was tried until then";
    }
    sqlite3_close(database);
    EXPECT_TRUE(missing.OpenBase(true) && there.WriteSubKeyInt(L"Missing", L"v", 1));
}

TEST_F(SettingsStore, AProcessThatIsKilledLeavesWhatItWasToldIsDone)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true));
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    unsigned long before = 0;
    for (int round = 0; round < 30; ++round)
    {
        Pipe told;
        ChildProcess writer([&, before] {
            CRegUtil own(kAll);
            own.SetPath(kPath, false);
            for (unsigned long i = before + 1;; ++i)
            {
                if (!own.WriteSubKeyInt((L"k" + std::to_wstring(i % 7)).c_str(), L"", i) || !own.WriteKeyInt(L"n", i) ||
                    (i % 5 == 0 && !own.DeleteKey(L"k3", true) && own.GetLastError() != 2) ||
                    write(told.WriteEnd(), &i, sizeof i) != sizeof i)
                    return false;
            }
        });
        told.CloseWrite();
        unsigned long last = 0;
        const int acknowledged = static_cast<int>(random() % 100) + 1;
        for (int i = 0; i < acknowledged; ++i)
            ASSERT_EQ(read(told.ReadEnd(), &last, sizeof last), static_cast<ssize_t>(sizeof last));
        usleep(static_cast<useconds_t>(random() % 300));
        writer.Kill();
        writer.EndsWell();
        while (read(told.ReadEnd(), &last, sizeof last) > 0)
            continue;
        unsigned long stored = 0;
        ASSERT_TRUE(registry.GetKeyInt(L"n", stored)) << registry.GetLastError();
        ASSERT_TRUE(stored == last || stored == last + 1) << "round " << round << ": " << stored << ", told " << last;
        before = stored;
    }
    EXPECT_EQ(Ask(File(), "PRAGMA integrity_check"), "ok");
}

TEST_F(SettingsStore, TheMachinesRootLivesInItsFileWhereThereIsOne)
{
    const wchar_t* const path = L"HKEY_LOCAL_MACHINE\\Software\\P";
    ASSERT_TRUE(CRegUtil(kAll).SetPath(path, true));
    EXPECT_TRUE(m_registry.m_folder.Exists("user.db") && !m_registry.m_folder.Exists("machine.db"));

    m_registry.m_folder.WriteFile("machine.db", "");
    CRegUtil registry(kAll);
    EXPECT_FALSE(registry.SetPath(path, false));
    ASSERT_TRUE(registry.SetPath(path, true) && registry.WriteKeyInt(L"v", 5));
    EXPECT_TRUE(CRegUtil(kAll).SetPath(L"HKEY_CURRENT_USER\\P", true));
    EXPECT_FALSE(m_registry.m_folder.Exists("machine.db-shm")) << "only what has a log needs one";

    // Those who may only read need no file beside it.
    const std::string folder = m_registry.m_folder.Path().string();
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    for (const char* const name : {"machine.db", "user.db"})
        ASSERT_EQ(chmod((folder + "/" + name).c_str(), 0444), 0);
    ChildProcess reader([&] {
        if (geteuid() == 0 && setuid(65534) != 0)
            return false;
        unsigned long value = 0;
        CRegUtil own(kAll);
        return own.SetPath(path, false) && own.GetKeyInt(L"v", value) && value == 5 && !own.WriteKeyInt(L"v", 6) &&
               own.GetLastError() == 5 && !own.SetRelPath(L"below", true) && own.GetLastError() == 5;
    });
    EXPECT_TRUE(reader.EndsWell());
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
}

TEST_F(SettingsStore, TheFilesAreThoseOfTheEnvironment)
{
    const std::wstring user = m_registry.m_folder.WidePath("user.db");
    const std::wstring machine = m_registry.m_folder.WidePath("machine.db");
    std::filesystem::create_symlink("machine.db", m_registry.m_folder.Path("machine.db"));
    EXPECT_EQ(tev::SettingsFile(tev::kLocalMachine), machine) << "it is there, but cannot be opened";
    EXPECT_EQ(tev::SettingsFile(tev::kCurrentUser), user);
    m_registry.m_folder.WriteFile("user.db", "");
    const EnvironmentVariable beneathFile("TEVTOOLS_MACHINE_REGISTRY", File() + "/none");
    EXPECT_EQ(tev::SettingsFile(tev::kLocalMachine), user);

    const EnvironmentVariable none("TEVTOOLS_REGISTRY", "");
    const EnvironmentVariable home("HOME", "/home/me");
    const std::pair<const char*, const wchar_t*> cases[] = {{"/config", L"/config/TevTools/registry.db"},
                                                            {"config", L"/home/me/.config/TevTools/registry.db"},
                                                            {"", L"/home/me/.config/TevTools/registry.db"}};
    for (const auto& [config, file] : cases)
    {
        const EnvironmentVariable variable("XDG_CONFIG_HOME", config);
        EXPECT_EQ(tev::SettingsFile(tev::kCurrentUser), file);
    }
}

TEST_F(SettingsStore, ARootMayHaveGoneThroughASignedNumber)
{
    ASSERT_TRUE(CRegUtil(kAll).SetPath(kPath, true));
    const std::pair<std::uintptr_t, unsigned> cases[] = {{0x80000001, 0},         {0xFFFFFFFF80000001, 0},
                                                         {0x180000001, 6},        {0x7FFFFFFF80000001, 6},
                                                         {0xFFFFFFFF80000004, 6}, {0xFFFFFFFF00000001, 6}};
    for (const auto& [number, error] : cases)
    {
        tev::SettingsKey key = nullptr;
        EXPECT_EQ(tev::OpenSettingsKey(reinterpret_cast<tev::SettingsKey>(number), kPath, kAll, key), error) << number;
    }
}

TEST_F(SettingsStore, ASettledFileIsReadWhereNothingCanBeWritten)
{
    const TempFolder& folder = m_registry.m_folder;
    {
        CRegUtil registry(kAll);
        ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyInt(L"v", 5));
        const ChildProcess closes([] { return true; });
    }
    Ask(File(), "PRAGMA wal_checkpoint(TRUNCATE)"); // and takes the log away
    ASSERT_EQ(chmod(folder.Path().c_str(), 0555), 0);
    ASSERT_EQ(chmod(File().c_str(), 0444), 0);
    ChildProcess reader([] {
        unsigned long value = 0;
        CRegUtil own(kAll);
        return (geteuid() != 0 || setuid(65534) == 0) && own.SetPath(kPath, false) && own.GetKeyInt(L"v", value) &&
               value == 5 && !own.WriteKeyInt(L"v", 6) && own.GetLastError() == 5;
    });
    EXPECT_TRUE(reader.EndsWell());
    ASSERT_EQ(chmod(File().c_str(), 0), 0);
    ChildProcess refused([] {
        CRegUtil own(kAll);
        return (geteuid() != 0 || setuid(65534) == 0) && !own.SetPath(kPath, false) && own.GetLastError() == 5;
    });
    EXPECT_TRUE(refused.EndsWell());
    ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
}

TEST_F(SettingsStore, AFileThatTakesTheOldOnesPlaceIsSeen)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyInt(L"v", 5) && registry.OpenBase(false));
    for (const char* const suffix : {"", "-wal", "-shm"})
        std::filesystem::remove(File() + suffix);
    EXPECT_EQ(ErrorOf(registry, registry.WriteKeyInt(L"v", 6)), 1018) << "the key is gone with the file";
    CRegUtil later(kAll);
    EXPECT_FALSE(later.SetPath(kPath, false));
    ASSERT_TRUE(later.SetPath(kPath, true) && later.WriteKeyInt(L"v", 7));
    EXPECT_FALSE(registry.KeyExists(L"v")) << "the key of that number in the new file is another one";
    EXPECT_EQ(Ask(File(), "SELECT count(*) FROM entries"), "1");
}

TEST_F(SettingsStore, TheLogOfAFileThatTookTheOldOnesPlaceIsLeftToIt)
{
    const TempFolder& folder = m_registry.m_folder;
    const auto write = [](unsigned long value) {
        CRegUtil registry(kAll);
        return registry.SetPath(kPath, true) && registry.WriteKeyInt(L"v", value);
    };
    {
        const EnvironmentVariable next("TEVTOOLS_REGISTRY", folder.Path("next.db").string());
        EXPECT_TRUE(ChildProcess([&] { return write(7); }).EndsWell()); // does not tidy up
    }
    EXPECT_TRUE(write(5));
    for (const char* const suffix : {"", "-wal", "-shm"})
        std::filesystem::rename(folder.Path("next.db"s + suffix), File() + suffix);
    {
        const EnvironmentVariable other("TEVTOOLS_REGISTRY", folder.Path("other.db").string());
        EXPECT_TRUE(write(6)); // closes the first one
    }
    EXPECT_TRUE(folder.Exists("user.db-wal"));
    CRegUtil registry(kAll);
    EXPECT_TRUE(registry.SetPath(kPath, false));
    EXPECT_EQ(registry.GetSubKeyInt(L"", L"v", 0), 7);
}

TEST_F(SettingsStore, HandlesWorkOnInBothProcessesAfterAFork)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.OpenBase(false));
    ASSERT_TRUE(registry.WriteKeyInt(L"before", 1));
    ChildProcess child([&] { return registry.KeyExists(L"before") && registry.WriteKeyInt(L"child", 1); });
    EXPECT_TRUE(registry.WriteKeyInt(L"parent", 1));
    EXPECT_TRUE(child.EndsWell());
    EXPECT_TRUE(registry.KeyExists(L"child") && registry.KeyExists(L"parent"));
}

TEST_F(SettingsStore, ThreadsWorkAtOnce)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    OnThreads(kThreads, [](int thread) {
        CRegUtil registry(kAll);
        EXPECT_TRUE(registry.SetPath(kPath, true));
        for (int i = 0; i < kRounds; ++i)
        {
            const std::wstring name = std::to_wstring(thread) + L"-" + std::to_wstring(i);
            EXPECT_TRUE(registry.WriteSubKeyInt(name.c_str(), L"v", 1));
            EXPECT_EQ(registry.GetSubKeyInt(name.c_str(), L"v", 0), 1);
            EXPECT_TRUE(i % 2 == 0 || registry.DeleteKey(name.c_str(), false));
        }
    });
    EXPECT_EQ(Ask(File(), "SELECT count(*) FROM entries"), std::to_string(kThreads * kRounds / 2));
}
} // namespace
