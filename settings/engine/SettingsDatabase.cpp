#include "settings/engine/SettingsDatabase.h"

#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"
#include "platform/posix/files/OwnedDescriptor.h"
#include "settings/engine/SettingsNames.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr int kBusyMs = 5000;
constexpr auto kBusyStep = std::chrono::milliseconds(2);
constexpr int kApplicationId = 0x54765267; // "TvRg"
constexpr mode_t kOwnFolder = 0700;
constexpr mode_t kOwnFile = 0600;

// In the order of SettingsStatement.
constexpr const char* kStatements[] = {
    "BEGIN",
    "BEGIN IMMEDIATE", // one that begins as a reader fails at its first change when another process has written since
    "COMMIT",
    "ROLLBACK",
    "SELECT id FROM keys WHERE parent = ?1 AND fold = ?2",
    "SELECT 1 FROM keys WHERE id = ?1",
    "INSERT INTO keys (parent, fold, name) VALUES (?1, ?2, ?3) RETURNING id",
    "DELETE FROM keys WHERE id = ?1",
    "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
    "SELECT count(*) FROM keys WHERE parent = ?1",
    "SELECT count(*) FROM entries WHERE key = ?1",
    "SELECT name, fold FROM keys WHERE parent = ?1 ORDER BY fold LIMIT 1 OFFSET ?2",
    "SELECT name, fold FROM keys WHERE parent = ?1 AND fold >= ?2 ORDER BY fold LIMIT 1",
    "SELECT name, fold FROM keys WHERE parent = ?1 AND fold > ?2 ORDER BY fold LIMIT 1",
    "SELECT name, fold FROM entries WHERE key = ?1 ORDER BY fold LIMIT 1 OFFSET ?2",
    "SELECT name, fold FROM entries WHERE key = ?1 AND fold >= ?2 ORDER BY fold LIMIT 1",
    "SELECT name, fold FROM entries WHERE key = ?1 AND fold > ?2 ORDER BY fold LIMIT 1",
    "SELECT type, data FROM entries WHERE key = ?1 AND fold = ?2",
    "SELECT type, length(data) FROM entries WHERE key = ?1 AND fold = ?2", // reads none of the data
    ("INSERT INTO entries (key, fold, name, type, data) VALUES (?1, ?2, ?3, ?4, ?5)"
     " ON CONFLICT (key, fold) DO UPDATE SET type = excluded.type, data = excluded.data"),
    "DELETE FROM entries WHERE key = ?1 AND fold = ?2",
    "SELECT id, name FROM keys WHERE parent = ?1 ORDER BY fold",
    "SELECT name, type, data FROM entries WHERE key = ?1 ORDER BY fold",
};
static_assert(std::size(kStatements) == static_cast<std::size_t>(SettingsStatement::Count));

// The number of a key is never given to another key, not even in a file that replaces this one, so that a handle to a
// deleted key finds nothing. Hence AUTOINCREMENT, and a random first number. docs/formats.md describes these tables.
constexpr char kLayout[] = R"(
CREATE TABLE keys (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER REFERENCES keys (id) ON DELETE CASCADE,
    fold BLOB NOT NULL,
    name BLOB NOT NULL,
    UNIQUE (parent, fold));
CREATE TABLE entries (
    key INTEGER NOT NULL REFERENCES keys (id) ON DELETE CASCADE,
    fold BLOB NOT NULL,
    name BLOB NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    PRIMARY KEY (key, fold)) WITHOUT ROWID;
INSERT INTO keys (id, parent, fold, name) VALUES
    (1, NULL, CAST('hkey_classes_root' AS BLOB), CAST('HKEY_CLASSES_ROOT' AS BLOB)),
    (2, NULL, CAST('hkey_current_user' AS BLOB), CAST('HKEY_CURRENT_USER' AS BLOB)),
    (3, NULL, CAST('hkey_local_machine' AS BLOB), CAST('HKEY_LOCAL_MACHINE' AS BLOB)),
    (4, NULL, CAST('hkey_users' AS BLOB), CAST('HKEY_USERS' AS BLOB)),
    (6, NULL, CAST('hkey_current_config' AS BLOB), CAST('HKEY_CURRENT_CONFIG' AS BLOB)),
    (7, NULL, CAST('hkey_dyn_data' AS BLOB), CAST('HKEY_DYN_DATA' AS BLOB)),
    (1000 + (random() & 0xFFFFFFFFFF), NULL, x'', x'');
DELETE FROM keys WHERE id >= 1000;
)";

std::mutex g_lock;

