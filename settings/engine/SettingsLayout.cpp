#include "settings/engine/SettingsLayout.h"

#include "settings/engine/SettingsChecksums.h"
#include "settings/engine/SettingsConnection.h"

#include <sqlite3.h>

#include <string>

namespace tev
{
namespace
{
constexpr int kApplicationId = 0x54765267; // "TvRg"
constexpr int kVersionWithoutChecksums = 1;
// Raised when tables change, or when CaseFolded maps a character differently: then stored names are no longer found.
constexpr int kLayoutVersion = 2;

// The number of a key is never given to another key, not even in a file that replaces this one, so that a handle to a
// deleted key finds nothing. Hence AUTOINCREMENT, and a random first number. docs/formats.md describes these tables.
constexpr char kKeys[] = R"(
CREATE TABLE keys (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER REFERENCES keys (id) ON DELETE CASCADE,
    fold BLOB NOT NULL,
    name BLOB NOT NULL,
    checksum INTEGER NOT NULL DEFAULT 0,
    UNIQUE (parent, fold));
INSERT INTO keys (id, parent, fold, name) VALUES
    (1, NULL, CAST('hkey_classes_root' AS BLOB), CAST('HKEY_CLASSES_ROOT' AS BLOB)),
    (2, NULL, CAST('hkey_current_user' AS BLOB), CAST('HKEY_CURRENT_USER' AS BLOB)),
    (3, NULL, CAST('hkey_local_machine' AS BLOB), CAST('HKEY_LOCAL_MACHINE' AS BLOB)),
    (4, NULL, CAST('hkey_users' AS BLOB), CAST('HKEY_USERS' AS BLOB)),
    (6, NULL, CAST('hkey_current_config' AS BLOB), CAST('HKEY_CURRENT_CONFIG' AS BLOB)),
    (7, NULL, CAST('hkey_dyn_data' AS BLOB), CAST('HKEY_DYN_DATA' AS BLOB)),
    (1000 + (random() & 0xFFFFFFFFFF), NULL, x'', x'');
DELETE FROM keys WHERE id >= 1000;
UPDATE keys SET checksum = key_checksum(id, parent, fold, name);
)";

// The data of a value comes last in its row, so that the other columns are read without it.
constexpr char kEntries[] = R"(
CREATE TABLE entries (
    key INTEGER NOT NULL REFERENCES keys (id) ON DELETE CASCADE,
    fold BLOB NOT NULL,
    name BLOB NOT NULL,
    checksum INTEGER NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    PRIMARY KEY (key, fold)) WITHOUT ROWID;
)";

constexpr char kBeforeConversion[] = R"(
ALTER TABLE keys ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;
UPDATE keys SET checksum = key_checksum(id, parent, fold, name);
ALTER TABLE entries RENAME TO older;
)";
constexpr char kConversion[] = R"(
INSERT INTO entries SELECT key, fold, name, value_checksum(key, fold, name, type, data), type, data FROM older;
DROP TABLE older;
)";

std::string_view BytesOf(sqlite3_value* value)
{
    const auto* const start = static_cast<const char*>(sqlite3_value_blob(value));
    return start == nullptr ? std::string_view()
                            : std::string_view(start, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

/// key_checksum(id, parent, fold, name)
void KeyChecksum(sqlite3_context* context, int, sqlite3_value** values)
{
    sqlite3_result_int64(context, SettingsKeyChecksum(sqlite3_value_int64(values[0]), sqlite3_value_int64(values[1]),
                                                      BytesOf(values[2]), BytesOf(values[3])));
}

/// value_checksum(key, fold, name, type, data)
void ValueChecksum(sqlite3_context* context, int, sqlite3_value** values)
{
    const std::string_view data = BytesOf(values[4]);
    const SettingsValueHead head = {sqlite3_value_int64(values[0]), BytesOf(values[1]), BytesOf(values[2]),
                                    sqlite3_value_int64(values[3]), static_cast<std::int64_t>(data.size())};
    sqlite3_result_int64(context, SettingsValueChecksum(head, data));
}
} // namespace

unsigned SettingsLayout::AddFunctions()
{
    constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY;
    const auto add = [this](const char* name, int arguments, void (*function)(sqlite3_context*, int, sqlite3_value**)) {
        return m_connection.ErrorOf(sqlite3_create_function_v2(m_connection.Get(), name, arguments, kFlags, nullptr,
                                                               function, nullptr, nullptr, nullptr));
    };
    const unsigned error = add("key_checksum", 4, KeyChecksum);
    return error == kSettingsDone ? add("value_checksum", 5, ValueChecksum) : error;
}

unsigned SettingsLayout::Check(bool& isNew)
{
    std::int64_t application = 0;
    std::int64_t version = 0;
    std::int64_t tables = 0;
    unsigned error = m_connection.ReadNumber("PRAGMA application_id", application);
    if (error == kSettingsDone)
        error = m_connection.ReadNumber("PRAGMA user_version", version);
    if (error == kSettingsDone)
        error = m_connection.ReadNumber("SELECT count(*) FROM sqlite_schema", tables);
    if (error != kSettingsDone)
        return error;
    isNew = application == 0 && version == 0 && tables == 0;
    m_connection.SetHasChecksums(version != kVersionWithoutChecksums);
    if (isNew)
        return kSettingsDone;
    if (application != kApplicationId)
        return kSettingsForeign;
    return version > kLayoutVersion             ? kSettingsNewer
           : version < kVersionWithoutChecksums ? kSettingsDamaged
                                                : kSettingsDone;
}

unsigned SettingsLayout::Make(bool hasLog)
{
    if (sqlite3_db_readonly(m_connection.Get(), "main") == 1)
        return m_connection.ErrorOf(SQLITE_READONLY);
    // A file system without shared memory keeps the rollback journal.
    if (hasLog)
    {
        if (const unsigned error = m_connection.Execute("PRAGMA journal_mode = WAL"); error != kSettingsDone)
            return error;
    }
    return InOneTransaction([](bool isNew, bool) { return isNew; }, {kKeys, kEntries});
}

unsigned SettingsLayout::Convert()
{
    const unsigned error = InOneTransaction([](bool isNew, bool hasChecksums) { return !isNew && !hasChecksums; },
                                            {kBeforeConversion, kEntries, kConversion});
    m_connection.FinalizeStatements();
    return error;
}

// Another process may have done it meanwhile.
unsigned SettingsLayout::InOneTransaction(bool (*isNeeded)(bool isNew, bool hasChecksums),
                                          std::initializer_list<const char*> changes)
{
    const std::string marks = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                              "; PRAGMA user_version = " + std::to_string(kLayoutVersion);
    unsigned error = m_connection.Execute("BEGIN IMMEDIATE");
    if (error != kSettingsDone)
        return error;
    bool isNew = false;
    error = Check(isNew);
    const bool hadChecksums = m_connection.HasChecksums();
    if (error == kSettingsDone && isNeeded(isNew, hadChecksums))
    {
        for (const char* const change : changes)
            error = error == kSettingsDone ? m_connection.Execute(change) : error;
        if (error == kSettingsDone)
            error = m_connection.Execute(marks.c_str());
    }
    if (error == kSettingsDone)
        error = m_connection.Execute("COMMIT");
    m_connection.SetHasChecksums(hadChecksums || error == kSettingsDone);
    if (error != kSettingsDone)
        static_cast<void>(m_connection.Execute("ROLLBACK"));
    return error;
}
} // namespace tev
