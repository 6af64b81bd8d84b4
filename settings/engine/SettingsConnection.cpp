#include "settings/engine/SettingsConnection.h"

#include "platform/DatabaseFiles.h"
#include "platform/SystemErrors.h"

#include <sqlite3.h>

#include <utility>

namespace tev
{
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
    sqlite3_close(std::exchange(m_handle, nullptr));
    m_isBroken = false;
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
        const int error = sqlite3_system_errno(m_handle);
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
        return platform::MayWriteFile(m_path) ? unsigned{kSettingsAccessDenied} : platform::LastSystemError();
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
        return result == SQLITE_IOERR_CORRUPTFS ? kSettingsDamaged : systemError(kSettingsDeviceError);
    default: // not a database, a damaged one, or one with other tables
        m_isBroken = true;
        return kSettingsDamaged;
    }
}
} // namespace tev