void Lock()
{
    AddLockWeight(t_threadLocks, kLibraryLockWeight);
    g_lock.lock();
}
void Unlock()
{
    g_lock.unlock();
    TakeLockWeight(t_threadLocks, kLibraryLockWeight);
}

std::vector<SettingsDatabase*>& Databases()
{
    static auto* const databases =
        new std::vector<SettingsDatabase*>; // handles may be closed by destructors of static objects
    return *databases;
}

bool FolderIsWritable(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
    return access(folder.c_str(), W_OK) == 0;
}

unsigned CreateFile(const std::string& path)
{
    for (std::size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1))
        mkdir(path.substr(0, end).c_str(), kOwnFolder); // a failure here makes opening the file fail
    const OwnedDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOwnFile));
    return file.Get() < 0 ? LastSystemError() : kSettingsDone;
}

/// The path as the database library's name of a file that is not changed by any process.
std::string ImmutableName(const std::string& path)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string name = path.front() == '/' ? "file://" : "file:";
    for (const char c : path)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '%' || c == '?' || c == '#')
            (name += '%') += {kDigits[byte >> 4], kDigits[byte & 15]};
        else
            name += c;
    }
    return name + "?immutable=1";
}
} // namespace

SettingsLock::SettingsLock()
{
    Lock();
}

SettingsLock::~SettingsLock()
{
    Unlock();
}

void SettingsDatabase::CloseAll(Closing closing) noexcept
{
    for (SettingsDatabase* const database : Databases())
        database->Close(closing);
}

void SettingsDatabase::BeforeFork()
{
    Lock();
    CloseAll(Closing::LeaveFiles);
}

void SettingsDatabase::AfterFork()
{
    Unlock();
}

void SettingsDatabase::AtExit()
{
    const SettingsLock lock;
    CloseAll(Closing::Tidy);
}

SettingsDatabase::SettingsDatabase(std::string path, SettingsJournal journal)
    : m_path(std::move(path)), m_journal(journal)
{
    // The locks of a connection belong to the process that opened it. A child that inherited an open connection would
    // take its parent's locks for its own, so none is open while the process forks.
    static const int registered = pthread_atfork(BeforeFork, AfterFork, AfterFork) | std::atexit(AtExit);
    static_cast<void>(registered);
    Databases().push_back(this);
}

SettingsDatabase::~SettingsDatabase()
{
    Close(Closing::Tidy);
    auto& all = Databases();
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
}

unsigned SettingsDatabase::Connect(bool create)
{
    struct stat status = {};
    const bool isThere = stat(m_path.c_str(), &status) == 0;
    const int error = errno;
    const Identity found{status.st_dev, status.st_ino};
    // An immutable connection does not see the changes of other processes.
    if (m_connection != nullptr && (m_isBroken || m_isImmutable || !isThere || !(found == m_identity)))
        Close(Closing::LeaveFiles);
    if (m_connection != nullptr)
        return kSettingsDone;
    if (!isThere && (error != ENOENT || !create))
        return SystemErrorFromErrno(error);
    if (isThere && !S_ISREG(status.st_mode))
        return kSettingsAccessDenied;
    if (!isThere)
    {
        if (const unsigned failure = CreateFile(m_path); failure != kSettingsDone)
            return failure;
    }
    return Open(create);
}

