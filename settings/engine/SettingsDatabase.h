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
    WriteAhead, ///< fast, and readers never wait; a reader must be allowed to write into the folder
    Rollback    ///< readable without the right to write; each change waits for the disk
};

/// The statements, whose texts stand in the source in the same order.
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

/// One file of settings. The connection is opened when it is first needed, opened anew when the file was replaced, and
/// closed while the process forks. One thread at a time, under SettingsLock.
class SettingsDatabase
{
public:
    SettingsDatabase(std::string path, SettingsJournal journal);
    ~SettingsDatabase();
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;

    const std::string& Path() const noexcept { return m_path; }

    /// Must succeed before every query. Without `create` kSettingsNotFound where nothing was stored yet.
    [[nodiscard]] unsigned Connect(bool create);

private:
    friend class SettingsQuery;
    friend class SettingsTransaction;

    enum class Closing
    {
        Tidy,      ///< the write-ahead log is copied into the database
        LeaveFiles ///< log and index files are left as they are
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
    bool MustBeReadImmutable() const;
    unsigned Execute(const char* text);
    unsigned ReadNumber(const char* text, std::int64_t& number);
    void Close(Closing closing) noexcept;
    /// The system error code of a result. After one that says that the file is damaged the next Connect opens it anew.
    unsigned ErrorOf(int result);

    const std::string m_path;
    const SettingsJournal m_journal;
    sqlite3* m_connection = nullptr;
    std::array<sqlite3_stmt*, static_cast<std::size_t>(SettingsStatement::Count)> m_statements{};
    Identity m_identity;
    bool m_isBroken = false;
    bool m_isImmutable = false; ///< read without locks, see MustBeReadImmutable
};

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

private:
    SettingsDatabase& m_database;
    sqlite3_stmt* m_statement = nullptr;
    unsigned m_error = kSettingsDone;
    int m_bound = 0;
};

/// What is done between Begin and Commit is atomic and reads one state. Without Commit it is rolled back.
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
