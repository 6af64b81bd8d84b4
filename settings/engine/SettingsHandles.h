#pragma once

#include "settings/engine/SettingsDatabase.h"
#include "settings/engine/SettingsNames.h"
#include "settings/engine/SettingsQuery.h"
#include "settings/engine/SettingsStore.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The keys behind the handles. Everything here is called under SettingsLock.

namespace tev
{
/// Where an enumeration stands.
struct SettingsCursor
{
    unsigned next = 0;     ///< the index behind the last one that was asked for
    std::string lastFound; ///< the folded name that it found
};

struct SettingsKeyState
{
    std::shared_ptr<SettingsDatabase> database;
    std::int64_t id = 0;
    unsigned depth = 0; ///< levels below a root
    unsigned access = 0;
    SettingsCursor keys;
    SettingsCursor values;
};

/// The key of a handle: an open key, or a root, which is put into `root`. Null for an invalid handle.
SettingsKeyState* FindSettingsKey(SettingsKey key, SettingsKeyState& root);

SettingsKey AddSettingsKey(SettingsKeyState state);
bool RemoveSettingsKey(SettingsKey key);

/// Connects the key's database, which is created only for a root.
[[nodiscard]] unsigned ConnectSettingsKey(const SettingsKeyState& state, SettingsUse use);

/// Whether the key is still in its database: distinguishes a missing value or key from a deleted parent.
[[nodiscard]] unsigned CheckSettingsKey(const SettingsKeyState& state);

// Statements that change a value of a key whose database is connected.

[[nodiscard]] unsigned WriteValueIn(const SettingsKeyState& state, const SettingsName& name, unsigned type,
                                    std::string_view data);
[[nodiscard]] unsigned DeleteValueIn(const SettingsKeyState& state, const SettingsName& name);
/// kSettingsChanged unless the key has this value, or for null none of this name.
[[nodiscard]] unsigned ExpectValueIn(const SettingsKeyState& state, const SettingsName& name,
                                     const SettingsValue* value);

/// Walks from a key down the names; `state` is the last one then. With `create`, in a transaction that writes, missing
/// keys are created.
[[nodiscard]] unsigned WalkSettingsKeys(SettingsKeyState& state, const std::vector<SettingsName>& names, bool create);
} // namespace tev
