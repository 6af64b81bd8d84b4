#include "settings/engine/SettingsStatements.h"

#include <cstddef>
#include <iterator>
#include <string_view>

namespace tev
{
namespace
{
#define TEV_KEY_ROW "SELECT name, fold, id, checksum FROM keys WHERE parent = ?1"
#define TEV_VALUE_ROW "SELECT name, fold, type, length(data), checksum FROM entries WHERE key = ?1"
#define TEV_WHOLE_VALUE_ROW "SELECT name, fold, type, length(data), checksum, data FROM entries WHERE key = ?1"

// In the order of SettingsStatement. The length of data is known without reading the data.
constexpr const char* kStatements[] = {
    "BEGIN",
    "BEGIN IMMEDIATE", // one that begins as a reader fails at its first change when another process has written since
    "COMMIT",
    TEV_KEY_ROW " AND fold = ?2",
    "SELECT 1 FROM keys WHERE id = ?1",
    "INSERT INTO keys (parent, fold, name, checksum) VALUES (?1, ?2, ?3, 0) RETURNING id",
    "UPDATE keys SET checksum = key_checksum(id, parent, fold, name) WHERE id = ?1",
    "DELETE FROM keys WHERE id = ?1",
    "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
    TEV_KEY_ROW " ORDER BY fold LIMIT 1 OFFSET ?2",
    TEV_KEY_ROW " AND fold >= ?2 ORDER BY fold LIMIT 1",
    TEV_KEY_ROW " AND fold > ?2 ORDER BY fold LIMIT 1",
    TEV_VALUE_ROW " ORDER BY fold LIMIT 1 OFFSET ?2",
    TEV_VALUE_ROW " AND fold >= ?2 ORDER BY fold LIMIT 1",
    TEV_VALUE_ROW " AND fold > ?2 ORDER BY fold LIMIT 1",
    TEV_WHOLE_VALUE_ROW " AND fold = ?2",
    TEV_VALUE_ROW " AND fold = ?2",
    // A value keeps the spelling of its name, so the checksum is that of the row and not of what was bound.
    ("INSERT INTO entries (key, fold, name, checksum, type, data)"
     " VALUES (?1, ?2, ?3, value_checksum(?1, ?2, ?3, ?4, ?5), ?4, ?5) ON CONFLICT (key, fold) DO UPDATE SET"
     " checksum = value_checksum(key, fold, name, excluded.type, excluded.data), type = excluded.type,"
     " data = excluded.data"),
    "DELETE FROM entries WHERE key = ?1 AND fold = ?2",
    TEV_KEY_ROW " ORDER BY fold",
    TEV_WHOLE_VALUE_ROW " ORDER BY fold",
};
static_assert(std::size(kStatements) == static_cast<std::size_t>(SettingsStatement::Count));
} // namespace

std::string SettingsStatementText(SettingsStatement statement, bool hasChecksums)
{
    constexpr std::string_view kColumn = ", checksum";
    std::string text = kStatements[static_cast<std::size_t>(statement)];
    const std::size_t at = text.find(kColumn);
    if (!hasChecksums && text.compare(0, 6, "SELECT") == 0 && at != text.npos)
        text.replace(at, kColumn.size(), ", NULL");
    return text;
}
} // namespace tev
