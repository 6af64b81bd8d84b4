#pragma once

#include "settings/engine/SettingsDatabase.h"
#include "settings/engine/SettingsNames.h"
#include "settings/engine/SettingsStore.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// What the handles of keys stand for. Everything here is done under SettingsLock.

namespace tev::platform
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

/// The key of a handle: one that was given out, or a root, which is put into `root`. Null for what is no handle.
SettingsKeyState* FindSettingsKey(SettingsKey key, SettingsKeyState& root);

SettingsKey AddSettingsKey(SettingsKeyState state);
bool RemoveSettingsKey(SettingsKey key);

/// Connects the key's database, which is made only for a root.
[[nodiscard]] unsigned ConnectSettingsKey(const SettingsKeyState& state, bool create);

/// Whether the key is in its database. Tells apart why something was not found in it.
[[nodiscard]] unsigned CheckSettingsKey(const SettingsKeyState& state);

/// Walks from a key down the names, which `state` then stands for. With `create`, in a transaction that writes, what is
/// missing is made.
[[nodiscard]] unsigned WalkSettingsKeys(SettingsKeyState& state, const std::vector<SettingsName>& names, bool create);
} // namespace tev::platform
