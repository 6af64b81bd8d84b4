#pragma once

#include "settings/engine/SettingsStatements.h"
#include "settings/engine/SettingsStore.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

struct sqlite3_stmt;

namespace tev
{
class SettingsConnection;
class SettingsDatabase;

/// One run of a statement, from binding its arguments to its last row.
class SettingsQuery
{
public:
    SettingsQuery(SettingsDatabase& database, SettingsStatement statement);
    ~SettingsQuery();
    SettingsQuery(const SettingsQuery&) = delete;
    SettingsQuery& operator=(const SettingsQuery&) = delete;

    /// Binds the next argument. The bytes must stay valid until the query ends.
    SettingsQuery& With(std::int64_t number);
    SettingsQuery& With(std::string_view bytes);

    /// kSettingsDone with a row, kSettingsNoMoreItems behind the last one.
    [[nodiscard]] unsigned Next();
    /// For statements that return no rows.
    [[nodiscard]] unsigned Run();
    /// Whether the statement that ran has changed anything itself.
    bool HasChanged() const;

    std::int64_t Number(int column) const;
    /// Valid until the next row.
    std::string_view Bytes(int column) const;

    /// Whether a row of KeyAt has the checksum of a key below this one.
    bool IsIntactKey(std::int64_t parent) const;
    /// Whether a row of ValueAt, or of AllValues with its data, has the checksum of a value of this key.
    bool IsIntactValue(std::int64_t key, bool withData) const;

private:
    SettingsConnection& m_connection;
    sqlite3_stmt* m_statement = nullptr;
    unsigned m_error = kSettingsDone;
    int m_bound = 0;
};

/// What is done between Begin and Commit is atomic and reads one state. Without Commit it is rolled back.
class SettingsTransaction
{
public:
    explicit SettingsTransaction(SettingsDatabase& database) noexcept : m_database(database) {}
    ~SettingsTransaction();
    SettingsTransaction(const SettingsTransaction&) = delete;
    SettingsTransaction& operator=(const SettingsTransaction&) = delete;

    [[nodiscard]] unsigned Begin(bool writing);
    [[nodiscard]] unsigned Commit();

private:
    SettingsDatabase& m_database;
    bool m_isOpen = false;
};
} // namespace tev
