#pragma once

#include "settings/engine/SettingsStore.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace tev
{
/// Changes of values, and conditions, that are collected, and made together. One thread at a time.
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

    /// A condition: there is this value when the changes are made; null for none of this name. Its place among the changes counts.
    [[nodiscard]] unsigned Expect(SettingsKey key, const wchar_t* name, const SettingsValue* value);

    /// In each store all of the changes, in their order, or none. kSettingsChanged where a condition is not met.
    [[nodiscard]] unsigned Make();

private:
    enum class Kind
    {
        Write,
        Delete,
        ExpectValue,
        ExpectNone
    };
    struct Change;

    unsigned Add(SettingsKey key, const wchar_t* name, Kind kind, unsigned type, std::string_view data);
    static unsigned MakeOne(const Change& change);

    std::vector<Change> m_changes;
};
} // namespace tev
