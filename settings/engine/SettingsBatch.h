#pragma once

#include "settings/engine/SettingsStore.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace tev
{
/// Changes of values that are collected, and made together. One thread at a time.
class SettingsBatch
{
public:
    SettingsBatch();
    ~SettingsBatch();
    SettingsBatch(const SettingsBatch&) = delete;
    SettingsBatch& operator=(const SettingsBatch&) = delete;

    // A key need not be open any more when the changes are made.

    [[nodiscard]] unsigned Write(SettingsKey key, const wchar_t* name, unsigned type, const void* data,
                                 std::uint64_t size);
    /// To delete what is missing is no failure.
    [[nodiscard]] unsigned Delete(SettingsKey key, const wchar_t* name);

    /// In each store all of the changes, in their order, or none.
    [[nodiscard]] unsigned Make();

private:
    struct Change;

    unsigned Add(SettingsKey key, const wchar_t* name, bool deletes, unsigned type, std::string_view data);

    std::vector<Change> m_changes;
};
} // namespace tev
