#pragma once

#include "settings/PreferenceFile.h"
#include "tests/support/StoreBytes.h"
#include "tests/support/TempFolder.h"

// Preference files whose stores hold one number each.

namespace tev::test
{
using Keys = std::pair<unsigned, unsigned>;
using Records = std::vector<XPreferenceRecord>;

constexpr unsigned kValue = 7;

inline CCustomData Holding(int value)
{
    CCustomData store;
    store.SetInt(kValue, value);
    return store;
}

/// What stands in the file under the keys, -1 for nothing.
inline int Saved(const std::wstring& path, Keys keys)
{
    CCustomData store;
    int value = -1;
    if (store.LoadFromPrefs(path.c_str(), keys.first, keys.second, false))
        store.GetInt(kValue, value, -1);
    return value;
}

inline bool Save(const std::wstring& path, Keys keys, int value)
{
    return Holding(value).SaveToPrefs(path.c_str(), keys.first, keys.second);
}

inline std::string KeyBytes(Keys keys)
{
    return Number(keys.first) + Number(keys.second);
}

inline std::string Record(Keys keys, unsigned value)
{
    return KeyBytes(keys) + StoreOf(Chunk(kValue, CCustomData::kInt, Number(value)), 1);
}

inline std::string File(const std::vector<std::string>& records)
{
    std::string file = Number(static_cast<unsigned>(records.size()));
    for (const std::string& record : records)
        file += record;
    return file;
}
} // namespace tev::test
