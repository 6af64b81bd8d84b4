#include "settings/engine/SettingsDatabase.h"

#include "objects/ThreadStatus.h"
#include "platform/DatabaseFiles.h"
#include "platform/ForkHandlers.h"
#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"
#include "settings/engine/SettingsLayout.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <utility>
#include <vector>

namespace tev
{
namespace
{
constexpr auto kPatience = std::chrono::seconds(5);
constexpr auto kPatienceAtEnd = std::chrono::milliseconds(100); // of a thread that is asked to end
constexpr auto kLongestPause = std::chrono::milliseconds(10);
constexpr int kCommitMs = 10; // how long a change waits for readers, which only a rollback journal has to

platform::SystemLock g_settingsLock;

std::vector<SettingsDatabase*>& Databases()
{
    static auto* const databases =
        new std::vector<SettingsDatabase*>; // handles may be closed by destructors of statics
    return *databases;
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
    g_settingsLock.lock();
}

SettingsLock::~SettingsLock()
{
    SettingsDatabase::CloseShortLived();
    g_settingsLock.unlock();
}

bool SettingsPatience::Wait()
{
    const LongOperation operation("waiting for another program that changes the registry");
    const auto now = std::chrono::steady_clock::now();
    if (m_pause.count() == 0)
        m_start = now;
    if (now - m_start >= (IsThreadAskedToEnd() ? kPatienceAtEnd : std::chrono::milliseconds(kPatience)))
        return false;
    m_pause = std::min(m_pause + std::chrono::milliseconds(1), kLongestPause);
    std::this_thread::sleep_for(m_pause);
    return true;
}

/// The locks of a connection belong to the process that opened it. A child that inherited an open connection would take its
/// parent's locks for its own, so none is open while the process forks.
struct SettingsForkCalls
{
    static void Before()
    {
        g_settingsLock.lock();
        SettingsDatabase::CloseAll(SettingsDatabase::Closing::LeaveFiles);
    }
    static void After() { g_settingsLock.unlock(); }
};

namespace
{
const platform::ForkHandler g_forkHandler(platform::ForkRank::SettingsDatabase, &SettingsForkCalls::Before,
                                          &SettingsForkCalls::After, &SettingsForkCalls::After);
} // namespace

void SettingsDatabase::CloseAll(Closing closing) noexcept
{
    for (SettingsDatabase* const database : Databases())
        database->Close(closing);
}

void SettingsDatabase::CloseShortLived() noexcept
{
    for (SettingsDatabase* const database : Databases())
    {
        if (database->m_sharing != Sharing::Normal)
            database->Close(Closing::LeaveFiles);
    }
}

void SettingsDatabase::AtExit()
{
    const SettingsLock lock;
    CloseAll(Closing::Tidy);
}

SettingsDatabase::SettingsDatabase(std::string path, SettingsJournal journal)
    : m_path(std::move(path)), m_journal(journal), m_connection(m_path)
{
    static const int registered = std::atexit(AtExit);
    static_cast<void>(registered);
    Databases().push_back(this);
}

SettingsDatabase::~SettingsDatabase()
{
    Close(Closing::Tidy);
    auto& all = Databases();
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
}

unsigned SettingsDatabase::Connect(SettingsUse use)
{
    platform::DatabaseFile file;
    const bool isThere = platform::FindDatabaseFile(m_path, file);
    const unsigned whyNot = isThere ? unsigned{kSettingsDone} : platform::LastSystemError();
    if (m_connection.IsOpen() &&
        (m_connection.IsBroken() || !isThere || !(Identity{file.device, file.number} == m_identity)))
        Close(Closing::LeaveFiles);
    unsigned error = kSettingsDone;
    if (!m_connection.IsOpen())
    {
        if (!isThere && (whyNot != kSettingsNotFound || use != SettingsUse::Create))
            return whyNot;
        if (isThere && !file.isRegular)
            return kSettingsAccessDenied;
        if (!isThere && !platform::CreateDatabaseFile(m_path))
            return platform::LastSystemError();
        error = Open(use);
    }
    if (error == kSettingsDone && use != SettingsUse::Read && !m_connection.HasChecksums())
        error = SettingsLayout(m_connection).Convert();
    return error;
}

/// With a write-ahead log even a reader needs an index file next to the database. On a full disk it does without one while
/// it has the file to itself. Where not even that is possible, or the folder is read-only, and there is no log, no process
/// can be writing.
unsigned SettingsDatabase::Open(SettingsUse use)
{
    const bool create = use == SettingsUse::Create;
    unsigned error = OpenAs(Sharing::Normal, create);
    if (error == kSettingsOpenFailed &&
        !platform::CreateDatabaseFile(m_path + "-wal")) // tells why, as the library does not
        error = platform::LastSystemError();
    const unsigned whyNot = error;
    if (whyNot == kSettingsDiskFull)
        error = OpenAs(Sharing::Alone, create);
    const bool isFailure = error != kSettingsDone && error != kSettingsNotFound && error != kSettingsBusy;
    if (isFailure && use == SettingsUse::Read && !HasLog() && platform::MayReadFile(m_path) &&
        (whyNot == kSettingsDiskFull || !platform::MayWriteFolderOf(m_path)))
        error = OpenAs(Sharing::Immutable, false);
    else if (isFailure)
        error = whyNot;
    platform::DatabaseFile file;
    if (error == kSettingsDone && !platform::FindDatabaseFile(m_path, file))
    {
        error = platform::LastSystemError();
        Close(Closing::LeaveFiles);
    }
    m_identity = {file.device, file.number};
    return error;
}

bool SettingsDatabase::HasLog() const
{
    platform::DatabaseFile log;
    return platform::FindDatabaseFile(m_path + "-wal", log) && log.size != 0;
}

unsigned SettingsDatabase::OpenAs(Sharing sharing, bool create)
{
    const bool isImmutable = sharing == Sharing::Immutable;
    unsigned error = isImmutable ? m_connection.Open(ImmutableName(m_path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI)
                                 : m_connection.Open(m_path, SQLITE_OPEN_READWRITE);
    m_sharing = sharing;
    if (error == kSettingsDone)
        error = SettingsLayout(m_connection).AddFunctions();
    if (error == kSettingsDone && sharing == Sharing::Alone)
        error = m_connection.Execute("PRAGMA locking_mode = EXCLUSIVE");
    if (error == kSettingsDone)
        error = Prepare(create);
    if (error != kSettingsDone)
        Close(Closing::LeaveFiles);
    return error;
}

unsigned SettingsDatabase::Prepare(bool create)
{
    bool isNew = false;
    unsigned error = m_connection.Execute("BEGIN"); // another process may be making the layout
    if (error == kSettingsDone)
        error = SettingsLayout(m_connection).Check(isNew);
    if (error == kSettingsDone)
        error = m_connection.Execute("COMMIT");
    if (error == kSettingsDone && isNew)
        error =
            create ? SettingsLayout(m_connection).Make(m_journal == SettingsJournal::WriteAhead) : kSettingsNotFound;
    if (error == kSettingsDone)
        error = m_connection.Execute("PRAGMA cell_size_check = ON; PRAGMA journal_size_limit = 4194304");
    if (error != kSettingsDone)
        return error;
    // With a write-ahead log a power failure loses no more than the last changes, and the end of a program nothing.
    std::int64_t hasLog = 0;
    error = m_connection.ReadNumber("SELECT journal_mode = 'wal' FROM pragma_journal_mode", hasLog);
    if (error == kSettingsDone)
        error = m_connection.Execute(hasLog != 0 ? "PRAGMA synchronous = NORMAL" : "PRAGMA synchronous = FULL");
    sqlite3_busy_timeout(m_connection.Get(), hasLog != 0 ? 0 : kCommitMs);
    if (hasLog != 0 && m_sharing == Sharing::Normal)
        m_connection.FindMark();
    return error;
}

void SettingsDatabase::Close(Closing closing) noexcept
{
    platform::DatabaseFile file;
    const bool isOurs = m_connection.IsOpen() && platform::FindDatabaseFile(m_path, file) &&
                        Identity{file.device, file.number} == m_identity;
    // When the file was replaced, the log files next to it belong to its successor.
    m_cache.Clear();
    m_connection.Close(closing == Closing::Tidy && isOurs);
    m_sharing = Sharing::Normal;
}
} // namespace tev
