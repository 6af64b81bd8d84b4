#include "settings/engine/SettingsQuery.h"

#include "settings/engine/SettingsChecksums.h"
#include "settings/engine/SettingsDatabase.h"

#include <sqlite3.h>

namespace tev
{
SettingsQuery::SettingsQuery(SettingsDatabase& database, SettingsStatement statement)
    : m_connection(database.Connection())
{
    m_error = m_connection.Prepare(statement, m_statement);
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
        m_error = m_connection.ErrorOf(sqlite3_bind_int64(m_statement, ++m_bound, number));
    return *this;
}

SettingsQuery& SettingsQuery::With(std::string_view bytes)
{
    // A null pointer would bind NULL instead of an empty blob.
    const char* const start = bytes.empty() ? "" : bytes.data();
    if (m_error == kSettingsDone)
        m_error = m_connection.ErrorOf(sqlite3_bind_blob64(m_statement, ++m_bound, start, bytes.size(), SQLITE_STATIC));
    return *this;
}

unsigned SettingsQuery::Next()
{
    if (m_error != kSettingsDone)
        return m_error;
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_DONE)
        return m_error = kSettingsNoMoreItems;
    return m_error = m_connection.ErrorOf(result);
}

unsigned SettingsQuery::Run()
{
    const unsigned error = Next();
    return error == kSettingsNoMoreItems ? kSettingsDone : error;
}

bool SettingsQuery::HasChanged() const
{
    return sqlite3_changes64(m_connection.Get()) != 0;
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

bool SettingsQuery::IsIntactKey(std::int64_t parent) const
{
    return !m_connection.HasChecksums() || Number(3) == SettingsKeyChecksum(Number(2), parent, Bytes(1), Bytes(0));
}

bool SettingsQuery::IsIntactValue(std::int64_t key, bool withData) const
{
    if (!m_connection.HasChecksums())
        return true;
    const SettingsValueHead head = {key, Bytes(1), Bytes(0), Number(2), Number(3)};
    return withData ? Number(4) == SettingsValueChecksum(head, Bytes(5)) : IsChecksumOfHead(Number(4), head);
}

SettingsTransaction::~SettingsTransaction()
{
    // The database library may have rolled back already.
    SettingsConnection& connection = m_database.Connection();
    if (m_isOpen && connection.Get() != nullptr && sqlite3_get_autocommit(connection.Get()) == 0)
        static_cast<void>(connection.Execute("ROLLBACK"));
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
} // namespace tev
