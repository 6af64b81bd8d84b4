#pragma once

#include "settings/engine/SettingsStore.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <sys/types.h>

struct sqlite3;
struct sqlite3_stmt;

namespace tev::platform
{
/// How a new database makes its changes safe.
enum class SettingsJournal
{
    WriteAhead, ///< fast, and readers wait for nobody; a reader must be allowed to write beside the file
    Rollback    ///< read by those who may not write; each change waits for the disk
};

/// What is asked of a database; the texts stand in the source, in the same order.
enum class SettingsStatement
{
    Begin,
    BeginWriting,
    Commit,
    Rollback,
    FindKey,
    KeyExists,
    AddKey,
    DeleteKey,
    HasKeys,
    CountKeys,
    CountValues,
    KeyAt,
    KeyFrom,
    KeyAfter,
    ValueAt,
    ValueFrom,
    ValueAfter,
    ReadValue,
    MeasureValue,
    WriteValue,
    DeleteValue,
    AllKeys,
    AllValues,
    Count
};

/// One file of settings. The connection is made when it is first needed, follows the file when another one takes its
/// place, and is never open while the process forks. One thread at a time, under SettingsLock.
class SettingsDatabase
{
public:
    SettingsDatabase(std::string path, SettingsJournal journal);
    ~SettingsDatabase();
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;

    const std::string& Path() const noexcept { return m_path; }

    /// Must succeed before anything is asked. Without `create` kSettingsNotFound where nothing was stored yet.
    [[nodiscard]] unsigned Connect(bool create);

private:
    friend class SettingsQuery;
    friend class SettingsTransaction;

    enum class Closing
    {
        Tidy,      ///< what the log holds goes into the database
        LeaveFiles ///< nothing beside the file is touched
    };

    struct Identity
    {
        dev_t device = 0;
        ino_t number = 0;
        bool operator==(const Identity& other) const { return device == other.device && number == other.number; }
    };

    static void CloseAll(Closing closing) noexcept;
    static void BeforeFork();
    static void AfterFork();
    static void AtExit();

    unsigned Open(bool create);
    unsigned OpenFile(const std::string& name, int flags);
    unsigned Prepare(bool create);
    unsigned CheckLayout(bool& isNew);
    unsigned MakeLayout();
    bool MustBeReadAsItIs() const;
    unsigned Execute(const char* text);
    unsigned ReadNumber(const char* text, std::int64_t& number);
    void Close(Closing closing) noexcept;
    /// The code of a failed call. After those of a damaged file the next Connect begins anew.
    unsigned ErrorOf(int result);

    const std::string m_path;
    const SettingsJournal m_journal;
    sqlite3* m_connection = nullptr;
    std::array<sqlite3_stmt*, static_cast<std::size_t>(SettingsStatement::Count)> m_statements{};
    Identity m_identity;
    bool m_isBroken = false;
    bool m_isAsItIs = false; ///< read without locks, see MustBeReadAsItIs
};

/// One run of a statement, from binding its arguments to its last row.
class SettingsQuery
{
public:
    SettingsQuery(SettingsDatabase& database, SettingsStatement statement);
    ~SettingsQuery();
    SettingsQuery(const SettingsQuery&) = delete;
    SettingsQuery& operator=(const SettingsQuery&) = delete;

    /// Binds the next argument. Bytes must stay until the query ends.
    SettingsQuery& With(std::int64_t number);
    SettingsQuery& With(std::string_view bytes);

    /// kSettingsDone with a row, kSettingsNoMoreItems behind the last one.
    [[nodiscard]] unsigned Next();
    /// For what has no rows.
    [[nodiscard]] unsigned Run();
    /// Whether the statement that ran has changed anything itself.
    bool HasChanged() const;

    std::int64_t Number(int column) const;
    /// Stays until the next row.
    std::string_view Bytes(int column) const;

private:
    SettingsDatabase& m_database;
    sqlite3_stmt* m_statement = nullptr;
    unsigned m_error = kSettingsDone;
    int m_bound = 0;
};

/// What happens between Begin and Commit is seen, and done, at one moment. Without Commit it is undone.
class SettingsTransaction
{
public:
    explicit SettingsTransaction(SettingsDatabase& database) : m_database(database) {}
    ~SettingsTransaction();
    SettingsTransaction(const SettingsTransaction&) = delete;
    SettingsTransaction& operator=(const SettingsTransaction&) = delete;

    [[nodiscard]] unsigned Begin(bool writing);
    [[nodiscard]] unsigned Commit();

private:
    SettingsDatabase& m_database;
    bool m_isOpen = false;
};

/// Held around everything that is done with databases and handles.
class SettingsLock
{
public:
    SettingsLock();
    ~SettingsLock();
    SettingsLock(const SettingsLock&) = delete;
    SettingsLock& operator=(const SettingsLock&) = delete;
};
} // namespace tev::platform
