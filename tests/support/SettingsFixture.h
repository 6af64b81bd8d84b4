#pragma once

#include "tests/support/ForkedChild.h"
#include "tests/support/TestRegistry.h"

#include <sqlite3.h>

namespace tev::test
{
constexpr unsigned long kAll = CRegUtil::kAllAccess;
constexpr const wchar_t* kPath = L"Software\\Program";

/// Carries a statement out as another program would.
inline std::string Ask(const std::string& file, const std::string& statement)
{
    sqlite3* database = nullptr;
    std::string answer;
    sqlite3_open(file.c_str(), &database);
    const auto take = [](void* text, int, char** columns, char**) {
        *static_cast<std::string*>(text) = columns[0];
        return 0;
    };
    if (sqlite3_exec(database, statement.c_str(), take, &answer, nullptr) != SQLITE_OK)
        answer = sqlite3_errmsg(database);
    sqlite3_close(database);
    return answer;
}

class SettingsStore : public testing::Test
{
protected:
    /// Closes all connections, as a fork does, and puts everything into the one file.
    void Settle() const
    {
        const ChildProcess closes([] { return true; });
        Ask(File(), "PRAGMA journal_mode = DELETE");
    }
    /// Makes a settled file one of the layout without checksums.
    void MakeOlder() const
    {
        Settle();
        Ask(File(), "BEGIN; ALTER TABLE keys DROP COLUMN checksum; ALTER TABLE entries DROP COLUMN checksum;"
                    "PRAGMA user_version = 1; COMMIT");
    }
    std::string File() const { return m_registry.m_folder.Path("user.db").string(); }

    TestRegistry m_registry;
};
} // namespace tev::test
