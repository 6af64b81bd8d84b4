#pragma once

#include "settings/engine/SettingsConnection.h"
#include "settings/engine/SettingsStore.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tev
{
/// What was read from a database, for as long as nobody has changed it since. Where its state cannot be told without a query,
/// nothing is kept. Everything under SettingsLock.
class SettingsCache
{
public:
    enum class Kind : char
    {
        Key,  ///< by the path below a key
        Value ///< by the name in a key
    };
    /// What was found, or why nothing was.
    struct Entry
    {
        unsigned error = kSettingsDone;
        std::int64_t number = 0; ///< of the key, or the type of the value
        std::string data;        ///< of the value
    };

    explicit SettingsCache(const SettingsConnection& connection) noexcept : m_connection(connection) {}

    /// Null for what has to be read. Valid until the next call.
    const Entry* Find(Kind kind, std::int64_t key, std::string_view fold);
    /// Keeps what was read since Find did not find it, unless the database was changed meanwhile.
    void Keep(Kind kind, std::int64_t key, std::string_view fold, unsigned error, std::int64_t number = 0,
              std::string_view data = {}) noexcept;
    void Clear() noexcept;

private:
    void Seek(Kind kind, std::int64_t key, std::string_view fold);

    const SettingsConnection& m_connection;
    SettingsMark m_mark{}; ///< the state of the database when the entries were read
    bool m_hasMark = false;
    std::unordered_map<std::string, Entry> m_entries;
    std::size_t m_size = 0; ///< of the entries, about, in bytes
    std::string m_sought;
};
} // namespace tev