unsigned SettingsDatabase::Open(bool create)
{
    unsigned error = OpenFile(m_path, SQLITE_OPEN_READWRITE);
    if (error == kSettingsDone)
        error = Prepare(create);
    if (error != kSettingsDone && error != kSettingsNotFound && MustBeReadImmutable())
    {
        Close(Closing::LeaveFiles);
        error = OpenFile(ImmutableName(m_path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
        m_isImmutable = true;
        if (error == kSettingsDone)
            error = Prepare(false);
    }
    struct stat status = {};
    if (error == kSettingsDone && stat(m_path.c_str(), &status) != 0)
        error = LastSystemError();
    if (error != kSettingsDone)
    {
        Close(Closing::LeaveFiles);
        return error;
    }
    m_identity = {status.st_dev, status.st_ino};
    return kSettingsDone;
}

/// With a write-ahead log even a reader needs an index file next to the database. Where none can be created, and there
/// is no log, no process is writing either.
bool SettingsDatabase::MustBeReadImmutable() const
{
    struct stat log = {};
    const bool hasLog = stat((m_path + "-wal").c_str(), &log) == 0 && log.st_size != 0;
    return !hasLog && access(m_path.c_str(), R_OK) == 0 && !FolderIsWritable(m_path);
}

unsigned SettingsDatabase::OpenFile(const std::string& name, int flags)
{
    const int result = sqlite3_open_v2(name.c_str(), &m_connection, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (m_connection == nullptr)
        return kSettingsNoMemory;
    sqlite3_extended_result_codes(m_connection, 1);
    if (result != SQLITE_OK)
        return ErrorOf(result);
    sqlite3_busy_timeout(m_connection, kBusyMs);
    // The file is untrusted input: no trigger, view or function in it may be executed.
    sqlite3_db_config(m_connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(m_connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(m_connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(m_connection, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
    return kSettingsDone;
}

unsigned SettingsDatabase::Prepare(bool create)
{
    bool isNew = false;
    unsigned error = Execute("BEGIN"); // another process may be making the layout
    if (error == kSettingsDone)
        error = CheckLayout(isNew);
    if (error == kSettingsDone)
        error = Execute("COMMIT");
    if (error == kSettingsDone && isNew)
        error = create ? MakeLayout() : kSettingsNotFound;
    if (error == kSettingsDone)
        error = Execute("PRAGMA cell_size_check = ON; PRAGMA journal_size_limit = 4194304");
    if (error != kSettingsDone)
        return error;
    // With a write-ahead log a power failure loses no more than the last changes, and the end of a program nothing.
    std::int64_t hasLog = 0;
    error = ReadNumber("SELECT journal_mode = 'wal' FROM pragma_journal_mode", hasLog);
    if (error == kSettingsDone)
        error = Execute(hasLog != 0 ? "PRAGMA synchronous = NORMAL" : "PRAGMA synchronous = FULL");
    return error;
}

unsigned SettingsDatabase::CheckLayout(bool& isNew)
{
    std::int64_t application = 0;
    std::int64_t version = 0;
    std::int64_t tables = 0;
    unsigned error = ReadNumber("PRAGMA application_id", application);
    if (error == kSettingsDone)
        error = ReadNumber("PRAGMA user_version", version);
    if (error == kSettingsDone)
        error = ReadNumber("SELECT count(*) FROM sqlite_schema", tables);
    if (error != kSettingsDone)
        return error;
    isNew = application == 0 && version == 0 && tables == 0;
    if (isNew)
        return kSettingsDone;
    if (application != kApplicationId)
        return kSettingsForeign;
    return version == kSettingsFoldingVersion  ? kSettingsDone
           : version > kSettingsFoldingVersion ? kSettingsNewer
                                               : kSettingsDamaged;
}

unsigned SettingsDatabase::MakeLayout()
{
    if (sqlite3_db_readonly(m_connection, "main") == 1)
        return ErrorOf(SQLITE_READONLY);
    if (m_journal == SettingsJournal::WriteAhead)
    {
        // The busy timeout does not apply to a change of the journal's mode. A file system without shared memory keeps
        // the rollback journal.
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyMs);
        unsigned error = Execute("PRAGMA journal_mode = WAL");
        for (; error == kSettingsBusy && std::chrono::steady_clock::now() < end;
             error = Execute("PRAGMA journal_mode = WAL"))
            std::this_thread::sleep_for(kBusyStep);
        if (error != kSettingsDone)
            return error;
    }
    unsigned error = Execute("BEGIN IMMEDIATE");
    if (error != kSettingsDone)
        return error;
    bool isNew = false; // another process may have made the layout meanwhile
    error = CheckLayout(isNew);
    if (error == kSettingsDone && isNew)
    {
        error = Execute(kLayout);
        const std::string marks = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                                  "; PRAGMA user_version = " + std::to_string(kSettingsFoldingVersion);
        if (error == kSettingsDone)
            error = Execute(marks.c_str());
    }
    if (error == kSettingsDone)
        error = Execute("COMMIT");
    if (error != kSettingsDone)
        static_cast<void>(Execute("ROLLBACK"));
    return error;
}

unsigned SettingsDatabase::Execute(const char* text)
{
    return ErrorOf(sqlite3_exec(m_connection, text, nullptr, nullptr, nullptr));
}

unsigned SettingsDatabase::ReadNumber(const char* text, std::int64_t& number)
{
    sqlite3_stmt* statement = nullptr;
    int result = sqlite3_prepare_v2(m_connection, text, -1, &statement, nullptr);
    if (result == SQLITE_OK && (result = sqlite3_step(statement)) == SQLITE_ROW)
        number = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return ErrorOf(result);
}

void SettingsDatabase::Close(Closing closing) noexcept
{
    struct stat status = {};
    const bool isOurs = m_connection != nullptr && stat(m_path.c_str(), &status) == 0 &&
                        Identity{status.st_dev, status.st_ino} == m_identity;
    for (sqlite3_stmt*& statement : m_statements)
        sqlite3_finalize(std::exchange(statement, nullptr));
    // When the file was replaced, the log files next to it belong to its successor.
    if (m_connection != nullptr && (closing == Closing::LeaveFiles || !isOurs))
        sqlite3_db_config(m_connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_close(std::exchange(m_connection, nullptr));
    m_isBroken = false;
    m_isImmutable = false;
}

unsigned SettingsDatabase::ErrorOf(int result)
{
    const auto systemError = [&](unsigned otherwise) {
        const int error = sqlite3_system_errno(m_connection);
        return error == 0 ? otherwise : SystemErrorFromErrno(error);
    };
    switch (result & 0xFF)
    {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return kSettingsDone;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return kSettingsBusy;
    case SQLITE_NOMEM:
        return kSettingsNoMemory;
    case SQLITE_READONLY:
        return access(m_path.c_str(), W_OK) != 0 ? LastSystemError() : kSettingsAccessDenied;
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return kSettingsAccessDenied;
    case SQLITE_FULL:
        return kSettingsDiskFull;
    case SQLITE_TOOBIG:
        return kSettingsTooLarge;
    case SQLITE_CONSTRAINT:
        return result == SQLITE_CONSTRAINT_FOREIGNKEY ? kSettingsKeyDeleted : kSettingsDamaged;
    case SQLITE_CANTOPEN:
        m_isBroken = true;
        return systemError(kSettingsOpenFailed);
    case SQLITE_IOERR:
        m_isBroken = true;
        return result == SQLITE_IOERR_CORRUPTFS ? kSettingsDamaged : systemError(kSettingsDeviceError);
    default: // not a database, a damaged one, or one with other tables
        m_isBroken = true;
        return kSettingsDamaged;
    }
}

SettingsQuery::SettingsQuery(SettingsDatabase& database, SettingsStatement statement) : m_database(database)
{
    const auto index = static_cast<std::size_t>(statement);
    sqlite3_stmt*& prepared = database.m_statements[index];
    if (prepared == nullptr)
        m_error = database.ErrorOf(sqlite3_prepare_v3(database.m_connection, kStatements[index], -1,
                                                      SQLITE_PREPARE_PERSISTENT, &prepared, nullptr));
    m_statement = prepared;
}

SettingsQuery::~SettingsQuery()
{
    if (m_statement == nullptr)
        return;
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

SettingsQuery& SettingsQuery::With(std::int64_t number)
{
    if (m_error == kSettingsDone)
        m_error = m_database.ErrorOf(sqlite3_bind_int64(m_statement, ++m_bound, number));
    return *this;
}

SettingsQuery& SettingsQuery::With(std::string_view bytes)
{
    // A null pointer would bind NULL instead of an empty blob.
    const char* const start = bytes.empty() ? "" : bytes.data();
    if (m_error == kSettingsDone)
        m_error = m_database.ErrorOf(sqlite3_bind_blob64(m_statement, ++m_bound, start, bytes.size(), SQLITE_STATIC));
    return *this;
}

unsigned SettingsQuery::Next()
{
    if (m_error != kSettingsDone)
        return m_error;
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_DONE)
        return m_error = kSettingsNoMoreItems;
    return m_error = m_database.ErrorOf(result);
}

unsigned SettingsQuery::Run()
{
    const unsigned error = Next();
    return error == kSettingsNoMoreItems ? kSettingsDone : error;
}

bool SettingsQuery::HasChanged() const
{
    return sqlite3_changes64(m_database.m_connection) != 0;
}

std::int64_t SettingsQuery::Number(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

std::string_view SettingsQuery::Bytes(int column) const
{
    const auto* const start = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    return start == nullptr
               ? std::string_view()
               : std::string_view(start, static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)));
}

SettingsTransaction::~SettingsTransaction()
{
    if (m_isOpen &&
        sqlite3_get_autocommit(m_database.m_connection) == 0) // the database library may have rolled back already
        static_cast<void>(SettingsQuery(m_database, SettingsStatement::Rollback).Run());
}

unsigned SettingsTransaction::Begin(bool writing)
{
    const unsigned error =
        SettingsQuery(m_database, writing ? SettingsStatement::BeginWriting : SettingsStatement::Begin).Run();
    m_isOpen = error == kSettingsDone;
    return error;
}

unsigned SettingsTransaction::Commit()
{
    const unsigned error = SettingsQuery(m_database, SettingsStatement::Commit).Run();
    m_isOpen = m_isOpen && error != kSettingsDone;
    return error;
}
} // namespace tev::platform
