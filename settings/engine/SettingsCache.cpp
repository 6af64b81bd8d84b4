#include "settings/engine/SettingsCache.h"

#include <new>

namespace tev
{
namespace
{
constexpr std::size_t kMostKept = 1 << 20;
constexpr std::size_t kLargestKept = 1 << 13;
constexpr std::size_t kEntryCost = 128; // what an entry takes beside its bytes
} // namespace

void SettingsCache::Seek(Kind kind, std::int64_t key, std::string_view fold)
{
    m_sought.assign(1, static_cast<char>(kind));
    m_sought.append(reinterpret_cast<const char*>(&key), sizeof key).append(fold);
}

const SettingsCache::Entry* SettingsCache::Find(Kind kind, std::int64_t key, std::string_view fold)
{
    SettingsMark now;
    const bool hasMark = m_connection.ReadMark(now);
    if (!hasMark || !m_hasMark || now != m_mark)
    {
        Clear();
        m_mark = now;
        m_hasMark = hasMark;
        return nullptr;
    }
    Seek(kind, key, fold);
    const auto found = m_entries.find(m_sought);
    return found == m_entries.end() ? nullptr : &found->second;
}

void SettingsCache::Keep(Kind kind, std::int64_t key, std::string_view fold, unsigned error, std::int64_t number,
                         std::string_view data) noexcept
{
    SettingsMark now;
    const std::size_t size = fold.size() + data.size();
    if (!m_hasMark || size > kLargestKept || !m_connection.ReadMark(now) || now != m_mark)
        return;
    if (m_size + kEntryCost + size > kMostKept)
    {
        m_entries.clear();
        m_size = 0;
    }
    try
    {
        Seek(kind, key, fold);
        m_entries.insert_or_assign(m_sought, Entry{error, number, std::string(data)});
        m_size += kEntryCost + size;
    }
    catch (const std::bad_alloc&)
    {
        Clear();
    }
}

void SettingsCache::Clear() noexcept
{
    m_entries.clear();
    m_size = 0;
    m_hasMark = false;
}
} // namespace tev
