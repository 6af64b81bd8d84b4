#pragma once

#include "platform/Cancellation.h"
#include "settings/engine/SettingsCache.h"
#include "settings/engine/SettingsConnection.h"
#include "settings/engine/SettingsStore.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace tev
{
/// How a new database makes its changes safe.
enum class SettingsJournal
{
    WriteAhead, ///< fast, and readers never wait; a reader must be allowed to write into the folder
    Rollback    ///< readable without the right to write; each change waits for the disk
};

/// What a database is connected for.
enum class SettingsUse
{
    Read,
    Write, ///< a file of the older layout is converted
    Create ///< a missing file is created too
};

/// One file of settings. The connection is opened when it is first needed, opened anew when the file was replaced, and
/// closed while the process forks. It never waits for another process: what would have to is kSettingsBusy, see
/// RetryWhileBusy. One thread at a time, under SettingsLock.
class SettingsDatabase
{
public:
    SettingsDatabase(std::string path, SettingsJournal journal);
    ~SettingsDatabase();
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;

    const std::string& Path() const noexcept { return m_path; }

    /// Must succeed before every query. Unless it may be created, kSettingsNotFound where nothing was stored yet.
    [[nodiscard]] unsigned Connect(SettingsUse use);

    SettingsConnection& Connection() noexcept { return m_connection; }
    SettingsCache& Cache() noexcept { return m_cache; }

private:
    friend class SettingsLock;
    friend struct SettingsForkCalls;

    enum class Closing
    {
        Tidy,      ///< the write-ahead log is copied into the database
        LeaveFiles ///< log and index files are left as they are
    };

    /// How a connection shares the file.
    enum class Sharing
    {
        Normal,
        Alone,    ///< locks the file, and needs no index file
        Immutable ///< takes no locks, and needs neither log nor index file
    };

    struct Identity
    {
        std::uint64_t device = 0;
        std::uint64_t number = 0;
        bool operator==(const Identity& other) const { return device == other.device && number == other.number; }
    };

    static void CloseAll(Closing closing) noexcept;
    static void CloseShortLived() noexcept;
    static void AtExit();

    unsigned Open(SettingsUse use);
    unsigned OpenAs(Sharing sharing, bool create);
    unsigned Prepare(bool create);
    bool HasLog() const;
    void Close(Closing closing) noexcept;

    const std::string m_path;
    const SettingsJournal m_journal;
    SettingsConnection m_connection;
    SettingsCache m_cache{m_connection};
    Identity m_identity;
    Sharing m_sharing = Sharing::Normal; ///< one that is not normal is closed when the lock is released
};

/// Held around everything that is done with databases and handles.
class SettingsLock
{
public:
    SettingsLock();
    ~SettingsLock();
    SettingsLock(const SettingsLock&) = delete;
    SettingsLock& operator=(const SettingsLock&) = delete;

private:
    const platform::WithoutCancellation m_whole; // the database library could not go on
};

/// How long an operation waits for another process that writes; not long on a thread that is asked to end.
class SettingsPatience
{
public:
    /// Waits a moment. False when it has been long enough.
    bool Wait();

private:
    std::chrono::steady_clock::time_point m_start{};
    std::chrono::milliseconds m_pause{0};
};

/// Repeats an attempt, which takes SettingsLock and undoes what it did when it answers kSettingsBusy or kSettingsReopen, after
/// which a connection is made anew. Between two attempts the lock is free: other threads go on, and the process can fork.
template <class Attempt>
unsigned RetryWhileBusy(Attempt attempt)
{
    SettingsPatience patience;
    unsigned error = attempt();
    bool isReopened = false;
    while ((error == kSettingsReopen && !std::exchange(isReopened, true)) ||
           (error == kSettingsBusy && patience.Wait()))
        error = attempt();
    return error == kSettingsReopen ? unsigned{kSettingsAccessDenied} : error;
}
} // namespace tev
