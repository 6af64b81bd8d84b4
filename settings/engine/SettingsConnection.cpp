#include "settings/engine/SettingsConnection.h"

#include "platform/DatabaseFiles.h"
#include "platform/SystemErrors.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

namespace tev
{
namespace
{
constexpr int kLogIndexSize = 32768; // of its first part, as the database library maps it

/// The errno of a failed call for the database or, where there was none, for its log.
int LastFileError(sqlite3* handle) noexcept
{
    int error = 0;
    sqlite3_file* log = nullptr;
    if (sqlite3_file_control(handle, "main", SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK && error != 0)
        return error;
    if (sqlite3_file_control(handle, "main", SQLITE_FCNTL_JOURNAL_POINTER, static_cast<void*>(&log)) == SQLITE_OK &&
        log->pMethods != nullptr) // which a journal that is not open lacks
        log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
    return error;
}

bool IsDeviceError(int error) noexcept
{
    return error == EIO || error == ENXIO;
}
} // namespace

unsigned SettingsConnection::Open(const std::string& name, int flags)
{
    const int result = sqlite3_open_v2(name.c_str(), &m_handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (m_handle == nullptr)
        return kSettingsNoMemory;
    sqlite3_extended_result_codes(m_handle, 1);
    if (result != SQLITE_OK)
        return ErrorOf(result);
    // The file is untrusted input: no trigger, view or function in it may be executed.
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(m_handle, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
    return kSettingsDone;
}

unsigned SettingsConnection::Execute(const char* text)
{
    return ErrorOf(sqlite3_exec(m_handle, text, nullptr, nullptr, nullptr));
}

unsigned SettingsConnection::ReadNumber(const char* text, std::int64_t& number)
{
    sqlite3_stmt* statement = nullptr;
    int result = sqlite3_prepare_v2(m_handle, text, -1, &statement, nullptr);
    if (result == SQLITE_OK && (result = sqlite3_step(statement)) == SQLITE_ROW)
        number = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return ErrorOf(result);
}

void SettingsConnection::Close(bool emptiesLog) noexcept
{
    FinalizeStatements();
    if (m_handle != nullptr && !emptiesLog)
        sqlite3_db_config(m_handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    m_logIndex = nullptr;
    sqlite3_close(std::exchange(m_handle, nullptr));
    m_isBroken = false;
}

// The index of the write-ahead log lies in memory that all processes share. It begins with two copies of a header, which every
// change writes anew: the second copy, then the first. Other processes take their next change from there too, so that what
// they see is seen here, and a killed writer leaves nothing behind that the next one would not put right.
void SettingsConnection::FindMark() noexcept
{
    sqlite3_file* file = nullptr;
    volatile void* index = nullptr;
    if (sqlite3_file_control(m_handle, "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK && file != nullptr &&
        file->pMethods != nullptr && file->pMethods->iVersion >= 2 && file->pMethods->xShmMap != nullptr &&
        file->pMethods->xShmMap(file, 0, kLogIndexSize, 0, &index) == SQLITE_OK)
        m_logIndex = static_cast<const volatile std::uint64_t*>(index);
}

bool SettingsConnection::ReadMark(SettingsMark& mark) const noexcept
{
    if (m_logIndex == nullptr)
        return false;
    std::copy_n(m_logIndex, mark.size(), mark.begin());
    std::atomic_thread_fence(std::memory_order_acquire);
    const auto half = mark.begin() + static_cast<std::ptrdiff_t>(mark.size() / 2);
    return std::equal(mark.begin(), half, half); // else a change is about to be made
}

unsigned SettingsConnection::Prepare(SettingsStatement statement, sqlite3_stmt*& prepared)
{
    sqlite3_stmt*& known = m_statements[static_cast<std::size_t>(statement)];
    unsigned error = kSettingsDone;
    if (known == nullptr)
    {
        const std::string text = SettingsStatementText(statement, m_hasChecksums);
        error = ErrorOf(sqlite3_prepare_v3(m_handle, text.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &known, nullptr));
    }
    prepared = known;
    return error;
}

void SettingsConnection::FinalizeStatements() noexcept
{
    for (sqlite3_stmt*& statement : m_statements)
        sqlite3_finalize(std::exchange(statement, nullptr));
}

unsigned SettingsConnection::ErrorOf(int result)
{
    const auto systemError = [&](unsigned otherwise) {
        int error = sqlite3_system_errno(m_handle);
        if (error == 0)
            error = LastFileError(m_handle);
        return error == 0 ? otherwise : platform::SystemErrorFromErrno(error);
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
        if (!platform::MayWriteFile(m_path))
            return platform::LastSystemError();
        // It could not be opened for writing when the connection was made; why is not known any more.
        m_isBroken = true;
        return kSettingsReopen;
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return kSettingsAccessDenied;
    case SQLITE_FULL:
        return kSettingsDiskFull;
    case SQLITE_TOOBIG:
        return kSettingsTooLarge;
    case SQLITE_CONSTRAINT:
        return result == SQLITE_CONSTRAINT_FOREIGNKEY ? kSettingsKeyDeleted : kSettingsDamaged;
    case SQLITE_CANTOPEN: {
        // A log that could not be created is reported as missing.
        m_isBroken = true;
        const unsigned error = systemError(kSettingsOpenFailed);
        return error == kSettingsNotFound ? unsigned{kSettingsOpenFailed} : error;
    }
    case SQLITE_IOERR:
        m_isBroken = true;
        return systemError(kSettingsDeviceError);
    case SQLITE_CORRUPT: // also of a device that could not be read
        m_isBroken = true;
        return IsDeviceError(LastFileError(m_handle)) ? systemError(kSettingsDeviceError) : unsigned{kSettingsDamaged};
    default: // not a database, or one with other tables
        m_isBroken = true;
        return kSettingsDamaged;
    }
}
} // namespace tev
